"""The alerts: everybody is told once, in a sentence, and nothing is lost, whatever the receivers and the
machine do."""

import contextlib
import json
import os
import random
import signal
import sqlite3
import subprocess
import sys
import time
from pathlib import Path

import machine as host
import pytest
from machine import process_ids, wait_until
from receivers import Journal, MailServer, Webhook, make_certificate, server_context, wait_for
from service_runs import configure, history_gathered_before, live_row, next_gather, start_with_history

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench/detect"))
import anomaly_db  # noqa: E402
from conftest import BEGIN  # noqa: E402
from gathering import backup, load  # noqa: E402

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
            self.db.execute(anomaly_db.INSERT.format("HIST_DATA"), row)

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


def test_everybody_is_told_the_same_once(world):
    webhook, mail, journal = world.webhook(), world.mail(), world.journal()
    world.command()
    with world.daemon() as process:
        world.anomaly("a", "web01")
        world.await_done()
        (by_web,) = wait_for(webhook, 1)
        (by_mail,) = wait_for(mail, 1)
        assert world.stop(process) < 1
    (by_command,), (by_journal,) = world.told(), journal.entries
    report = world.reports()["anomaly_a"]
    subject = ("[act now] The daily backup of client web01 (policy nightly): 990,000 KB transferred, "
               "49.5 times the usual 20,000; looks like encryption")
    assert by_web["signed"] and by_web["name in header"] == by_web["alert"]
    assert by_mail["recipients"] == ["ops@example.com", "boss@example.com"]
    assert by_mail["mail"]["From"] == "backup@example.com"
    assert by_mail["alert"] in by_mail["mail"]["Message-ID"]
    for told in (by_web, by_mail, by_command, report):
        assert told["subject"] == subject
        assert told["text"] == by_web["text"]
        assert told["id"] == "anomaly_a"
        assert told["details"] == json.loads(details("web01", "a"))
    assert by_mail["mail"]["Subject"] == subject
    assert by_mail["plain"].rstrip("\n") == f"{subject}\n\n{by_web['text']}".rstrip("\n")
    assert by_journal["MESSAGE"] == f"{subject}\n{by_web['text']}"
    assert (by_journal["PRIORITY"], by_journal["ANOMALY_CLIENT"]) == ("2", "web01")
    for part in ("web01", "nightly", "49.5 times the usual 20,000 (19,000 to 21,000)", "encrypted", "since",
                 "last good backup is web01_0", "FALSE_POSITIVE"):
        assert part in by_web["text"]
    assert world.log(16) == []


def test_one_alert_for_an_incident(world):
    webhook = world.webhook()
    world.anomaly("a", "web01", severity=1)
    assert world.run("-once").stdout == "1 anomaly taken in, 2 messages delivered, 1 anomaly done\n"
    world.anomaly("b", "web01", severity=1, incident="a", at=FIRST + 3600)
    world.run("-once")
    assert [told["kind"] for told in webhook.taken] == ["begin"]
    world.anomaly("c", "web01", severity=3, incident="a", at=FIRST + 7200)
    world.run("-once")
    assert world.reports()["anomaly_a"]["records"] == 3
    world.usual_backup("web01", FIRST + DAY)
    world.run("-once")
    assert [told["kind"] for told in webhook.taken] == ["begin", "rise", "end"]
    assert [told["id"] for told in webhook.taken] == ["anomaly_a"] * 3
    assert webhook.taken[2]["subject"].startswith("Back to normal since " + time.strftime(
        "%Y-%m-%d %H:%M UTC", time.gmtime(FIRST + DAY)))
    reports = world.reports()
    assert list(reports) == ["anomaly_a"]
    assert (reports["anomaly_a"]["state"], reports["anomaly_a"]["severity"]) == ("ended", 3)
    assert reports["anomaly_a"]["details"]["causes"][0]["id"] == "encryption"
    assert world.unprocessed() == 0


