#include "health/gaps.h"

#include <algorithm>
#include <optional>

#include "finding/words.h"

namespace corvane::health {

namespace {

constexpr std::int64_t kTwoLooks = 10 * kMinute;
constexpr std::int64_t kThreeAnswers = 30 * kMinute;  // that decide whether a backup is kept

// Not every attempt counts as one: this machine may have had no room for what was gathered.
bool was_tried_in_vain(const coverage::Hole& hole) {
  return hole.attempts > 0 || !hole.reason.empty();
}
bool was_tried_in_vain(const coverage::Missing& missing) {
  return missing.attempts > missing.answers;
}

std::int64_t usual_age(const coverage::Hole& /*hole*/) { return kTwoLooks; }
std::int64_t usual_age(const coverage::Missing& /*missing*/) { return kThreeAnswers; }

// Nothing of it was healed since then. An attempt that fails heals nothing.
std::int64_t stuck_since(std::int64_t found, bool has_failed, std::int64_t progress) {
  return has_failed ? found : std::max(found, progress);
}

template <typename Thing>
std::optional<Level> level_of(const Health& health, const Thing& thing, std::int64_t progress) {
  const bool has_failed = was_tried_in_vain(thing);
  if (is_old(health, stuck_since(thing.found, has_failed, progress), kHour)) {
    return Level::kCritical;
  }
  if (has_failed || is_old(health, thing.found, usual_age(thing))) return Level::kWarning;
  return std::nullopt;
}

// The worst of the things; nothing: none is a problem.
template <typename Things>
std::optional<Level> worst_of(const Health& health, const Things& things, std::int64_t progress) {
  std::optional<Level> worst;
  for (const auto& thing : things) {
    worst = std::max(worst, level_of(health, thing, progress));
  }
  return worst;
}

class Gaps {
 public:
  explicit Gaps(const Health& health) : health_(health), ledger_(health.ledger) {}

  std::vector<Problem> take() {
    judge_holes();
    judge_missing();
    judge_given_up();
    judge_comparing();
    return std::move(problems_);
  }

 private:
  void add(Level level, const char* name, std::string words) {
    problems_.push_back({health_.is_off() ? Level::kWarning : level, name, std::move(words)});
  }

  void judge_holes() {
    const std::optional<Level> level = worst_of(health_, ledger_.holes, ledger_.healed_at);
    if (!level) return;
    const coverage::Hole& oldest = ledger_.holes.front();
    const bool has_failed = std::ranges::any_of(
        ledger_.holes, [](const coverage::Hole& hole) { return was_tried_in_vain(hole); });
    std::string words = span_text(ledger_.holes_seconds()) +
                        (has_failed ? " were not gathered, the first from "
                                    : " are still to be gathered again, the first from ") +
                        utc_text(oldest.range.begin);
    if (!oldest.reason.empty()) words += ": " + without_full_stop(oldest.reason);
    add(*level, "holes", std::move(words));
  }

  void judge_missing() {
    const std::optional<Level> level = worst_of(health_, ledger_.missing, ledger_.healed_at);
    if (!level) return;
    const auto number = static_cast<std::int64_t>(ledger_.missing.size());
    add(*level, "missing_backups",
        counted(number, "backup that the master server has is",
                "backups that the master server has are") +
            " missing from the database");
  }

  void judge_given_up() {
    if (!ledger_.lost.empty()) {
      const auto number = static_cast<std::int64_t>(ledger_.lost.size());
      add(Level::kWarning, "lost_ranges",
          counted(number, "lost range", "lost ranges") +
              (number == 1 ? ", from " : ", the first from ") +
              utc_text(ledger_.lost.front().begin));
    }
    if (ledger_.given_up > 0) {
      add(Level::kWarning, "given_up_backups",
          counted(ledger_.given_up, "missing backup was", "missing backups were") + " given up");
    }
  }

  void judge_comparing() {
    if (!health_.configured.heals || ledger_.unaudited_since == 0) return;
    const std::int64_t since = stuck_since(ledger_.unaudited_since, !ledger_.audit_reason.empty(),
                                           std::max(ledger_.audited_at, ledger_.healed_at));
    if (!is_old(health_, since, kHour)) return;
    std::string words =
        "the backups in the database have not been compared with those of the "
        "master server " +
        since_text(health_, ledger_.unaudited_since);
    if (!ledger_.audit_reason.empty()) words += ": " + without_full_stop(ledger_.audit_reason);
    add(Level::kCritical, "not_compared", std::move(words));
  }

  const Health& health_;
  const LedgerHealth& ledger_;
  std::vector<Problem> problems_;
};

}  // namespace

std::vector<Problem> gap_problems(const Health& health) { return Gaps(health).take(); }

bool is_future(const Health& health, std::int64_t time) {
  return time > health.now + coverage::kClockSkew;
}

bool is_old(const Health& health, std::int64_t time, std::int64_t age) {
  return is_future(health, time) || health.now - time >= age;
}

std::string since_text(const Health& health, std::int64_t time) {
  if (is_future(health, time)) return "since " + utc_text(time) + ", in the future";
  return "for " + span_text(health.now - time);
}

std::string without_full_stop(std::string sentence) {
  if (sentence.ends_with('.')) sentence.pop_back();
  return sentence;
}

}  // namespace corvane::health
