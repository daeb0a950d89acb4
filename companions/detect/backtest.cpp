#include "companions/detect/backtest.h"

#include <jansson.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <vector>

#include "companions/common/json_text.h"
#include "companions/common/valid_utf8.h"
#include "companions/detect/details.h"
#include "companions/detect/detector.h"
#include "companions/detect/model.h"
#include "companions/detect/store.h"
#include "platform/c_handles.h"

namespace corvane::detect {

namespace {

constexpr std::int32_t kDay = 86400;

// Every stored backup: the history, and the reported rows that are not in it.
void read_all(Store& store, const std::function<void(const Backup&, int cluster)>& visit,
              const std::function<void(const Backup&)>& visit_reported) {
  store.read_history(0, [&](const Backup& backup, int cluster) {
    visit(backup, cluster);
    return true;
  });
  std::vector<Backup> reported;
  store.read_rows(0, [&](const WaitingRow& row, Status status) {
    if (status == Status::kAnomalous) reported.push_back(row.backup);
    return true;
  });
  std::erase_if(reported,
                [&](const Backup& backup) { return store.is_in_history(backup.unique_key); });
  std::sort(reported.begin(), reported.end(), judged_before);
  for (const Backup& backup : reported) visit_reported(backup);
}

std::string time_text(std::int32_t time) {
  const std::time_t seconds = time;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text.data();
}

std::string pretty(const json_t* value) { return json_text(value, JSON_INDENT(1)) + "\n"; }

class Backtest {
 public:
  Backtest(const Settings& settings, bool json) : model_(settings), json_(json) {}

  void load(Store& store, int days) {
    std::int32_t newest = 0;
    read_all(
        store, [&](const Backup& backup, int) { newest = std::max(newest, backup.time); },
        [&](const Backup& backup) { newest = std::max(newest, backup.time); });
    const std::int64_t begin = std::int64_t{newest} - std::int64_t{days} * kDay;
    read_all(
        store,
        [&](const Backup& backup, int cluster) {
          if (backup.time > begin && cluster == -1) {
            to_judge_.push_back(backup);
          } else {
            model_.learn(backup, cluster);
          }
        },
        [&](const Backup& backup) {
          if (backup.time > begin) {
            to_judge_.push_back(backup);
          } else {
            model_.hold(backup, model_.incident_of(backup));
          }
        });
    model_.settle();
    std::sort(to_judge_.begin(), to_judge_.end(), judged_before);
  }

  std::string run() {
    const JsonPtr fired(json_array());
    std::string lines;
    std::size_t learning = 0;
    for (const Backup& backup : to_judge_) {
      const Verdict verdict = model_.judge(backup);
      if (verdict.outcome == Outcome::kLearning) ++learning;
      if (verdict.outcome != Outcome::kAnomalous) {
        model_.learn(backup, -1);
        continue;
      }
      const std::string incident = model_.incident_of(backup);
      const std::string details =
          details_of(backup, verdict, incident, model_.last_good_of(backup.stream));
      model_.hold(backup, incident);
      json_t* entry = json_loads(details.c_str(), 0, nullptr);
      json_object_set_new(entry, "unique_key", json_string(valid_utf8(backup.unique_key).c_str()));
      json_array_append_new(fired.get(), entry);
      lines += time_text(backup.time) + "  severity " + std::to_string(verdict.severity) + "  " +
               valid_utf8(backup.unique_key) + "  " + summary_of(backup, verdict) + "\n";
    }
    return json_ ? document(fired.get(), learning) : lines + totals(fired.get(), learning);
  }

 private:
  std::string document(json_t* fired, std::size_t learning) const {
    const JsonPtr root(json_object());
    json_object_set_new(root.get(), "schema", json_integer(1));
    json_object_set_new(root.get(), "judged",
                        json_integer(static_cast<json_int_t>(to_judge_.size())));
    json_object_set_new(root.get(), "learning", json_integer(static_cast<json_int_t>(learning)));
    json_object_set(root.get(), "anomalies", fired);
    return pretty(root.get());
  }

  std::string totals(const json_t* fired, std::size_t learning) const {
    return std::to_string(to_judge_.size()) + " backups judged again, " +
           std::to_string(json_array_size(fired)) + " would have been reported, " +
           std::to_string(learning) + " of streams that were still learning\n";
  }

  Model model_;
  bool json_;
  std::vector<Backup> to_judge_;
};

}  // namespace

std::string backtest(const std::string& database, const Settings& settings, int days, bool json) {
  Store store(database, true);
  Backtest test(settings, json);
  test.load(store, days);
  return test.run();
}

std::string explain(const std::string& database, const Settings& settings,
                    const std::string& unique_key) {
  Store store(database, true);
  const std::optional<Backup> backup = store.find_backup(unique_key);
  if (!backup) return {};
  Model model(settings);
  // Other sources have no say, nor has what came later.
  const auto counts = [&](const Backup& other) {
    return other.stream.client_and_policy() == backup->stream.client_and_policy() &&
           judged_before(other, *backup);
  };
  read_all(
      store,
      [&](const Backup& other, int cluster) {
        if (counts(other)) model.learn(other, cluster);
      },
      [&](const Backup& other) {
        if (counts(other)) model.hold(other, model.incident_of(other));
      });
  const Verdict verdict = model.judge(*backup);
  const LastGood last_good = model.last_good_of(backup->stream);
  const JsonPtr root(json_loads(
      details_of(*backup, verdict, model.incident_of(*backup), last_good).c_str(), 0, nullptr));
  json_object_set_new(root.get(), "state", json_string(state_of(verdict, settings).c_str()));
  json_object_set_new(root.get(), "history_noise", json_real(verdict.noise_share));
  json_object_set_new(root.get(), "sustained", json_boolean(verdict.slow_change.has_value()));
  return pretty(root.get());
}

}  // namespace corvane::detect