def test_what_people_can_ask(world):
    assert "-resend" in world.run("-help").stdout
    assert world.run("-status").stdout == "Nothing has been told yet.\n"
    for wrong in (["-nonsense"], ["-test", "pigeon"], ["-once", "-status"], ["-master"]):
        answer = world.run(*wrong, check=False)
        assert (answer.returncode, answer.stdout) == (2, ""), wrong
        assert "-database_location" in answer.stderr
    webhook = world.webhook()
    mail = world.mail()
    mail.mode = "refuse"
    answer = world.run("-test", check=False)
    assert answer.returncode == 1
    assert "web: taken\n" in answer.stdout and "webhook: taken\n" in answer.stdout
    assert "mail: failed: localhost: " in answer.stdout and "451" in answer.stdout
    assert webhook.taken[0]["kind"] == "test" and webhook.taken[0]["signed"]
    assert world.run("-test", "webhook").stdout == "webhook: taken\n"
    assert world.run("-test", "syslog", check=False).stdout == "syslog: failed: the channel is not configured\n"

    world.anomaly("a", "web01")
    answer = world.run("-once", check=False)
    assert answer.returncode == 1
    assert answer.stdout == ("1 anomaly taken in, 2 messages delivered, 1 channel failed, see -status, "
                             "0 anomalies done\n")
    status = world.run("-status").stdout
    assert "mail: 0 taken, 1 waiting since 20" in status
    assert "1 time: localhost: " in status
    assert "webhook: 1 taken, 0 waiting, 0 given up; last taken 20" in status


def test_only_one_at_a_time(world):
    with world.daemon():
        wait_until(lambda: "Started" in world.log(), 20, "it has started")
        wait_until(lambda: (world.directory / "CV_Anomaly_Alerts.db").exists(), 20, "it works")
        answer = world.run("-once", check=False)
        assert answer.returncode == 1 and "another cvanomalyalert is running" in answer.stderr


def test_ten_thousand_at_once(world):
    webhook = world.webhook()
    world.anomalies([(f"s{n}", details(f"c{n}", f"s{n}", 1 + n % 3), f"c{n}", FIRST) for n in range(10000)])
    with world.daemon() as process:
        world.await_done(280)
        (summary,) = webhook.taken
        peak = next(int(line.split()[1]) for line in Path(f"/proc/{process.pid}/status").read_text().splitlines()
                    if line.startswith("VmHWM"))
        print(f"10,000 anomalies: at most {peak / 1024:.1f} MiB")
        assert peak < 64 * 1024
        assert world.stop(process) < 1
    assert summary["kind"] == "summary" and summary["records"] == 10000
    assert "10,000 new incidents, 10,000 clients" in summary["subject"]
    assert summary["details"]["total"] == 10000
    assert len(world.reports()) == 10000


def test_one_that_hangs_holds_up_nobody(world):
    webhook, mail = world.webhook(), world.mail()
    world.command()
    webhook.mode = "hang"
    world.anomaly("a", "web01")
    with world.daemon() as process:
        wait_for(mail, 1)
        wait_until(lambda: world.told() and world.reports(), 20, "the others are told")
        assert webhook.waiting.wait(20)
        took = world.stop(process)
        assert took < 1, took
    assert world.unprocessed() == 1
    webhook.mode = "take"
    world.run("-once")
    assert [told["alert"] for told in webhook.taken] == [webhook.seen[0]["alert"]]
    assert (len(mail.taken), len(world.told()), world.unprocessed()) == (1, 1, 0)


@pytest.mark.parametrize("who", ["web", "mail", "command"])
def test_ends_within_a_second_while_one_hangs(world, who):
    webhook = world.webhook()
    if who == "web":
        world.machine.misbehave("corvane/wui hang 30")
        hangs = lambda: len(webhook.taken) == 1  # noqa: E731
    elif who == "mail":
        mail = world.mail()
        mail.mode = "hang"
        hangs = mail.waiting.is_set
    else:
        script = world.directory / "hang"
        script.write_text(f"#!/bin/sh\n: > {world.directory}/hangs\nsleep 1000\n")
        script.chmod(0o700)
        world.configure(COMMAND=script)
        hangs = (world.directory / "hangs").exists
    world.anomaly("a", "web01")
    with world.daemon() as process:
        wait_until(hangs, 20, f"{who} hangs")
        took = world.stop(process)
        assert took < 1, took
    assert not [pid for pid in process_ids("sleep") if b"1000" in Path(f"/proc/{pid}/cmdline").read_bytes()]
    world.machine.misbehave()
    world.configure(COMMAND="/bin/true" if who == "command" else "")
    if who == "mail":
        mail.mode = "take"
    world.run("-once")
    assert (world.unprocessed(), len(webhook.taken)) == (0, 1)


