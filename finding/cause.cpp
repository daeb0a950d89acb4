#include "finding/cause.h"

#include <array>

namespace corvane {

namespace {

struct CauseWords {
  const char* id;
  const char* sentence;
  const char* phrase;
  const char* noun;
};

// By CauseKind.
constexpr std::array<CauseWords, 6> kCauses{{
    {"unclear", "The figures are unusual in a way that no known cause explains.",
     "no known cause fits", "no known cause"},
    {"encryption",
     "Files may have been encrypted: much content is new and the store cannot shrink it, while "
     "the files are still there.",
     "looks like encryption", "encryption"},
    {"mass_deletion", "A large part of the files is gone.", "looks like a mass deletion",
     "mass deletion"},
    {"source_empty", "The source is nearly empty: everything deleted, or not mounted.",
     "the source is nearly empty", "source nearly empty"},
    {"runaway_growth", "The source has grown far beyond its usual size.",
     "the source grows beyond measure", "growth beyond measure"},
    {"packed", "The files were packed into few: their number collapsed, their size did not.",
     "looks as if the files were packed into few", "files packed into few"},
}};

const CauseWords& words_of(CauseKind kind) { return kCauses.at(static_cast<std::size_t>(kind)); }

}  // namespace

Cause cause(CauseKind kind) { return {kind, words_of(kind).sentence}; }

Cause slow_encryption() {
  return {CauseKind::kEncryption,
          "Files may be being encrypted little by little: several runs in a row found more new "
          "content than such runs ever did."};
}

const char* id_of(CauseKind kind) { return words_of(kind).id; }

CauseKind cause_of(std::string_view id) {
  for (std::size_t i = 0; i < kCauses.size(); ++i) {
    if (id == kCauses.at(i).id) return static_cast<CauseKind>(i);
  }
  return CauseKind::kUnclear;
}

const char* phrase_for(CauseKind kind) { return words_of(kind).phrase; }

const char* noun_for(std::optional<CauseKind> kind) {
  return words_of(kind.value_or(CauseKind::kUnclear)).noun;
}

}  // namespace corvane
