// Exact DBSCAN for backup histories of ten to some thousand points.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvane::detect {

// Points are at most kMaxDimensions wide.
inline constexpr std::size_t kMaxDimensions = 5;
inline constexpr int kNoise = -1;

// Works on a grid whose cells are so small that all points of one cell are neighbours: a cell with
// `min_samples` points needs no distances. The buffers are kept from run to run, so reuse the
// object; one thread at a time.
//
// Two points are neighbours when their Euclidean distance is at most `eps`; a point with
// `min_samples` neighbours, itself included, is a core point. Clusters are numbered from 0 in the
// order of their first core point. A border point joins the cluster of its nearest core point (at
// equal distances, of the one with the smallest coordinates), so that only the cluster numbers
// depend on the order of the points.
class Dbscan {
 public:
  // `points`: row after row, `dimensions` numbers each. Throws std::invalid_argument when the last
  // row is incomplete, a number is not finite, dimensions is not 1 to kMaxDimensions, eps is not
  // above 0, or min_samples is 0.
  void run(std::span<const double> points, std::size_t dimensions, double eps,
           std::size_t min_samples);

  // Of the last run, one entry for each point.
  const std::vector<int>& labels() const { return labels_; }
  const std::vector<std::uint8_t>& core() const { return core_; }
  int clusters() const { return clusters_; }

 private:
  using Index = std::uint32_t;

  struct Cell {
    std::int32_t at[kMaxDimensions];
    Index begin;  // its points in order_
    Index end;
    Index near_begin;  // the cells that may hold neighbours lie between these
    Index near_end;
    Index cluster;  // the first cell of its cluster, in the order they were reached
    bool has_core;
  };

  void check(std::size_t count) const;
  bool lay_grid();
  void lay_one_cell_each();
  Index find_or_add_cell(const std::int32_t* at);
  void sort_cells();
  void group_points_by_cell();
  bool are_near(const Cell& a, const Cell& b) const;
  void find_core_points();
  bool has_enough_neighbours(const Cell& cell, Index point) const;
  void join_cells();
  void collect_cluster(Index first);
  bool have_core_pair(const Cell& a, const Cell& b) const;
  void number_clusters();
  void label_border_points();
  Index nearest_core(const Cell& cell, Index point) const;
  bool closer(Index point, Index a, Index b) const;
  double distance2(Index a, Index b) const;

  std::span<const double> points_;
  std::size_t dimensions_{};
  std::size_t min_samples_{};
  double eps_{};
  double eps2_{};
  double side_{};
  std::int32_t reach_{};      // neighbours are at most this many cells apart in each dimension
  std::int32_t most_gap2_{};  // the cells between them, squared and summed, at most

  std::vector<Cell> cells_;
  std::vector<Index> cell_of_;  // by point
  std::vector<Index> order_;    // points, cell by cell
  std::vector<Index> table_;    // open hash table of cells
  std::vector<Index> rank_;     // by cell as first met: its place in cells_
  std::vector<Cell> unsorted_;
  std::vector<Index> unreached_;  // cells with core points that no cluster has yet
  std::vector<Index> queue_;
  std::vector<int> number_;
  std::vector<int> labels_;
  std::vector<std::uint8_t> core_;
  int clusters_ = 0;
};

}  // namespace corvane::detect
