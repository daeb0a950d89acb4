#!/usr/bin/python3
"""Chooses the detection's numbers on some clients and tells what they then find on the others.

    choose.py BUILD_DIRECTORY [--folds N]

The clients are dealt into N parts (default: one client each). For each part the numbers of GRID are chosen anew
with all other clients, and the clients of the part are judged with that choice: none of the printed figures
comes from a client that had a say in its numbers. What stands in the program's sources plays no role in it.

What finds the most within a budget of false incidents is not one choice but a region: where altered days are
few, all of them are found by numbers with next to no margin, too. Its most and its least sensitive corners are
looked for by coordinate descent from random starts. Judged are the clients of the part with each corner and,
as what is chosen, with the middle between the two, which stands the farthest from missing as from false alarms.

The judge is compiled once, in a scratch directory, from a copy that takes these numbers from its environment.
"""

import argparse
import functools
import itertools
import json
import os
import random
import re
import shlex
import subprocess
import tempfile
from collections import defaultdict
from pathlib import Path

import quality

ROOT = Path(__file__).resolve().parents[2]
SOURCES = ("companions/detect/judge.cpp", "companions/detect/features.cpp")

# Name of the constant (of an array: its element), values to choose from, the most sensitive first.
GRID = {
    "kMaterialStored": (0.1, 0.2, 0.3, 0.4, 0.5),
    "kMaterialTouchedFiles": (0.1, 0.2, 0.3, 0.4, 0.5),
    "kMaterialTouchedSize": (0.1, 0.2, 0.3, 0.5, 0.7),
    "kSustainedTouchedFiles": (0.02, 0.03, 0.045, 0.06, 0.08),
    "kSustainedStored": (0.015, 0.02, 0.03, 0.045, 0.06),
    "kSustainedFactor": (1, 1.5, 2, 3, 4),
    "kLeastSpread0": (0.1, 0.15, 0.2, 0.3, 0.5),  # files
    "kLeastSpread1": (0.1, 0.15, 0.2, 0.3, 0.5),  # size
    "kLeastSpread2": (0.5, 1, 2),  # transferred
    "kLeastSpreadOfShare": (0.05, 0.1, 0.2),
    "kLeastSpread4": (1, 2, 4),  # duration
}
FALSE_PER_1000 = 3
STARTS = 3
SWEEPS = 2


def cost(scores):
    """What is wrong with a choice: days and slow encryptions missed, false incidents beyond the budget."""
    scores = list(scores)
    missed_days = missed_slow = 0
    for score in scores:
        for (_, label, _), found in score.days.items():
            missed_slow += label == "slow_encrypt" and not found
            missed_days += label in quality.FIVE_KINDS and not found
    false_incidents = sum(len(score.incidents) for score in scores)
    budget = FALSE_PER_1000 / 1000 * sum(score.normal for score in scores)
    return 5 * missed_days + 2 * missed_slow + max(0, false_incidents - budget)


def with_numbers_from_outside(source):
    text = re.sub(r"constexpr std::array<double, kFigures> kLeastSpread\{.*?\};",
                  'const std::array<double, kFigures> kLeastSpread{from_outside("kLeastSpread0"), '
                  'from_outside("kLeastSpread1"), from_outside("kLeastSpread2"), kLeastSpreadOfShare, '
                  'from_outside("kLeastSpread4")};', source)
    text = re.sub(r"constexpr double (\w+) = [^;]+;",
                  lambda m: f'const double {m[1]} = from_outside("{m[1]}");' if m[1] in GRID else m[0], text)
    return ('#include <cstdlib>\nstatic double from_outside(const char* name) '
            '{ return std::strtod(std::getenv(name), nullptr); }\n' + text)


