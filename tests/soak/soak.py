"""Weeks of the whole system in an hour: the clock runs 1000 times as fast, the server fails now and then.

usage, inside embedded_host/sandbox:  soak.py MINUTES RESULT_FILE

Looked at every few seconds: what each process holds (memory, descriptors), how much it logs, which backups
have been stored. What must hold at the end: nothing grows from the first quarter of the run to the last, and
every backup is in the database but for those that a gather said it could not fetch, and those few that end in
the moment between the end of a gather's window and its question, which is 1000 times as long here.
"""

import contextlib
import itertools
import json
import os
import random
import statistics
import sys
import time
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(PROJECT / room) for room in ("embedded_host", "tests/e2e", "bench/detect")]
import anomaly_db  # noqa: E402
import machine as host  # noqa: E402
from gathering import backup, load, rows  # noqa: E402
from service_runs import GATHERED, configure, instant  # noqa: E402

SPEED = 1000
BEGIN = 1_794_859_200  # 2026-11-16 20:00 UTC
SECONDS_BETWEEN_SAMPLES = 5
SECONDS_BETWEEN_BACKUPS = 5 * 60
CLIENTS = 20
# The first makes the client open its second session, with its other certificate, which is kept like the first one.
FAULTS = ("status 401", "status 500", "status 503", "garbage", "truncate", "cut")
CAPTURING = "Capturing data between "
COULD_NOT_CAPTURE = "Could not capture data between "
REFUSED = (16, "CurlClient::execute")  # asked a second time after a 401: what the answer holds counts as a page
MONTH = 30 * 86400
FIRST_JOB, FIRST_EARLIER_JOB = 1000, 1_000_000
TOOK = "Total time taken for live gather "
# Another program held the lock for 5 of the clock's seconds, 5 real milliseconds: the next gather does not know
# where to begin, and gathers nothing.
TIME_NOT_KEPT = "Failed to insert last known data gather time to database "
PROCESSES = ("cvanomalymgmt", "cvanomalydetect", "cvanomalyalert")
# What the last quarter's median may be of the first's: the allocator settles, a leak does not.
MOST_GROWTH = {"memory_kib": 1.10, "descriptors": 1.0, "log_bytes_per_pass": 1.10}


def catalog(seconds):
    """A backup every few minutes, each client's figures about the same from day to day."""
    figures = random.Random(1)
    for job, start in enumerate(range(BEGIN + 60, BEGIN + seconds, SECONDS_BETWEEN_BACKUPS), FIRST_JOB):
        client = f"client{job % CLIENTS:02}.example.com"
        yield backup(job, start, seconds=figures.randint(60, 1500), clientName=client,
                     backupId=f"{client}_{start}", kbytes=figures.randint(990_000, 1_010_000),
                     kilobytesTransferred=figures.randint(9_000, 11_000), numFiles=figures.randint(9_900, 10_100))


def a_month_gathered_before(begin):
    """Leaves the database of a service that has run for as long as it keeps records: from then on as many are
    purged as come, so that neither the database grows nor SQLite's cache of it."""
    figures = random.Random(2)
    host.DATABASE_DIR.mkdir(parents=True, exist_ok=True)
    with contextlib.closing(anomaly_db.create(host.DATABASE)) as db, db:
        for job, start in enumerate(range(begin - MONTH, begin, SECONDS_BETWEEN_BACKUPS), FIRST_EARLIER_JOB):
            client = f"client{job % CLIENTS:02}.example.com"
            for table, mark in (("HIST_DATA", -1), ("DATA_TO_PROCESS", 1)):
                db.execute(anomaly_db.insert_into(table), anomaly_db.row(
                    f"{client}_{start}", start, client, "FULL", "daily", figures.randint(9_900, 10_100),
                    figures.randint(990_000, 1_010_000), job, figures.randint(9_000, 11_000),
                    figures.randint(60, 1500), 100.0, mark, policy="nightly", app="NONE", destination="disk01"))
        db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (begin,))


def held_by(name):
    """What the one process of that name holds; nothing while there is none, or it is on its way out."""
    with contextlib.suppress(OSError, ValueError):
        (pid,) = host.process_ids(name)
        status = Path(f"/proc/{pid}/status").read_text()
        return {"process": pid, "memory_kib": int(status.split("VmRSS:")[1].split()[0]),
                "descriptors": len(os.listdir(f"/proc/{pid}/fd"))}
    return {}


