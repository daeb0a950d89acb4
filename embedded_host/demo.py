"""The demo: the real service on a machine of its own, gathering real backup records over REST.

Runs inside embedded_host/sandbox. Ends with status 0 only when every backup that the catalog holds for the
gathered time is in the service's database.
"""

import calendar
import contextlib
import sqlite3
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import machine as host
from machine import Clock, Machine, wait_until

PROJECT = Path(__file__).resolve().parent.parent
RECORDS = PROJECT / "tests/data/backups.jsonl"
# An evening, half an hour before the night's backups: the gather of the history ends before them, the live
# gathers see them come. The records are moved so that their last days follow.
BEGIN = calendar.timegm((2026, 11, 16, 20, 0, 0))
SPEED = 100
LIVE_GATHERS = 3

started = time.monotonic()


def say(text):
    print(f"{time.monotonic() - started:6.1f} s  {text}", flush=True)


def date(seconds):
    return time.strftime("%Y-%m-%d %H:%M", time.gmtime(seconds))


def lay_out(machine):
    machine.lay_out()
    catalog_lines = Path("/tmp/catalog.jsonl")
    with catalog_lines.open("w") as out:
        subprocess.run(
            ["/usr/bin/python3", str(PROJECT / "embedded_host/make_catalog.py"), str(RECORDS),
             "--clock-begin", time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(BEGIN))],
            stdout=out, check=True)
    machine.run("cvhostd", "load", host.CATALOG, catalog_lines)
    machine.configure(
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ANOMALY_DETECTION=0,
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_DETECTION_SERVICE=0,
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ALERT_SERVICE=1,
        DATA_GATHER_SETTINGS__LIVE_DATA_GATHER_FREQUENCY_IN_MIN=15)


def stored(machine):
    return machine.query("SELECT COUNT(*), MAX(BACKUP_TIME) FROM HIST_DATA")


def watch_history(machine):
    say("waiting one gather interval of 15 minutes, as after every first start")
    wait_until(lambda: machine.logged("Capturing historical data."), 60, "the history begins")
    shown = 0
    while not machine.last_gather_time():
        time.sleep(1)
        ((records, newest),) = stored(machine)
        if records != shown:
            shown = records
            say(f"gathering 91 days of history: {records:5} records, up to {date(newest)}")
        if time.monotonic() - started > 150:
            raise TimeoutError("the history takes too long")
    say(f"history done, up to {date(machine.last_gather_time())}")


def watch_live_gathers(machine):
    for number in range(1, LIVE_GATHERS + 1):
        wait_until(lambda: machine.logged("Total time taken for live gather") >= number, 60, "a live gather")
        ((waiting,),) = machine.query("SELECT COUNT(*) FROM DATA_TO_PROCESS")
        ((queued,),) = machine.query("SELECT COUNT(*) FROM QUEUED_TO_CAPTURE_DATA")
        say(f"live gather {number} done: {waiting} records wait for detection, {queued} running jobs queued")


def show(machine):
    print()
    print(f"{'client':22} {'records':>8}  {'first':16}  {'last':16}  {'kilobytes':>12}  {'latest job':>10}")
    rows = machine.query(
        "SELECT CLIENT, COUNT(*), MIN(BACKUP_TIME), MAX(BACKUP_TIME), SUM(IMAGE_SIZE), MAX(JOB_ID) FROM"
        " (SELECT CLIENT, BACKUP_TIME, IMAGE_SIZE, JOB_ID FROM HIST_DATA UNION ALL"
        "  SELECT CLIENT, BACKUP_TIME, IMAGE_SIZE, JOB_ID FROM DATA_TO_PROCESS) GROUP BY CLIENT")
    for client, records, first, last, kilobytes, job in rows:
        print(f"{client:22} {records:8}  {date(first)}  {date(last)}  {kilobytes:12,.0f}  {job:10}")
    ((history,),) = machine.query("SELECT COUNT(*) FROM HIST_DATA")
    ((waiting,),) = machine.query("SELECT COUNT(*) FROM DATA_TO_PROCESS")
    ((queued,),) = machine.query("SELECT COUNT(*) FROM QUEUED_TO_CAPTURE_DATA")
    print(f"\n{history} records of history, {waiting} waiting for detection, {queued} running jobs queued")


def compare(machine, history_end):
    """Every backup of the catalog that had ended by the last gather must be stored, with its figures."""
    history_start = history_end - host.HISTORY_SECONDS
    last_gather = machine.last_gather_time()
    with contextlib.closing(sqlite3.connect(f"file:{host.CATALOG}?mode=ro", uri=True)) as catalog:
        expected = set(catalog.execute(
            "SELECT backup_id, job_id, client_name, kbytes, num_files FROM backups"
            " WHERE start_time BETWEEN ? AND ? AND end_time < ?", (history_start, last_gather, last_gather)))
    found = set(machine.query(
        "SELECT BACKUP_ID, JOB_ID, CLIENT, IMAGE_SIZE, NUM_FILES FROM HIST_DATA UNION ALL"
        " SELECT BACKUP_ID, JOB_ID, CLIENT, IMAGE_SIZE, NUM_FILES FROM DATA_TO_PROCESS"))
    missing = expected - found
    invented = found - expected
    for what, rows in (("missing from the database", missing), ("not in the catalog", invented)):
        for row in sorted(rows)[:10]:
            print(f"{what}: {row}", file=sys.stderr)
    if missing or invented or not expected:
        raise SystemExit(f"DEMO FAILED: {len(expected)} records expected, {len(missing)} missing,"
                         f" {len(invented)} that should not be there")
    print(f"All {len(expected)} backups of the catalog are in the database, with their figures.")


def main():
    with contextlib.closing(Machine(Clock(BEGIN, SPEED))) as machine:
        lay_out(machine)
        machine.start_web_service()
        say(f"web service on 127.0.0.1:1556; the clock shows {date(machine.clock.now())} and runs {SPEED} times"
            " as fast")
        answer = machine.service("-start")
        say("cvanomalymgmt -start: " + answer.stdout.strip().replace("\n", " "))
        watch_history(machine)
        history_end = machine.last_gather_time()
        watch_live_gathers(machine)
        machine.stop_service()
        machine.stop_web_service()
        say("cvanomalymgmt -stop: the service has ended, nothing is left running")
        show(machine)
        compare(machine, history_end)


if __name__ == "__main__":
    main()
