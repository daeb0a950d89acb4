"""What the tests of the gathers share: backups as the catalog, the image list and the database have them."""

import contextlib
import json
import sqlite3
import time

import machine as host


def time_text(seconds):
    return time.strftime("%Y-%m-%dT%H:%M:%S.000Z", time.gmtime(seconds))


def backup(job_id, start, seconds=60, **more):
    """A backup as cvhostd load reads it."""
    return {"jobId": job_id, "jobType": "BACKUP", "clientName": "web01", "policyName": "nightly",
            "policyType": "STANDARD", "scheduleName": "daily", "scheduleType": "FULL",
            "backupId": f"web01_{job_id}", "startTime": time_text(start), "endTime": time_text(start + seconds),
            "kbytes": 1000 + job_id, "kilobytesTransferred": 500 + job_id, "numFiles": job_id,
            "destinationStorageUnitName": "disk01", "providerGeneratedId": "asset-1", **more}


def load(machine, backups):
    machine.run("cvhostd", "load", host.CATALOG, "-", input="".join(json.dumps(b) + "\n" for b in backups))


def image(job_id, backup_time, **more):
    """An image as a line of the image list."""
    return json.dumps({
        "client_name": "web01", "policy_name": "nightly", "backupid": f"web01_{job_id}", "client_type": 0,
        "backup_time": backup_time, "sched_type": 0, "sched_label": "daily", "num_files": job_id,
        "kbytes": 1000 + job_id, "job_id": job_id, "stream_number": 1, "provider_generated_id": "asset-1",
        "elapsed_time": 60, "copies": 1, "frags": [{"copy": 1, "number": 1}], **more}) + "\n"


def rows(database, sql, *parameters):
    with contextlib.closing(sqlite3.connect(f"file:{database}?mode=ro", uri=True, timeout=10)) as db:
        return db.execute(sql, parameters).fetchall()
