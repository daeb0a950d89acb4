#include "finding/cause.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(Cause, IdsGiveTheirKindBack) {
  for (const CauseKind kind :
       {CauseKind::kUnclear, CauseKind::kEncryption, CauseKind::kMassDeletion,
        CauseKind::kSourceEmpty, CauseKind::kRunawayGrowth, CauseKind::kPacked}) {
    EXPECT_EQ(cause_of(id_of(kind)), kind) << id_of(kind);
    EXPECT_EQ(cause(kind).kind, kind);
    EXPECT_TRUE(cause(kind).words.ends_with('.'));
  }
  EXPECT_EQ(cause_of("of another version"), CauseKind::kUnclear);
}

TEST(Cause, HasAPhraseAndANoun) {
  EXPECT_STREQ(phrase_for(CauseKind::kEncryption), "looks like encryption");
  EXPECT_STREQ(noun_for(CauseKind::kMassDeletion), "mass deletion");
  EXPECT_STREQ(noun_for(std::nullopt), "no known cause");
  EXPECT_EQ(slow_encryption().kind, CauseKind::kEncryption);
  EXPECT_NE(slow_encryption().words, cause(CauseKind::kEncryption).words);
}

}  // namespace
}  // namespace corvane
