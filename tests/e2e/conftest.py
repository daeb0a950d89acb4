"""Fixtures of the end-to-end tests, which run inside embedded_host/sandbox (see run.sh)."""

import calendar
import contextlib
import shutil
import sys
from pathlib import Path

import pytest

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "embedded_host"))
import machine as host  # noqa: E402
from disks import small_disk  # noqa: E402
from service_runs import configure  # noqa: E402

# When the machines' clocks begin, unless a test says otherwise.
BEGIN = calendar.timegm((2026, 11, 16, 20, 0, 0))

# Then its memory says nothing of its own needs, and it starts and ends too slowly for the fastest clocks.
SANITIZED = any(name in (host.BIN / host.SERVICE).read_bytes() for name in (b"__asan_init", b"__tsan_init"))
if SANITIZED:
    host.patience = 5


@pytest.fixture
def make_machine():
    """make_machine(speed=100, begin=BEGIN): a freshly laid out machine; real=True: with the real clock;
    stepped=True: with one that machine.clock.advance() sets forward. What runs on it ends with the test."""
    with contextlib.ExitStack() as cleanup:

        def make(speed=100, begin=BEGIN, real=False, stepped=False):
            for directory in (host.LOGS, host.TREE / "var/global"):
                shutil.rmtree(directory, ignore_errors=True)
            if stepped:
                clock = host.SteppedClock(begin)
            else:
                clock = host.RealClock() if real else host.Clock(begin, min(speed, 100) if SANITIZED else speed)
            machine = cleanup.enter_context(contextlib.closing(host.Machine(clock)))
            machine.lay_out()
            return machine

        yield make


@pytest.fixture
def machine(make_machine):
    return make_machine()


@pytest.fixture
def disk(make_machine):
    """A machine whose database directory is on a small disk."""
    machine = make_machine(stepped=True)
    machine.disk = small_disk() / "cv-anomaly"
    machine.disk.mkdir()
    machine.filler = machine.disk / "filler"
    host.DATABASE_DIR.symlink_to(machine.disk)
    configure(machine)
    yield machine
    machine.service("-terminate")
    shutil.rmtree(machine.disk)
