#!/usr/bin/env python3
"""Makes small mistakes in copies of the product, one at a time, and says which of them the unit tests catch.

Mistakes are drawn by a seed from all that mistakes.py can make; one that does not compile is replaced by the next.
With --known those of known.txt are made instead. A mistake that survives and stands in explained.txt, with the reason
why no unit test can catch it, counts as survived all the same, but is not listed again; the share without those is
printed as well. One whose reason begins with "Untested" is listed like any other.

The tests run in a sandbox (bubblewrap): a wrong program may send signals to any process, or remove any file.
The copies and their builds stay in the scratch directory, so that a second run starts from them.
Exit status 1 when fewer than --at-least percent are caught.
"""

import argparse
import collections
import concurrent.futures
import contextlib
import dataclasses
import datetime
import os
import queue
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

import mistakes

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
# Folders of the product, and the test programs that are asked first about a mistake in them. The longest name wins.
FIRST_TESTS = {
    "platform": ("platform",), "sqlite": ("sqlite",), "util": ("util",), "config": ("config", "config_poller"),
    "anomaly_database": ("anomaly_database",), "finding": ("finding",), "service": ("service", "service_signals"),
    "gather": ("gather",), "management": ("management",), "companions/common": ("companions_common",),
    "companions/detect": ("detect",), "companions/alert": ("alert",), "operator_tool": ("operator_tool",),
    "coverage": ("coverage",), "health": ("health",),
    "embedded_host": ("embedded_host",),
}
TESTS = "tests/unit/all"  # the target
BUILD_SECONDS = 900
SHARDS = 4  # of a test program; its tests wait more than they work


@dataclasses.dataclass
class Outcome:
    mistake: mistakes.Mistake
    verdict: str  # caught, survived, does not compile
    seconds: float


