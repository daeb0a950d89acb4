// What the commands say, as text and as JSON.
#pragma once

#include <jansson.h>

#include "operator_tool/commands.h"
#include "platform/c_handles.h"
#include "tests/unit/operator_tool/operator_world.h"
#include "util/json.h"

namespace corvane::ctl {

// A delivery in the alerts' database.
struct TestDelivery {
  int message = 1;
  std::string channel = "mail";
  alert::Kind kind = alert::Kind::kReport;
  alert::DeliveryState state = alert::DeliveryState::kWaiting;
  std::int64_t created = kNow;
  std::string reason = {};
};

class Commands : public OperatorWorld {
 protected:
  JsonPtr json(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = arguments;
    all.emplace_back("--json");
    const Said said = say(all);
    EXPECT_EQ(said.status, 0) << said.error;
    JsonPtr root(json_loads(said.out.c_str(), JSON_REJECT_DUPLICATES, nullptr));
    EXPECT_NE(root, nullptr) << said.out;
    EXPECT_EQ(json_integer_value(json_object_get(root.get(), "schema")), 1);
    EXPECT_STREQ(json_string_value(json_object_get(root.get(), "command")), arguments[0].c_str());
    return root;
  }
  // A member, and a member of it and so on.
  static const json_t* member(const json_t* root, std::initializer_list<const char*> path) {
    for (const char* name : path) root = json_object_get(root, name);
    return root;
  }
  static json_int_t number(const json_t* root, std::initializer_list<const char*> path) {
    const json_t* found = member(root, path);
    EXPECT_TRUE(json_is_integer(found));
    return json_integer_value(found);
  }
  static std::string compact(const json_t* value) {
    return value == nullptr ? "none" : json_text(value, JSON_COMPACT | JSON_ENCODE_ANY);
  }
  bool says(const Said& said, const std::string& words) {
    return said.out.find(words) != std::string::npos;
  }

  using Run = std::string (*)(const Context&);
  // What a command gives to a terminal with colours.
  std::string in_colour(Run command, const Options& options = {}) {
    const Options all = with_paths(options);
    Terminal terminal;
    terminal.colour = true;
    Database opened(all.database);
    return command({all, terminal, opened});
  }
  // From which width of the terminal on a table has which columns, and how wide they are at least:
  // a line "WIDTH: TITLES" wherever the titles change, with the blanks between them.
  std::string titles_by_width(Run command, const Options& options = {}) {
    const Options all = with_paths(options);
    Database opened(all.database);
    std::string found;
    std::string former;
    for (std::size_t width = 1; width <= 200; ++width) {
      Terminal terminal;
      terminal.width = width;
      const std::string text = command({all, terminal, opened});
      const std::string titles = text.substr(0, text.find('\n'));
      std::string names = titles;
      std::erase(names, ' ');
      if (names != former) found += std::to_string(width) + ": " + titles + "\n";
      former = names;
    }
    return found;
  }

  void three_anomalies() {
    anomaly({.client = "a", .time = kNow - 40 * kDay}, 1,
            {.client = "a", .time = kNow - 40 * kDay});
    anomaly({.client = "b", .time = kNow - kDay}, 3, {.client = "b", .time = kNow - kDay});
    anomaly({.client = "c", .time = kNow}, 2, {.client = "c", .time = kNow});
    feedback({.client = "b", .time = kNow - kDay}, 1);
  }

  // Of one incident, which bears this name.
  void deliveries(const std::string& incident, const std::vector<TestDelivery>& all) {
    alert::StateDatabase state(directory_("CV_Anomaly_Alerts.db"));
    test::query(state.handle(),
                "INSERT INTO incident (id, name, anomaly_id, last_anomaly, client, policy, "
                "policy_type, schedule_type, schedule_name, application_type, destination, "
                "has_stream, first_time, last_time, severity, cause, records, until, is_open, "
                "changed) VALUES (1, " +
                    quoted(incident) +
                    ", '', '', '', '', '', '', '', '', '', 0, 0, 0, 1, '', 1, 0, 1, 0)");
    for (const TestDelivery& one : all) {
      test::query(state.handle(),
                  "INSERT INTO delivery VALUES (" + std::to_string(one.message) + ", " +
                      quoted(one.channel) + ", " + std::to_string(static_cast<int>(one.kind)) +
                      ", 1, 2, " + std::to_string(static_cast<int>(one.state)) + ", " +
                      std::to_string(one.created) + ", 0, 0, 1, 1, " + quoted(one.reason) + ", 0)");
    }
  }
};

// A database that no program has open, and that changes whenever a command has opened it.
class Changing : public Commands {
 protected:
  void SetUp() override {
    Commands::SetUp();
    { const alert::StateDatabase closed(directory_("CV_Anomaly_Alerts.db")); }
    close_database();
    path_ = database();
    opened_ = 0;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(on_opening));
  }
  void TearDown() override {
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(on_opening));
    Commands::TearDown();
  }

  // The alerts' database is opened after the other one.
  static int on_opening(sqlite3* db, const char**, const sqlite3_api_routines*) {
    if (!std::string(sqlite3_db_filename(db, "main")).ends_with("_Alerts.db")) return SQLITE_OK;
    if (opened_++ >= changes_) return SQLITE_OK;
    std::filesystem::last_write_time(
        path_, std::filesystem::last_write_time(path_) + std::chrono::seconds(1));
    return SQLITE_OK;
  }

  static inline std::string path_;
  static inline int opened_ = 0;
  static inline int changes_ = 1000;
};

}  // namespace corvane::ctl
