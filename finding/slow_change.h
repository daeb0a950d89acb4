// What a verdict on several runs in a row rests on, and the words that people read of it.
#pragma once

#include <cstddef>
#include <string>

namespace corvane {

// Each of the last `runs` runs found at least `share` of the source changed, although each passes
// by itself.
struct SlowChange {
  std::size_t runs = 0;
  // An incremental's files by those of the whole source; else a whole copy's KB transferred by its
  // size.
  bool of_files = false;
  double share = 0;         // 0 to 1
  double share_before = 0;  // the same of the accepted runs before: the most of so many in a row
};

// "each of 3 runs in a row found ...": part of a sentence.
std::string in_words(const SlowChange& change);

}  // namespace corvane