class Copy:
    """A copy of the project with a build of its own. Of one thread at a time."""

    def __init__(self, scratch, jobs):
        self.scratch = scratch
        self.jobs = jobs
        self._sync()
        self._log = open(scratch / "mutate.log", "a", encoding="utf-8")
        setup = ["cmake", "-G", "Ninja", "-B", "build", "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O0 -g0 -w",
                 "-DCV_BUILD_BENCH=OFF"]
        everything = ["ninja", "-C", "build", TESTS]  # with all processors: the other copies have to wait
        if not self._succeeds(setup, BUILD_SECONDS) or not self._succeeds(everything, None):
            self._give_up("the sound project does not build")
        self.programs = {path.name.removesuffix("_test"): path
                         for path in (scratch / "build/tests/unit").glob("*/*_test") if path.is_file()}
        self.seconds = {}

    def prove_sound(self):
        """Runs all tests, and notes how long each program takes."""
        for name in self.programs:
            begin = time.monotonic()
            if not self._passes(name, BUILD_SECONDS):
                self._give_up(f"the sound project's {name}_test fails")
            self.seconds[name] = time.monotonic() - begin

    def _give_up(self, why):
        """Ends the program, with what the failed command printed last."""
        self._log.flush()
        with open(self._log.name, encoding="utf-8", errors="replace") as log:
            last = collections.deque(log, maxlen=60)
        sys.exit(f"{''.join(last)}\n{why}, see {self._log.name}")

    def outcome(self, mistake):
        """What the tests say of it. The copy is sound again afterwards."""
        file = self.scratch / mistake.file
        sound = file.read_text()
        begin = time.monotonic()
        self._log.write(f"\n--- {described(mistake, sound)}\n")
        file.write_text(mistake.made_in(sound))
        try:
            return Outcome(mistake, self._verdict(mistake), time.monotonic() - begin)
        finally:
            file.write_text(sound)

    def _verdict(self, mistake):
        folder = max((name for name in FIRST_TESTS if mistake.file.startswith(name + "/")), key=len)
        first = FIRST_TESTS[folder]
        if not self._build([f"{name}_test" for name in first]):
            return "does not compile"
        if not all(self._passes(name) for name in first):
            return "caught"
        if not self._build(None):
            return "does not compile"
        rest = sorted(set(self.programs) - set(first), key=lambda name: self.seconds.get(name, 0))
        return "survived" if all(self._passes(name) for name in rest) else "caught"

    def _sync(self):
        """Brings the copy up to date; what is the same keeps its time stamp."""
        files = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True, capture_output=True).stdout
        for name in filter(None, files.decode().split("\0")):
            source, target = ROOT / name, self.scratch / name
            if not source.is_file() or (target.is_file() and target.read_bytes() == source.read_bytes()):
                continue
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(source.read_bytes())
            target.chmod(source.stat().st_mode)

    def _build(self, targets):
        targets = targets or [TESTS]
        return self._succeeds(["ninja", "-C", "build", f"-j{self.jobs}", *targets], BUILD_SECONDS)

    def _passes(self, name, seconds=None):
        """Whether a test program's shards, all at a time, succeed; one that takes too long fails."""
        seconds = seconds or 30 + 5 * self.seconds.get(name, 10)
        # The memory holds what a wrong program may write; the real disk would be slow.
        memory = ["--perms", "1777", "--tmpfs"]
        sandbox = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc", *memory, "/tmp",
                   *memory, "/dev/shm", "--unshare-pid", "--unshare-net", "--unshare-ipc", "--die-with-parent",
                   "--ro-bind", str(self.scratch), str(self.scratch), "--chdir", "/tmp"]
        if os.geteuid() == 0:
            sandbox += ["--cap-add", "ALL"]
        command = [*sandbox, "--", "prlimit", "--as=4000000000", str(self.programs[name]), "--gtest_fail_fast",
                   "--gtest_brief=1"]
        with concurrent.futures.ThreadPoolExecutor(SHARDS) as pool:
            return all(pool.map(lambda shard: self._succeeds(
                command, seconds, {"GTEST_TOTAL_SHARDS": str(SHARDS), "GTEST_SHARD_INDEX": str(shard)}), range(SHARDS)))

    def _succeeds(self, command, seconds, variables=None):
        with subprocess.Popen(command, cwd=self.scratch, stdin=subprocess.DEVNULL, stdout=self._log, stderr=self._log,
                              env={**os.environ, **(variables or {})}, start_new_session=True) as process:
            try:
                return process.wait(seconds) == 0
            except subprocess.TimeoutExpired:
                return False
            finally:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)


def texts_of_the_product(folders):
    """Name to text of every source file in these folders; all of the product without any."""
    files = subprocess.run(["git", "ls-files", "-z", "--", *(folders or FIRST_TESTS)], cwd=ROOT, check=True,
                           capture_output=True).stdout.decode().split("\0")
    return {name: (ROOT / name).read_text() for name in files if name.endswith((".cpp", ".h"))}


def known(texts):
    """Those of known.txt; ends the program when one's text does not stand in its file exactly once."""
    for file, before, after, _ in blocks(HERE / "known.txt"):
        if texts[file].count(before) != 1:
            sys.exit(f"{file} does not hold this exactly once: {before}")
        yield mistakes.Mistake(file, texts[file].index(before), before, after, "known")


def blocks(path):
    """The file, the text after "- " and the text after "+ " of each block, and the comment that it stands below."""
    comment = ""
    for block in path.read_text().split("\n\n"):
        lines = [line for line in block.splitlines() if not line.startswith("#")]
        if block.startswith("#"):
            comment = block[: block.find("\n")]
        if lines:
            yield lines[0], lines[1].removeprefix("- "), lines[2].removeprefix("+ "), comment


def explained(texts):
    """Those of explained.txt that no unit test can catch, as wrong_line() has them. One whose line stands in its file
    more than once is left out: the reason may hold for one of the places alone."""
    return {(file, before, after) for file, before, after, why in blocks(HERE / "explained.txt")
            if file in texts and lines_like(texts[file], before) == 1 and not why.startswith("# Untested")}


