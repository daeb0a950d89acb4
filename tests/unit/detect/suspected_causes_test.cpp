#include "companions/detect/suspected_causes.h"

#include <gtest/gtest.h>

#include <string>

namespace corvane::detect {
namespace {

// "packed mass_deletion", in their order.
std::string ids(const Change& change) {
  std::string text;
  for (const Cause& cause : suspected_causes(change)) {
    EXPECT_EQ(cause.words, corvane::cause(cause.kind).words);
    text += (text.empty() ? "" : " ") + std::string(id_of(cause.kind));
  }
  return text;
}

std::string of_full(double files, double size, double stored = -1, double touched = -1,
                    double touched_size = -1) {
  return ids({.files = files,
              .size = size,
              .stored = stored,
              .touched_files = touched,
              .touched_size = touched_size});
}

std::string of_incremental(double files, double size) {
  return ids({.touched_files = files, .touched_size = size});
}

constexpr char kPacked[] = "packed mass_deletion";
constexpr char kEmpty[] = "source_empty mass_deletion";
constexpr char kDeleted[] = "mass_deletion source_empty";
constexpr char kShrunk[] = "mass_deletion encryption";
constexpr char kGrown[] = "runaway_growth";
constexpr char kGrownNew[] = "runaway_growth encryption";
constexpr char kEncrypted[] = "encryption";
constexpr char kUnclear[] = "unclear";

TEST(SuspectedCauses, OfAFullBackupWithFewerFiles) {
  EXPECT_EQ(of_full(0.09, 0.4), kPacked);
  EXPECT_EQ(of_full(0, 0.4), kPacked);
  EXPECT_EQ(of_full(0.09, 0.39), kDeleted);
  EXPECT_EQ(of_full(0.1, 0.4), kDeleted);
  EXPECT_EQ(of_full(0.04, 0.04), kEmpty);
  EXPECT_EQ(of_full(0, 0), kEmpty);
  EXPECT_EQ(of_full(0.04, 0.05), kDeleted);
  EXPECT_EQ(of_full(0.05, 0.04), kDeleted);
  EXPECT_EQ(of_full(0.04, -1), kEmpty) << "the files stand for an unknown size";
  EXPECT_EQ(of_full(0.06, -1), kDeleted);
  EXPECT_EQ(of_full(0, 0.2), kDeleted);
  EXPECT_EQ(of_full(0.74, 3), kDeleted);
  EXPECT_EQ(of_full(0.75, 1), kUnclear);
  EXPECT_EQ(of_full(0.75, -1), kUnclear);
}

TEST(SuspectedCauses, OfAFullBackupThatHasGrownOrShrunk) {
  EXPECT_EQ(of_full(1, 1.35), kUnclear);
  EXPECT_EQ(of_full(1, 1.36), kGrown);
  EXPECT_EQ(of_full(1.35, 1), kUnclear);
  EXPECT_EQ(of_full(1.36, 1), kGrown);
  EXPECT_EQ(of_full(1.36, -1), kGrown);
  EXPECT_EQ(of_full(-1, 1.36), kGrown);
  EXPECT_EQ(of_full(2.1, 1.4, 0.9), kGrownNew);
  EXPECT_EQ(of_full(2.1, 1.4, 0.89), kGrown);
  EXPECT_EQ(of_full(2.2, 1.4, 0.9), kGrown);
  EXPECT_EQ(of_full(1, 0.75), kUnclear);
  EXPECT_EQ(of_full(1, 0.74), kShrunk);
  EXPECT_EQ(of_full(-1, 0.74), kShrunk);
  EXPECT_EQ(of_full(-1, 0), kShrunk);
}

TEST(SuspectedCauses, OfAFullBackupOfTheSameExtent) {
  EXPECT_EQ(of_full(1, 1, 0.3), kEncrypted);
  EXPECT_EQ(of_full(1, 1, 0.29), kUnclear);
  EXPECT_EQ(of_full(1, 1, -1, 0.3), kEncrypted);
  EXPECT_EQ(of_full(1, 1, -1, 0.29), kUnclear);
  EXPECT_EQ(of_full(1, 1, -1, 0.29, 2), kGrownNew) << "then the incremental has the say";
  EXPECT_EQ(of_full(1, 1, -1, 0, 0.5), "encryption runaway_growth");
  EXPECT_EQ(of_full(1, 3, -1, 0.29, 0), kGrown) << "but only then";
  EXPECT_EQ(of_full(0, -1, 0.5), kEmpty);
  EXPECT_EQ(of_full(-1, -1, 0.3), kEncrypted);
  EXPECT_EQ(of_full(-1, -1, 0.29), kUnclear);
  EXPECT_EQ(of_full(-1, -1), kUnclear);
}

TEST(SuspectedCauses, OfAnIncrementalAlone) {
  EXPECT_EQ(of_incremental(0.95, 0.09), kEmpty);
  EXPECT_EQ(of_incremental(0.94, 0.09), kDeleted);
  EXPECT_EQ(of_incremental(1, 0.1), "encryption runaway_growth");
  EXPECT_EQ(of_incremental(0.5, 0.049), kDeleted);
  EXPECT_EQ(of_incremental(0.5, 0.05), "encryption runaway_growth");
  EXPECT_EQ(of_incremental(1, 1.61), kGrownNew);
  EXPECT_EQ(of_incremental(0.5, 1.6), "encryption runaway_growth");
  EXPECT_EQ(of_incremental(0.49, 0.81), kGrownNew);
  EXPECT_EQ(of_incremental(0.49, 0.8), "encryption runaway_growth");
  EXPECT_EQ(of_incremental(0.5, 0.81), "encryption runaway_growth");
  EXPECT_EQ(of_incremental(0.96, 1.04), "packed encryption");
  EXPECT_EQ(of_incremental(1.04, 1.04), "packed encryption");
  EXPECT_EQ(of_incremental(0.95, 1.04), "encryption runaway_growth");
  EXPECT_EQ(of_incremental(1.05, 1.04), "encryption runaway_growth");
  EXPECT_EQ(of_incremental(1, 1.03), "encryption runaway_growth");
  EXPECT_EQ(of_incremental(0, 0), "encryption runaway_growth");
  EXPECT_EQ(of_incremental(0.3, -1), kUnclear);
  EXPECT_EQ(of_incremental(-1, 0.3), kUnclear);
}

TEST(SuspectedCauses, OfSeveralRunsInARowIsASlowEncryption) {
  const auto causes = suspected_causes({.files = 0, .size = 0, .sustained = true});
  ASSERT_EQ(causes.size(), 1U);
  EXPECT_EQ(causes[0].kind, CauseKind::kEncryption);
  EXPECT_EQ(causes[0].words, slow_encryption().words);
  EXPECT_NE(causes[0].words, cause(CauseKind::kEncryption).words);
}

}  // namespace
}  // namespace corvane::detect
