// What tests of whole commands share: an installation in a scratch directory, and programs that
// stand in for those that are started.
#pragma once

#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "companions/common/stop_signals.h"
#include "coverage/gather_again.h"
#include "coverage/job_lister.h"
#include "coverage/options.h"
#include "platform/program_names.h"
#include "tests/support/shell_script.h"
#include "tests/unit/coverage/healer_world.h"

namespace corvane::coverage {

class CommandsWorld : public HealerWorld {
 protected:
  CommandsWorld() {
    log_ = directory_("corvane/logs/cvanomalymgmt");
    std::filesystem::create_directories(directory_("corvane/logs"));
    options_.database_location = directory_();
  }
  void SetUp() override {
    HealerWorld::SetUp();
    fake.install_dir = directory_() + "/";
    sigprocmask(SIG_SETMASK, nullptr, &signals_before_);
    // A unit may run the tests.
    unsetenv("INVOCATION_ID");
    setenv("CV_STANDS_IN", directory_("gathers_again").c_str(), 1);
    gathers_again("exit 1\n");
    lists({});
    Holes before(ledger_of_program_);
    before.cover({0, kStart - 1});
    before.audit({0, kStart - 1});
  }
  void TearDown() override {
    unsetenv("INVOCATION_ID");
    unsetenv("CV_STANDS_IN");
    sigprocmask(SIG_SETMASK, &signals_before_, nullptr);
    HealerWorld::TearDown();
  }

  // --- What the machine is like ---

  void runs_in_a_unit() { setenv("INVOCATION_ID", "1", 1); }
  void service_runs() { fake.processes[kManagementProgram] = {getpid()}; }
  void configure(const std::string& healing = "", const std::string& settings = "") {
    test::write_file(options_.config_path(),
                     "[HEALING_SETTINGS]\n" + healing +
                         "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=0\n"
                         "DISABLE_DETECTION_SERVICE=0\nDISABLE_ALERT_SERVICE=0\n" +
                         settings);
  }
  // A quarter of an hour that the service did not get, and one that it got.
  void lose_a_quarter() {
    pass(15 * kMinute);
    gather(How::kNothing);
    pass(15 * kMinute);
    gather();
  }
  void pass(std::int64_t seconds) {
    now_ += seconds;
    fake.now = now_;
  }

  // --- The workers ---

  // What the one that gathers does before it ends.
  void gathers_again(const std::string& script) const {
    test::write_script(directory_("gathers_again"),
                       "if test $3 = -list_jobs; then echo \"$@\" >>" + directory_("listed") +
                           "; exec cp " + directory_("jobs") + " \"$2/" + kScratchJobs +
                           "\"; fi\necho \"$@\" >>" + directory_("asked") + "\n" + script);
  }
  // The records that the one that lists jobs leaves, but for the last.
  void lists(const std::vector<std::string>& records, const std::string& last = ".") const {
    std::string file;
    for (const std::string& record : records) file += record + '\0';
    test::write_file(directory_("jobs"), file + last + '\0');
  }
  // The one that gathers finds these.
  void finds(const std::vector<Job>& jobs, const std::string& script = "") const {
    make_database(directory_("found.db"));
    store(directory_("found.db"), jobs);
    gathers_again(script + "cp " + directory_("found.db") + " \"$2/" + kScratchDatabase +
                  "\"\nprintf '%s\\n' '2026-01-31T04:05:06.789Z 7 2 cvanomalymgmt: Capturing data "
                  "between 5 & 6 ' '2026-01-31T04:05:07.789Z 7 2 cvanomalyheal: The gather has "
                  "ended' >\"$2/" +
                  kScratchLog + "\"\n");
  }
  // Their arguments, a line for each time that they were started.
  std::string asked() const { return text_of("asked"); }
  std::string listed() const { return text_of("listed"); }
  std::string asked_for(std::int64_t begin, std::int64_t end) const {
    return "-database_location " + options_.own_file("_Scratch") + " -gather_again " +
           std::to_string(begin) + " " + std::to_string(end) + "\n";
  }

  // --- What is left behind ---

  // Empty: there is no such file.
  std::string text_of(const std::string& name) const {
    const std::string path = directory_(name);
    return std::filesystem::exists(path) ? test::read_file(path) : "";
  }
  std::string requests() const { return text_of("CV_Anomaly_Coverage.requests"); }
  std::string count_in(const char* table) const {
    return test::count(Connection(database_, Connection::Access::kRead).handle(), table);
  }
  std::vector<std::string> errors() const {
    std::vector<std::string> texts;
    for (const fake::LogLine& line : fake::log_lines(16)) texts.push_back(line.text);
    return texts;
  }

  Options options_;
  Ledger ledger_of_program_{directory_("CV_Anomaly_Coverage.db")};
  Holes open_holes_{ledger_of_program_};

 private:
  sigset_t signals_before_{};
};

}  // namespace corvane::coverage
