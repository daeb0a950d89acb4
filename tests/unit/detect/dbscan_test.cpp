#include "companions/detect/dbscan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <stdexcept>
#include <string>

namespace corvane::detect {
namespace {

struct Case {
  std::size_t dimensions = 0;
  std::size_t min_samples = 0;
  double eps = 0;
  std::vector<double> points;
  std::vector<int> labels;
  std::vector<std::uint8_t> core;

  std::size_t count() const { return labels.size(); }
  bool within_eps(std::size_t a, std::size_t b) const {
    double sum = 0;
    for (std::size_t d = 0; d < dimensions; ++d) {
      sum += std::pow(points[a * dimensions + d] - points[b * dimensions + d], 2);
    }
    return sum <= eps * eps;
  }
};

class Reader {
 public:
  explicit Reader(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
  }
  bool at_end() const { return offset_ >= bytes_.size(); }
  template <typename T>
  T take() {
    T value{};
    if (offset_ + sizeof value > bytes_.size()) throw std::runtime_error("cases.bin is cut");
    std::memcpy(&value, bytes_.data() + offset_, sizeof value);
    offset_ += sizeof value;
    return value;
  }

 private:
  std::vector<char> bytes_;
  std::size_t offset_ = 0;
};

std::vector<Case> stored_cases() {
  Reader reader(DBSCAN_CASES);
  std::vector<Case> cases;
  while (!reader.at_end()) {
    Case& made = cases.emplace_back();
    const auto count = reader.take<std::uint32_t>();
    made.dimensions = reader.take<std::uint32_t>();
    made.min_samples = reader.take<std::uint32_t>();
    made.eps = reader.take<double>();
    for (std::size_t i = 0; i < count * made.dimensions; ++i) {
      made.points.push_back(reader.take<std::int16_t>() / 64.0);
    }
    for (std::size_t i = 0; i < count; ++i) made.labels.push_back(reader.take<std::int16_t>());
    for (std::size_t i = 0; i < count; ++i) made.core.push_back(reader.take<std::uint8_t>());
  }
  return cases;
}

// The first difference, or the empty text.
std::string difference(const Case& expected, const Dbscan& got) {
  std::map<int, int> partner;
  std::map<int, int> partner_back;
  for (std::size_t i = 0; i < expected.count(); ++i) {
    const std::string at = " at point " + std::to_string(i);
    if (got.core()[i] != expected.core[i]) return "core flag" + at;
    const int label = got.labels()[i];
    if ((label == kNoise) != (expected.labels[i] == kNoise)) return "noise flag" + at;
    if (label == kNoise) continue;
    if (expected.core[i] != 0) {
      if (partner.emplace(expected.labels[i], label).first->second != label) return "split" + at;
      if (partner_back.emplace(label, expected.labels[i]).first->second != expected.labels[i]) {
        return "joined" + at;
      }
      continue;
    }
    bool has_reason = false;
    for (std::size_t j = 0; j < expected.count() && !has_reason; ++j) {
      has_reason = got.core()[j] != 0 && got.labels()[j] == label && expected.within_eps(i, j);
    }
    if (!has_reason) return "border point without a core point" + at;
  }
  return {};
}

TEST(Dbscan, EqualsScikitLearnOnStoredCases) {
  const std::vector<Case> cases = stored_cases();
  ASSERT_EQ(cases.size(), 500U);
  Dbscan dbscan;
  std::size_t noise = 0;
  std::size_t borders = 0;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const Case& stored = cases[i];
    dbscan.run(stored.points, stored.dimensions, stored.eps, stored.min_samples);
    EXPECT_EQ(difference(stored, dbscan), "") << "case " << i;
    for (std::size_t p = 0; p < stored.count(); ++p) {
      noise += stored.labels[p] == kNoise ? 1 : 0;
      borders += stored.labels[p] != kNoise && stored.core[p] == 0 ? 1 : 0;
    }
  }
  EXPECT_GT(noise, 1000U);
  EXPECT_GT(borders, 1000U);
}

std::vector<std::vector<double>> labelled_rows(const Case& shape, const Dbscan& dbscan) {
  std::vector<std::vector<double>> rows;
  std::vector<std::vector<double>> smallest(static_cast<std::size_t>(dbscan.clusters()));
  for (std::size_t i = 0; i < shape.count(); ++i) {
    std::vector<double> row(shape.points.begin() + static_cast<long>(i * shape.dimensions),
                            shape.points.begin() + static_cast<long>((i + 1) * shape.dimensions));
    if (dbscan.labels()[i] != kNoise) {
      auto& best = smallest[static_cast<std::size_t>(dbscan.labels()[i])];
      if (best.empty() || row < best) best = row;
    }
    rows.push_back(std::move(row));
  }
  // A cluster is known by its smallest point, whatever its number.
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const int label = dbscan.labels()[i];
    if (label == kNoise) continue;
    const auto& name = smallest[static_cast<std::size_t>(label)];
    rows[i].insert(rows[i].end(), name.begin(), name.end());
  }
  std::sort(rows.begin(), rows.end());
  return rows;
}

