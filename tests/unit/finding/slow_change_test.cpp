#include "finding/slow_change.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(SlowChangeTest, SaysWhatEachBackupFoundAndTheMaximumBefore) {
  EXPECT_EQ(in_words({.runs = 3, .of_files = true, .share = 0.0512, .share_before = 0.01}),
            "in each of 3 backups in a row, at least 5.1% of the files had changed (previous "
            "maximum for 3 in a row: 1%)");
  EXPECT_EQ(in_words({.runs = 4, .of_files = false, .share = 1, .share_before = 0}),
            "in each of 4 backups in a row, at least 100% of the data was new (previous maximum "
            "for 4 in a row: 0%)");
}

}  // namespace
}  // namespace corvane
