"""The demo: the real service in a sandbox, gathering real backup records.

usage: demo.py STARTED     in seconds since the epoch: printed times count from there

Runs inside embedded_host/sandbox. First the service gathers its history from two archives of the deployment
utility and over REST, and everything after that over REST. Then one gather without a master server uses the
command-line tools. Ends with status 0 only if the databases have exactly the catalog's backups of the gathered
time.
"""

import calendar
import contextlib
import json
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
DAY = 86400
# An evening, half an hour before the night's backups: the history is gathered before them, and the live
# gathers see them run. The records are moved so that their last days follow.
BEGIN = calendar.timegm((2026, 11, 16, 20, 0, 0))
SPEED = 100
LIVE_GATHERS = 10
DAYS_AFTER = 4
# The seconds between the image's appearance and the end of its job. Without them, a backup that ends between a
# gather's request for images and the one for jobs would be stored without its image's figures.
CLOSE_DELAY = 60
# An archive is used if its whole range is in the 91 days before the history is gathered, some 15 minutes after
# BEGIN. The service assumes that the archives cover everything from the start of the first to the end of the
# last, so the second begins where the first ends: backups in a gap would never be gathered. They meet at an
# hour without backups.
ARCHIVES = ((BEGIN - 84 * DAY, BEGIN - 56 * DAY), (BEGIN - 56 * DAY, BEGIN - 28 * DAY))
# Gathered with the tools only: a week of history, and the last evening as a live gather.
BY_TOOLS = (("historical", BEGIN - 8 * DAY, BEGIN - DAY - 1), ("live", BEGIN - DAY, BEGIN))
TOOLS_DATABASE = host.TREE / "var/global/without_master/CV_Anomaly.db"

# The file to which COMMAND, in place of a customer's program, writes the alerts.
TOLD = host.TREE / "var/global/told"

# The columns that are compared with the catalog's, and the name of a policy type in the two ways of gathering:
# NAS_DATA_PROTECTION with REST, NAS-Data-Protection in the image list, and so in archives.
FIGURES = "BACKUP_ID, JOB_ID, CLIENT, IMAGE_SIZE, NUM_FILES"
CATALOG_FIGURES = "backup_id, job_id, client_name, kbytes, num_files"
# A record that the detection found normal is in both tables.
EVERY_RECORD = (f"(SELECT {FIGURES}, BACKUP_TIME FROM HIST_DATA"
                f" UNION SELECT {FIGURES}, BACKUP_TIME FROM DATA_TO_PROCESS)")
FROM_IMAGE_LIST = "POLICY_TYPE <> UPPER(POLICY_TYPE)"

STARTED = int(sys.argv[1])


def say(text):
    minutes, seconds = divmod(time.time() - STARTED, 60)
    print(f"{minutes:3.0f}:{seconds:04.1f}  {text}", flush=True)


def date(seconds):
    return time.strftime("%Y-%m-%d %H:%M", time.gmtime(seconds))


def read(database, sql, *parameters):
    with contextlib.closing(sqlite3.connect(f"file:{database}?mode=ro", uri=True, timeout=10)) as db:
        return db.execute(sql, parameters).fetchall()


# --- The service ---


def lay_out(machine):
    machine.lay_out()
    catalog_lines = Path("/tmp/catalog.jsonl")
    with catalog_lines.open("w") as out:
        subprocess.run(
            ["/usr/bin/python3", str(PROJECT / "embedded_host/make_catalog.py"), str(RECORDS),
             "--clock-begin", time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(BEGIN)),
             "--days-after", str(DAYS_AFTER)],
            stdout=out, check=True)
    machine.run("cvhostd", "load", host.CATALOG, catalog_lines)
    machine.configure(
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ANOMALY_DETECTION=0,
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_DETECTION_SERVICE=0,
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ALERT_SERVICE=0,
        ALERT_SETTINGS__COMMAND=f"/usr/bin/tee -a {TOLD}",
        DATA_GATHER_SETTINGS__LIVE_DATA_GATHER_FREQUENCY_IN_MIN=15)


def make_archives(machine):
    """Returns the folders of the archives, the older one first."""
    folders = []
    for start, end in ARCHIVES:
        answer = machine.run("cvdeployutil", "-d", start, "-e", end)
        folders.append(Path(answer.stdout.strip()))
        say(f"cvdeployutil: archive of {date(start)} to {date(end)}")
    return folders


