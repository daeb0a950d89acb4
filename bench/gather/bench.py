"""Runs the benchmarks on a machine of their own; see run.sh.

    bench.py [--small] [WORK...]

WORK is some of: lines, history, live, purge, memory, idle, growth; all of them by default. --small takes a
tenth of the records.
"""

import argparse
import calendar
import contextlib
import json
import shutil
import sqlite3
import statistics
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "embedded_host"))
import machine as host  # noqa: E402

USER = Path(__file__).resolve().parent / "user.py"
ROOM = host.TREE / "bench"
LINES = ROOM / "lines.json"
RUNS = 5
HOUR = 3600
MONTH = 30 * 86400
BEGIN = calendar.timegm((2026, 8, 1, 0, 0, 0))
END_OF_HISTORY = BEGIN + 100 * HOUR

rows = []


# --- Running ---


def report(program, *arguments):
    """What one run of a program says of itself; its time is that of the whole process when it says nothing."""
    begin = time.perf_counter()
    done = subprocess.run([str(program), *map(str, arguments)], capture_output=True, text=True)
    wall = time.perf_counter() - begin
    if done.returncode != 0:
        raise SystemExit(f"{program} {arguments}: {done.stderr}")
    return json.loads(done.stdout) if done.stdout.startswith("{") else {"seconds": wall, "cpu": wall}


def ours(*arguments):
    return report(host.BIN / "gather_bench", *arguments)


def limit(*arguments):
    return report(host.BIN / "gather_limit", *arguments)


def user(work, *arguments):
    return report("/usr/bin/python3", USER, work, *arguments)


def new_database():
    """An empty directory; the path of the database that it gets, with the service's schema."""
    directory = ROOM / "database"
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir()
    ours("purge", directory, 12)  # makes the schema
    return directory / "CV_Anomaly.db"


def medians(*competitors):
    """For each competitor the medians of its figures over alternating runs."""
    figures = [[] for _ in competitors]
    for _ in range(RUNS):
        for runs, competitor in zip(figures, competitors):
            runs.append(competitor())
    return [{name: statistics.median(run[name] for run in runs) for name in ("seconds", "cpu")}
            for runs in figures]


def compare(work, goal, our_run, limit_run, user_run=None, measures=("seconds",)):
    times = medians(our_run, limit_run, *([user_run] if user_run else []))
    for measure in measures:
        ours_s, limit_s, user_s = (*(t[measure] for t in times), None)[:3]
        add(work + (", processor" if measure == "cpu" else ""), goal, f"{limit_s / ours_s:.2f} of the limit",
            f"{ours_s:.3f} s", f"{limit_s:.3f} s", f"{user_s:.3f} s" if user_run else "",
            f"{user_s / ours_s:.1f} times" if user_run else "")
    return times


def add(work, goal, result, our_figure="", limit_figure="", user_figure="", gain=""):
    rows.append({"work": work, "goal": goal, "result": result, "ours": our_figure, "limit": limit_figure,
                 "user": user_figure, "gain": gain})
    print(f"{work:44} {our_figure:>10} {limit_figure:>10}  {result:22} {user_figure:>10} {gain:>11}   {goal}",
          flush=True)


def count(database, table):
    with contextlib.closing(sqlite3.connect(database)) as db:
        return db.execute(f"SELECT COUNT(*) FROM {table}").fetchone()[0]


def checked(expected, table, run):
    """A run on a database of its own that has to end with so many rows."""
    def measured():
        database = new_database()
        result = run(database)
        if count(database, table) != expected:
            raise SystemExit(f"{count(database, table)} rows in {table}, not {expected}")
        return result
    return measured


# --- The input ---


def write_lines(path, number):
    with path.open("w") as out:
        for n in range(number):
            out.write(json.dumps({
                "client_name": f"client{n % 500}.example.com", "policy_name": f"policy-{n % 20}",
                "backupid": f"client{n % 500}.example.com_{BEGIN + n}", "client_type": n % 3,
                "backup_time": BEGIN + n, "sched_type": n % 2, "sched_label": "daily", "num_files": 1000 + n % 999,
                "kbytes": 5_000_000 + n, "job_id": 100 + n, "stream_number": 1,
                "provider_generated_id": f"6f0f7a52-33f4-4b0c-8d0a-{n:012}", "elapsed_time": 60,
                "expiration": 2147483647, "copies": 1,
                "frags": [{"copy": 1, "number": 1, "kbytes": 5_000_000 + n, "storage_unit": "disk01"}]},
                separators=(",", ":")) + "\n")


def time_text(seconds):
    return time.strftime("%Y-%m-%dT%H:%M:%S.000Z", time.gmtime(seconds))


