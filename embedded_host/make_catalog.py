#!/usr/bin/env python3
"""Makes a catalog for cvhostd from recorded backup runs.

The figures of the records do not change. What a record lacks is added by fixed rules, so the same records
always give the same catalog:

- Every client has a policy; its type depends on the purpose of the client (POLICIES).
- Two of them are backed up from snapshots: the image has the time of the snapshot, and the job that
  copies it (SNAPDUPE) starts SNAPSHOT_DELAY later. By then the time of the image is before the range of a
  gather, so the gather has to fetch such an image by its id.
- A job lasts at least a second; every 16th lasts 20 minutes, so that every evening has jobs that a
  gather finds running.
- Labels are left out: a catalog does not know which backup is an anomaly.
"""

import argparse
import calendar
import json
import math
import sys
import time
import uuid

SCHEDULE_TYPES = {"daily": "FULL", "weekly-full": "FULL", "incremental": "DIFFERENTIAL_INCREMENTAL"}

# client: policy type, job type, application type
POLICIES = {
    "app01": ("VIRTUAL_MACHINE_IMAGE", "BACKUP", "VIRTUAL_MACHINE"),
    "db02": ("POSTGRESQL", "DBBACKUP", "DATABASE"),
    "dns01": ("NAS_DATA_PROTECTION", "SNAPDUPE", "NAS"),
    "ldap01": ("DIRECTORY_SERVICE", "BACKUP", "DIRECTORY"),
    "log01": ("CLOUD", "SNAPDUPE", "CLOUD"),
    "mail01": ("MAIL_SERVER", "BACKUP", "MAIL"),
    "proxy01": ("UNIX_FILES", "BACKUP", "FILE_SYSTEM"),
}
OTHER_POLICY = ("STANDARD", "BACKUP", "FILE_SYSTEM")

SNAPSHOT_DELAY = 40 * 60
FIRST_JOB_ID = 1001
DAY = 86400
ASSETS = uuid.UUID("6f0f7a52-33f4-4b0c-8d0a-2f5f1d6f9c11")


def time_text(seconds):
    return time.strftime("%Y-%m-%dT%H:%M:%S.000Z", time.gmtime(seconds))


def instant(text):
    return calendar.timegm(time.strptime(text, "%Y-%m-%dT%H:%M:%SZ"))


def shift_to(records, clock_begin, days_after, lead):
    """The number of seconds to move the records by, so that the first of their last `days_after` days starts
    `lead` seconds after `clock_begin`."""
    last_day = records[-1]["time"] // DAY
    first_after = next(r["time"] for r in records if r["time"] // DAY > last_day - days_after)
    return clock_begin + lead - first_after


def backup(record, shift, long_seconds):
    """One backup as the catalog's attributes, without a job id."""
    client = record["client"]
    name = client.split(".")[0]
    policy_type, job_type, application = POLICIES.get(name, OTHER_POLICY)
    backup_time = record["time"] + shift
    start = backup_time + (SNAPSHOT_DELAY if job_type == "SNAPDUPE" else 0)
    duration = long_seconds or max(1, math.ceil(record["duration_s"]))
    size, transferred = record["bytes"], record["bytes_transferred"]
    return {
        "jobId": 0,
        "jobType": job_type,
        "clientName": client,
        "policyName": f"{name}-{policy_type.lower().replace('_', '-')}",
        "policyType": policy_type,
        "scheduleName": record["schedule"],
        "scheduleType": SCHEDULE_TYPES[record["schedule"]],
        "backupId": f"{client}_{backup_time}",
        "backupTime": time_text(backup_time),
        "startTime": time_text(start),
        "endTime": time_text(start + duration),
        "kbytes": math.ceil(size / 1024),
        "kilobytesTransferred": math.ceil(transferred / 1024),
        "numFiles": record["files"],
        "dedupRatio": round(size / transferred, 4) if transferred else 1.0,
        "streamNumber": 1,
        "destinationStorageUnitName": "cloud-bucket01" if policy_type == "CLOUD" else "disk-pool01",
        "applicationType": application,
        "providerGeneratedId": str(uuid.uuid5(ASSETS, client)),
    }


def make_catalog(records, shift, long_every, long_seconds):
    backups = [
        backup(record, shift, long_seconds if long_every and number % long_every == 0 else 0)
        for number, record in enumerate(records, 1)
    ]
    backups.sort(key=lambda b: (b["startTime"], b["backupId"]))
    for job_id, made in enumerate(backups, FIRST_JOB_ID):
        made["jobId"] = job_id
    return backups


def read_records(path):
    records = []
    with open(path, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            try:
                record = json.loads(line)
                SCHEDULE_TYPES[record["schedule"]]
                records.append(record)
            except (ValueError, KeyError, TypeError) as error:
                raise SystemExit(f"{path}:{number}: no record of a backup: {error!r}")
    if not records:
        raise SystemExit(f"{path}: no records")
    return sorted(records, key=lambda r: (r["time"], r["client"]))


def main():
    parser = argparse.ArgumentParser(
        description="Creates a catalog (JSON Lines for cvhostd load, on standard output) from recorded "
        "backups.")
    parser.add_argument("records", help="the records, such as tests/data/backups.jsonl")
    parser.add_argument("--clock-begin", metavar="TIME", type=instant,
                        help="move the records so that history ends here (2026-01-31T04:05:06Z); "
                        "without it they stay where they are")
    parser.add_argument("--days-after", metavar="N", type=int, default=5,
                        help="number of the records' last days that follow the start of the clock (default: 5)")
    parser.add_argument("--lead", metavar="SECONDS", type=int, default=1800,
                        help="seconds from the start of the clock to the first backup after it (default: 1800)")
    parser.add_argument("--long-every", metavar="N", type=int, default=16,
                        help="every Nth job is a long one; 0: none (default: 16)")
    parser.add_argument("--long-seconds", metavar="SECONDS", type=int, default=1200,
                        help="duration of a long job (default: 1200)")
    options = parser.parse_args()
    if not 1 <= options.days_after <= 3650:
        parser.error("--days-after is at least 1")
    records = read_records(options.records)
    shift = 0
    if options.clock_begin is not None:
        shift = shift_to(records, options.clock_begin, options.days_after, options.lead)
    for made in make_catalog(records, shift, options.long_every, options.long_seconds):
        sys.stdout.write(json.dumps(made, separators=(",", ":")) + "\n")


if __name__ == "__main__":
    main()
