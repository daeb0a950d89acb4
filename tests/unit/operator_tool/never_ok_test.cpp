// Whatever is wrong with an installation, nothing says OK: the files, processes and settings
// themselves are put into each state, and everything else is well. check, status, the metrics and
// the report are asked.
#include <algorithm>
#include <cctype>
#include <functional>

#include "companions/detect/verdict_database.h"
#include "operator_tool/layout/check.h"
#include "platform/program_names.h"
#include "tests/support/child_process.h"
#include "tests/support/ordinary_user.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

// SQLite waits for locks, but no time goes by.
class NoWaiting {
 public:
  NoWaiting() {
    static int (*const at_once)(sqlite3_vfs*, int) = [](sqlite3_vfs*, int micros) {
      return micros;
    };
    files_.xSleep = at_once;
    files_.zName = "no-waiting";
    sqlite3_vfs_register(&files_, 1);
  }
  ~NoWaiting() {
    sqlite3_vfs_register(usual_, 1);
    sqlite3_vfs_unregister(&files_);
  }
  NoWaiting(const NoWaiting&) = delete;
  NoWaiting& operator=(const NoWaiting&) = delete;

 private:
  sqlite3_vfs* usual_ = sqlite3_vfs_find(nullptr);
  sqlite3_vfs files_ = *usual_;
};

class NeverOk : public OperatorWorld {
 public:
  using OperatorWorld::close_to_others;
  using OperatorWorld::database;
  using OperatorWorld::gathered;
  using OperatorWorld::looked;

  void make_healthy() {
    fake.now = now_;
    switch_everything_on();
    run_everything();
    gathered(now_ - 600);
    looked(now_ - 60);
    set_pass(kDetectionProgram, now_ - 30);
    set_pass(kAlertProgram, now_ - 30);
    sql("PRAGMA wal_checkpoint(TRUNCATE)");
  }
  // A process of its own, which has open what this one has open now.
  void start_service() {
    child_ = test::start_idle_child();
    fake.processes[kManagementProgram] = {child_};
  }
  ~NeverOk() override {
    if (child_ == 0) return;
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  void set_pass(const std::string& program, std::int64_t time) const {
    if (program == kDetectionProgram) {
      detect::open_verdicts(directory_("CV_Anomaly_Detection.db"))->set_last_pass({time, 0});
    } else {
      alert::StateDatabase(alerts()).set_number(alert::kLastPass, time);
    }
  }
  std::string alerts() const { return directory_("CV_Anomaly_Alerts.db"); }
  std::string path(const std::string& name) const { return directory_(name); }
  std::vector<std::string> own_databases() const {
    return {path("CV_Anomaly_Detection.db"), alerts(), path("CV_Anomaly_Coverage.db")};
  }
  coverage::Ledger ledger() const { return coverage::Ledger(path("CV_Anomaly_Coverage.db")); }
  void setting(const std::string& text) { configure(kOn + text); }
  void configuration(const std::string& text) { configure(text); }
  void statement(const std::string& text) { sql(text); }
  void stop(const char* program) { fake.processes.erase(program); }
  void report(std::int64_t time, int severity) {
    anomaly({.client = "a", .time = time - 60}, severity, {.client = "a", .time = time - 60});
  }
  // Of a message that is as old as can be, in this state.
  void add_delivery(int state) const {
    alert::StateDatabase(alerts()).execute(("INSERT INTO delivery VALUES (1, 'mail', 1, 1, 2, " +
                                            std::to_string(state) + ", 5, 0, 0, 1, 1, '', 0)")
                                               .c_str());
  }
  static void set_later_version(const std::string& path) {
    Connection(path, Connection::Access::kWrite).execute("PRAGMA user_version = 99");
  }
  // To an account that may not read the configuration, as root may.
  void give_database_away() const {
    constexpr uid_t kStranger = 1 << 30;
    EXPECT_EQ(chown(database().c_str(), kStranger, 0), 0);
    chmod(path("anomaly_config.conf").c_str(), 0600);
  }
  void add_waiting() { insert("DATA_TO_PROCESS", {.time = now_ - 50, .mark = 0}); }
  std::string check() {
    const Said said = say({"check", "--disk-warning", "0", "--disk-critical", "0"});
    std::string line = said.out.substr(0, said.out.find(" | "));
    EXPECT_TRUE(line.starts_with("ANOMALY " + word_of(said.status) + " - ")) << said.out;
    return line;
  }
  // The word for an exit status of check.
  static std::string word_of(int status) { return name_of(static_cast<CheckStatus>(status)); }
  // The level that the metrics give, in the word for it.
  std::string measured() {
    const std::string text = say({"metrics"}).out;
    const auto has = [&](const char* level) {
      const std::string line = std::string("\ncvanomaly_health_problems{level=\"") + level + "\"} ";
      const std::size_t at = text.find(line);
      EXPECT_NE(at, std::string::npos) << text;
      return at != std::string::npos && text[at + line.size()] != '0';
    };
    EXPECT_NE(text.find("\ncvanomaly_process_up{process=\"cvanomalymgmt\"}"), std::string::npos);
    if (has("critical")) return "CRITICAL";
    return has("warning") ? "WARNING" : "OK";
  }
  // The verdict of the report; "UNKNOWN" without one, which is then an error.
  std::string reported() {
    const Said said = say({"report", "--html", path("report.html")});
    if (said.status != 0) return "UNKNOWN";
    const std::string page = test::read_file(path("report.html"));
    const std::string begin = R"("verdict":")";
    const std::size_t at = page.find(begin);
    EXPECT_NE(at, std::string::npos);
    return page.substr(at + begin.size(), page.find(':', at + begin.size()) - at - begin.size());
  }
  bool is_disk_nearly_full() const { return disk_space(database()).percent_free() <= 10; }
  void close_world() { close_database(); }
  void suspend_service() {
    start_service();
    kill(child_, SIGSTOP);
    waitpid(child_, nullptr, WUNTRACED);
  }
  // Whoever locks a database does so until this ends.
  void lock(const std::string& path) {
    locker_ = std::make_unique<Connection>(path, Connection::Access::kWrite);
    locker_->execute("PRAGMA locking_mode=EXCLUSIVE");
    locker_->execute("BEGIN EXCLUSIVE");
    no_waiting_ = std::make_unique<NoWaiting>();
  }