def backup(job, start):
    client = f"client{job % 500}.example.com"
    return {"jobId": job, "parentJobId": job, "jobType": "BACKUP", "clientName": client,
            "policyName": f"policy-{job % 20}", "policyType": "STANDARD", "scheduleName": "daily",
            "scheduleType": "FULL", "backupId": f"{client}_{start}_{job}", "backupTime": time_text(start),
            "startTime": time_text(start), "endTime": time_text(start + 60), "kbytes": 5_000_000 + job,
            "kilobytesTransferred": 900_000 + job, "numFiles": 1000 + job % 999, "dedupRatio": 5.5,
            "streamNumber": 1, "destinationStorageUnitName": "disk01", "applicationType": "FILE_SYSTEM",
            "providerGeneratedId": f"6f0f7a52-33f4-4b0c-8d0a-{job:012}"}


def load_catalog(machine, backups):
    host.CATALOG.unlink(missing_ok=True)
    with (ROOM / "catalog.jsonl").open("w") as out:
        out.writelines(json.dumps(b) + "\n" for b in backups)
    machine.run("cvhostd", "load", host.CATALOG, ROOM / "catalog.jsonl", timeout=600)


def handshakes():
    """How many TLS connections this machine's web service has answered on so far."""
    return len({line.split()[1] for line in (host.LOGS / "web_access").read_text().splitlines()})


# --- The works ---


def bench_lines(_, scale):
    number = 200_000 // scale
    write_lines(LINES, number)
    compare(f"image list, {number:,} lines", "0.85; 3 times the script",
            checked(number, "HIST_DATA", lambda db: ours("lines", db.parent, LINES)),
            checked(number, "HIST_DATA", lambda db: limit("lines", db, LINES)),
            checked(number, "HIST_DATA", lambda db: user("lines", db, LINES)), measures=("seconds", "cpu"))


def bench_history(machine, scale):
    number = 100_000 // scale
    spread = (END_OF_HISTORY - BEGIN) / number
    load_catalog(machine, (backup(n + 1, BEGIN + int(n * spread)) for n in range(number)))
    machine.start_web_service()
    web = (host.CREDENTIALS, host.MASTER, BEGIN, END_OF_HISTORY)
    runs = (checked(number, "HIST_DATA", lambda db: ours("history", db.parent, BEGIN, END_OF_HISTORY)),
            checked(number, "HIST_DATA", lambda db: limit("history", db, *web)),
            checked(number, "HIST_DATA", lambda db: user("history", db, *web)))
    times = compare(f"history over REST, {number:,} images", "0.85", *runs, measures=("seconds", "cpu"))
    fetched = medians(lambda: limit("fetch", new_database(), *web))
    add("the pages of this history, only fetched", "3 times as fast",
        f"{times[0]['seconds'] / fetched[0]['seconds']:.1f} times as fast", limit_figure=f"{fetched[0]['seconds']:.3f} s")
    before = handshakes()
    runs[0]()
    add("TLS connections of one historical gather", "1", str(handshakes() - before))
    machine.stop_web_service()


