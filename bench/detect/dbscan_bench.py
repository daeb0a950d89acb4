#!/usr/bin/python3
"""The grid DBSCAN beside scikit-learn's, same points, same run: dbscan_bench.py PATH_OF_dbscan_bench"""

import statistics
import subprocess
import sys
import tempfile
import time

import numpy
from sklearn.cluster import DBSCAN

EPS, MIN_SAMPLES = 2.5, 3


def history(rng, count, dims):
    """Like a stream's history in units of its spread: most runs usual, some idle, a few big."""
    points = rng.normal(0, 1, (count, dims)) * (rng.random((count, 1)) < 0.8)
    big = rng.random(count) < 0.03
    points[big] += rng.normal(0, 8, (int(big.sum()), dims))
    return points


def theirs(points):
    took = []
    for _ in range(50):
        begin = time.perf_counter()
        labels = DBSCAN(eps=EPS, min_samples=MIN_SAMPLES).fit(points).labels_
        took.append((time.perf_counter() - begin) * 1e6)
    return statistics.median(took), int((labels == -1).sum())


def ours(program, points):
    with tempfile.NamedTemporaryFile("w", suffix=".txt") as file:
        file.write(f"{points.shape[1]}\n")
        numpy.savetxt(file, points, fmt="%.17g")
        file.flush()
        out = subprocess.run([program, file.name, str(EPS), str(MIN_SAMPLES)], check=True,
                             capture_output=True, text=True).stdout.split()
    return float(out[0]), int(out[1])


def main():
    rng = numpy.random.default_rng(1)
    print(f"{'points':>8} {'dims':>4} {'ours us':>9} {'sklearn us':>11} {'times':>6}")
    failed = False
    for count, dims in ((365, 2), (365, 3), (365, 5), (3000, 3)):
        points = history(rng, count, dims)
        our_time, our_noise = ours(sys.argv[1], points)
        their_time, their_noise = theirs(points)
        failed |= our_noise != their_noise
        print(f"{count:8} {dims:4} {our_time:9.1f} {their_time:11.1f} {their_time / our_time:6.0f}"
              + ("" if our_noise == their_noise else f"  NOISE DIFFERS: {our_noise}, {their_noise}"))
    sys.exit(failed)


if __name__ == "__main__":
    main()