def say_first_record(machine):
    ((client, backup_time, kilobytes, files),) = machine.query(
        "SELECT CLIENT, BACKUP_TIME, IMAGE_SIZE, NUM_FILES FROM HIST_DATA ORDER BY ROWID LIMIT 1")
    say(f"the first gathered record: backup of {client} from {date(backup_time)}, {kilobytes:,.0f} KB in {files:,} files")


def watch_history(machine):
    say("waiting for one gather interval of 15 minutes, as the service does after its first start")
    wait_until(lambda: machine.logged("Capturing historical data."), 60, "the history begins")
    deadline = time.monotonic() + 140
    shown = 0
    done = False
    while not done:
        time.sleep(0.5)
        done = machine.last_gather_time()
        ((records, newest),) = machine.query("SELECT COUNT(*), MAX(BACKUP_TIME) FROM HIST_DATA")
        if records and not shown:
            say_first_record(machine)
        if records != shown:
            shown = records
            say(f"gathering 91 days of history: {records:5} records, up to {date(newest)}")
        if time.monotonic() > deadline:
            raise TimeoutError("the history takes too long")
    say(f"history done, up to {date(machine.last_gather_time())}")


def watch_live_gathers(machine):
    for number in range(1, LIVE_GATHERS + 1):
        wait_until(lambda: machine.logged("Total time taken for live gather") >= number, 60, "a live gather")
        ((live,),) = machine.query("SELECT COUNT(*) FROM DATA_TO_PROCESS")
        ((queued,),) = machine.query("SELECT COUNT(*) FROM QUEUED_TO_CAPTURE_DATA")
        say(f"live gather {number:2} done: {counted(live, 'record')} for the detection,"
            f" {counted(queued, 'running job')} queued")
    wait_until(lambda: not rows_waiting(machine), 60, "verdicts on what was gathered")
    wait_until(lambda: not machine.query("SELECT 1 FROM ANOMALY_DATA WHERE PROCESSED = 0"), 60,
               "the delivery of the alerts")


def counted(number, what):
    return f"{number:,} {what}" + ("" if number == 1 else "s")


def rows_waiting(machine):
    ((waiting,),) = machine.query("SELECT COUNT(*) FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS = 0")
    return waiting


def show_clients(machine):
    print(f"\n{'client':22} {'records':>8}  {'first':16}  {'last':16}  {'kilobytes':>12}  {'latest job':>10}")
    rows = machine.query(
        "SELECT CLIENT, COUNT(*), MIN(BACKUP_TIME), MAX(BACKUP_TIME), SUM(IMAGE_SIZE), MAX(JOB_ID)"
        f" FROM {EVERY_RECORD} GROUP BY CLIENT")
    for client, records, first, last, kilobytes, job in rows:
        print(f"{client:22} {records:8}  {date(first)}  {date(last)}  {kilobytes:12,.0f}  {job:10}")
    ((queued,),) = machine.query("SELECT COUNT(*) FROM QUEUED_TO_CAPTURE_DATA")
    ((judged, anomalous),) = machine.query(
        "SELECT COUNT(*), COALESCE(SUM(PROCESSED_STATUS = 2), 0) FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS <> 0")
    print(f"\nwaiting for the detection: {counted(rows_waiting(machine), 'record')}; judged: {counted(judged, 'record')},"
          f" {anomalous} of them anomalous; queued: {counted(queued, 'running job')}")
    for (details,) in machine.query("SELECT ANOMALY_DETAILS FROM ANOMALY_DATA ORDER BY DETECTION_TIME"):
        print("  " + json.loads(details)["summary"])


def show_alerts(machine):
    """The alerts that people were sent; checks that the web service has them too."""
    told = [json.loads(line) for line in TOLD.read_text().splitlines()] if TOLD.exists() else []
    reported = dict(read(host.CATALOG, "SELECT id, attributes FROM reports WHERE type = 'anomaly'"))
    for document in told:
        print(f"\n{document['subject']}\n{document['text']}  sent to a program (COMMAND), and to the web service of"
              f" {host.MASTER} as {document['id']}")
        if document["id"] not in reported:
            raise SystemExit(f"DEMO FAILED: the web service does not know {document['id']}")
    ((anomalies,),) = machine.query("SELECT COUNT(*) FROM ANOMALY_DATA")
    if anomalies and not told:
        raise SystemExit(f"DEMO FAILED: {anomalies} anomalies, but nobody was notified")