  static constexpr char kOn[] =
      "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=0\nDISABLE_ALERT_SERVICE=0\n";
  // This process stands for all programs; by then it has run for a day.
  pid_t child_ = 0;
  std::unique_ptr<Connection> locker_;
  std::unique_ptr<NoWaiting> no_waiting_;
  const std::int64_t now_ = started_at(getpid()) + kDay;
};

struct State {
  const char* what;
  std::function<void(NeverOk&)> make;
  const char* status;  // "WARNING", "CRITICAL", "UNKNOWN"
  enum class Kind { kPlain, kForRoot, kWithoutDatabase } kind = Kind::kPlain;
};
constexpr State::Kind kForRoot = State::Kind::kForRoot;
constexpr State::Kind kWithoutDatabase = State::Kind::kWithoutDatabase;

void set_purge(NeverOk& world, const char* months) {
  world.setting(std::string("[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=") + months + "\n");
}

void fail_gathers(const NeverOk& world, int count) {
  coverage::Ledger ledger = world.ledger();
  for (int i = 0; i < count; ++i) {
    coverage::Gathers(ledger).add({.start = 1,
                                   .end = 2,
                                   .began = 3,
                                   .ended = 4,
                                   .outcome = coverage::Outcome::kFailed,
                                   .reason = "HTTP 503"});
  }
}

void open_gather(const NeverOk& world, std::int64_t seconds) {
  coverage::ReaderState state;
  state.is_open = true;
  state.gather.began = world.now_ - 60 - seconds;
  coverage::Ledger ledger = world.ledger();
  coverage::Gathers(ledger).set_log_position({}, state);
}