def compile_judge(build, scratch):
    commands = {Path(c["file"]).relative_to(ROOT).as_posix(): c
                for c in json.loads((build / "compile_commands.json").read_text()) if c["file"].startswith(str(ROOT))}
    objects, taken = [], set()
    for source in SOURCES:
        copy, result = scratch / Path(source).name, scratch / (Path(source).stem + ".o")
        copy.write_text(with_numbers_from_outside((ROOT / source).read_text()))
        taken |= set(re.findall(r'from_outside\("(\w+)"\)', copy.read_text()))
        words = shlex.split(commands[source]["command"])
        words[words.index("-o") + 1], words[words.index("-c") + 1] = str(result), str(copy)
        subprocess.run(words, cwd=build, check=True)
        objects.append(str(result))
    if taken != set(GRID):
        raise SystemExit(f"not among the program's numbers: {sorted(set(GRID) ^ taken)}")
    link = subprocess.run(["ninja", "-C", build, "-t", "commands", "cvanomalydetect"],
                          check=True, capture_output=True, text=True).stdout.splitlines()[-1]
    words = [word for word in shlex.split(link) if word not in (":", "&&")]
    words[words.index("-o") + 1] = str(scratch / "cvanomalydetect")
    subprocess.run(words[:words.index("-o")] + objects + words[words.index("-o"):], cwd=build, check=True)
    return str(scratch / "cvanomalydetect")


def numbers_at(places):
    return {name: values[place] for (name, values), place in zip(GRID.items(), places)}


class Trials:
    """Every choice is replayed once, for all clients: no client's verdicts depend on another's records."""

    def __init__(self, program, records):
        self.program, self.records, self.count = program, records, 0

    @functools.cache
    def scores(self, places):
        self.count += 1
        for name, number in numbers_at(places).items():
            os.environ[name] = str(number)
        flagged = quality.replay(self.program, self.records)
        return quality.score(self.records, flagged, lambda r: r["client"])

    def corner(self, clients, most_sensitive):
        """What costs least, as places in GRID's rows; of what costs the same the most or the least sensitive."""
        rng = random.Random(20261121)  # the same starts for every part: most ways down coincide

        def worth(places):
            scores = self.scores(places)
            return cost(scores[client] for client in clients), sum(places) if most_sensitive else -sum(places)

        found = []
        for _ in range(STARTS):
            places = tuple(rng.randrange(len(values)) for values in GRID.values())
            for _, (at, values) in itertools.product(range(SWEEPS), enumerate(GRID.values())):
                places = min((places[:at] + (place,) + places[at + 1:] for place in range(len(values))), key=worth)
            found.append(places)
        return min(found, key=worth)

    def choices(self, clients):
        sensitive, insensitive = self.corner(clients, True), self.corner(clients, False)
        middle = tuple((low + high) // 2 for low, high in zip(sensitive, insensitive))
        return {"most sensitive": sensitive, "middle": middle, "least sensitive": insensitive}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=lambda text: Path(text).resolve())
    parser.add_argument("--folds", type=int, default=0)
    options = parser.parse_args()
    os.environ["CV_ANOMALY_SCHEMA"] = str(options.build / "anomaly_database/schema.sql")
    records = [json.loads(line) for line in open(quality.DATA, encoding="utf-8")]
    records.sort(key=lambda r: (r["time"], r["schedule"] == "incremental", r["client"]))
    clients = sorted({r["client"] for r in records})
    folds = options.folds or len(clients)

    held_out = defaultdict(quality.Score)
    with tempfile.TemporaryDirectory() as scratch:
        trials = Trials(compile_judge(options.build, Path(scratch)), records)
        print(f"{quality.HEAD}  numbers chosen on the other clients")
        for part in (clients[start::folds] for start in range(folds)):
            for name, places in trials.choices([c for c in clients if c not in part]).items():
                for client in part:
                    score = trials.scores(places)[client]
                    held_out[name].take_in(score)
                    if name == "middle":
                        print(f"{score.line(client)}  {' '.join(map(str, numbers_at(places).values()))}", flush=True)
    for name, score in held_out.items():
        print(score.line(f"all, {name}"))
    print(f"numbers: {', '.join(GRID)}; {trials.count} choices tried")


if __name__ == "__main__":
    main()
