// A DataGather over a database in memory, for targets that read what a source of backups sends.
#pragma once

#include <jansson.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "gather/data_gather.h"
#include "management/management_service.h"
#include "platform/c_handles.h"
#include "tests/fakes/platform_fake.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/sql.h"

namespace corvane::fuzz {

using corvane::fake::LogLine;
using corvane::test::SqlRow;
using Record = DataGather::Record;

inline constexpr char kMaster[] = "master01.example.com";

// `location` is where scratch files go; without any none are made.
struct GatherWorld {
  explicit GatherWorld(const std::string& master, const std::string& location = "")
      : service(location, "", "FULL", master, 15) {
    service.m_db = std::make_unique<DataGather::DBAccess>(
        ":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX);
    service.create_database_schema();
    gather = std::make_unique<DataGather>(service.m_db.get(), location, master);
  }

  // As it was at first, the platform fake too. Call it before each input.
  void clear() {
    corvane::fake::reset();
    sqlite3* db = service.m_db->get_db_handle();
    if (sqlite3_total_changes(db) != changes_) {
      for (const char* table :
           {"HIST_DATA", "DATA_TO_PROCESS", "QUEUED_TO_CAPTURE_DATA", "ANOMALY_DATA_FEEDBACK"}) {
        rows(std::string("DELETE FROM ") + table);
      }
      changes_ = sqlite3_total_changes(db);
    }
    // Looking up a code adds it.
    if (gather->policy_types.size() != 51 || gather->schedule_types.size() != 5) {
      gather->init_attributes();
    }
  }

  std::vector<SqlRow> rows(const std::string& sql) const {
    return corvane::test::query(service.m_db->get_db_handle(), sql);
  }
  std::size_t count(const std::string& table) const {
    return std::stoul(corvane::test::count(service.m_db->get_db_handle(), table));
  }

  ManagementService service;
  std::unique_ptr<DataGather> gather;

 private:
  int changes_ = 0;  // the database's count of them after the last clear()
};

// A record as a JSON object of texts.
inline JsonPtr json_of(const Record& record) {
  JsonPtr object(json_object());
  for (const auto& [name, text] : record) {
    require(json_object_set_new(object.get(), name.c_str(),
                                json_stringn(text.data(), text.size())) == 0,
            "what came out of JSON goes into it", name);
  }
  return object;
}

inline std::string text_of_json(const JsonPtr& json) {
  const std::unique_ptr<char, decltype(&std::free)> text(json_dumps(json.get(), JSON_COMPACT),
                                                         &std::free);
  require(text != nullptr, "it can be written as JSON");
  return text.get();
}

// The type of a text's root; -1 for what is no JSON.
inline int json_type_of(const std::string& text) {
  const JsonPtr root(json_loads(text.c_str(), 0, nullptr));
  return root ? static_cast<int>(json_typeof(root.get())) : -1;
}

inline bool logged(int level, const std::string& text) {
  const auto& log = corvane::fake::state().log;
  return std::find(log.begin(), log.end(), LogLine{level, "cvanomalymgmt", text}) != log.end();
}

// A text of the REST interface or the jobs tool was refused: for one of the known reasons, and with
// the whole text in the log.
inline void check_refused(const std::string& text, json_type wanted,
                          const std::runtime_error& error) {
  const int type = json_type_of(text);
  require(type != wanted, "what is in order is accepted");
  require(error.what() == std::string(type == -1 ? "Job details not available."
                                                 : "JSON parsing failed for jobs data."),
          "the reason is true", error.what());
  require(logged(16, std::string("JSON parsing failed for jobs data ") + text.c_str()),
          "the text is in the log");
}

// Whether one of the texts that are read as times is too short to be one.
inline bool has_short_time(const Record& record) {
  for (const char* name : {"backupTime", "startTime", "endTime"}) {
    const auto found = record.find(name);
    if (found != record.end() && found->second.size() < 17) return true;
  }
  return false;
}

// Whether the text under `key` is read as "not a number", which no column takes.
inline bool has_nan(const Record& record, const char* key) {
  return std::isnan(std::strtod(text_or(record, key, "").c_str(), nullptr));
}

// The key of the row that a record of the REST interface becomes.
inline std::string key_of(const Record& record) {
  return "data_" + std::to_string(to_int(text_or(record, "jobId", "-1"))) + "_" +
         text_or(record, "backupId", "");
}

// A page of elements with the attributes of these records.
inline std::string page_of(const std::vector<Record>& records, int next) {
  const JsonPtr root(json_object());
  json_t* data = json_array();
  json_object_set_new(root.get(), "data", data);
  for (const Record& record : records) {
    json_t* element = json_object();
    json_object_set_new(element, "attributes", json_of(record).release());
    json_object_set_new(element, "id", json_string("x"));
    json_array_append_new(data, element);
  }
  json_object_set_new(root.get(), "meta", json_pack("{s:{s:i}}", "pagination", "next", next));
  return text_of_json(root);
}

}  // namespace corvane::fuzz