const std::vector<State>& states_of_programs() {
  static const std::vector<State> states{
      {"no service", [](NeverOk& w) { w.stop(kManagementProgram); }, "CRITICAL"},
      {"no detection", [](NeverOk& w) { w.stop(kDetectionProgram); }, "CRITICAL"},
      {"no alerts", [](NeverOk& w) { w.stop(kAlertProgram); }, "CRITICAL"},
      {"detection suspended",
       [](NeverOk& w) { w.set_pass(kDetectionProgram, w.now_ - 25 * kHour); }, "CRITICAL"},
      {"alerts suspended", [](NeverOk& w) { w.set_pass(kAlertProgram, w.now_ - 25 * kHour); },
       "CRITICAL"},
      {"alerts never began", [](NeverOk& w) { std::filesystem::remove(w.alerts()); }, "CRITICAL"},
      {"detection's database gone",
       [](NeverOk& w) { std::filesystem::remove(w.path("CV_Anomaly_Detection.db")); }, "CRITICAL"},
      {"detection off",
       [](NeverOk& w) {
         w.configuration("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=1\n");
       },
       "WARNING"},
      {"alerts off",
       [](NeverOk& w) {
         w.configuration("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=0\n");
       },
       "WARNING"},
      {"all off",
       [](NeverOk& w) {
         w.configuration("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=1\n");
       },
       "WARNING"},
      {"service suspended", [](NeverOk& w) { w.suspend_service(); }, "CRITICAL"},
      {"a pass in the future", [](NeverOk& w) { w.set_pass(kDetectionProgram, w.now_ + kDay); },
       "CRITICAL"},
      {"a pass of the alerts in the future",
       [](NeverOk& w) { w.set_pass(kAlertProgram, w.now_ + kDay); }, "CRITICAL"},
      {"off and stopped",
       [](NeverOk& w) {
         w.configuration("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=1\n");
         w.stop(kManagementProgram);
         w.looked(w.now_ - kDay);
       },
       "WARNING"},
      {"off and stopped, with all that nobody works on",
       [](NeverOk& w) {
         w.configuration(
             "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=1\n"
             "[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=0\n");
         w.stop(kManagementProgram);
         coverage::Ledger ledger = w.ledger();
         coverage::Holes(ledger).find({1, 9}, w.now_ - kHour);
         coverage::MissingBackups(ledger).add({"k", {1, 2}, w.now_ - kHour, 0, 0});
         ledger.set_number(coverage::kUnauditedSince, w.now_ - kHour);
         w.add_delivery(0);
       },
       "WARNING"},
      {"a detection database that is damaged",
       [](NeverOk& w) {
         test::write_file(w.path("CV_Anomaly_Detection.db"), std::string(100000, 'x'));
       },
       "CRITICAL"},
      {"a detection database of a later version",
       [](NeverOk& w) { NeverOk::set_later_version(w.path("CV_Anomaly_Detection.db")); },
       "CRITICAL"},
      {"a configuration that the service cannot read", [](NeverOk& w) { w.give_database_away(); },
       "CRITICAL", kForRoot},
      {"a former purge setting",
       [](NeverOk& w) {
         w.ledger().set_number(coverage::kPurgedAt, w.now_ - 600);
         w.ledger().set_number(coverage::kPurgedBefore, w.now_ - 600);
       },
       "CRITICAL"},
      {"malformed", [](NeverOk& w) { w.setting("no sign\n"); }, "CRITICAL"},
      {"configuration gone",
       [](NeverOk& w) { std::filesystem::remove(w.path("anomaly_config.conf")); }, "CRITICAL"},
      {"purge 0", [](NeverOk& w) { set_purge(w, "0"); }, "CRITICAL"},
      {"purge -1", [](NeverOk& w) { set_purge(w, "-1"); }, "CRITICAL"},
      {"purge twelve", [](NeverOk& w) { set_purge(w, "twelve"); }, "CRITICAL"}};
  return states;
}