def test_back_after_an_hour(make_world):
    world = make_world(speed=200, begin=FIRST + DAY)
    webhook, mail = world.webhook(), world.mail()
    webhook.mode = "refuse"
    mail.mode = "break"
    world.machine.misbehave("corvane/wui status 500")
    for n in range(5):
        world.anomaly(f"a{n}", f"c{n}")
    begin = world.machine.clock.now()
    with world.daemon():
        wait_until(lambda: world.machine.clock.now() > begin + 3600, 60, "an hour passes")
        assert (webhook.taken, mail.taken, world.reports()) == ([], [], {})
        tries = len(webhook.seen)
        assert 5 <= tries <= 40, tries  # the pauses grow
        assert len([text for text in world.log(8) if text.startswith("Channel webhook fails")]) == 1
        webhook.mode = mail.mode = "take"
        world.machine.misbehave()
        world.await_done(60)
    assert sorted(told["clientName"] for told in webhook.taken) == [
        f"c{n}" for n in range(5)]
    assert len(mail.taken) == 5 and len(world.reports()) == 5
    assert {told["alert"] for told in mail.taken} <= {told["alert"] for told in mail.seen}
    assert "Channel webhook works again" in world.log(4)


def test_given_up_after_a_day_and_sent_again(make_world):
    world = make_world(stepped=True, begin=FIRST + DAY)
    webhook = world.webhook()
    webhook.mode = "refuse"
    world.anomaly("a", "web01")
    world.anomaly("b", "web02")
    world.run("-once", check=False)
    world.machine.clock.advance(DAY + 60)
    assert not (world.directory / "CV_Anomaly_Alerts.dead").exists()
    world.run("-once", check=False)
    dead = world.directory / "CV_Anomaly_Alerts.dead"
    letters = [json.loads(line) for line in dead.read_text().splitlines()]
    assert [letter["message"]["clientName"] for letter in letters] == ["web01", "web02"]
    assert letters[0]["reason"].endswith("HTTP status 503") and letters[0]["channel"] == "webhook"
    assert dead.stat().st_mode & 0o777 == 0o600
    assert "webhook: 0 taken, 0 waiting, 2 given up" in world.run("-status").stdout
    assert [text for text in world.log(16)] == [f"Given up after a day: 2 messages for channel webhook, see {dead}"]
    assert world.unprocessed() == 2

    webhook.mode = "take"
    assert world.run("-once").stdout == "0 anomalies taken in, 0 messages delivered, 0 anomalies done\n"
    assert world.run("-resend").stdout == "2 messages wait again, 2 messages delivered\n"
    assert (len(webhook.taken), world.unprocessed(), dead.read_text()) == (2, 0, "")
    assert world.run("-resend").stdout == "0 messages wait again, 0 messages delivered\n"


def test_a_running_daemon_sends_again(make_world):
    world = make_world(stepped=True, begin=FIRST + DAY)
    webhook = world.webhook()
    webhook.mode = "refuse"
    world.anomaly("a", "web01")
    world.run("-once", check=False)
    world.machine.clock.advance(DAY + 60)
    world.run("-once", check=False)
    webhook.mode = "take"
    with world.daemon():
        wait_until(lambda: "Started" in world.log(), 20, "it has started")
        wait_until(lambda: "is running" in world.run("-once", check=False).stderr, 20, "it works")
        assert world.run("-resend").stdout == "1 message waits again, the running cvanomalyalert sends them\n"
        wait_for(webhook, 1)
        world.await_done()


def test_quiet_hours(make_world):
    world = make_world(stepped=True, begin=FIRST + 23 * 3600)
    webhook = world.webhook()
    world.configure(QUIET_HOURS="22:00-07:00")
    world.anomaly("a", "web01", severity=1)
    world.anomaly("b", "web02", severity=2)
    world.run("-once")
    assert [told["clientName"] for told in webhook.taken] == ["web02"]
    assert len(world.reports()) == 2
    world.machine.clock.advance(7 * 3600)
    world.run("-once")
    assert len(webhook.taken) == 1
    world.machine.clock.advance(3600)
    world.run("-once")
    assert [told["clientName"] for told in webhook.taken] == ["web02", "web01"]
    assert world.unprocessed() == 0


def test_least_severity_of_a_channel(world):
    webhook, mail = world.webhook(), world.mail()
    world.configure(MAIL_MIN_SEVERITY=3)
    world.anomaly("a", "web01", severity=2)
    world.run("-once")
    assert (len(webhook.taken), len(mail.taken), world.unprocessed()) == (1, 0, 0)
    world.anomaly("b", "web01", severity=3, incident="a", at=FIRST + 60)
    world.run("-once")
    assert [told["kind"] for told in webhook.taken] == ["begin", "rise"]
    assert [told["kind"] for told in mail.taken] == ["begin"]


