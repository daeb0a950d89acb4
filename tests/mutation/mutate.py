#!/usr/bin/env python3
"""Makes the mistakes of mutations.txt one at a time, in a copy, and says which the unit tests catch.

usage: mutate.py SCRATCH_DIRECTORY [NUMBER ...]     all of them, or those of these numbers

The copy and its build stay in the scratch directory, so that a second run starts from them. Exit status 1
when a mistake survives.
"""

import contextlib
import dataclasses
import os
import signal
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
ROOMS = ("platform", "sqlite", "util", "config", "anomaly_database", "service", "gather", "management")
BUILD = ["ninja", "-C", "build", *(f"{room}_test" for room in ROOMS)]
SECONDS = 300


@dataclasses.dataclass
class Mutation:
    file: str
    before: str
    after: str


def mutations():
    """The blocks of mutations.txt; ends the program when one's text does not stand in its file exactly once."""
    blocks = [
        [line for line in block.splitlines() if not line.startswith("#")]
        for block in (HERE / "mutations.txt").read_text().split("\n\n")
    ]
    found = []
    for block in filter(None, blocks):
        mutation = Mutation(block[0], block[1].removeprefix("- "), block[2].removeprefix("+ "))
        if (ROOT / mutation.file).read_text().count(mutation.before) != 1:
            sys.exit(f"{mutation.file} does not hold this exactly once: {mutation.before}")
        found.append(mutation)
    return found


def copy_of_the_project(scratch):
    """Brings the scratch copy up to date; what is the same keeps its time stamp."""
    files = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True, capture_output=True).stdout
    for name in filter(None, files.decode().split("\0")):
        source, target = ROOT / name, scratch / name
        if target.is_file() and target.read_bytes() == source.read_bytes():
            continue
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(source.read_bytes())
        target.chmod(source.stat().st_mode)


def succeeds(command, scratch, log):
    """Runs a command of the build in the copy; one that takes longer than SECONDS has failed."""
    log.write("\n$ " + " ".join(command) + "\n")
    log.flush()
    with subprocess.Popen(command, cwd=scratch, stdout=log, stderr=log, start_new_session=True) as process:
        try:
            return process.wait(SECONDS) == 0
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            return False


def end_what_is_left(scratch):
    """A mistake may leave a daemon of a test running, in a session of its own."""
    for entry in Path("/proc").glob("[0-9]*/exe"):
        with contextlib.suppress(OSError):
            if entry.resolve().is_relative_to(scratch / "build"):
                os.kill(int(entry.parent.name), signal.SIGKILL)


def tests_pass(scratch, log, first=None):
    """Runs the tests until one fails, those of the first room first."""
    return all(succeeds([f"build/tests/unit/{room}/{room}_test", "--gtest_fail_fast", "--gtest_brief=1"], scratch, log)
               for room in sorted(ROOMS, key=lambda room: room != first))


def verdict(mutation, scratch, log):
    """'caught', 'survived' or 'does not compile', with the mistake made for the time of this call only."""
    file = scratch / mutation.file
    sound = file.read_text()
    file.write_text(sound.replace(mutation.before, mutation.after))
    try:
        if not succeeds(BUILD, scratch, log):
            return "does not compile"
        return "survived" if tests_pass(scratch, log, first=mutation.file.split("/", 1)[0]) else "caught"
    finally:
        file.write_text(sound)
        end_what_is_left(scratch)


def main():
    scratch = Path(sys.argv[1]).resolve()
    chosen = {int(number) for number in sys.argv[2:]}
    wanted = [(number, mutation) for number, mutation in enumerate(mutations(), 1)
              if not chosen or number in chosen]
    copy_of_the_project(scratch)
    outcomes = []
    with open(scratch / "mutate.log", "a", encoding="utf-8") as log:
        setup = ["cmake", "-G", "Ninja", "-B", "build", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-O0"]
        if not succeeds(setup, scratch, log) or subprocess.call(BUILD, cwd=scratch, stdout=log):
            sys.exit(f"the sound project does not build, see {log.name}")
        if not tests_pass(scratch, log):
            sys.exit(f"the sound project's tests fail, see {log.name}")
        for number, mutation in wanted:
            outcomes.append(verdict(mutation, scratch, log))
            print(f"{number:3} {outcomes[-1]:8} {mutation.file}: {mutation.before}", flush=True)
    print(f"{outcomes.count('caught')} of {len(outcomes)} caught")
    return 0 if set(outcomes) <= {"caught"} else 1


if __name__ == "__main__":
    sys.exit(main())