const std::vector<State>& states_of_data() {
  static const std::vector<State> states{
      {"three failures", [](NeverOk& w) { fail_gathers(w, 3); }, "CRITICAL"},
      {"a young hole that was tried",
       [](NeverOk& w) {
         coverage::Ledger ledger = w.ledger();
         coverage::Holes holes(ledger);
         holes.postpone(holes.find({1, 9}, w.now_).front(), w.now_ + 300, "HTTP 503");
       },
       "WARNING"},
      {"a young hole that two looks have seen",
       [](NeverOk& w) {
         coverage::Ledger ledger = w.ledger();
         coverage::Holes(ledger).find({1, 9}, w.now_ - 600);
       },
       "WARNING"},
      {"a young missing backup",
       [](NeverOk& w) {
         coverage::Ledger ledger = w.ledger();
         coverage::MissingBackups(ledger).add({"k", {1, 2}, w.now_, 1, 0});
       },
       "WARNING"},
      {"an old hole",
       [](NeverOk& w) {
         coverage::Ledger ledger = w.ledger();
         coverage::Holes(ledger).find({1, 9}, w.now_ - kHour);
       },
       "CRITICAL"},
      {"missing",
       [](NeverOk& w) {
         coverage::Ledger ledger = w.ledger();
         coverage::MissingBackups(ledger).add({"k", {1, 2}, w.now_ - kHour, 0, 0});
       },
       "CRITICAL"},
      {"lost",
       [](NeverOk& w) {
         coverage::Ledger ledger = w.ledger();
         coverage::Holes(ledger).lose({1, 2}, "gone", 3);
       },
       "WARNING"},
      {"given up",
       [](NeverOk& w) {
         coverage::Ledger ledger = w.ledger();
         coverage::MissingBackups missing(ledger);
         missing.add({"k", {1, 2}, 3});
         missing.give_up("k");
       },
       "WARNING"},
      {"not compared",
       [](NeverOk& w) { w.ledger().set_number(coverage::kUnauditedSince, w.now_ - kHour); },
       "CRITICAL"},
      {"healing off", [](NeverOk& w) { w.setting("[HEALING_SETTINGS]\nHEAL=0\n"); }, "WARNING"},
      {"a slow gather", [](NeverOk& w) { open_gather(w, 600); }, "WARNING"},
      {"a gather that hangs", [](NeverOk& w) { open_gather(w, kHour); }, "CRITICAL"},
      {"a gather that began in the future", [](NeverOk& w) { open_gather(w, -kDay); }, "CRITICAL"},
      {"a clock a day ahead", [](NeverOk& w) { w.gathered(w.now_ + kDay); }, "CRITICAL"},
      {"a late gather", [](NeverOk& w) { w.gathered(w.now_ - kHour); }, "CRITICAL"},
      {"a late gather by a former interval",
       [](NeverOk& w) {
         const timespec times[]{{w.now_ - kMinute, 0}, {w.now_ - kMinute, 0}};
         utimensat(AT_FDCWD, w.path("anomaly_config.conf").c_str(), times, 0);
         w.gathered(w.now_ - kHour);
       },
       "WARNING"},
      {"a service that hangs while the configuration is edited",
       [](NeverOk& w) {
         const timespec times[]{{w.now_ - kMinute, 0}, {w.now_ - kMinute, 0}};
         utimensat(AT_FDCWD, w.path("anomaly_config.conf").c_str(), times, 0);
         w.ledger().set_number(coverage::kInterval, 15);
         w.gathered(w.now_ - kHour);
       },
       "CRITICAL"},
      {"no gather", [](NeverOk& w) { w.gathered(w.now_ - 4 * kHour); }, "CRITICAL"},
      {"no history", [](NeverOk& w) { w.gathered(0); }, "CRITICAL"},
      {"a history under way",
       [](NeverOk& w) {
         w.gathered(0);
         open_gather(w, 30);
       },
       "WARNING"},
      {"unjudged",
       [](NeverOk& w) {
         w.add_waiting();
         w.ledger().set_number(coverage::kUnjudgedSince, w.now_ - kHour);
       },
       "CRITICAL"},
      {"not told", [](NeverOk& w) { w.report(w.now_ - 15 * kMinute, 3); }, "CRITICAL"},
      {"not processed", [](NeverOk& w) { w.report(w.now_ - kHour, 1); }, "CRITICAL"},
      {"not told, and alerts off",
       [](NeverOk& w) {
         w.report(w.now_ - 15 * kMinute, 3);
         w.configuration("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=0\n");
       },
       "CRITICAL"},
      {"detected in the future", [](NeverOk& w) { w.report(w.now_ + kDay, 3); }, "CRITICAL"},
      {"a hole of the future",
       [](NeverOk& w) {
         coverage::Ledger ledger = w.ledger();
         coverage::Holes(ledger).find({1, 9}, w.now_ + kDay);
       },
       "CRITICAL"},
      {"messages pending", [](NeverOk& w) { w.add_delivery(0); }, "CRITICAL"},
      {"a ledger of a later version",
       [](NeverOk& w) { NeverOk::set_later_version(w.path("CV_Anomaly_Coverage.db")); },
       "CRITICAL"},
      {"alerts of a later version", [](NeverOk& w) { NeverOk::set_later_version(w.alerts()); },
       "CRITICAL"},
      {"damaged",
       [](NeverOk& w) {
         w.close_world();
         test::write_file(w.database(), std::string(100000, 'x'));
       },
       "CRITICAL", kWithoutDatabase},
      {"of another version", [](NeverOk& w) { w.statement("DROP TABLE HIST_DATA"); }, "UNKNOWN",
       kWithoutDatabase},
      {"locked",
       [](NeverOk& w) {
         w.close_world();
         w.lock(w.database());
       },
       "UNKNOWN", kWithoutDatabase},
      {"an own database open to others",
       [](NeverOk& w) {
         std::filesystem::permissions(w.path(""), std::filesystem::perms(0755));
         w.close_to_others();
         for (const char* own :
              {"CV_Anomaly_Alerts.db", "CV_Anomaly_Coverage.db", "CV_Anomaly_Detection.db"}) {
           chmod(w.path(own).c_str(), std::string(own).find("Alerts") == 11 ? 0644 : 0600);
         }
       },
       "WARNING"},
      {"stale ledger", [](NeverOk& w) { w.looked(w.now_ - 15 * kMinute); }, "CRITICAL"},
      {"look in the future", [](NeverOk& w) { w.looked(w.now_ + kDay); }, "CRITICAL"},
      {"no ledger", [](NeverOk& w) { std::filesystem::remove(w.path("CV_Anomaly_Coverage.db")); },
       "CRITICAL"},
      {"damaged ledger",
       [](NeverOk& w) {
         test::write_file(w.path("CV_Anomaly_Coverage.db"), std::string(100000, 'x'));
       },
       "CRITICAL"},
      {"damaged alerts", [](NeverOk& w) { test::write_file(w.alerts(), std::string(100000, 'x')); },
       "CRITICAL"},
      {"dead letter", [](NeverOk& w) { w.add_delivery(3); }, "CRITICAL"},
      {"open to others",
       [](NeverOk& w) {
         std::filesystem::permissions(w.path(""), std::filesystem::perms(0755));
         chmod(w.database().c_str(), 0644);
       },
       "WARNING"},
      {"replaced",
       [](NeverOk& w) {
         w.start_service();
         std::filesystem::copy_file(w.database(), w.path("copy"));
         std::filesystem::rename(w.path("copy"), w.database());
       },
       "CRITICAL"},
      {"removed", [](NeverOk& w) { std::filesystem::remove(w.database()); }, "CRITICAL",
       kWithoutDatabase},
      {"removed, and no service",
       [](NeverOk& w) {
         std::filesystem::remove(w.database());
         w.stop(kManagementProgram);
       },
       "CRITICAL", kWithoutDatabase},
      {"everything removed but the configuration, and no service",
       [](NeverOk& w) {
         for (const std::string& own : w.own_databases()) std::filesystem::remove(own);
         std::filesystem::remove(w.database());
         w.stop(kManagementProgram);
       },
       "CRITICAL", kWithoutDatabase}};
  return states;
}