def lines_like(text, line):
    return sum(other.strip() == line for other in text.splitlines())


def wrong_line(mistake, text):
    """Its first line as it is, and as it is with the mistake."""
    return (mistakes.line_of(text, mistake.start)[1],
            mistakes.line_of(mistake.made_in(text), mistake.start)[1])


def described(mistake, text):
    number, _ = mistakes.line_of(text, mistake.start)
    before, after = wrong_line(mistake, text)
    return f"{mistake.file}:{number} ({mistake.kind})\n    - {before}\n    + {after}"


def try_all(copies, candidates, count):
    """Yields the outcome of each mistake that compiles, up to `count`."""
    lock, results = threading.Lock(), queue.Queue()
    left = count

    def work(copy):
        try:
            try_some(copy)
        except BaseException as error:  # the reader must not wait for ever
            results.put(error)
        results.put(None)

    def try_some(copy):
        nonlocal left
        while True:
            with lock:
                mistake = next(candidates, None) if left > 0 else None
                if mistake is None:
                    return
                left -= 1
            outcome = copy.outcome(mistake)
            if outcome.verdict == "does not compile":
                with lock:
                    left += 1
            else:
                results.put(outcome)

    threads = [threading.Thread(target=work, args=(copy,), daemon=True) for copy in copies]
    for thread in threads:
        thread.start()
    for _ in threads:
        for outcome in iter(results.get, None):
            if isinstance(outcome, BaseException):
                raise outcome
            yield outcome


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("scratch", type=Path)
    parser.add_argument("folders", nargs="*", help="of the product, or files; all without any")
    parser.add_argument("--seed", default=datetime.date.today().isoformat(), help="default: the day's date")
    parser.add_argument("--count", type=int, default=300)
    parser.add_argument("--at-least", type=int, default=95, metavar="PERCENT")
    parser.add_argument("--known", action="store_true", help="those of known.txt; all must be caught")
    parser.add_argument("--workers", type=int, default=1, help="copies that are worked on at a time")
    return parser.parse_args()


def main():
    chosen = arguments()
    texts = texts_of_the_product(chosen.folders)
    if chosen.known:
        wanted = list(known(texts_of_the_product([])))
        chosen.count, chosen.at_least = len(wanted), 100
        texts = texts_of_the_product([])
    else:
        wanted = mistakes.drawn(texts, chosen.seed)
    not_counted = set() if chosen.known else explained(texts)
    jobs = max(1, os.cpu_count() // chosen.workers)
    copies = []
    for worker in range(chosen.workers):
        scratch = (chosen.scratch / str(worker)).resolve()
        scratch.mkdir(parents=True, exist_ok=True)
        copies.append(Copy(scratch, jobs))
    copies[0].prove_sound()
    for copy in copies:
        copy.seconds = copies[0].seconds
    print(f"seed {chosen.seed}", flush=True)
    verdicts = []
    for outcome in try_all(copies, iter(wanted), chosen.count):
        mistake, text = outcome.mistake, texts[outcome.mistake.file]
        verdict = outcome.verdict
        if verdict == "survived" and (mistake.file, *wrong_line(mistake, text)) in not_counted:
            verdict = "explained"
        verdicts.append(verdict)
        where = described(mistake, text)
        print(f"{len(verdicts):3} {verdict:9} {outcome.seconds:4.0f} s "
              f"{where if verdict == 'survived' else where.splitlines()[0]}", flush=True)
    caught, uncounted = verdicts.count("caught"), verdicts.count("explained")
    counted = len(verdicts) - uncounted
    print(f"{caught} of {len(verdicts)} caught; without the {uncounted} that are explained: {caught} of {counted}")
    return 0 if verdicts and 100 * caught >= chosen.at_least * len(verdicts) else 1


if __name__ == "__main__":
    sys.exit(main())
