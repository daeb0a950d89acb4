"""What the tests of cvanomalyheal share: its looks, what is stored then, and what `cvanomalyctl status` says."""

import contextlib
import json
import sqlite3
import sys
import time
from pathlib import Path

import machine as host
from gathering import backup, rows
from service_runs import next_gather

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench/detect"))
import anomaly_db  # noqa: E402

MINUTE = 60
HOUR = 3600
DAY = 24 * HOUR
# The kernel, which tells since when a process runs, has another clock than the machine of a test.
AFTER_STARTS = int(time.time()) + DAY
LEDGER = host.DATABASE_DIR / "CV_Anomaly_Coverage.db"


def heal(machine):
    machine.run("cvanomalyheal")


def gathered(machine, times=1):
    """Lets intervals pass, with a look of the healer after each."""
    for _ in range(times):
        next_gather(machine)
        heal(machine)


def holes():
    return rows(LEDGER, "SELECT start, until FROM hole")


def stored(machine):
    """The unique keys of all backups; the detection copies those that it accepts."""
    return sorted({key for table in ("HIST_DATA", "DATA_TO_PROCESS")
                  for (key,) in machine.query(f"SELECT UNIQUE_KEY FROM {table}")})


def keys(backups):
    return sorted(f"data_{b['jobId']}_{b['backupId']}" for b in backups)


def acts():
    """What the ledger says was done, the latest first."""
    return [text for (text,) in rows(LEDGER, "SELECT text FROM act ORDER BY id DESC")]


def status(machine):
    return json.loads(machine.run("cvanomalyctl", "status", "--json").stdout)


def problems(machine):
    """The level of each problem, by its name."""
    return {problem["name"]: problem["level"] for problem in status(machine)["problem_list"]}


def critical(machine):
    """The names of the problems that are critical."""
    return {name for name, level in problems(machine).items() if level == "critical"}


class Attacks:
    """Twenty clients with forty usual nightly backups each, and nights after them in which every backup is encrypted:
    nothing can be deduplicated any more."""

    CLIENTS = [f"web{n:02}" for n in range(20)]

    def __init__(self, machine, begin, nights):
        self.machine = machine
        self.begin = begin
        self.nights = [[backup(1 + 100 * night + n, begin + night * DAY + 60 + n, clientName=client, numFiles=1000,
                               backupId=f"{client}_{night}", kbytes=1_000_000, kilobytesTransferred=990_000, dedupRatio=1)
                        for n, client in enumerate(self.CLIENTS)] for night in range(nights)]

    def learn_the_usual(self):
        usual = [anomaly_db.row(f"{client}_{day}", self.begin - day * DAY, client, "FULL", "daily", 1000 + day * 7 % 11,
                                1_000_000 + day * 7 % 11 * 100, 10_000 + day * 100 + n, 20_000 + day * 7 % 11 * 300, 60,
                                50.0, -1, policy="nightly", app="", destination="disk01")
                 for n, client in enumerate(self.CLIENTS) for day in range(1, 41)]
        with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=30)) as db, db:
            db.executemany(anomaly_db.insert_into("HIST_DATA"), usual)

    def found(self, night):
        """How many of a night are reported."""
        anomalies = {name for (name,) in self.machine.query("SELECT ANOMALY_UNIQUE_ID FROM ANOMALY_DATA")}
        return sum(f"anomaly_{key}" in anomalies for key in keys(self.nights[night]))

    def learnt(self, night):
        """How many of a night are in the history."""
        history = {key for (key,) in self.machine.query("SELECT UNIQUE_KEY FROM HIST_DATA")}
        return sum(key in history for key in keys(self.nights[night]))
