#include "companions/detect/finding_of.h"

namespace corvane::detect {

Finding finding_of(const Backup& backup, const Verdict& verdict, Model& model) {
  Finding finding;
  finding.severity = verdict.severity;
  finding.incident = model.incident_of(backup);
  finding.stream = backup.stream;
  finding.has_stream = true;
  finding.backup_id = backup.backup_id;
  finding.job_id = backup.job_id;
  finding.time = backup.time;
  finding.causes = verdict.causes;
  finding.slow_change = verdict.slow_change;
  finding.figures = verdict.figures;
  finding.by_other_stream = verdict.by_other_stream;
  finding.observations = verdict.observations;
  finding.eps = verdict.eps;
  finding.last_good = model.last_good_of(backup.stream);
  finding.usual_since = model.first_accepted_after(backup.stream, backup.time);
  finding.summary = summary_of(finding);
  return finding;
}

const char* name_of(Outcome outcome) {
  switch (outcome) {
    case Outcome::kLearning:
      return "learning";
    case Outcome::kInconclusive:
      return "inconclusive";
    case Outcome::kNormal:
      return "normal";
    case Outcome::kAdopted:
      return "adopted";
    case Outcome::kAnomalous:
      return "anomalous";
  }
  return "";
}

std::string words_for(const Verdict& verdict, const Settings& settings) {
  if (verdict.outcome != Outcome::kLearning) return name_of(verdict.outcome);
  return words_for(StreamState::kLearning, verdict.observations, settings.stream);
}

}  // namespace corvane::detect