def bench_live(machine, scale):
    number = 10_000 // scale
    jobs = ROOM / "jobs.json"
    backups = [backup(n + 1, BEGIN + n // 20) for n in range(number)]
    jobs.write_text("".join(json.dumps({**b, "state": "DONE", "status": 0}) + "\n" for b in backups))
    stored = (checked(number, "DATA_TO_PROCESS", lambda db: ours("store", db.parent, jobs)),
              checked(number, "DATA_TO_PROCESS", lambda db: limit("store", db, jobs)),
              checked(number, "DATA_TO_PROCESS", lambda db: user("store", db, jobs)))
    compare(f"live gather, storing {number:,} jobs", "0.90", *stored)
    load_catalog(machine, backups)
    machine.start_web_service()
    whole = checked(number, "DATA_TO_PROCESS", lambda db: ours("live", db.parent, BEGIN, BEGIN + HOUR))
    compare(f"live gather, {number:,} jobs with their REST pages", "", whole, stored[1])
    machine.stop_web_service()


def fill(database, first, last):
    with contextlib.closing(sqlite3.connect(database)) as db, db:
        db.execute(
            "INSERT INTO HIST_DATA WITH RECURSIVE n(i) AS (SELECT ? UNION ALL SELECT i + 1 FROM n WHERE i < ?)"
            " SELECT 'client' || (i % 500) || '.example.com_' || i, ? + i, 'client' || (i % 500) || '.example.com',"
            " 'policy-' || (i % 20), 'STANDARD', 'FULL', 'daily', 'NONE', 1000 + i % 999, 5000000 + i, i, -1, -1,"
            " -1, -1, -1, -1, 0, -1, 'NA', 1, 'NA', 'data_' || i || '_client' || (i % 500) || '.example.com_' || i"
            " FROM n", (first, last, BEGIN))


def bench_purge(_, scale):
    number, purged = 10_000_000 // scale, 1_000_000 // scale
    database = new_database()
    fill(database, 1, number)
    now = int(time.time())

    def purge(run):
        # The cut-off is a whole number of months before now: the rows are moved to it.
        with contextlib.closing(sqlite3.connect(database)) as db:
            db.execute("PRAGMA wal_checkpoint(TRUNCATE)")
        result = run()
        if count(database, "HIST_DATA") != number - purged:
            raise SystemExit(f"{count(database, 'HIST_DATA')} rows are left")
        fill(database, 1, purged)
        return result

    # Row purged + 1 is the first that stays.
    cut_off = BEGIN + purged + 1
    months = (now - cut_off) // MONTH
    clock = f"@{time.strftime('%Y-%m-%d %H:%M:%S', time.gmtime(cut_off + months * MONTH))}"
    delete = (f"DELETE FROM HIST_DATA WHERE BACKUP_TIME < {cut_off} AND USER_IDENTIFIED_CLUSTER = -1;")
    ours_run = lambda: purge(lambda: report(  # noqa: E731
        "faketime", "-m", "-f", clock, host.BIN / "gather_bench", "purge", database.parent, months))
    limit_run = lambda: purge(lambda: report("sqlite3", database, delete))  # noqa: E731
    ours_run()
    compare(f"purge of {purged:,} rows out of {number:,}", "0.95", ours_run, limit_run)
    shutil.rmtree(database.parent)


def bench_memory(machine, scale):
    number = 1_000_000 // scale
    write_lines(LINES, number)
    peak = ours("lines", new_database().parent, LINES)["peak_kib"]
    add(f"peak memory, image list of {number:,} lines", "24 MiB", f"{peak / 1024:.1f} MiB")
    LINES.unlink()
    number = 50_000 // scale
    load_catalog(machine, (backup(n + 1, BEGIN + n % HOUR) for n in range(number)))
    machine.start_web_service()
    half = (number // 2) * HOUR // number  # the first half of the hour has half of the images
    small = ours("history", new_database().parent, BEGIN, BEGIN + half)["peak_kib"]
    large = ours("history", new_database().parent, BEGIN, BEGIN + HOUR)["peak_kib"]
    machine.stop_web_service()
    add(f"memory for each image, window of {number:,}", "2 KiB, linear",
        f"{(large - small) / (number / 2):.2f} KiB (peak {large / 1024:.1f} MiB)")


def cpu_seconds(pid):
    return int(Path(f"/proc/{pid}/schedstat").read_text().split()[0]) / 1e9


def bench_idle(machine, _):
    machine.configure(
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ANOMALY_DETECTION=0,
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_DETECTION_SERVICE=1,
        ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ALERT_SERVICE=1)
    with contextlib.closing(sqlite3.connect(host.DATABASE)) as db, db:
        db.execute("CREATE TABLE LAST_BACKUP_DATA_CAPTURE (LAST_BACKUP_TIME INT PRIMARY KEY NOT NULL)")
        db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (int(time.time()),))
    pid = machine.start_service()
    time.sleep(5)
    status = Path(f"/proc/{pid}/status").read_text()
    memory = int(status.split("VmRSS:")[1].split()[0])
    begin, used = time.perf_counter(), cpu_seconds(pid)
    time.sleep(30)
    share = (cpu_seconds(pid) - used) / (time.perf_counter() - begin)
    add("memory of the idle daemon", "12 MiB", f"{memory / 1024:.1f} MiB")
    add("processor time of the idle loop", "0.1% of a core", f"{100 * share:.3f}%")
    machine.stop_service()


def bench_growth(_, scale):
    per_line = []
    for number in (10_000, 100_000, 1_000_000 // scale, 5_000_000 // scale):
        write_lines(LINES, number)
        seconds = statistics.median(
            ours("lines", new_database().parent, LINES)["seconds"] for _ in range(RUNS if number < 10**6 else 1))
        per_line.append(seconds / number)
        add(f"growth: {number:,} lines", "", f"{per_line[-1] * 1e6:.2f} us a line", f"{seconds:.3f} s")
    LINES.unlink()
    add("growth: the last to the first", "1.5", f"{per_line[-1] / per_line[0]:.2f}")


WORKS = {"lines": bench_lines, "history": bench_history, "live": bench_live, "purge": bench_purge,
         "memory": bench_memory, "idle": bench_idle, "growth": bench_growth}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--small", action="store_true")
    parser.add_argument("works", nargs="*", choices=[[], *WORKS])
    options = parser.parse_args()
    ROOM.mkdir(parents=True)
    print(f"{'work':44} {'ours':>10} {'limit':>10}  {'result':22} {'script':>10} {'gain':>11}   goal")
    with contextlib.closing(host.Machine(host.RealClock())) as machine:
        machine.lay_out()
        for work in options.works or WORKS:
            WORKS[work](machine, 10 if options.small else 1)
    shutil.rmtree(ROOM)
    (host.TREE / "gather.json").write_text(json.dumps(rows, indent=1) + "\n")


if __name__ == "__main__":
    main()