TEST(Dbscan, DoesNotDependOnTheOrderOfThePoints) {
  std::mt19937 random(7);
  Dbscan dbscan;
  for (Case& stored : stored_cases()) {
    if (stored.count() > 400) continue;
    dbscan.run(stored.points, stored.dimensions, stored.eps, stored.min_samples);
    const auto before = labelled_rows(stored, dbscan);
    std::vector<std::size_t> order(stored.count());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), random);
    std::vector<double> shuffled;
    for (const std::size_t i : order) {
      for (std::size_t d = 0; d < stored.dimensions; ++d) {
        shuffled.push_back(stored.points[i * stored.dimensions + d]);
      }
    }
    stored.points = shuffled;
    dbscan.run(stored.points, stored.dimensions, stored.eps, stored.min_samples);
    ASSERT_EQ(labelled_rows(stored, dbscan), before);
  }
}

TEST(Dbscan, AcceptsOneDimensionAndNoPoints) {
  Dbscan dbscan;
  const std::vector<double> line{0, 1, 2, 10, 11, 12, 50};
  dbscan.run(line, 1, 1, 3);
  EXPECT_EQ(dbscan.labels(), (std::vector<int>{0, 0, 0, 1, 1, 1, kNoise}));
  EXPECT_EQ(dbscan.core(), (std::vector<std::uint8_t>{0, 1, 0, 0, 1, 0, 0}));
  EXPECT_EQ(dbscan.clusters(), 2);
  dbscan.run({}, 3, 1, 3);
  EXPECT_TRUE(dbscan.labels().empty());
  EXPECT_EQ(dbscan.clusters(), 0);
}

// A border point between two clusters joins the nearer one, whichever was found first.
TEST(Dbscan, GivesABorderPointToTheNearestCorePoint) {
  Dbscan dbscan;
  for (const double between : {3.9, 5.1}) {
    dbscan.run(std::vector<double>{-5, -5, -5, -5, 0, between, 9, 14, 14, 14, 14}, 1, 5.5, 5);
    ASSERT_EQ(dbscan.clusters(), 2);
    ASSERT_EQ(dbscan.core()[5], 0);
    EXPECT_EQ(dbscan.labels()[5], dbscan.labels()[between < 4.5 ? 4 : 6]);
  }
}

// Too far apart for any grid: still the same rule.
TEST(Dbscan, SurvivesHugeDistances) {
  Dbscan dbscan;
  dbscan.run(std::vector<double>{0, 0, 1e-3, 0, 2e-3, 0, 1e12, 1e300, -1e300, 5}, 2, 0.01, 3);
  EXPECT_EQ(dbscan.labels(), (std::vector<int>{0, 0, 0, kNoise, kNoise}));
}

// So far from the lowest one that rounding would put pairs that are no neighbours into one cell.
TEST(Dbscan, MeasuresPairsThatAreTooFarApartForAGrid) {
  Dbscan dbscan;
  const double eps = 0.0007;
  const double side = eps * (1 - 1e-9);
  std::vector<double> points{-6.3e5};
  for (int i = 1; i <= 300; ++i) {
    const double first = points.front() + (8.9e8 - 12 * i) * side + (i % 81 - 40) * 7e-12;
    points.insert(points.end(), {first, first + eps * (1 + 2e-9)});
  }
  dbscan.run(points, 1, eps, 2);
  EXPECT_EQ(dbscan.clusters(), 0);
  EXPECT_EQ(dbscan.labels(), std::vector<int>(points.size(), kNoise));
}

// The same points, moved: whole numbers, so that nothing is rounded.
TEST(Dbscan, FindsTheSameFarFromTheOrigin) {
  Dbscan dbscan;
  for (const double origin : {-1e15, -1e10, 0.0, 1e10, 1e15}) {
    std::vector<double> points;
    for (const double at : {0, 1, 2, 4, 10, 11, 12, 14}) points.push_back(origin + at);
    dbscan.run(points, 1, 1, 3);
    EXPECT_EQ(dbscan.labels(), (std::vector<int>{0, 0, 0, kNoise, 1, 1, 1, kNoise})) << origin;
  }
}

// The cells are a little smaller than eps: neighbours can be one cell further apart than eps is
// long, and what is in one cell is never too far apart.
TEST(Dbscan, IsExactWhereCellsMeet) {
  Dbscan dbscan;
  dbscan.run(std::vector<double>{0, 1 + 5e-10}, 1, 1, 2);
  EXPECT_EQ(dbscan.clusters(), 0);
  const double before_border = 1 - 1.5e-9;
  for (const std::size_t dimensions : {1U, 4U}) {
    const double eps = std::sqrt(static_cast<double>(dimensions));
    std::vector<double> points(3 * dimensions);
    points[dimensions] = before_border;
    points[2 * dimensions] = before_border + eps * (1 - 1e-12);
    dbscan.run(points, dimensions, eps, 3);
    EXPECT_EQ(dbscan.core(), (std::vector<std::uint8_t>{0, 1, 0})) << dimensions;
  }
}