def test_secrets_stay_secret(world):
    webhook = world.webhook()
    mail = world.mail(login="user:" + SECRET)
    for mode in (0o640, 0o604, 0o660):
        world.configure(WEBHOOK_SECRET_FILE=world.secret("webhook", SECRET, mode),
                        SMTP_CREDENTIALS_FILE=world.secret("smtp", "user:" + SECRET, mode))
        answer = world.run("-test", check=False)
        assert "webhook: failed: secret file" in answer.stdout and "mail: failed: secret file" in answer.stdout
        assert "others than its owner have access to it" in answer.stdout
        assert SECRET not in answer.stdout + answer.stderr
    assert (webhook.seen, mail.seen) == ([], [])
    world.anomaly("a", "web01")
    world.run("-once", check=False)
    for name in ("webhook", "smtp"):
        (world.directory / f"{name}.secret").chmod(0o600)
    mail.mode = webhook.mode = "refuse"
    world.run("-once", check=False)
    mail.mode = webhook.mode = "take"
    world.run("-once")
    assert (len(webhook.taken), len(mail.taken)) == (1, 1)
    world.secret("smtp", "user:wrong " + SECRET)
    assert "mail: failed" in world.run("-test", "mail", check=False).stdout
    everything = b"".join(path.read_bytes() for path in (
        host.LOGS / ALERT, *world.directory.glob("CV_Anomaly_Alerts*")))
    assert b"Channel webhook fails" in everything
    assert SECRET.encode() not in everything
    assert b"token=hidden" not in everything  # of the address


def test_mail_is_encrypted(world, tmp_path):
    own = server_context(*make_certificate(tmp_path))
    credentials = world.secret("smtp", "user:" + SECRET)
    for implicit in (False, True):
        mail = world.mail(context=own, implicit=implicit, login="user:" + SECRET)
        world.configure(CA_FILE=tmp_path / "localhost.pem", SMTP_CREDENTIALS_FILE=credentials)
        assert world.run("-test", "mail").stdout == "mail: taken\n"
        assert mail.taken[0]["encrypted"]
    # A server that nobody vouches for, and one of another name.
    world.configure(CA_FILE="")
    assert "mail: failed: localhost: " in world.run("-test", "mail", check=False).stdout
    mail = world.mail(context=server_context(*make_certificate(tmp_path, "elsewhere")), implicit=True)
    world.configure(CA_FILE=tmp_path / "elsewhere.pem")
    assert "mail: failed: localhost: " in world.run("-test", "mail", check=False).stdout
    assert mail.seen == []


def test_nothing_leaves_the_machine_in_the_clear(world):
    """A server at an address that is not a loopback one, though it is this machine's."""
    added = subprocess.run(["ip", "address", "add", "192.0.2.77/32", "dev", "lo"], capture_output=True, text=True)
    if added.returncode != 0 and "exists" not in added.stderr:
        pytest.skip("no address can be added here: " + added.stderr)
    mail = world.mail(address="192.0.2.77")
    world.configure(SMTP_URL=f"smtp://192.0.2.77:{mail.port}", WEBHOOK_URL=f"http://192.0.2.77:{mail.port}/")
    answer = world.run("-test", check=False).stdout
    assert "mail: failed: 192.0.2.77: " in answer
    assert "webhook: failed: WEBHOOK_URL must be https, except on this machine" in answer
    assert mail.seen == []


def test_a_webhook_with_a_certificate(world, tmp_path):
    webhook = world.webhook(context=server_context(*make_certificate(tmp_path)))
    assert "webhook: failed: localhost: " in world.run("-test", "webhook", check=False).stdout
    world.configure(CA_FILE=tmp_path / "localhost.pem")
    assert world.run("-test", "webhook").stdout == "webhook: taken\n"
    assert webhook.taken[0]["signed"]


def test_broken_off_in_the_middle(world):
    webhook, mail = world.webhook(), world.mail()
    webhook.mode = mail.mode = "break"
    world.machine.misbehave("corvane/wui cut count 1")
    world.anomaly("a", "web01")
    with world.daemon():
        wait_until(lambda: webhook.seen and mail.seen, 20, "both have got it")
        webhook.mode = mail.mode = "take"
        world.await_done()
    for receiver in (webhook, mail):
        assert len(receiver.taken) == 1
        assert len({told["alert"] for told in receiver.seen}) == 1  # a repetition can be told
    assert list(world.reports()) == ["anomaly_a"]


