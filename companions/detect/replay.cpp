#include "companions/detect/replay.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "anomaly_database/backups.h"
#include "companions/detect/detector.h"
#include "companions/detect/finding_of.h"
#include "companions/detect/model.h"
#include "companions/detect/verdicts.h"
#include "finding/finding_json.h"
#include "finding/words.h"
#include "util/json.h"
#include "util/valid_utf8.h"

namespace corvane::detect {

namespace {

// The stored backups, as the detection takes them.
struct Stored {
  explicit Stored(Connection& read)
      : database(read), verdicts(read, open_verdicts_for_reading(verdict_database_path(read))) {}
  // As it was judged.
  Backup judged(const Backup& backup) {
    const std::optional<KnownVerdict> known = verdicts.find(backup.unique_key);
    return known ? known->backup : backup;
  }

  Connection& database;
  KnownVerdicts verdicts;
};

// Visits every stored backup: the history, then the anomalous ones that are not in it.
void read_all(Stored& stored, const std::function<void(const Backup&, int cluster)>& visit,
              const std::function<void(const Backup&)>& visit_anomalous) {
  read_history(stored.database, 0, [&](const HistoryRow& row) {
    const Standing standing = stored.verdicts.standing_of(row);
    if (standing.is_held) {
      visit_anomalous(*standing.backup);
    } else {
      visit(*standing.backup, standing.cluster);
    }
    return true;
  });
  std::vector<Backup> anomalous;
  read_rows_to_process(stored.database, 0, [&](const RowToProcess& row, ProcessedStatus status) {
    if (status == ProcessedStatus::kAnomalous) anomalous.push_back(row.backup);
    return true;
  });
  std::erase_if(anomalous, [&](const Backup& backup) {
    return is_in_history(stored.database, backup.unique_key);
  });
  for (const Backup& backup : anomalous) visit_anomalous(stored.judged(backup));
}

Model model_over(Stored& stored, const Settings& settings) {
  return {settings, [&stored](const std::string& key) { return stored.verdicts.incident_of(key); }};
}

// Loads what came before the last `days` days; returns what is to be judged again, in order.
std::vector<Backup> load(Stored& stored, int days, Model& model) {
  std::int32_t newest = 0;
  read_all(
      stored, [&](const Backup& backup, int) { newest = std::max(newest, backup.time); },
      [&](const Backup& backup) { newest = std::max(newest, backup.time); });
  const std::int64_t begin = std::int64_t{newest} - std::int64_t{days} * kDay;
  std::vector<Backup> to_judge;
  read_all(
      stored,
      [&](const Backup& backup, int cluster) {
        if (backup.time > begin && cluster == kNoCluster) {
          to_judge.push_back(backup);
        } else {
          model.learn(backup, cluster);
        }
      },
      [&](const Backup& backup) {
        if (backup.time > begin) {
          to_judge.push_back(backup);
        } else {
          model.hold(backup, {});
        }
      });
  std::sort(to_judge.begin(), to_judge.end(), judged_before);
  return to_judge;
}

std::string stream_words(const Backup& backup, const Verdict& verdict, const Settings& settings,
                         Model& model) {
  const std::int64_t last = model.last_accepted_at(backup.stream, backup.time).value_or(0);
  const StreamState state = state_of(verdict.observations, last, backup.time, settings.stream);
  return words_for(state, verdict.observations, settings.stream);
}

}  // namespace

Backtest backtest(Connection& database, const Settings& settings, int days) {
  Stored stored(database);
  Model model = model_over(stored, settings);
  const std::vector<Backup> to_judge = load(stored, days, model);
  Backtest result;
  result.judged = to_judge.size();
  for (const Backup& backup : to_judge) {
    const Verdict verdict = model.judge(backup);
    if (verdict.outcome == Outcome::kLearning) ++result.learning;
    if (verdict.outcome != Outcome::kAnomalous) {
      model.learn(backup, kNoCluster);
      continue;
    }
    result.findings.push_back({backup.unique_key, finding_of(backup, verdict, model)});
    model.hold(backup, result.findings.back().finding.incident);
  }
  return result;
}

std::optional<Explanation> explain(Connection& database, const Settings& settings,
                                   const std::string& unique_key) {
  const std::optional<Backup> gathered = find_backup(database, unique_key);
  if (!gathered) return std::nullopt;
  Stored stored(database);
  const Backup backup = stored.judged(*gathered);
  Model model = model_over(stored, settings);
  // Other sources do not count, and nothing that came later.
  const auto counts = [&](const Backup& other) {
    return other.stream.client_and_policy() == backup.stream.client_and_policy() &&
           judged_before(other, backup);
  };
  read_all(
      stored,
      [&](const Backup& other, int cluster) {
        if (counts(other)) model.learn(other, cluster);
      },
      [&](const Backup& other) {
        if (counts(other)) model.hold(other, {});
      });
  const Verdict verdict = model.judge(backup);
  Explanation explanation;
  explanation.unique_key = unique_key;
  explanation.finding = finding_of(backup, verdict, model);
  explanation.outcome = verdict.outcome;
  explanation.verdict = words_for(verdict, settings);
  explanation.stream = stream_words(backup, verdict, settings, model);
  explanation.noise_share = verdict.noise_share;
  return explanation;
}

JsonPtr to_json(const Backtest& backtest) {
  JsonPtr root(json_object());
  put(root.get(), "schema", std::int64_t{1});
  put(root.get(), "judged", static_cast<std::int64_t>(backtest.judged));
  put(root.get(), "learning", static_cast<std::int64_t>(backtest.learning));
  JsonPtr anomalies(json_array());
  for (const BacktestFinding& one : backtest.findings) {
    JsonPtr entry = to_json(one.finding);
    put(entry.get(), "unique_key", one.unique_key);
    append(anomalies.get(), std::move(entry));
  }
  put(root.get(), "anomalies", std::move(anomalies));
  return root;
}

JsonPtr to_json(const Explanation& explanation) {
  JsonPtr root = to_json(explanation.finding);
  put(root.get(), "state", explanation.verdict);
  put(root.get(), "stream_state", explanation.stream);
  put(root.get(), "history_noise", explanation.noise_share);
  put(root.get(), "sustained", explanation.finding.slow_change.has_value());
  return root;
}

std::string totals_of(const Backtest& backtest) {
  return counted(static_cast<std::int64_t>(backtest.judged), "backup", "backups") +
         " judged again, " + number_text(static_cast<double>(backtest.findings.size())) +
         " would have been reported, " + number_text(static_cast<double>(backtest.learning)) +
         " in streams that were still learning\n";
}

std::string text_of(const Backtest& backtest) {
  std::string text;
  for (const auto& [key, finding] : backtest.findings) {
    text += formatted_time(finding.time, true, "%Y-%m-%dT%H:%M:%SZ") + "  " +
            words_for(finding.severity) + "  " + valid_utf8(key) + "  " + finding.summary + "\n";
  }
  return text + totals_of(backtest);
}

}  // namespace corvane::detect