TEST_F(NeverOk, AServiceOfItsOwnHasTheDatabaseOpen) {
  make_healthy();
  start_service();
  EXPECT_TRUE(check().starts_with("ANOMALY OK"));
}

// It began hours ago, and that is the time that is stored.
TEST_F(NeverOk, AHistoryThatHasJustEndedIsNoProblem) {
  make_healthy();
  gathered(now_ - 4 * kHour);
  {
    coverage::Ledger ledger = this->ledger();
    coverage::Gathers(ledger).add(
        {.is_live = false, .start = 1, .end = 2, .began = now_ - 300, .ended = now_ - 240});
  }
  EXPECT_TRUE(check().starts_with("ANOMALY OK"));
}

TEST_F(NeverOk, WithoutAnyOfThemItIs) {
  make_healthy();
  EXPECT_EQ(check(), "ANOMALY OK - all enabled programs are running, last gather 10 min ago");
  if (is_disk_nearly_full()) return;
  EXPECT_EQ(say({"status", "--exit-code"}).status, 0);
  EXPECT_EQ(measured(), "OK");
  EXPECT_EQ(reported(), "OK");
}

class NeverOkIn : public NeverOk, public testing::WithParamInterface<State> {};

TEST_P(NeverOkIn, AnyState) {
  const State& state = GetParam();
  if (state.kind == kForRoot && getuid() != 0) GTEST_SKIP() << "only root can make it";
  make_healthy();
  state.make(*this);
  const std::string said = check();
  EXPECT_TRUE(said.starts_with(std::string("ANOMALY ") + state.status)) << said;
  if (is_disk_nearly_full()) return;  // the others are not told to ignore the disk
  const bool has_database = state.kind != kWithoutDatabase;
  EXPECT_EQ(word_of(say({"status", "--exit-code"}).status), state.status);
  EXPECT_EQ(measured(), has_database ? state.status : "CRITICAL");
  EXPECT_EQ(reported(), has_database ? state.status : "UNKNOWN");
}

