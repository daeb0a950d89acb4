#include "companions/detect/observation.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace corvane::detect {

namespace {

constexpr double kPackedPerOctave = 1024;
constexpr double kPackedZero = 20;  // octaves below 1 that still differ from 0

// 0: unknown.
std::uint16_t pack(double number) {
  if (!(number >= 0)) return 0;
  const double octaves = std::log2(number + std::exp2(-kPackedZero)) + kPackedZero;
  return static_cast<std::uint16_t>(std::clamp(octaves * kPackedPerOctave + 1, 1.0, 65535.0));
}

double unpack(std::uint16_t packed) {
  if (packed == 0) return -1;
  const double number = std::exp2((packed - 1) / kPackedPerOctave - kPackedZero);
  return packed == 1 ? 0 : number;
}

std::uint32_t hash(std::string_view text) {
  std::uint32_t sum = 2166136261U;
  for (const char letter : text) sum = (sum ^ static_cast<unsigned char>(letter)) * 16777619U;
  return sum;
}

// Anything that is not an amount is unknown. Nobody backs up more than kMost files or KB.
float amount(double number) {
  constexpr double kMost = 1e15;
  return number >= 0 ? static_cast<float>(std::min(number, kMost)) : -1.0F;
}

}  // namespace

Observation::Observation(const Backup& backup)
    : time_(backup.time),
      key_hash_(hash(backup.unique_key)),
      files_(amount(backup.figures.files)),
      size_kb_(amount(backup.figures.size_kb)),
      transferred_kb_(amount(backup.figures.transferred_kb)),
      ratio_(pack(backup.figures.ratio)),
      seconds_(pack(backup.figures.seconds)) {}

Figures Observation::figures() const {
  return {files_, size_kb_, transferred_kb_, unpack(ratio_), unpack(seconds_)};
}

}  // namespace corvane::detect
