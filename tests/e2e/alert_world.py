"""A database in a directory of its own, receivers, and cvanomalyalert on them."""

import contextlib
import json
import signal
import sqlite3
import subprocess
import sys
import time
from pathlib import Path

import machine as host
import pytest
from machine import wait_until
from receivers import Journal, MailServer, Webhook

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench/detect"))
import anomaly_db  # noqa: E402

ALERT = "cvanomalyalert"
DAY = 86400
FIRST = int(time.time()) // DAY * DAY - 2 * DAY
SECRET = "correct horse battery staple"


def details(client, incident, severity=3, at=FIRST, cause="encryption", **more):
    return json.dumps({
        "schema": 1, "summary": "x", "severity": severity, "incident": "incident_" + incident,
        "stream": {"client": client, "policy": "nightly", "policy_type": "STANDARD", "schedule_type": "FULL",
                   "schedule_name": "daily", "application_type": "FILE_SYSTEM", "destination": "disk-pool01"},
        "backup_id": f"{client}_1", "job_id": 1, "time": at,
        "causes": [{"id": cause, "words": "Files may have been encrypted."}],
        "features": [{"name": "kb_transferred", "unit": "KB", "value": 990000, "usual": 20000, "usual_low": 19000,
                      "usual_high": 21000, "factor": 49.5, "deviation": 30.2}],
        "last_good": {"backup_id": f"{client}_0", "time": at - DAY}, **more})


class World:
    """A database in a directory of its own, receivers, and the program on them."""

    def __init__(self, directory, machine, cleanup):
        self.directory = Path(directory)
        self.machine = machine
        self.cleanup = cleanup
        self.db = anomaly_db.create(self.directory / "CV_Anomaly.db")
        # The commits of the tests need not survive a power failure.
        self.db.execute("PRAGMA synchronous=OFF")
        cleanup.callback(self.db.close)
        self.settings = {}

    def closing(self, receiver):
        return self.cleanup.enter_context(contextlib.closing(receiver))

    def webhook(self, **more):
        receiver = self.closing(Webhook(secret=SECRET, **more))
        self.configure(WEBHOOK_URL=receiver.url, WEBHOOK_SECRET_FILE=self.secret("webhook", SECRET))
        return receiver

    def mail(self, **more):
        receiver = self.closing(MailServer(**more))
        self.configure(SMTP_URL=receiver.url, MAIL_TO="ops@example.com, boss@example.com",
                       MAIL_FROM="backup@example.com")
        return receiver

    def journal(self):
        self.configure(SYSLOG=1, SYSLOG_SOCKET=self.directory / "journal")
        return self.closing(Journal(self.directory / "journal"))

    def command(self):
        self.configure(COMMAND=f"/usr/bin/tee -a {self.directory}/told")

    def told(self):
        path = self.directory / "told"
        return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []

    def secret(self, name, text, mode=0o600):
        path = self.directory / f"{name}.secret"
        path.write_text(text + "\n")
        path.chmod(mode)
        return path

    def configure(self, **settings):
        self.settings.update(settings)
        fresh = self.directory / "anomaly_config.new"
        fresh.write_text("[ALERT_SETTINGS]\n" + "".join(f"{k}={v}\n" for k, v in self.settings.items()))
        fresh.rename(self.directory / "anomaly_config.conf")

    def anomaly(self, name, client, severity=3, incident=None, at=FIRST, text=None, **more):
        self.anomalies([(name, details(client, incident or name, severity, at, **more) if text is None else text,
                         client, at + 600)])

    def anomalies(self, rows):
        with self.db:
            self.db.executemany("INSERT INTO ANOMALY_DATA VALUES (?, ?, 0, 'key', ?, ?)",
                                [("anomaly_" + name, text, client, at) for name, text, client, at in rows])

    def usual_backup(self, client, at):
        row = anomaly_db.row(f"{client}_{at}", at, client, "0", "daily", 1, 1.0, at, 1.0, 1, 1.0, -1,
                             policy="nightly", policy_type="Standard")
        with self.db:
            self.db.execute(anomaly_db.insert_into("HIST_DATA"), row)

    def unprocessed(self):
        return self.db.execute("SELECT count(*) FROM ANOMALY_DATA WHERE PROCESSED = 0").fetchone()[0]

    def arguments(self, *more):
        return [str(host.BIN / ALERT), "-database_location", str(self.directory), "-database_file_name",
                "CV_Anomaly.db", "-master", host.MASTER, *map(str, more)]

    def run(self, *more, check=True):
        return subprocess.run(self.arguments(*more), check=check, capture_output=True, text=True, timeout=60,
                              env=self.machine.clock.environment)

    def start(self):
        return subprocess.Popen(self.arguments(), env=self.machine.clock.environment)

    @contextlib.contextmanager
    def daemon(self):
        process = self.start()
        try:
            yield process
        finally:
            process.kill()
            process.wait()

    def stop(self, process):
        """Gives the seconds that it takes to end."""
        begin = time.monotonic()
        process.send_signal(signal.SIGTERM)
        assert process.wait(20) == 0
        return time.monotonic() - begin

    def await_done(self, seconds=30):
        wait_until(lambda: self.unprocessed() == 0, seconds, "everything is processed")

    def reports(self):
        """What the web service knows: the attributes by id."""
        with contextlib.closing(sqlite3.connect(host.CATALOG, timeout=10)) as catalog:
            found = catalog.execute("SELECT id, attributes FROM reports WHERE type = 'anomaly'").fetchall()
        return {name: json.loads(attributes) for name, attributes in found}

    def log(self, level=None):
        return [text for _, _, text in self.machine.log_records(level, program=ALERT)]


@pytest.fixture
def make_world(make_machine, tmp_path):
    with contextlib.ExitStack() as cleanup:

        def make(web=True, **clock):
            machine = make_machine(**(clock or {"real": True}))
            machine.run("cvhostd", "load", host.CATALOG, "-", input="")
            if web:
                machine.start_web_service()
            return World(tmp_path, machine, cleanup)

        yield make


@pytest.fixture
def world(make_world):
    return make_world()