TEST_F(NeverOk, AFullDisk) {
  make_healthy();
  const std::vector<std::string> disk{"--disk-warning", "0", "--disk-critical", "100"};
  EXPECT_EQ(say({"check", disk[0], disk[1], disk[2], disk[3]}).status, 2);
  EXPECT_EQ(say({"check", disk[0], "100", disk[2], "0"}).status, 1);
}

// Root has started the service, and another account asks.
TEST_F(NeverOk, AServiceThatOnlyRootMayLookInto) {
  if (!test::OrdinaryUserFiles::possible()) GTEST_SKIP() << "only for root";
  make_healthy();
  start_service();
  chmod(path("").c_str(), 0777);
  for (const auto& file : std::filesystem::directory_iterator(path(""))) {
    chmod(file.path().c_str(), 0666);
  }
  const test::OrdinaryUserFiles ordinary;
  const std::string said = check();
  EXPECT_TRUE(
      said.starts_with("ANOMALY WARNING - it is not known whether the running service has "
                       "this database open: ask as root or as its account; users other than the "
                       "service account can read or write "))
      << said;
  if (is_disk_nearly_full()) return;
  EXPECT_EQ(word_of(say({"status", "--exit-code"}).status), "WARNING");
  EXPECT_EQ(measured(), "WARNING");
  EXPECT_EQ(reported(), "WARNING");
}

// Files of an account, and somebody asks who is not in its group.
class NeverOkForOthers : public NeverOk, public testing::WithParamInterface<std::size_t> {
 protected:
  static constexpr uid_t kAccount = 1 << 30;

  void SetUp() override {
    if (!test::OrdinaryUserFiles::possible()) GTEST_SKIP() << "only for root";
    make_healthy();
    chmod(path("").c_str(), 0777);
    for (const auto& file : std::filesystem::directory_iterator(path(""))) {
      chmod(file.path().c_str(), 0666);
    }
    EXPECT_EQ(chown(file_.c_str(), kAccount, kAccount), 0);
  }
  // What is said by check, status, the metrics and the report.
  std::string said() {
    const test::OrdinaryUserFiles ordinary;
    const std::string line = check();
    const std::string word = line.substr(8, line.find(' ', 8) - 8);
    return word + " " + word_of(say({"status", "--exit-code"}).status) + " " + measured() + " " +
           reported();
  }

  const std::string file_ = own_databases().at(GetParam());
};

TEST_P(NeverOkForOthers, WhatOnlyTheOwnerMayReadIsUnknown) {
  chmod(file_.c_str(), 0600);
  EXPECT_EQ(said(), "UNKNOWN UNKNOWN CRITICAL UNKNOWN");
  chmod(path("").c_str(), 0777);
  const test::OrdinaryUserFiles ordinary;
  EXPECT_EQ(check(), "ANOMALY UNKNOWN - Cannot read " + file_ + ": permission denied.\n");
}

TEST_P(NeverOkForOthers, WhatItsOwnerMayNotReadIsCritical) {
  chmod(file_.c_str(), 0);
  EXPECT_EQ(said(), "CRITICAL CRITICAL CRITICAL CRITICAL");
}

TEST_P(NeverOkForOthers, WithoutTheDatabaseItIsCriticalToo) {
  chmod(file_.c_str(), 0600);
  std::filesystem::remove(database());
  EXPECT_EQ(said(), "CRITICAL CRITICAL CRITICAL UNKNOWN");
}

INSTANTIATE_TEST_SUITE_P(Databases, NeverOkForOthers,
                         testing::Range(std::size_t{0}, std::size_t{3}));

std::string name_of_state(const testing::TestParamInfo<State>& state) {
  std::string name = state.param.what;
  std::ranges::replace_if(
      name, [](unsigned char letter) { return std::isalnum(letter) == 0; }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Programs, NeverOkIn, testing::ValuesIn(states_of_programs()),
                         name_of_state);
INSTANTIATE_TEST_SUITE_P(Data, NeverOkIn, testing::ValuesIn(states_of_data()), name_of_state);

}  // namespace
}  // namespace corvane::ctl
