"""What the tests of the running service share: its history taken for gathered, its gathers, its rows."""

import calendar
import contextlib
import sqlite3
import time

import machine as host
from machine import SERVICE, process_ids, wait_until

CAPTURED_EARLIER = (2, SERVICE, "Historical data captured earlier.")
# What every pass of the main loop says while the flags are invalid.
KEEPING = (8, SERVICE, "Invalid state flags in config file. Not changing any current behaviour")
# The last record of a pass of the main loop that gathers.
GATHERED = "Using gather frequency as "


def instant(text):
    """The seconds of a catalog's time text."""
    return calendar.timegm(time.strptime(text, "%Y-%m-%dT%H:%M:%S.000Z"))


def history_row(backup):
    """What the history makes of a backup's image: a row of HIST_DATA."""
    return (
        backup["backupId"], instant(backup.get("backupTime", backup["startTime"])), backup["clientName"],
        backup["policyName"], backup["policyType"], backup["scheduleType"], backup["scheduleName"], "NONE",
        backup["numFiles"], float(backup["kbytes"]), backup["jobId"], -1, -1.0, -1, -1, -1, -1.0, 0, -1, "NA",
        backup.get("streamNumber", 0), backup.get("providerGeneratedId") or "NA",
        f"data_{backup['jobId']}_{backup['backupId']}")


def live_row(backup, status=0):
    """What a live gather makes of a backup's job and image. Status 0: a row of DATA_TO_PROCESS, which waits
    for detection; -1: of HIST_DATA, with detection disabled."""
    start, end = instant(backup["startTime"]), instant(backup["endTime"])
    return (
        backup["backupId"], instant(backup.get("backupTime", backup["startTime"])), backup["clientName"],
        backup["policyName"], backup["policyType"], backup["scheduleType"], backup["scheduleName"],
        backup.get("applicationType", ""), backup["numFiles"], float(backup["kbytes"]), backup["jobId"],
        backup.get("parentJobId", backup["jobId"]), float(backup["kilobytesTransferred"]), start, end,
        end - start, float(f"{backup.get('dedupRatio', 1):.6g}"), 1, status,
        backup["destinationStorageUnitName"], backup.get("streamNumber", 0),
        backup.get("providerGeneratedId") or "NA", f"data_{backup['jobId']}_{backup['backupId']}")


def rows_of(machine, table):
    return sorted(machine.query(f"SELECT * FROM {table}"), key=lambda row: row[10])  # by JOB_ID


def queue(machine):
    return machine.query("SELECT JOB_ID, START_TIME FROM QUEUED_TO_CAPTURE_DATA ORDER BY JOB_ID")


def history_gathered_before(at):
    """Leaves a database whose last gather was then, as if the service had run until that moment."""
    host.DATABASE_DIR.mkdir(parents=True, exist_ok=True)
    with contextlib.closing(sqlite3.connect(host.DATABASE)) as db, db:
        db.execute("CREATE TABLE LAST_BACKUP_DATA_CAPTURE (LAST_BACKUP_TIME INT PRIMARY KEY NOT NULL)")
        db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (at,))


def configure(machine, management=0, detection=1, alert=1, minutes=15, **more):
    machine.configure(
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ANOMALY_DETECTION=management,
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_DETECTION_SERVICE=detection,
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ALERT_SERVICE=alert,
        DATA_GATHER_SETTINGS__LIVE_DATA_GATHER_FREQUENCY_IN_MIN=minutes, **more)


def start_with_history(machine):
    """Starts a service that has its history and waits until its main loop sleeps. Gives its process id."""
    starts = machine.log_records().count(CAPTURED_EARLIER)
    daemon = machine.start_service()
    machine.await_log(*CAPTURED_EARLIER, count=starts + 1)
    # Its interval begins right after that record; from there to the loop's sleep nothing waits.
    stat = host.Path(f"/proc/{daemon}/stat")
    wait_until(lambda: ") S " in stat.read_text(), 60, "the main loop sleeps")
    return daemon


def settle(machine):
    """Waits until the service has done what the flags ask for, by giving it some that it ignores."""
    passes = machine.log_records().count(KEEPING)
    configure(machine, alert=2)
    machine.await_log(*KEEPING, count=passes + 1)


def next_gather(machine, minutes=15, seconds=60):
    """With a stepped clock: lets the interval pass and waits until the live gather is over, with the purge
    and the feedback. Gives its window, as logged."""
    gathers = machine.logged(GATHERED)
    machine.clock.advance(minutes * 60)
    wait_until(lambda: machine.logged(GATHERED) > gathers, seconds, "a live gather")
    return windows(machine)[-1]


def windows(machine):
    """The windows that were gathered, in their order."""
    begin = "Capturing data between "
    return [tuple(int(word) for word in text.removeprefix(begin).split("&"))
            for _, tag, text in machine.log_records(2) if tag == SERVICE and text.startswith(begin)]


def await_end(seconds=60):
    wait_until(lambda: not process_ids(SERVICE), seconds, "the service ends")


def integrity(machine):
    """What SQLite says of the database; also makes it recover what a killed process left."""
    with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=10)) as db:
        return db.execute("PRAGMA integrity_check").fetchall()
