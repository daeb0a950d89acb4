// One live gather over the web service, with all that belongs to it.
#include "anomaly_database/backup_row.h"
#include "tests/unit/faults/attempt.h"
#include "tests/unit/faults/outcome.h"
#include "tests/unit/gather/rest_answers.h"

namespace corvane::test {
namespace {

constexpr int kLast = kNow - 3600;
constexpr int kQueued = kNow - 5000;
const std::string kLastRow = "LAST_BACKUP_DATA_CAPTURE|" + std::to_string(kLast);
const std::string kQueueInsert = "INSERT OR REPLACE INTO QUEUED_TO_CAPTURE_DATA  VALUES ( ?, ? ); ";
const std::string kFeedback =
    R"({"data": [{"type": "anomalyFeedback", "id": "a1", "attributes": {}}]})";
const std::string kPadding = R"("policyName": ")" + std::string(300, 'p') + "\"";

// Two pages each of images and jobs: jobs 1 and 2 have an image there, that of job 3 is asked for,
// job 4 still runs.
std::string answer_to(const std::string& path) {
  const bool second_page = path.find("offset%5D=1&") != std::string::npos;
  if (path.ends_with("anomalies")) return kFeedback;
  if (path.find("images/image_3") != std::string::npos) {
    return R"({"data": {"attributes": {"policyType": "CLOUD", "clientName": "fetched"}}})";
  }
  if (path.find("images?") != std::string::npos) {
    return second_page ? page({image(2, "image_2", kPadding)})
                       : page({image(1, "image_1", kPadding)}, 1);
  }
  if (!second_page) return page({job(1), job(2)}, 1);
  return page({element("3", R"("policyType": "CLOUD", "jobId": 3, "backupId": "image_3",
                   "state": "DONE", "status": 0, "startTime": "2026-01-31T04:00:00.000Z",
                   "endTime": "2026-01-31T04:10:00.000Z", "scheduleName": "a schedule",
                   "destinationStorageUnitName": "disk", "kilobytesTransferred": 5,
                   "backupTime": "2026-01-31T04:00:01.000Z")"),
               element("4", R"("policyType": "STANDARD", "jobId": 4, "state": "ACTIVE",
                   "startTime": "2026-01-31T05:00:00.000Z")")});
}

void append_feedback_lines(std::vector<Stated>& stated) {
  stated.push_back({error("Failed to get user feedback response from API"), 1});
  stated.push_back(
      {error("Failed to get user feedback response from API. API return code - 56"), 1});
  stated.push_back({error("Failed to parse user feedback response " + kFeedback), 1});
  stated.push_back({error("Failed to capture user feedback for anomaly id a1"), 1});
}

std::vector<Stated> stated_lines() {
  std::vector<Stated> stated{
      {error("JSON parsing failed for jobs data ")},
      // A job without the attributes of its image.
      {progress("Image data could not capture for backupId: image_3"), 1, "|image_3|"},
      {error("Exception occurred while getting data from backupId: std::bad_alloc ")},
      // The page before is read again: its jobs come twice, the second time without their images.
      {progress("API return value: 56 "), 0, "DATA_TO_PROCESS||"},
      {error("Failed to purge database."), 0, "|old"}};
  for (const int from : {kQueued, kLast + 1}) {
    stated.push_back({error("Could not capture data between " + std::to_string(from) + " & " +
                            std::to_string(kNow) + " "),
                      kAny});
  }
  append(stated, kBrokenRequestLines);
  // Nothing is gathered then.
  append(stated, with_reasons("Failed to get last known data gather time to database ",
                              {"SELECT LAST_BACKUP_TIME FROM LAST_BACKUP_DATA_CAPTURE;"}, kAny));
  append(stated, with_reasons("Failed to query queued job details ",
                              {"SELECT COUNT(*) FROM QUEUED_TO_CAPTURE_DATA;",
                               "SELECT MIN(START_TIME) FROM QUEUED_TO_CAPTURE_DATA;",
                               "DELETE FROM QUEUED_TO_CAPTURE_DATA"},
                              0, "QUEUED_TO_CAPTURE_DATA|7|"));
  append(stated, with_reasons("Failed to insert last known data gather time to database  ",
                              {"DELETE FROM LAST_BACKUP_DATA_CAPTURE",
                               "INSERT OR REPLACE INTO LAST_BACKUP_DATA_CAPTURE VALUES(?)"},
                              1, kLastRow));
  append(stated, with_reasons("Error inserting data: ", {corvane::kInsertDataToProcess}, 1));
  append(stated, with_reasons("Error inserting data in ", {kQueueInsert}, 1));
  append_feedback_lines(stated);
  return stated;
}

class LiveGatherFaults : public FaultTest {
 protected:
  int gather(const FaultPoint& point, Outcome& outcome) const {
    SmallWorld world;
    query(world.handle(),
          "INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (" + std::to_string(kLast) + ")");
    query(world.handle(),
          "INSERT INTO QUEUED_TO_CAPTURE_DATA VALUES (7, " + std::to_string(kQueued) + ")");
    query(world.handle(), "INSERT INTO ANOMALY_DATA VALUES ('old', '', 1, '', '', 5)");
    corvane::fake::state().handler = [](const corvane::fake::HttpRequest& request) {
      if (fails(Fault::kRequest)) return kBrokenRequest;
      const FaultsSuspended suspended;
      return corvane::fake::HttpAnswer{.body = answer_to(request.path)};
    };
    world.gather->set_detection_state(0);
    const int failed = failed_calls_of([&] { world.service.live_gather(*world.gather); }, point);
    outcome = outcome_of(world);
    return failed;
  }

  int attempt(const FaultPoint& point) const {
    Outcome outcome;
    const int failed = gather(point, outcome);
    expect_stated(outcome, undisturbed_, stated_);
    return failed;
  }

  const std::vector<Stated> stated_ = stated_lines();
  Outcome undisturbed_;
};

TEST_P(LiveGatherFaults, LosesWhatIsLoggedAndNoMore) {
  corvane::fake::reset();
  gather({}, undisturbed_);
  ASSERT_EQ(corvane::fake::log_lines(16), std::vector<LogLine>{});
  ASSERT_EQ(undisturbed_.rows.size(), 6U);  // three jobs, one queued, the time, the feedback
  try_every_point([this](const FaultPoint& point) { return attempt(point); });
}

INSTANTIATE_TEST_SUITE_P(Every, LiveGatherFaults,
                         ::testing::ValuesIn(once_and_from_then_on({Fault::kAllocation,
                                                                    Fault::kStatement, Fault::kRead,
                                                                    Fault::kWrite, Fault::kSync})),
                         kind_name);

// Not from then on: a page that keeps failing is asked for again until it comes.
INSTANTIATE_TEST_SUITE_P(EveryOne, LiveGatherFaults, ::testing::Values(FaultKind{Fault::kRequest}),
                         kind_name);

}  // namespace
}  // namespace corvane::test
