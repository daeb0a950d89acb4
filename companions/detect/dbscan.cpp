#include "companions/detect/dbscan.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>

namespace corvane::detect {

namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
// Room for rounding where cells alone decide; every other pair is measured.
constexpr double kSlack = 1e-9;
// With more cells than this in one dimension, rounding could mix up their numbers.
constexpr double kMaxCells = 1e6;

}  // namespace

void Dbscan::run(std::span<const double> points, std::size_t dimensions, double eps,
                 std::size_t min_samples) {
  points_ = points;
  dimensions_ = dimensions;
  min_samples_ = min_samples;
  eps_ = eps;
  eps2_ = eps * eps;
  if (dimensions == 0 || dimensions > kMaxDimensions || points.size() % dimensions != 0) {
    throw std::invalid_argument("The points are not complete rows of 1 to 5 numbers.");
  }
  const std::size_t count = points.size() / dimensions;
  check(count);
  labels_.assign(count, kNoise);
  core_.assign(count, 0);
  cell_of_.resize(count);
  clusters_ = 0;
  if (!lay_grid()) lay_one_cell_each();
  sort_cells();
  group_points_by_cell();
  find_core_points();
  join_cells();
  number_clusters();
  label_border_points();
}

void Dbscan::check(std::size_t count) const {
  if (!(eps_ > 0) || !std::isfinite(eps_)) throw std::invalid_argument("eps is not above 0.");
  if (min_samples_ == 0) throw std::invalid_argument("min_samples is 0.");
  if (count >= kNone) throw std::invalid_argument("Too many points.");
  for (const double number : points_) {
    if (!std::isfinite(number)) throw std::invalid_argument("A coordinate is not finite.");
  }
}

// False when the points are too far apart for a grid of this fineness.
bool Dbscan::lay_grid() {
  const double root_of_dimensions = std::sqrt(static_cast<double>(dimensions_));
  side_ = eps_ / root_of_dimensions * (1 - kSlack);
  reach_ = static_cast<std::int32_t>(root_of_dimensions * (1 + 4 * kSlack)) + 1;
  most_gap2_ = static_cast<std::int32_t>(static_cast<double>(dimensions_) * (1 + 8 * kSlack));
  double low[kMaxDimensions] = {};
  for (std::size_t d = 0; d < dimensions_; ++d) {
    double least = std::numeric_limits<double>::infinity();
    double most = -std::numeric_limits<double>::infinity();
    for (std::size_t i = d; i < points_.size(); i += dimensions_) {
      least = std::min(least, points_[i]);
      most = std::max(most, points_[i]);
    }
    // A difference is rounded by at most 2^-53 of itself, however far from 0 the points are.
    if (!((most - least) / side_ < kMaxCells)) return false;
    low[d] = least;
  }
  const std::size_t count = labels_.size();
  cells_.clear();
  table_.assign(std::bit_ceil(2 * count + 1), kNone);
  const double per_side = 1 / side_;
  std::int32_t at[kMaxDimensions] = {};
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t d = 0; d < dimensions_; ++d) {
      at[d] = static_cast<std::int32_t>((points_[i * dimensions_ + d] - low[d]) * per_side);
    }
    cell_of_[i] = find_or_add_cell(at);
  }
  return true;
}

// Every pair of points is measured then.
void Dbscan::lay_one_cell_each() {
  cells_.assign(labels_.size(), Cell{});
  std::iota(cell_of_.begin(), cell_of_.end(), 0U);
}

Dbscan::Index Dbscan::find_or_add_cell(const std::int32_t* at) {
  std::uint64_t hash = 0;
  for (std::size_t d = 0; d < dimensions_; ++d) {
    hash = (hash ^ static_cast<std::uint32_t>(at[d])) * 0x9E3779B97F4A7C15U;
    hash ^= hash >> 32U;
  }
  const std::size_t mask = table_.size() - 1;
  for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    if (table_[slot] == kNone) {
      table_[slot] = static_cast<Index>(cells_.size());
      Cell cell{};
      std::copy_n(at, kMaxDimensions, cell.at);
      cells_.push_back(cell);
      return table_[slot];
    }
    if (std::equal(at, at + dimensions_, cells_[table_[slot]].at)) return table_[slot];
  }
}

// By their first coordinate, so that all cells near one cell are in one stretch.
void Dbscan::sort_cells() {
  const auto count = static_cast<Index>(cells_.size());
  queue_.resize(count);
  std::iota(queue_.begin(), queue_.end(), 0U);
  std::sort(queue_.begin(), queue_.end(),
            [this](Index a, Index b) { return cells_[a].at[0] < cells_[b].at[0]; });
  unsorted_.swap(cells_);
  cells_.resize(count);
  rank_.resize(count);
  for (Index i = 0; i < count; ++i) {
    cells_[i] = unsorted_[queue_[i]];
    rank_[queue_[i]] = i;
  }
  for (Index& cell : cell_of_) cell = rank_[cell];
  Index begin = 0;
  Index end = 0;
  for (Cell& cell : cells_) {
    while (cell.at[0] - cells_[begin].at[0] > reach_) ++begin;
    while (end < count && cells_[end].at[0] - cell.at[0] <= reach_) ++end;
    cell.near_begin = begin;
    cell.near_end = end;
  }
}

