"""What somebody would write instead: the same input with Python's own libraries. See gather_limit.cpp.

    user.py lines DATABASE FILE
    user.py history DATABASE CREDENTIALS SERVER START END
    user.py store DATABASE FILE
"""

import calendar
import http.client
import json
import sqlite3
import ssl
import sys
import time

HISTORY = f"INSERT OR REPLACE INTO HIST_DATA VALUES({','.join('?' * 23)})"
WAITING = f"INSERT OR REPLACE INTO DATA_TO_PROCESS VALUES({','.join('?' * 23)})"
POLICIES = ("Standard", "Unix-Files", "Windows-Files")
SCHEDULES = ("FULL", "DIFFERENTIAL_INCREMENTAL")


def seconds(text):
    return calendar.timegm(time.strptime(text[:19], "%Y-%m-%dT%H:%M:%S"))


def time_text(at):
    return time.strftime("%Y-%m-%dT%H:%M:%S.000Z", time.gmtime(at))


def line_row(image):
    return (image["backupid"], image["backup_time"], image["client_name"], image["policy_name"],
            POLICIES[image["client_type"] % 3], SCHEDULES[image["sched_type"] % 2], image["sched_label"], "NONE",
            image["num_files"], float(image["kbytes"]), image["job_id"], -1, -1, -1, -1, -1, -1, 0, -1, "NA",
            image["stream_number"], image["provider_generated_id"], f"data_{image['job_id']}_{image['backupid']}")


def image_row(element):
    image = element["attributes"]
    return (element["id"], seconds(image["backupTime"]), image["clientName"], image["policyName"],
            image["policyType"], image["scheduleType"], image["scheduleName"], "NONE", image["numFiles"],
            image["kbytes"], image["jobId"], -1, -1, -1, -1, -1, -1, 0, -1, "NA", image["streamNumber"],
            image["providerGeneratedId"], f"data_{image['jobId']}_{element['id']}")


def job_row(job):
    start, end = seconds(job["startTime"]), seconds(job["endTime"])
    return (job["backupId"], seconds(job["backupTime"]), job["clientName"], job["policyName"], job["policyType"],
            job["scheduleType"], job["scheduleName"], job["applicationType"], job["numFiles"], job["kbytes"],
            job["jobId"], job["parentJobId"], job["kilobytesTransferred"], start, end, end - start,
            job["dedupRatio"], 1, 0, job["destinationStorageUnitName"], job["streamNumber"],
            job["providerGeneratedId"], f"data_{job['jobId']}_{job['backupId']}")


def load_lines(database, file):
    with open(file) as lines, database:
        database.executemany(HISTORY, (line_row(json.loads(line)) for line in lines))


def gather_history(database, credentials, server, start, end):
    context = ssl.create_default_context(cafile=f"{credentials}/ca.pem")
    context.load_cert_chain(f"{credentials}/host.pem", f"{credentials}/host.key")
    context.check_hostname = False
    web = http.client.HTTPSConnection("127.0.0.1", 1556, context=context)
    for at in range(int(start), int(end), 3600):
        offset = 0
        while True:
            web.request("GET", f"/corvane/catalog/images?page%5Boffset%5D={offset}&page%5Blimit%5D=100"
                        f"&sort=-startTime&filter=backupTime%20ge%20{time_text(at)}"
                        f"%20and%20backupTime%20le%20{time_text(min(at + 3600, int(end)) - 1)}",
                        headers={"Host": server})
            page = json.load(web.getresponse())
            with database:
                database.executemany(HISTORY, map(image_row, page["data"]))
            offset = page["meta"]["pagination"].get("next", 0)
            if not offset:
                break


def store_jobs(database, file):
    with open(file) as lines:
        jobs = [json.loads(line) for line in lines]
    begin()
    for job in jobs:
        with database:
            database.execute(WAITING, job_row(job))


def begin():
    global wall, cpu
    wall, cpu = time.perf_counter(), time.process_time()


def main():
    work, path, *rest = sys.argv[1:]
    database = sqlite3.connect(path)
    begin()
    {"lines": load_lines, "history": gather_history, "store": store_jobs}[work](database, *rest)
    print(json.dumps({"seconds": time.perf_counter() - wall, "cpu": time.process_time() - cpu}))


main()