def test_killed_at_random_moments(world):
    """Nothing is lost; a kill repeats at most the one message for each channel that was on its way."""
    rng = random.Random(7)
    webhook, mail = world.webhook(), world.mail()
    world.configure(ALERT_STORM_LIMIT=1000)
    world.command()
    kills, names = 0, []
    while kills < 200:
        for _ in range(3):
            names.append(f"k{len(names):04}")
            world.anomaly(names[-1], names[-1], severity=1 + len(names) % 3)
        process = world.start()
        time.sleep(rng.uniform(0.01, 0.25))
        process.kill()
        assert process.wait() == -signal.SIGKILL
        kills += 1
    world.run("-once")
    assert world.unprocessed() == 0
    with contextlib.closing(sqlite3.connect(world.directory / "CV_Anomaly_Alerts.db")) as state:
        assert state.execute("PRAGMA integrity_check").fetchone() == ("ok",)
    expected = {"anomaly_" + name for name in names}
    assert set(world.reports()) == expected
    for what, told in (("webhook", webhook.seen), ("mail", mail.seen), ("command", world.told())):
        assert {one["id"] for one in told} == expected, what
        assert len({one["alert"] for one in told}) == len(expected), what
        repeats = len(told) - len(expected)
        print(f"{what}: {kills} kills, {len(names)} messages, {repeats} came twice")
        assert repeats <= kills, what


def test_hostile_names_and_details(world):
    webhook, mail, journal = world.webhook(), world.mail(), world.journal()
    world.command()
    name = "x\r\nBcc: all@example.com\r\n\r\n<script>\0\x1b[2J‮"
    world.anomaly("a", name)
    world.anomaly("b'; DROP TABLE ANOMALY_DATA; --", "$(id)", text="no json \x01")
    world.anomaly("c", "c", text="[" * 100000)
    world.anomaly("d", "d", text=json.dumps({"severity": 10**30, "features": [{"name": "files", "value": 1e308}]}))
    world.anomaly("e", "e", text='{"a":"\\u0000","stream":{"client":"\\ud800"}}')
    world.anomaly("f", "f" * 100000)
    assert "6 anomalies taken in" in world.run("-once").stdout
    assert world.unprocessed() == 0
    assert [len(x) for x in (webhook.taken, mail.taken, journal.entries, world.told())] == [6] * 4
    for told in mail.taken:
        assert told["mail"]["Bcc"] is None
        assert told["recipients"] == ["ops@example.com", "boss@example.com"]
        assert len(told["mail"].items()) == 8
    shown = webhook.taken[0]["subject"] + webhook.taken[0]["text"].replace("\n", "")
    assert "Bcc: all@example.com" in shown
    assert not any(bad in shown for bad in ("<", "\r", "\n", "\x1b", "‮", "\0"))
    assert max(len(told["subject"]) for told in webhook.taken) < 1000
    assert len(world.reports()) == 6
    assert world.log(16) == []


def test_configuration_is_read_again(world):
    webhook = world.webhook()
    with world.daemon() as process:
        world.anomaly("a", "web01")
        wait_for(webhook, 1)
        mail = world.mail()
        wait_until(lambda: "Configuration read again" in world.log(), 20, "it is read")
        world.anomaly("b", "web02")
        wait_for(mail, 1)
        path = world.directory / "anomaly_config.conf"
        path.write_text(path.read_text() + "[broken\n")
        wait_until(lambda: any("Half a configuration file" in text for text in world.log(8)), 20, "it complains")
        world.anomaly("c", "web03")
        wait_for(mail, 2)
        world.settings = {}
        world.webhook()  # another one, and no mail
        wait_until(lambda: world.log().count("Configuration read again") == 2, 20, "it is read")
        world.anomaly("d", "web04")
        world.await_done()
        assert len(mail.taken) == 2 and len(webhook.taken) == 3
        assert world.stop(process) < 1