void Dbscan::group_points_by_cell() {
  for (const Index cell : cell_of_) ++cells_[cell].end;
  Index begin = 0;
  for (Cell& cell : cells_) {
    const Index size = cell.end;
    cell.begin = cell.end = begin;
    begin += size;
  }
  order_.resize(cell_of_.size());
  for (Index i = 0; i < cell_of_.size(); ++i) order_[cells_[cell_of_[i]].end++] = i;
}

bool Dbscan::are_near(const Cell& a, const Cell& b) const {
  std::int32_t gap2 = 0;
  for (std::size_t d = 0; d < dimensions_; ++d) {
    const std::int32_t apart = std::abs(a.at[d] - b.at[d]);
    if (apart > reach_) return false;
    const std::int32_t between = std::max(apart - 1, 0);
    gap2 += between * between;
  }
  return gap2 <= most_gap2_;
}

void Dbscan::find_core_points() {
  for (Cell& cell : cells_) {
    for (Index i = cell.begin; i < cell.end; ++i) {
      if (!has_enough_neighbours(cell, order_[i])) continue;
      core_[order_[i]] = 1;
      cell.has_core = true;
    }
  }
}

bool Dbscan::has_enough_neighbours(const Cell& cell, Index point) const {
  std::size_t neighbours = cell.end - cell.begin;
  if (neighbours >= min_samples_) return true;
  for (Index n = cell.near_begin; n < cell.near_end; ++n) {
    const Cell& other = cells_[n];
    if (&other == &cell || !are_near(cell, other)) continue;
    for (Index i = other.begin; i < other.end; ++i) {
      if (distance2(point, order_[i]) <= eps2_ && ++neighbours >= min_samples_) return true;
    }
  }
  return false;
}

void Dbscan::join_cells() {
  unreached_.clear();
  for (auto i = static_cast<Index>(cells_.size()); i-- > 0;) {
    if (cells_[i].has_core) unreached_.push_back(i);
  }
  while (!unreached_.empty()) {
    const Index first = unreached_.back();
    unreached_.pop_back();
    collect_cluster(first);
  }
}

// A cell that belongs to a cluster leaves the list, so that a big cluster is searched once.
void Dbscan::collect_cluster(Index first) {
  queue_.assign(1, first);
  while (!queue_.empty()) {
    Cell& cell = cells_[queue_.back()];
    queue_.pop_back();
    cell.cluster = first;
    std::size_t kept = 0;
    for (const Index other : unreached_) {
      if (are_near(cell, cells_[other]) && have_core_pair(cell, cells_[other])) {
        queue_.push_back(other);
      } else {
        unreached_[kept++] = other;
      }
    }
    unreached_.resize(kept);
  }
}

bool Dbscan::have_core_pair(const Cell& a, const Cell& b) const {
  for (Index i = a.begin; i < a.end; ++i) {
    if (core_[order_[i]] == 0) continue;
    for (Index j = b.begin; j < b.end; ++j) {
      if (core_[order_[j]] != 0 && distance2(order_[i], order_[j]) <= eps2_) return true;
    }
  }
  return false;
}

void Dbscan::number_clusters() {
  number_.assign(cells_.size(), kNoise);
  for (Index i = 0; i < labels_.size(); ++i) {
    if (core_[i] == 0) continue;
    int& number = number_[cells_[cell_of_[i]].cluster];
    if (number == kNoise) number = clusters_++;
    labels_[i] = number;
  }
}

void Dbscan::label_border_points() {
  for (Index i = 0; i < labels_.size(); ++i) {
    if (core_[i] != 0) continue;
    const Index core = nearest_core(cells_[cell_of_[i]], i);
    if (core != kNone) labels_[i] = labels_[core];
  }
}

Dbscan::Index Dbscan::nearest_core(const Cell& cell, Index point) const {
  Index nearest = kNone;
  for (Index n = cell.near_begin; n < cell.near_end; ++n) {
    const Cell& other = cells_[n];
    if (!other.has_core || !are_near(cell, other)) continue;
    for (Index i = other.begin; i < other.end; ++i) {
      const Index candidate = order_[i];
      if (core_[candidate] == 0 || distance2(point, candidate) > eps2_) continue;
      if (nearest == kNone || closer(point, candidate, nearest)) nearest = candidate;
    }
  }
  return nearest;
}

bool Dbscan::closer(Index point, Index a, Index b) const {
  const double to_a = distance2(point, a);
  const double to_b = distance2(point, b);
  if (to_a != to_b) return to_a < to_b;
  const double* row_a = &points_[a * dimensions_];
  const double* row_b = &points_[b * dimensions_];
  return std::lexicographical_compare(row_a, row_a + dimensions_, row_b, row_b + dimensions_);
}

double Dbscan::distance2(Index a, Index b) const {
  const double* row_a = &points_[a * dimensions_];
  const double* row_b = &points_[b * dimensions_];
  double sum = 0;
  for (std::size_t d = 0; d < dimensions_; ++d) {
    const double difference = row_a[d] - row_b[d];
    sum += difference * difference;
  }
  return sum;
}

}  // namespace corvane::detect
