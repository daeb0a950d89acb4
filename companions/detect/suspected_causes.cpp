#include "companions/detect/suspected_causes.h"

namespace corvane::detect {

namespace {

using enum CauseKind;

std::vector<CauseKind> from_full_backup(const Change& change) {
  const double size = change.size < 0 ? change.files : change.size;
  if (change.files >= 0 && change.files < 0.1 && size >= 0.4) return {kPacked, kMassDeletion};
  if (change.files >= 0 && change.files < 0.05 && size < 0.05) return {kSourceEmpty, kMassDeletion};
  if (change.files >= 0 && change.files < 0.75) return {kMassDeletion, kSourceEmpty};
  if (size > 1.35 || change.files > 1.35) {
    if (change.stored >= 0.9 && change.files < 2.2) return {kRunawayGrowth, kEncryption};
    return {kRunawayGrowth};
  }
  if (size >= 0 && size < 0.75) return {kMassDeletion, kEncryption};
  if (change.stored >= 0.3 || change.touched_files >= 0.3) return {kEncryption};
  return {kUnclear};
}

std::vector<CauseKind> from_incremental(const Change& change) {
  const double files = change.touched_files;
  const double size = change.touched_size;
  if (size < 0.1 * files) {
    return files >= 0.95 ? std::vector<CauseKind>{kSourceEmpty, kMassDeletion}
                         : std::vector<CauseKind>{kMassDeletion, kSourceEmpty};
  }
  if (size > 1.6 || (size > 0.8 && files < 0.5)) return {kRunawayGrowth, kEncryption};
  if (files > 0.95 && files < 1.05 && size > 1.03) return {kPacked, kEncryption};
  return {kEncryption, kRunawayGrowth};
}

std::vector<CauseKind> kinds_of(const Change& change) {
  if (change.files >= 0 || change.size >= 0) {
    std::vector<CauseKind> kinds = from_full_backup(change);
    if (kinds.front() != kUnclear || change.touched_files < 0) return kinds;
  }
  if (change.touched_files >= 0 && change.touched_size >= 0) return from_incremental(change);
  if (change.stored >= 0.3) return {kEncryption};
  return {kUnclear};
}

}  // namespace

std::vector<Cause> suspected_causes(const Change& change) {
  if (change.sustained) return {slow_encryption()};
  std::vector<Cause> causes;
  for (const CauseKind kind : kinds_of(change)) causes.push_back(cause(kind));
  return causes;
}

}  // namespace corvane::detect