def test_what_happens_to_its_files(world):
    """The state database is removed while it runs: what is not processed is told again, what is is not."""
    webhook = world.webhook()
    with world.daemon() as process:
        world.anomaly("a", "web01")
        world.await_done()
        webhook.mode = "refuse"
        world.anomaly("b", "web02")
        wait_until(lambda: len(webhook.seen) > 1, 20, "the second is tried")
        for path in world.directory.glob("CV_Anomaly_Alerts.db*"):
            path.unlink()
        webhook.mode = "take"
        world.await_done()
        assert [told["clientName"] for told in webhook.taken if told["clientName"] == "web01"] == ["web01"]
        assert "web02" in [told["clientName"] for told in webhook.taken]
        world.anomaly("c", "web03")
        world.await_done()
        assert world.stop(process) < 1


def test_costs_nothing_while_nothing_happens(world):
    world.webhook()

    def ticks(pid):
        return sum(map(int, Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[11:13]))

    with world.daemon() as process:
        world.anomaly("a", "web01")
        world.await_done()
        time.sleep(1)
        before = ticks(process.pid)
        time.sleep(10)  # what is measured is the standstill
        used = (ticks(process.pid) - before) / os.sysconf("SC_CLK_TCK")
        print(f"10 s of standstill: {used:.2f} s of processor time")
        assert used <= 0.1


def test_without_the_databases_it_waits(world):
    path = world.directory / "CV_Anomaly.db"
    away = world.directory / "away"
    world.db.close()
    path.rename(away)
    with world.daemon() as process:
        wait_until(lambda: any("Cannot use the databases" in text for text in world.log(16)), 20, "it complains")
        away.rename(path)
        wait_until(lambda: "The databases can be used again" in world.log(4), 20, "it goes on")
        assert world.stop(process) < 1
    assert len(world.log(16)) == 1


def nightly(number, start, is_encrypted=False):
    wave = number * 7 % 11 - 5
    transferred = 990000 if is_encrypted else 20000 + 300 * wave
    return backup(number, start, kbytes=1000000 + 100 * wave, numFiles=1000 + wave, applicationType="FILE_SYSTEM",
                  kilobytesTransferred=transferred, dedupRatio=round(1000000 / transferred, 4))


def test_the_whole_circle(make_machine):
    """A backup is encrypted, gathered, detected, told, seen at the web service, said to be a false positive
    there; the service fetches that, and the like of it is silent from then on."""
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    told = host.TREE / "var/global/told"
    configure(machine, detection=0, alert=0, ALERT_SETTINGS__COMMAND=f"/usr/bin/tee -a {told}")
    load(machine, [nightly(901, BEGIN + 60, is_encrypted=True)])
    machine.start_web_service()
    start_with_history(machine)
    with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=20)) as db, db:
        db.executemany(anomaly_db.INSERT.format("HIST_DATA"),
                       [live_row(nightly(800 + day, BEGIN - (41 - day) * DAY), status=-1) for day in range(40)])

    def judged():
        return dict(machine.query("SELECT JOB_ID, PROCESSED_STATUS FROM DATA_TO_PROCESS"))

    next_gather(machine)
    wait_until(lambda: judged() == {901: 2}, 60, "the detection finds it")
    wait_until(lambda: machine.query("SELECT 1 FROM ANOMALY_DATA WHERE PROCESSED = 1"), 60, "everybody is told")
    (document,) = [json.loads(line) for line in told.read_text().splitlines()]
    assert document["subject"].startswith("[act now] The daily backup of client web01 (policy nightly): ")
    assert document["subject"].endswith("; looks like encryption")
    with contextlib.closing(sqlite3.connect(host.CATALOG, timeout=10)) as catalog:
        ((name, attributes),) = catalog.execute("SELECT id, attributes FROM reports").fetchall()
    assert (name, json.loads(attributes)["text"]) == (document["id"], document["text"])

    machine.run("cvhostd", "feedback", host.CATALOG, name, "FALSE_POSITIVE")
    next_gather(machine)
    wait_until(lambda: machine.query("SELECT 1 FROM ANOMALY_DATA_FEEDBACK WHERE FEEDBACK = 1"), 60, "it is fetched")
    wait_until(lambda: (4, ALERT, f"People say that [{name}] is a false positive") in
               machine.log_records(program=ALERT), 60, "the incident is closed")
    wait_until(lambda: machine.query("SELECT 1 FROM HIST_DATA WHERE JOB_ID = 901"), 60, "the detection learns")
    load(machine, [nightly(902, int(machine.clock.now()) + 5, is_encrypted=True)])
    next_gather(machine)
    wait_until(lambda: judged() == {901: 2, 902: 1}, 60, "the next one is judged")
    machine.stop_service()
    assert len(told.read_text().splitlines()) == 1
    assert machine.log_records(16, program=ALERT) == []