class Soak:
    def __init__(self, machine):
        self.machine = machine
        self.samples = []
        self.stored = set()
        self.faults = itertools.cycle(FAULTS)

    def sample(self):
        sample = {"gathers": self.machine.logged(GATHERED)}
        for name in PROCESSES:
            log = (host.LOGS / name).read_bytes()
            # The detection makes a pass, and a line, for whatever has been stored when it looks.
            passes = log.count(b": Judged ") if name == "cvanomalydetect" else sample["gathers"]
            sample[name] = {**held_by(name), "log_bytes": len(log), "passes": passes}
        self.samples.append(sample)
        for table in ("HIST_DATA", "DATA_TO_PROCESS"):
            self.stored.update(job for job, in rows(
                host.DATABASE, f"SELECT JOB_ID FROM {table} WHERE JOB_ID < {FIRST_EARLIER_JOB}"))

    def trouble(self, moment):
        """The server answers wrongly for one sample in eight, and is away for one in forty."""
        if moment % 8 == 3:
            self.machine.misbehave(next(self.faults))
        elif moment % 8 == 4:
            self.machine.misbehave()
        if moment % 40 == 20:
            self.machine.stop_web_service()
        elif moment % 40 == 21:
            self.machine.start_web_service()

    def run(self, minutes):
        end = time.monotonic() + minutes * 60
        for moment in itertools.count():
            time.sleep(SECONDS_BETWEEN_SAMPLES)
            self.sample()
            if time.monotonic() > end:
                break
            self.trouble(moment)
        self.machine.misbehave()
        gathers = self.machine.logged(GATHERED)
        host.wait_until(lambda: self.machine.logged(GATHERED) > gathers + 2, 60, "the last gathers")
        self.sample()

    def processes(self):
        """{name: the ids that it ran under}: one each when none died."""
        return {name: sorted({sample[name]["process"] for sample in self.samples if "process" in sample[name]})
                for name in PROCESSES}

    def growth(self):
        """Of each figure of each process: of the first and the last quarter of the run the median, or the most."""
        # The first sample is taken while everything starts.
        steps = list(itertools.pairwise(self.samples[1:]))
        quarter = max(1, len(steps) // 4)
        for name, figure in itertools.product(PROCESSES, MOST_GROWTH):
            def value(step):
                before, after = step[0], step[1]
                if figure != "log_bytes_per_pass":
                    return after[name].get(figure)
                passes = after[name]["passes"] - before[name]["passes"]
                return (after[name]["log_bytes"] - before[name]["log_bytes"]) / passes if passes else None

            ends = [[v for v in map(value, part) if v is not None] for part in (steps[:quarter], steps[-quarter:])]
            # A connection is kept or not from one moment to the next: what counts is the most. Both throw where
            # there is no sample.
            yield name, figure, *map(max if figure == "descriptors" else statistics.median, ends)

    def gathers(self):
        """Of each live gather that asked: its window, whether it got it, how many seconds it took."""
        window, failed = None, False
        for level, tag, text in self.machine.log_records():
            if text.startswith(CAPTURING):
                window, failed = tuple(map(int, text.removeprefix(CAPTURING).split("&"))), False
            elif text.startswith(COULD_NOT_CAPTURE) or (level, tag) == REFUSED:
                failed = True
            elif text.startswith(TOOK) and window is not None:
                yield *window, failed, int(text.removeprefix(TOOK).rstrip("."))

    def gaps(self):
        """(last, first) of the windows before and after one that was not asked for."""
        last, not_kept = None, False
        for _, _, text in self.machine.log_records():
            if text.startswith(CAPTURING):
                first, end = map(int, text.removeprefix(CAPTURING).split("&"))
                if not_kept:
                    yield last, first
                last, not_kept = end, False
            elif text.startswith(TIME_NOT_KEPT):
                not_kept = True

    def lost(self, backups):
        """Ended backups that are not stored, by why: their window could not be fetched; no window was asked for
        because the time of the gather before could not be kept; they ended after the
        end of their window and before the server was asked about it, so that it held them for neither running
        nor done by then; they began in their window's last second and still ran, to which the next one does not
        reach back; any other reason."""
        gathers, gaps = list(self.gathers()), list(self.gaps())
        lost = {"in_failed_windows": [], "in_gaps": [], "while_asking": [], "in_the_last_second": [], "otherwise": []}
        for one in backups:
            start, end = instant(one["startTime"]), instant(one["endTime"])
            if end > self.machine.last_gather_time() - 3600 or one["jobId"] in self.stored:
                continue
            if any(failed and start <= last and end >= first for first, last, failed, _ in gathers):
                why = "in_failed_windows"
            elif any(end > last and start < first for last, first in gaps):
                why = "in_gaps"
            elif any(start <= last < end <= last + took + 1 for _, last, _, took in gathers):
                why = "while_asking"
            elif any(start == last < end for _, last, _, _ in gathers):
                why = "in_the_last_second"
            else:
                why = "otherwise"
            lost[why].append(one["jobId"])
        return lost


def main():
    minutes, result_file = float(sys.argv[1]), Path(sys.argv[2])
    clock = host.Clock(BEGIN, SPEED)
    with contextlib.closing(host.Machine(clock)) as machine:
        machine.lay_out()
        backups = list(catalog(int((minutes + 10) * 60 * SPEED)))
        load(machine, backups)
        a_month_gathered_before(BEGIN)
        configure(machine, detection=0, alert=0, DATABASE_SETTINGS__PURGE_DATA_INTERVAL_IN_MONTHS=1)
        machine.start_web_service()
        machine.start_service()
        soak = Soak(machine)
        soak.run(minutes)
        machine.stop_service()
        growth = [dict(zip(("process", "figure", "first_quarter", "last_quarter"), row)) for row in soak.growth()]
        lost = soak.lost(backups)
    processes = soak.processes()
    result = {"simulated_days": round((clock.now() - BEGIN) / 86400, 1), "gathers": soak.samples[-1]["gathers"],
              "stored": len(soak.stored), "lost": {why: len(jobs) for why, jobs in lost.items()},
              "lost_otherwise": lost["otherwise"], "processes": processes, "growth": growth}
    result_file.write_text(json.dumps(result, indent=1) + "\n")
    print(json.dumps(result, indent=1))
    grown = [row for row in growth if row["last_quarter"] > row["first_quarter"] * MOST_GROWTH[row["figure"]]]
    for row in grown:
        print("grown:", row)
    restarted = any(len(ids) != 1 for ids in processes.values())
    return 1 if grown or restarted or lost["otherwise"] or not soak.stored else 0


if __name__ == "__main__":
    sys.exit(main())
