"""A clock that is ahead, and a purge setting that deletes everything: what they delete comes back."""

import os
import shutil
import time

import pytest

import machine as host
from conftest import BEGIN
from gathering import backup, load, rows
from healing import DAY, LEDGER, MINUTE, critical, gathered, heal, holes, keys, stored
from machine import SERVICE, process_ids, wait_until
from service_runs import configure, history_gathered_before, next_gather, start_with_history


@pytest.mark.parametrize("ahead", [DAY, 400 * DAY])  # the second one purges the whole database
def test_a_clock_that_is_ahead_for_one_gather(make_machine, ahead):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + 60 + n * 5 * MINUTE) for n in range(24)]
    load(machine, backups)
    machine.start_web_service()
    daemon = start_with_history(machine)
    gathered(machine)
    machine.clock.advance(ahead)
    next_gather(machine)
    machine.clock.advance(-ahead - 15 * MINUTE)
    assert "marker_in_future" in critical(machine)
    heal(machine)  # restarts the service, whose clock would let it wait for a day
    wait_until(lambda: process_ids(SERVICE) not in ([], [daemon]), 60, "another service")
    machine.await_log(2, SERVICE, "Historical data captured earlier.", count=2)
    heal(machine)
    gathered(machine, 10)
    machine.stop_service()
    assert stored(machine) == keys(backups)
    assert len(process_ids(SERVICE)) == 0


@pytest.mark.parametrize("months", ["0", "-1", "twelve"])
def test_a_purge_setting_that_deletes_everything(make_machine, months):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + 60 + n * MINUTE) for n in range(10)]
    load(machine, backups)
    machine.start_web_service()
    start_with_history(machine)
    gathered(machine)
    assert stored(machine) == keys(backups)
    configure(machine, DATABASE_SETTINGS__PURGE_DATA_INTERVAL_IN_MONTHS=months)
    assert "purge_setting" in critical(machine)
    machine.stop_service()
    start_with_history(machine)
    gathered(machine)
    assert stored(machine) == []
    configure(machine)
    machine.stop_service()
    start_with_history(machine)
    gathered(machine)
    machine.stop_service()
    assert stored(machine) == keys(backups)


def test_a_log_that_is_rotated_while_the_clock_is_wrong(make_machine):
    """The rotated logs bear the wrong date, and what was logged afterwards is older than what was logged before."""
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + 60 + n * 5 * MINUTE) for n in range(24)]
    load(machine, backups)
    machine.start_web_service()
    daemon = start_with_history(machine)
    gathered(machine)
    machine.clock.advance(DAY)
    next_gather(machine)
    rotate(machine)
    machine.clock.advance(-DAY - 15 * MINUTE)
    heal(machine)  # reads the rotated log, and restarts the service
    wait_until(lambda: process_ids(SERVICE) not in ([], [daemon]), 60, "another service")
    machine.await_log(2, SERVICE, "Historical data captured earlier.")
    next_gather(machine)  # asks for nothing: its last gather is in the future
    machine.misbehave("corvane/admin/jobs status 503")
    next_gather(machine)
    machine.misbehave()
    rotate(machine)
    next_gather(machine)
    heal(machine)
    # What was logged in the future does not count. The others are known from three files.
    assert rows(LEDGER, "SELECT outcome FROM gather ORDER BY id") == [(0,), (3,), (1,), (0,)]
    gathered(machine, 8)
    assert [hole for hole in holes() if hole[1] > BEGIN] == []
    machine.stop_service()
    assert stored(machine) == keys(backups)
    assert "marker_in_future" not in critical(machine)


def rotate(machine):
    """As logrotate does by date, with the machine's clock: the log is copied and truncated."""
    log = host.LOGS / SERVICE
    shutil.copy(log, f"{log}-{time.strftime('%Y%m%d%H%M', time.gmtime(machine.clock.now()))}")
    os.truncate(log, 0)
