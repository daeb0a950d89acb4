"""A database of the service with backups and anomalies, and cvanomalyctl on it."""

import json
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

import machine as host
import pytest

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "bench/detect"))
import anomaly_db  # noqa: E402

CTL = "cvanomalyctl"
DAY = 86400


class World:
    """A database with a stream that is judged, one that learns, an anomaly and what people said of one."""

    def __init__(self, directory, name="web01"):
        self.directory = Path(directory)
        self.path = self.directory / "CV_Anomaly.db"
        self.now = int(time.time())
        self.db = anomaly_db.create(self.path)
        self.db.execute("PRAGMA synchronous=OFF")
        self.bad = self.row(name, 0, 2, files=10, job=900)
        older = self.row(name, 20, 2, files=10, job=901)
        with self.db:
            self.insert("HIST_DATA", [self.row(name, day, -1) for day in range(1, 45)])
            self.insert("HIST_DATA", [self.row("db01", day, -1) for day in range(3)])
            self.insert("DATA_TO_PROCESS", [self.bad, older, self.row(name, -1, 0, job=902)])
            for row, processed in ((self.bad, 0), (older, 1)):
                self.db.execute("INSERT INTO ANOMALY_DATA VALUES (?, ?, ?, ?, ?, ?)", (
                    "anomaly_" + row.UNIQUE_KEY, json.dumps(self.details(name, row)), processed,
                    f"{name}/policy/STANDARD/FULL/daily/FILE_SYSTEM/disk-pool01", name, row.BACKUP_TIME + 60))
            self.db.execute("INSERT INTO ANOMALY_DATA_FEEDBACK VALUES (?, 1, ?)",
                            ("anomaly_" + older.UNIQUE_KEY, self.now))
            self.db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (self.now - 60,))

    def row(self, client, day, mark, files=1000, job=None):
        at = self.now - day * DAY
        return anomaly_db.row(f"{client}_{at}", at, client, "FULL", "daily", files + day % 7, 100000, job or 100 + day,
                              20000, 60, 5.0, mark)

    def insert(self, table, rows):
        self.db.executemany(anomaly_db.insert_into(table), rows)

    @staticmethod
    def details(client, row):
        return {"schema": 1, "summary": f"daily backup of {client}: 10 files, usually 1000", "severity": 3,
                "incident": "incident_" + row.UNIQUE_KEY,
                "stream": {"client": client, "policy": "policy", "policy_type": "STANDARD", "schedule_type": "FULL",
                           "schedule_name": "daily", "application_type": "FILE_SYSTEM", "destination": "disk-pool01"},
                "backup_id": row.BACKUP_ID, "job_id": row.JOB_ID, "time": row.BACKUP_TIME,
                "causes": [{"id": "mass_deletion", "words": "Files may have been deleted."}],
                "features": [{"name": "files", "unit": "files", "value": 10, "usual": 1000, "usual_low": 990,
                              "usual_high": 1010, "factor": 0.01, "deviation": -30}],
                "judged_by": "own history", "observations": 44, "eps": 2.5,
                "last_good": {"backup_id": "good", "time": row.BACKUP_TIME - DAY}}

    def command(self, *arguments):
        return [str(host.BIN / CTL), *map(str, arguments), "--database", str(self.path)]

    def run(self, *arguments, **options):
        return subprocess.run(self.command(*arguments), capture_output=True, text=True, timeout=120, **options)


def need(program):
    """Skips the test where the program is missing; in CI that is a failure."""
    if shutil.which(program) is None:
        (pytest.fail if os.environ.get("CI") == "true" else pytest.skip)(f"no {program}; ./dev test brings it")
