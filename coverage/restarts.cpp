#include "coverage/restarts.h"

#include "coverage/pauses.h"
#include "finding/words.h"
#include "platform/program_names.h"

namespace corvane::coverage {

namespace {

constexpr std::int64_t kLooksAbsent = 2;
constexpr std::int64_t kWorksAfter = kHour;  // then the pauses begin anew
constexpr std::int64_t kStartsAgainWithin = 15 * kMinute;

constexpr char kRestartedFor[] = "service_restarted_for";
constexpr char kRestartedAt[] = "service_restarted_at";
constexpr char kStopping[] = "service_stopping_since";  // 0: no restart is under way

std::string starts_of(const std::string& companion) { return companion + "_starts"; }

}  // namespace

void begin_anew(Ledger& ledger, const std::string& companion) {
  ledger.set_number(starts_of(companion), 0);
}

void look_after_companion(Ledger& ledger, const Programs& programs, const std::string& companion) {
  const std::string absent_looks = companion + "_absent_looks";
  const std::string starts = starts_of(companion);
  const std::string last_start = companion + "_last_start";
  const std::int64_t now = programs.now();
  const std::int64_t since_start = now - ledger.number_of(last_start);
  const auto may_run = [&] { return programs.service_runs() && programs.is_wanted(companion); };

  if (!may_run() || programs.is_running(companion)) {
    ledger.set_number(absent_looks, 0);
    if (since_start > kWorksAfter) ledger.set_number(starts, 0);
    return;
  }
  const std::int64_t absent = ledger.number_of(absent_looks) + 1;
  ledger.set_number(absent_looks, absent);
  if (absent < kLooksAbsent) return;
  const std::int64_t before = ledger.number_of(starts);
  // With a clock that was ahead it was started in the future.
  if (before > 0 && since_start >= 0 && since_start < pause_after(before)) return;

  programs.start(companion);
  ledger.set_number(absent_looks, 0);
  ledger.set_number(starts, before + 1);
  ledger.set_number(last_start, now);
  ledger.note(now, companion + " was not running. Its start was requested");
  if (!may_run()) programs.stop(companion);
}

void look_after_service(Ledger& ledger, const Programs& programs, std::int64_t last_gather,
                        std::int64_t interval_seconds) {
  const std::int64_t now = programs.now();
  if (const std::int64_t since = ledger.number_of(kStopping); since != 0) {
    const bool is_due = !programs.service_runs() && now - since < kStartsAgainWithin;
    ledger.set_number(kStopping, 0);
    if (is_due) programs.start_service();
    return;
  }
  if (last_gather <= now + kClockSkew || !programs.service_runs()) return;
  if (ledger.number_of(kRestartedFor) == last_gather) return;
  const std::int64_t since = now - ledger.number_of(kRestartedAt);
  if (since >= 0 && since < interval_seconds + 5 * kMinute) return;
  ledger.set_number(kRestartedFor, last_gather);
  ledger.set_number(kRestartedAt, now);
  ledger.note(now, std::string("The last gather was dated in the future. A restart of ") +
                       kManagementProgram + " was requested");
  // Should this program end in between, or the service take long to end, the next look starts it.
  ledger.set_number(kStopping, now);
  programs.restart_service();
  if (programs.service_runs()) ledger.set_number(kStopping, 0);
}

}  // namespace corvane::coverage
