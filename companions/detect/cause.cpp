#include "companions/detect/cause.h"

#include <algorithm>
#include <utility>

namespace corvane::detect {

namespace {

const Cause kEncryption{"encryption",
                        "Files may have been encrypted: much content is new and the store cannot "
                        "shrink it, while the files are still there."};
const Cause kSlowEncryption{"encryption",
                            "Files may be being encrypted little by little: several runs in a row "
                            "found more new content than such runs ever did."};
const Cause kMassDeletion{"mass_deletion", "A large part of the files is gone."};
const Cause kSourceEmpty{"source_empty",
                         "The source is nearly empty: everything deleted, or not mounted."};
const Cause kGrowth{"runaway_growth", "The source has grown far beyond its usual size."};
const Cause kPacked{"packed",
                    "The files were packed into few: their number collapsed, their size did not."};
const Cause kUnclear{"unclear", "The figures are unusual in a way that no known cause explains."};

std::vector<Cause> from_whole_copy(const Change& change) {
  const double size = change.size < 0 ? change.files : change.size;
  if (change.files >= 0 && change.files < 0.1 && size >= 0.4) return {kPacked, kMassDeletion};
  if (change.files >= 0 && change.files < 0.05 && size < 0.05) return {kSourceEmpty, kMassDeletion};
  if (change.files >= 0 && change.files < 0.75) return {kMassDeletion, kSourceEmpty};
  if (size > 1.35 || change.files > 1.35) {
    if (change.stored >= 0.9 && change.files < 2.2) return {kGrowth, kEncryption};
    return {kGrowth};
  }
  if (size >= 0 && size < 0.75) return {kMassDeletion, kEncryption};
  if (change.stored >= 0.3 || change.touched_files >= 0.3) return {kEncryption};
  return {kUnclear};
}

std::vector<Cause> from_incremental(const Change& change) {
  const double files = change.touched_files;
  const double size = change.touched_size;
  if (size < 0.1 * files) {
    return files >= 0.95 ? std::vector{kSourceEmpty, kMassDeletion}
                         : std::vector{kMassDeletion, kSourceEmpty};
  }
  if (size > 1.6 || (size > 0.8 && files < 0.5)) return {kGrowth, kEncryption};
  if (files > 0.95 && files < 1.05 && size > 1.03) return {kPacked, kEncryption};
  return {kEncryption, kGrowth};
}

}  // namespace

std::vector<Cause> suspected_causes(const Change& change) {
  if (change.sustained) return {kSlowEncryption};
  if (change.files >= 0 || change.size >= 0) {
    std::vector<Cause> causes = from_whole_copy(change);
    if (causes.front().id != kUnclear.id || change.touched_files < 0) return causes;
  }
  if (change.touched_files >= 0 && change.touched_size >= 0) return from_incremental(change);
  if (change.stored >= 0.3) return {kEncryption};
  return {kUnclear};
}

}  // namespace corvane::detect
