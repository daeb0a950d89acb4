// What may have happened to the source of an anomalous backup, as all programs word it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

enum class CauseKind {
  kUnclear,
  kEncryption,
  kMassDeletion,
  kSourceEmpty,
  kRunawayGrowth,
  kPacked,
};

struct Cause {
  CauseKind kind = CauseKind::kUnclear;
  std::string words;  // one sentence
};

// With its sentence.
Cause cause(CauseKind kind);
// Encryption that shows only over several backups in a row.
Cause slow_encryption();

// "mass_deletion", in JSON documents. An unknown id is kUnclear.
const char* id_of(CauseKind kind);
CauseKind cause_of(std::string_view id);

// Part of a sentence: "looks like a mass deletion".
const char* phrase_for(CauseKind kind);
// For lists: "mass deletion"; without a cause "no known cause".
const char* noun_for(std::optional<CauseKind> kind);

}  // namespace corvane
