#!/usr/bin/python3
"""Makes cases.bin: random sets of points with scikit-learn's DBSCAN labels (Debian's python3-sklearn).

Little endian, one case after the other: points, dimensions, min_samples (u32 each), eps (f64), the
coordinates in 64ths (i16), scikit-learn's labels (i16, -1: noise), whether each is a core point (u8).
64ths keep every squared distance exact, so a tie at eps is a tie for everybody.
"""

import math
import struct
from pathlib import Path

import numpy
from sklearn.cluster import DBSCAN

CASES = 500
SEED = 20261121
LIMIT = 32767


def blobs(rng, count, dims):
    centres = rng.uniform(-100, 100, (rng.integers(1, 7), dims))
    return centres[rng.integers(0, len(centres), count)] + rng.normal(0, rng.uniform(0.3, 9), (count, dims))


def uniform(rng, count, dims):
    return rng.uniform(-60, 60, (count, dims))


def integer_grid(rng, count, dims):  # ties at eps
    return rng.integers(-5, 6, (count, dims)).astype(float)


def duplicates(rng, count, dims):
    some = rng.normal(0, 12, (max(2, count // 8), dims))
    return some[rng.integers(0, len(some), count)]


def collinear(rng, count, dims):
    return rng.uniform(-40, 40, (count, 1)) * rng.uniform(-4, 4, (1, dims))


def constant(rng, count, dims):
    points = numpy.full((count, dims), rng.uniform(-9, 9))
    points[: rng.integers(0, 3)] += rng.uniform(0, 50)
    return points


def history(rng, count, dims):  # most near the middle, some idle days, a few far away
    points = rng.normal(0, 1, (count, dims)) * (rng.random((count, dims)) < 0.7)
    far = rng.random(count) < 0.03
    points[far] += rng.normal(0, 30, (far.sum(), dims))
    return points


KINDS = (blobs, uniform, integer_grid, duplicates, collinear, constant, history)


def make_case(number, rng):
    dims = int(rng.integers(2, 6))
    count = 3000 if number % 50 == 49 else int(round(math.exp(rng.uniform(math.log(10), math.log(600)))))
    points = KINDS[number % len(KINDS)](rng, count, dims)
    coordinates = numpy.clip(numpy.rint(points * 64), -LIMIT, LIMIT).astype("<i2")
    eps = float(rng.integers(1, 5)) if number % len(KINDS) == 2 else rng.integers(16, 640) / 64
    min_samples = int(rng.integers(1, 9))
    model = DBSCAN(eps=eps, min_samples=min_samples, algorithm="kd_tree").fit(coordinates / 64.0)
    core = numpy.zeros(count, dtype="u1")
    core[model.core_sample_indices_] = 1
    return (struct.pack("<IIId", count, dims, min_samples, eps) + coordinates.tobytes()
            + model.labels_.astype("<i2").tobytes() + core.tobytes())


def main():
    rng = numpy.random.default_rng(SEED)
    cases = b"".join(make_case(number, rng) for number in range(CASES))
    Path(__file__).with_name("cases.bin").write_bytes(cases)
    print(f"{CASES} cases, {len(cases)} bytes")


if __name__ == "__main__":
    main()
