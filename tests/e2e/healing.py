"""What the tests of cvanomalyheal share: its looks, what is stored then, and what `cvanomalyctl status` says."""

import json
import time

import machine as host
from gathering import rows
from service_runs import next_gather

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


def critical(machine):
    """The names of the problems that are critical."""
    said = machine.run("cvanomalyctl", "status", "--json")
    return {problem["name"] for problem in json.loads(said.stdout)["problem_list"] if problem["level"] == "critical"}
