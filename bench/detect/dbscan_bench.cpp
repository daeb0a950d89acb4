// Times the grid DBSCAN on the points that dbscan_bench.py wrote: dimensions, then all coordinates.
//
//   dbscan_bench POINTS EPS MIN_SAMPLES    prints the median microseconds of a run and the noise
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "companions/detect/dbscan.h"

int main(int argc, char* argv[]) {
  if (argc != 4) return 2;
  std::ifstream file(argv[1]);
  std::size_t dimensions = 0;
  file >> dimensions;
  std::vector<double> points;
  for (double number = 0; file >> number;) points.push_back(number);
  const double eps = std::atof(argv[2]);
  const auto min_samples = static_cast<std::size_t>(std::atoi(argv[3]));

  corvane::detect::Dbscan dbscan;
  std::vector<double> microseconds;
  for (int i = 0; i < 2001; ++i) {
    const auto begin = std::chrono::steady_clock::now();
    dbscan.run(points, dimensions, eps, min_samples);
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - begin;
    microseconds.push_back(took.count());
  }
  std::sort(microseconds.begin(), microseconds.end());
  std::printf("%.1f %ld\n", microseconds[microseconds.size() / 2],
              std::count(dbscan.labels().begin(), dbscan.labels().end(), corvane::detect::kNoise));
}
