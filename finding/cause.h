// What may have happened to the source of an anomalous backup, in the words of all programs.
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
  std::string words;  // a plain sentence
};

// With the sentence that goes with it.
Cause cause(CauseKind kind);
// Encryption that several runs in a row give away.
Cause slow_encryption();

// "mass_deletion", in JSON documents. An id that is not known is kUnclear.
const char* id_of(CauseKind kind);
CauseKind cause_of(std::string_view id);

// Part of a sentence: "looks like a mass deletion".
const char* phrase_for(CauseKind kind);
// For a list: "mass deletion"; without a cause "no known cause".
const char* noun_for(std::optional<CauseKind> kind);

}  // namespace corvane
