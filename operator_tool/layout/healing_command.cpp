#include "finding/words.h"
#include "operator_tool/commands.h"
#include "operator_tool/layout/health_json.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/terminal/words.h"

namespace corvane::ctl {

std::string healing_text(const Terminal& terminal, bool utc, const health::LedgerHealth& ledger) {
  if (!ledger.trouble.empty()) return line(terminal, "Healing", ledger.trouble, Style::kBad);
  if (ledger.last_look == 0) return line(terminal, "Healing", "cvanomalyheal has never run");
  std::string words = "last look " + time_text(ledger.last_look, utc) + "; ";
  words += ledger.holes.empty() ? "no holes" : "holes: " + span_text(ledger.holes_seconds());
  if (!ledger.missing.empty()) {
    words += "; " + counted(std::ssize(ledger.missing), "missing backup", "missing backups");
  }
  if (ledger.given_up > 0) {
    words += "; " + counted(ledger.given_up, "given-up backup", "given-up backups");
  }
  if (!ledger.lost.empty()) {
    words += "; " + counted(std::ssize(ledger.lost), "lost range", "lost ranges");
  }
  std::string text = line(terminal, "Healing", words);
  for (const coverage::Act& act : ledger.acts) {
    text += line(terminal, "", time_text(act.time, utc) + " " + act.text);
  }
  return text;
}

std::string run_healing(const Context& context) {
  const Options& options = context.options;
  const health::Health health = health::look(options.places(), context.database);
  if (!options.json) return healing_text(context.terminal, options.utc, health.ledger);
  const JsonPtr root = document(options.command == Command::kHeal ? "heal" : "gather");
  put_healing(root.get(), health.ledger);
  return json_for_terminal(root.get());
}

}  // namespace corvane::ctl
