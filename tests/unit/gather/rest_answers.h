// Answers of the product's web service, put together readably.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/fakes/platform_fake.h"

namespace corvane::test {

// An element of "data"; `attributes` are the members of its "attributes" as JSON text.
inline std::string element(const std::string& id, const std::string& attributes) {
  return R"({"type": "x", "id": ")" + id + R"(", "attributes": {)" + attributes + "}}";
}

// The commonest elements: an image with a job, and a job that is stored with or without an image.
inline std::string image(int job_id, const std::string& id, const std::string& more = "") {
  return element(id, R"("policyType": "STANDARD", "jobId": )" + std::to_string(job_id) +
                         (more.empty() ? "" : ", ") + more);
}

inline std::string job(int job_id, const std::string& more = "") {
  return element(std::to_string(job_id),
                 R"("policyType": "STANDARD", "state": "DONE", "status": 0, "jobId": )" +
                     std::to_string(job_id) + R"(, "startTime": "2026-01-31T04:00:00.000Z",
                     "endTime": "2026-01-31T04:10:00.000Z",
                     "backupTime": "2026-01-31T04:00:01.000Z", "destinationStorageUnitName": "disk",
                     "kilobytesTransferred": 5)" +
                     (more.empty() ? "" : ", ") + more);
}

// A whole answer whose "meta" names the next page, when there is one.
inline std::string page(const std::vector<std::string>& elements,
                        std::optional<int> next = std::nullopt) {
  std::string data;
  for (const std::string& one : elements) data += (data.empty() ? "" : ",") + one;
  return R"({"data": [)" + data + R"(], "meta": {"pagination": {"limit": 100)" +
         (next ? R"(, "next": )" + std::to_string(*next) : "") + "}}}";
}

inline void answer(const std::string& body, long status = 200) {
  corvane::fake::state().answers.push_back({.result = 0, .status = status, .body = body});
}

// The server is not reached.
inline void fail_request(int result = 7) {
  corvane::fake::state().answers.push_back({.result = result, .status = 0, .body = ""});
}

}  // namespace corvane::test