def show_sources(machine, archives):
    """The number of records from each source. Everything that an archive lists must come from it."""
    print(f"\n{'source':56} {'records':>8}")
    listed = dict(machine.query(f"SELECT BACKUP_ID, 1 FROM HIST_DATA WHERE {FROM_IMAGE_LIST}"))
    for archive, (start, end) in zip(archives, ARCHIVES):
        images = [json.loads(line)["backupid"] for line in (archive / "qpimagelist.out").open()]
        loaded = sum(listed.pop(image, 0) for image in images)
        print(f"history, archive of {date(start)} to {date(end)} {loaded:8}")
        if loaded != len(images):
            raise SystemExit(f"DEMO FAILED: {archive} lists {len(images)} images")
    if listed:
        raise SystemExit(f"DEMO FAILED: {len(listed)} records from image lists are in no archive")
    ((history,),) = machine.query(
        f"SELECT COUNT(*) FROM HIST_DATA WHERE NOT ({FROM_IMAGE_LIST})"
        " AND UNIQUE_KEY NOT IN (SELECT UNIQUE_KEY FROM DATA_TO_PROCESS)")
    ((live,),) = machine.query("SELECT COUNT(*) FROM DATA_TO_PROCESS")
    print(f"{'history, REST':56} {history:8}\n{'live gathers, REST':56} {live:8}")


# --- Without a master server ---


def gather_by_tools(machine):
    for mode, start, end in BY_TOOLS:
        machine.run("gather_example", TOOLS_DATABASE.parent, mode, start, end)
    print(f"\n{'by qpimagelist':16} {'from':16}  {'to':16}  {'records':>8}  {'kilobytes':>12}  table")
    for (mode, start, end), table in zip(BY_TOOLS, ("HIST_DATA", "DATA_TO_PROCESS")):
        ((records, kilobytes),) = read(TOOLS_DATABASE, f"SELECT COUNT(*), SUM(IMAGE_SIZE) FROM {table}")
        print(f"{mode:16} {date(start)}  {date(end)}  {records:8}  {kilobytes or 0:12,.0f}  {table}")


# --- The proof ---


def compare(what, database, condition, *parameters):
    """The database must have exactly the catalog's backups that meet the condition, with their figures."""
    expected = set(read(host.CATALOG, f"SELECT {CATALOG_FIGURES} FROM backups WHERE {condition}", *parameters))
    found = set(read(database, f"SELECT {FIGURES} FROM {EVERY_RECORD}"))
    missing = expected - found
    invented = found - expected
    for why, rows in (("missing from the database", missing), ("not in the catalog", invented)):
        for row in sorted(rows)[:10]:
            print(f"{why}: {row}", file=sys.stderr)
    if missing or invented or not expected:
        raise SystemExit(f"DEMO FAILED: {what}: {len(expected)} records expected, {len(missing)} missing,"
                         f" {len(invented)} that should not be there")
    print(f"\n{what}: all {len(expected)} backups of the catalog are in the database, with their figures.")


def run_service(machine):
    archives = make_archives(machine)
    machine.start_web_service("--close-delay", CLOSE_DELAY)
    say(f"web service on 127.0.0.1:1556; the clock shows {date(machine.clock.now())} and runs {SPEED} times"
        " as fast")
    answer = machine.service("-start")
    say("cvanomalymgmt -start: " + answer.stdout.strip().replace("\n", " "))
    watch_history(machine)
    history_end = machine.last_gather_time()
    watch_live_gathers(machine)
    machine.stop_service()
    machine.stop_web_service()
    say("cvanomalymgmt -stop: the service has ended; nothing is left running")
    show_clients(machine)
    show_alerts(machine)
    show_sources(machine, archives)
    last_gather = machine.last_gather_time()
    # A live gather skips backups that neither read a file nor transferred a byte.
    compare("The service", host.DATABASE,
            "start_time >= ? AND end_time < ?"
            " AND (backup_time <= ? OR num_files <> 0 OR kilobytes_transferred <> 0)",
            history_end - host.HISTORY_SECONDS, last_gather - CLOSE_DELAY, history_end)


def main():
    say("laying out the installation, the catalog of 90 days of real backups, and two archives of it")
    with contextlib.closing(Machine(Clock(BEGIN, SPEED))) as machine:
        lay_out(machine)
        run_service(machine)
        gather_by_tools(machine)
        compare("Without a master server", TOOLS_DATABASE, "backup_time BETWEEN ? AND ?",
                BY_TOOLS[0][1], BY_TOOLS[-1][2])


if __name__ == "__main__":
    main()
