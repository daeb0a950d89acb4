"""The service killed at random moments of its gathers: what it had committed is there, and it goes on from there.

The moments are drawn from CV_TEST_SEED, else from a seed that is printed.
"""

import contextlib
import os
import random
import shutil
import signal
import sqlite3
from pathlib import Path

import pytest

import machine as host
from conftest import BEGIN
from gathering import backup, load
from machine import HISTORY_SECONDS, SERVICE, process_ids, wait_until
from service_runs import (
    GATHERED, configure, history_gathered_before, history_row, live_row, next_gather, rows_of, start_with_history)

KILLS = 10  # of each kind of gather
HOUR = 3600


@pytest.fixture
def moments(capsys):
    seed = int(os.environ.get("CV_TEST_SEED") or random.SystemRandom().randrange(2**32))
    with capsys.disabled():
        print(f"\nCV_TEST_SEED={seed}", flush=True)
    return random.Random(seed)


class Reader:
    """Looks at HIST_DATA as the companions would, while the service writes it."""

    def __init__(self):
        self._db = sqlite3.connect(f"file:{host.DATABASE}?mode=ro", uri=True, timeout=10)
        self.rows = set()

    def look(self):
        self.rows = set(self._db.execute("SELECT * FROM HIST_DATA"))

    def writes(self):
        """Grows by one with each row that is written, anew or again."""
        return self._db.execute("SELECT COALESCE(MAX(rowid), 0) FROM HIST_DATA").fetchone()[0]

    def close(self):
        self._db.close()


def kill_when(daemon, reached, reader):
    """Reads on until reached(), then kills the service. Gives the rows that were there at the last look."""
    with contextlib.closing(reader):
        wait_until(lambda: reader.look() or reached(), 120, "the moment to kill")
        os.kill(daemon, signal.SIGKILL)
        wait_until(lambda: not process_ids(SERVICE), 10, "the service is gone")
        return reader.rows


def left_behind(directory):
    """The rows and the time of the last gather in the database as the killed process left it. Reads a copy:
    the service is to recover the original by itself."""
    directory.mkdir()
    for suffix in ("", "-wal"):
        file = Path(f"{host.DATABASE}{suffix}")
        if file.exists():
            shutil.copy(file, directory)
    with contextlib.closing(sqlite3.connect(directory / host.DATABASE.name)) as db:
        assert db.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
        (time,) = db.execute("SELECT MAX(LAST_BACKUP_TIME) FROM LAST_BACKUP_DATA_CAPTURE").fetchone()
        return set(db.execute("SELECT * FROM HIST_DATA")), time


def put_back(last_gather):
    with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=10)) as db, db:
        db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (last_gather,))


def report(capsys, what, kept):
    with capsys.disabled():
        print(f"{what}: killed {len(kept)} times; records seen before and found after: "
              + ", ".join(f"{seen} {left}" for seen, left in kept), flush=True)


def test_in_the_history(make_machine, moments, capsys, tmp_path):
    machine = make_machine(stepped=True)
    configure(machine)
    # 20 backups in each of the first 100 hours that every one of the starts below gathers. The starts, and so
    # their slices, lie 15 minutes and some seconds apart: none begins in the middle of the 20.
    first_hour = BEGIN - HISTORY_SECONDS + (KILLS + 2) * HOUR
    hours = {hour: [backup(1 + 20 * hour + n, first_hour + hour * HOUR + 450 + n) for n in range(20)]
             for hour in range(100)}
    expected = {history_row(b) for backups in hours.values() for b in backups}
    load(machine, [b for backups in hours.values() for b in backups])
    machine.start_web_service()
    kept = []

    def begin():
        """Starts the service and lets the history begin."""
        waiting = machine.logged("Historical gather is not done.")
        daemon = machine.start_service()
        machine.await_log(2, SERVICE, "Historical gather is not done.", count=waiting + 1)
        slices = machine.logged("Capturing data between ")
        machine.clock.advance(15 * 60)
        return daemon, slices

    for kill in range(KILLS):
        daemon, before = begin()
        slices = moments.randrange(2 * 120)  # each is logged twice
        seen = kill_when(daemon, lambda: machine.logged("Capturing data between ") >= before + slices, Reader())
        left, last_gather = left_behind(tmp_path / str(kill))
        assert seen <= left <= expected
        assert last_gather is None
        jobs = {row[10] for row in left}
        for backups in hours.values():  # a slice is stored as a whole or not at all
            assert len(jobs & {b["jobId"] for b in backups}) in (0, len(backups))
        kept.append((len(seen), len(left)))
        if left == expected:  # nothing new would come: begin with an empty database again
            for file in host.DATABASE_DIR.glob(host.DATABASE.name + "*"):
                file.unlink()

    begin()
    wait_until(machine.last_gather_time, 120, "the history is gathered")
    machine.stop_service()
    assert set(rows_of(machine, "HIST_DATA")) == expected
    assert any(left for _, left in kept)
    report(capsys, "history", kept)


def test_in_live_gathers(make_machine, moments, capsys, tmp_path):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    # 75 in each interval. None is ever seen running: the queue of running jobs is emptied when a gather begins,
    # and what it held is lost with a gather that is killed.
    backups = [backup(1 + n, BEGIN + 1 + 12 * n, seconds=0) for n in range(75 * (KILLS + 2))]
    expected = {live_row(b, status=-1) for b in backups}
    load(machine, backups)
    machine.start_web_service()
    kept = []
    for kill in range(KILLS):
        daemon = start_with_history(machine)
        done = machine.last_gather_time()
        gathers, reader = machine.logged(GATHERED), Reader()
        writes = reader.writes() + moments.randrange(75)
        machine.clock.advance(15 * 60)
        seen = kill_when(
            daemon, lambda: reader.writes() >= writes or machine.logged(GATHERED) > gathers, reader)
        left, last_gather = left_behind(tmp_path / str(kill))
        assert seen <= left <= expected
        kept.append((len(seen), len(left)))
        if last_gather is None:  # killed while it was being replaced: the history would be gathered again
            put_back(done)
        else:
            assert last_gather >= done

    start_with_history(machine)
    end = next_gather(machine)[1]
    machine.stop_service()
    assert set(rows_of(machine, "HIST_DATA")) == {row for row in expected if row[14] <= end}
    assert len(rows_of(machine, "HIST_DATA")) > 75 * KILLS
    report(capsys, "live", kept)
