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
    {"unclear", "No known cause explains these figures.", "no known cause", "no known cause"},
    {"encryption",
     "Files may have been encrypted: much of the content is new and does not deduplicate, while "
     "the files are still there.",
     "looks like encryption", "encryption"},
    {"mass_deletion", "A large part of the files is gone.", "looks like a mass deletion",
     "mass deletion"},
    {"source_empty", "The source is nearly empty: everything was deleted, or it was not mounted.",
     "the source is nearly empty", "nearly empty source"},
    {"runaway_growth", "The source has grown far beyond its usual size.", "runaway growth",
     "runaway growth"},
    {"packed",
     "Files may have been packed into archives: their number has collapsed, but not their size.",
     "looks like files packed into archives", "files packed into archives"},
}};

const CauseWords& words_of(CauseKind kind) { return kCauses.at(static_cast<std::size_t>(kind)); }

}  // namespace

Cause cause(CauseKind kind) { return {kind, words_of(kind).sentence}; }

Cause slow_encryption() {
  return {CauseKind::kEncryption,
          "Files may be undergoing slow encryption: several backups in a row contained more new "
          "content than ever before."};
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