TEST(Dbscan, RefusesWhatIsNoSetOfPoints) {
  Dbscan dbscan;
  const std::vector<double> three{1, 2, 3};
  EXPECT_THROW(dbscan.run(three, 2, 1, 3), std::invalid_argument);
  EXPECT_THROW(dbscan.run(three, 0, 1, 3), std::invalid_argument);
  EXPECT_THROW(dbscan.run(std::vector<double>(6), 6, 1, 3), std::invalid_argument);
  EXPECT_THROW(dbscan.run(three, 1, 0, 3), std::invalid_argument);
  EXPECT_THROW(dbscan.run(three, 1, -1, 3), std::invalid_argument);
  EXPECT_THROW(dbscan.run(three, 1, 1, 0), std::invalid_argument);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(dbscan.run(three, 1, nan, 3), std::invalid_argument);
  EXPECT_THROW(dbscan.run(std::vector<double>{1, nan, 2}, 1, 1, 3), std::invalid_argument);
}

// By the definition, every pair measured.
struct Naive {
  std::vector<std::uint8_t> core;
  std::vector<int> labels;
};

Naive naive(const Case& shape) {
  const std::size_t count = shape.points.size() / shape.dimensions;
  Naive made{std::vector<std::uint8_t>(count, 0), std::vector<int>(count, kNoise)};
  for (std::size_t i = 0; i < count; ++i) {
    std::size_t neighbours = 0;
    for (std::size_t j = 0; j < count; ++j) neighbours += shape.within_eps(i, j) ? 1 : 0;
    made.core[i] = neighbours >= shape.min_samples ? 1 : 0;
  }
  int clusters = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (made.core[i] == 0 || made.labels[i] != kNoise) continue;
    std::vector<std::size_t> queue{i};
    made.labels[i] = clusters++;
    while (!queue.empty()) {
      const std::size_t at = queue.back();
      queue.pop_back();
      for (std::size_t j = 0; j < count; ++j) {
        if (made.core[j] == 0 || made.labels[j] != kNoise || !shape.within_eps(at, j)) continue;
        made.labels[j] = made.labels[i];
        queue.push_back(j);
      }
    }
  }
  return made;
}

// Whole numbers, many of them exactly eps apart: which core points are there, and which belong
// together and under which number, in each dimension.
TEST(Dbscan, IsExactAtEps) {
  std::mt19937 random(3);
  Dbscan dbscan;
  for (int round = 0; round < 300; ++round) {
    Case shape;
    shape.dimensions = 1 + random() % kMaxDimensions;
    shape.min_samples = 1 + random() % 4;
    shape.eps = 1 + static_cast<double>(random() % 3);
    const unsigned width = 4 + random() % 8;
    for (std::size_t i = 0; i < 40 * shape.dimensions; ++i) {
      shape.points.push_back(static_cast<double>(random() % width));
    }
    dbscan.run(shape.points, shape.dimensions, shape.eps, shape.min_samples);
    const Naive expected = naive(shape);
    ASSERT_EQ(dbscan.core(), expected.core) << round;
    for (std::size_t i = 0; i < expected.core.size(); ++i) {
      if (expected.core[i] != 0) {
        ASSERT_EQ(dbscan.labels()[i], expected.labels[i]) << round;
      }
    }
    EXPECT_EQ(dbscan.clusters(),
              1 + *std::max_element(expected.labels.begin(), expected.labels.end()));
  }
}

// Of equally near core points the one with the smaller coordinates, first the first.
TEST(Dbscan, GivesABorderPointBetweenTwoToTheSmallerOne) {
  Dbscan dbscan;
  const std::vector<double> along{-6, -6, -6, -6, -5, 0, 5, 6, 6, 6, 6};
  dbscan.run(along, 1, 5, 6);
  ASSERT_EQ(dbscan.core()[5], 0);
  EXPECT_EQ(dbscan.labels()[5], dbscan.labels()[4]);
  std::vector<double> flat;
  for (auto at = along.rbegin(); at != along.rend(); ++at) flat.insert(flat.end(), {1, *at});
  dbscan.run(flat, 2, 5, 6);
  ASSERT_EQ(dbscan.core()[5], 0);
  EXPECT_EQ(dbscan.labels()[5], dbscan.labels()[6]);
  EXPECT_NE(dbscan.labels()[4], dbscan.labels()[6]);
}

TEST(Dbscan, SaysWhatIsWrong) {
  const auto reason = [](std::vector<double> points, std::size_t dimensions, double eps,
                         std::size_t min_samples) -> std::string {
    try {
      Dbscan().run(points, dimensions, eps, min_samples);
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "";
  };
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(reason({1, 2, 3}, 2, 1, 1), "The points are not complete rows of 1 to 5 numbers.");
  EXPECT_EQ(reason({1}, 1, infinity, 1), "eps is not above 0.");
  EXPECT_EQ(reason({1}, 1, 1, 0), "min_samples is 0.");
  EXPECT_EQ(reason({infinity}, 1, 1, 1), "A coordinate is not finite.");
  EXPECT_EQ(reason(std::vector<double>(5), 5, 1, 1), "");
  EXPECT_EQ(reason({1}, 1, 1e-300, 1), "");
}

}  // namespace
}  // namespace corvane::detect
