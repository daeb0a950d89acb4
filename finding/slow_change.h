// A change that shows only over several backups in a row, and its wording.
#pragma once

#include <cstddef>
#include <string>

namespace corvane {

// Each of the last `runs` backups found at least `share` of the source changed, although each of
// them is normal by itself.
struct SlowChange {
  std::size_t runs = 0;
  // True: the files of an incremental relative to all files of the source. False: the KB that a
  // full backup transferred relative to its size.
  bool of_files = false;
  double share = 0;         // 0 to 1
  double share_before = 0;  // the largest such share of as many accepted backups in a row before
};

// "in each of 3 backups in a row, at least ...": part of a sentence.
std::string in_words(const SlowChange& change);

}  // namespace corvane
