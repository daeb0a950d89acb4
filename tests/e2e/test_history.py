"""The first start: the last 91 days, whatever the catalog is like, and only once."""

import json
import subprocess
import sys
import time

import machine as host
from conftest import BEGIN
from gathering import backup, load
from machine import HISTORY_SECONDS, SERVICE, wait_until
from service_runs import history_row, live_row, next_gather, rows_of, start_with_history, windows

DAY = 86400
HISTORICAL = "ManagementService::do_historical_gather"
DATA = host.Path(__file__).resolve().parents[1] / "data/backups.jsonl"


def gather_history(machine, seconds=60):
    """With a stepped clock. Gives when the history ends."""
    machine.start_service()
    machine.await_log(2, SERVICE, "Historical gather is not done.")
    assert (2, HISTORICAL, "Capturing historical data.") not in machine.log_records()
    machine.clock.advance(15 * 60)
    wait_until(machine.last_gather_time, seconds, "the history is gathered")
    return machine.last_gather_time()


def real_backups():
    """The recorded backups, moved so that some days of them follow the clock's begin."""
    lines = subprocess.run(
        [sys.executable, host.Path(host.__file__).parent / "make_catalog.py", DATA,
         "--clock-begin", time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(BEGIN))],
        capture_output=True, text=True, check=True)
    return [json.loads(line) for line in lines.stdout.splitlines()]


def test_a_small_catalog_with_the_edges_of_the_91_days(make_machine):
    machine = make_machine(stepped=True)
    end_at_the_earliest = BEGIN + 15 * 60
    inside = [
        backup(102, BEGIN - 90 * DAY, kbytes=0, numFiles=0),
        backup(103, BEGIN - 30 * DAY, policyType="CLOUD", scheduleType="DIFFERENTIAL_INCREMENTAL",
               applicationType="CLOUD", streamNumber=3, providerGeneratedId=""),
        backup(104, BEGIN - DAY, clientName="db'1; --", policyName="Größe \"x\" 日本", scheduleName="-",
               destinationStorageUnitName="", dedupRatio=3.25),
        backup(105, BEGIN - DAY, seconds=3600, kbytes=2**31 - 1, numFiles=2**31 - 1),
        # Two images in the same second: each has its own job.
        backup(106, BEGIN - 3600), backup(107, BEGIN - 3600),
        backup(108, BEGIN + 300)]
    outside = [
        backup(101, BEGIN - HISTORY_SECONDS - 60),
        backup(109, BEGIN - 7200, status=1, backupId=""),  # a failed job, without an image
        backup(110, BEGIN + 2 * 3600)]
    load(machine, inside + outside)
    machine.start_web_service()
    end = gather_history(machine)
    assert end_at_the_earliest <= end <= end_at_the_earliest + 60
    assert rows_of(machine, "HIST_DATA") == [history_row(b) for b in inside]
    assert rows_of(machine, "DATA_TO_PROCESS") == []

    assert len(windows(machine)) == HISTORY_SECONDS // 3600
    assert windows(machine)[0] == (end - HISTORY_SECONDS, end - HISTORY_SECONDS + 3600)
    assert windows(machine)[1] == (end - HISTORY_SECONDS + 3601, end - HISTORY_SECONDS + 7200)
    assert windows(machine)[-1] == (end - 3599, end)
    machine.await_log(2, SERVICE, "Done capturing historical data.")
    assert machine.log_records(16) == []
    machine.stop_service()


def test_the_real_records_and_a_second_start(make_machine):
    machine = make_machine(stepped=True)
    backups = real_backups()
    load(machine, backups)
    machine.start_web_service()
    end = gather_history(machine)
    in_history = [b for b in map(history_row, backups) if end - HISTORY_SECONDS <= b[1] <= end]
    assert len(in_history) > 1600
    assert rows_of(machine, "HIST_DATA") == sorted(in_history, key=lambda row: row[10])
    machine.stop_service()

    asked = len(machine.requests())
    start_with_history(machine)
    assert machine.logged("Historical gather is not done.") == 1
    assert machine.last_gather_time() == end
    # The evening's backups, as far as they have ended: with detection disabled they join the history.
    machine.clock.advance(45 * 60)
    window = next_gather(machine)
    live = [row for row in (live_row(b, status=-1) for b in backups)
            if row[13] >= window[0] and row[14] <= window[1]]
    assert window[0] == end + 1
    assert live
    assert rows_of(machine, "HIST_DATA") == sorted(in_history + live, key=lambda row: row[10])
    assert len(machine.requests()) < asked + 20
    assert machine.logged("Capturing historical data.") == 1
    machine.stop_service()
