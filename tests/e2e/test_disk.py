"""The database's disk full for a while, and other writers that hold its lock."""

import contextlib
import sqlite3
import time

import pytest

import machine as host
from conftest import BEGIN
from disks import fill
from gathering import backup, load
from machine import SERVICE, wait_until
from service_runs import (
    configure, history_gathered_before, history_row, integrity, live_row, next_gather, rows_of,
    start_with_history)

NOT_STORED = (16, SERVICE, "Error inserting data: sqlite query execution failed.")
IMAGES = "corvane/catalog/images"
JOBS = "corvane/admin/jobs"
HOUR = 3600


def test_full_during_live_gathers(disk):
    machine = disk
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + 60 + 180 * n) for n in range(30)]  # 5 in each interval
    load(machine, backups)
    machine.start_web_service()
    machine.run("cvhostd", "feedback", host.CATALOG, "a1", "CONFIRMED")
    start_with_history(machine)
    last = next_gather(machine)[1]
    known = rows_of(machine, "HIST_DATA")
    assert known == [live_row(b, status=-1) for b in backups[:5]]

    fill(machine)
    before = len(machine.log_records(16))
    assert next_gather(machine)[0] == last + 1
    assert machine.log_records(16)[before:] == 5 * [NOT_STORED] + [
        (16, SERVICE, "Failed to insert last known data gather time to database  Query execution failed for  "
                      "DELETE FROM LAST_BACKUP_DATA_CAPTURE"),
        (16, SERVICE, "Failed to capture user feedback for anomaly id a1")]
    assert rows_of(machine, "HIST_DATA") == known

    machine.filler.unlink()
    # The time of the last gather could not be stored either, so what got lost is gathered once more.
    assert next_gather(machine)[0] == last + 1
    assert len(machine.log_records(16)) == before + 7
    assert rows_of(machine, "HIST_DATA") == [live_row(b, status=-1) for b in backups[:15]]
    machine.stop_service()
    assert integrity(machine) == [("ok",)]


def test_full_during_the_history(disk):
    machine = disk
    first_hour = BEGIN - host.HISTORY_SECONDS + 2 * HOUR
    backups = [backup(1 + n, first_hour + n * HOUR + 450) for n in range(300)]
    load(machine, backups)
    machine.start_web_service()
    # Two slow answers give the time to fill the disk and, 101 slices later, to make room again.
    machine.misbehave(f"{IMAGES} hang 2 skip 100 count 1", f"{IMAGES} hang 2 skip 200 count 1")

    def await_request(count):
        asked = "Executing API with path:"
        wait_until(lambda: machine.logged(asked) == count, 60, f"request {count}")

    machine.start_service()
    machine.await_log(2, SERVICE, "Historical gather is not done.")
    machine.clock.advance(15 * 60)
    await_request(101)
    fill(machine)
    await_request(202)
    machine.filler.unlink()
    wait_until(machine.last_gather_time, 120, "the history is gathered")
    assert machine.logged("Error occurred while capturing data between ") == 101
    # SQLite has rolled back by itself.
    assert machine.log_records(16) == 101 * [(16, SERVICE, "ROLLBACK TRANSACTION execution failed.")]
    assert rows_of(machine, "HIST_DATA") == [history_row(b) for b in backups[:99] + backups[200:]]
    machine.stop_service()
    assert integrity(machine) == [("ok",)]


def hold_lock():
    """Another writer, in the middle of its transaction."""
    other = sqlite3.connect(host.DATABASE, isolation_level=None, timeout=10)
    other.execute("BEGIN IMMEDIATE")
    return contextlib.closing(other)


@pytest.fixture
def slow_jobs(make_machine):
    """A machine whose web service answers slowly for jobs, so that there is time to lock the database."""
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    configure(machine)
    machine.backups = [backup(n, BEGIN + 60 * n) for n in (1, 2, 3, 4)]
    load(machine, machine.backups)
    machine.start_web_service()
    machine.misbehave(f"{JOBS} hang 2 count 1")
    start_with_history(machine)
    machine.clock.advance(15 * 60)
    wait_until(lambda: machine.logged(f"Executing API with path:  {JOBS}"), 30, "jobs are asked for")
    yield machine
    machine.service("-terminate")


def jobs_answered(machine):
    return any(JOBS in line for line in machine.requests())


def test_a_lock_held_for_moments_costs_nothing(slow_jobs):
    machine = slow_jobs
    with hold_lock():
        wait_until(lambda: jobs_answered(machine), 30, "the jobs are there")
        time.sleep(2)  # for so long every insert has to wait
    machine.await_log(2, SERVICE, "Using gather frequency as 15 mins")
    assert machine.log_records(16) == []
    assert rows_of(machine, "HIST_DATA") == [live_row(b, status=-1) for b in machine.backups]


def test_a_lock_held_for_too_long_costs_a_record(slow_jobs):
    machine = slow_jobs
    with hold_lock():
        machine.await_log(*NOT_STORED)
        held = time.monotonic()
    released = time.monotonic()
    machine.await_log(2, SERVICE, "Using gather frequency as 15 mins")
    assert released - held < 5
    assert machine.log_records(16) == [NOT_STORED]
    # Jobs are stored latest first: the fourth had waited in vain.
    assert rows_of(machine, "HIST_DATA") == [live_row(b, status=-1) for b in machine.backups[:3]]
