#include "finding/cause.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

struct Words {
  CauseKind kind;
  const char* id;
  const char* sentence;
  const char* phrase;
  const char* noun;
};

constexpr Words kAll[] = {
    {CauseKind::kUnclear, "unclear", "No known cause explains these figures.", "no known cause",
     "no known cause"},
    {CauseKind::kEncryption, "encryption",
     "Files may have been encrypted: much of the content is new and does not deduplicate, while "
     "the files are still there.",
     "looks like encryption", "encryption"},
    {CauseKind::kMassDeletion, "mass_deletion", "A large part of the files is gone.",
     "looks like a mass deletion", "mass deletion"},
    {CauseKind::kSourceEmpty, "source_empty",
     "The source is nearly empty: everything was deleted, or it was not mounted.",
     "the source is nearly empty", "nearly empty source"},
    {CauseKind::kRunawayGrowth, "runaway_growth", "The source has grown far beyond its usual size.",
     "runaway growth", "runaway growth"},
    {CauseKind::kPacked, "packed",
     "Files may have been packed into archives: their number has collapsed, but not their size.",
     "looks like files packed into archives", "files packed into archives"},
};

TEST(CauseTest, HasAnIdASentenceAPhraseAndANoun) {
  for (const Words& words : kAll) {
    EXPECT_STREQ(id_of(words.kind), words.id);
    EXPECT_EQ(cause_of(words.id), words.kind);
    EXPECT_EQ(cause(words.kind).kind, words.kind);
    EXPECT_EQ(cause(words.kind).words, words.sentence);
    EXPECT_STREQ(phrase_for(words.kind), words.phrase);
    EXPECT_STREQ(noun_for(words.kind), words.noun);
  }
}

TEST(CauseTest, WhatIsNotKnownIsUnclear) {
  EXPECT_EQ(cause_of("of another version"), CauseKind::kUnclear);
  EXPECT_EQ(cause_of(""), CauseKind::kUnclear);
  EXPECT_STREQ(noun_for(std::nullopt), "no known cause");
}

TEST(CauseTest, SlowEncryptionIsEncryptionWithASentenceOfItsOwn) {
  EXPECT_EQ(slow_encryption().kind, CauseKind::kEncryption);
  EXPECT_EQ(slow_encryption().words,
            "Files may be undergoing slow encryption: several backups in a row contained more new "
            "content than ever before.");
}

}  // namespace
}  // namespace corvane
