"""The alerts: everybody is told once, in a sentence that says what happened and what to do."""

import contextlib
import json
import os
import sqlite3
import time
from pathlib import Path

import machine as host
from alert_world import ALERT, DAY, FIRST, anomaly_db, details, make_world, world  # noqa: F401
from conftest import BEGIN, SANITIZED
from gathering import backup, load
from machine import wait_until
from receivers import wait_for
from service_runs import configure, history_gathered_before, live_row, next_gather, start_with_history


def test_everybody_is_told_the_same_once(world):
    webhook, mail, journal = world.webhook(), world.mail(), world.journal()
    world.command()
    with world.daemon() as process:
        world.anomaly("a", "web01")
        world.await_done()
        (by_web,) = wait_for(webhook, 1)
        (by_mail,) = wait_for(mail, 1)
        assert world.stop(process) < 1 * host.patience
    (by_command,), (by_journal,) = world.told(), journal.entries
    report = world.reports()["anomaly_a"]
    subject = ("[critical] The daily backup of client web01 (policy nightly): 967 MB transferred, "
               "49.5 times the usual 20 MB; looks like encryption")
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
    for part in ("web01", "nightly", "49.5 times the usual 20 MB (19 to 21 MB)", "encrypted", "since",
                 "last good backup is web01_0", "FALSE_POSITIVE"):
        assert part in by_web["text"]
    assert world.log(16) == []


def test_one_alert_for_an_incident(world):
    webhook = world.webhook()
    world.anomaly("a", "web01", severity=1)
    assert world.run("-once").stdout == "1 new anomaly, 2 messages delivered, 1 anomaly processed\n"
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
    assert world.run("-status").stdout == "No alert has been sent yet.\n"
    for wrong in (["-nonsense"], ["-test", "pigeon"], ["-once", "-status"], ["-master"]):
        answer = world.run(*wrong, check=False)
        assert (answer.returncode, answer.stdout) == (2, ""), wrong
        assert "-database_location" in answer.stderr
    webhook = world.webhook()
    mail = world.mail()
    mail.mode = "refuse"
    answer = world.run("-test", check=False)
    assert answer.returncode == 1
    assert "web: delivered\n" in answer.stdout and "webhook: delivered\n" in answer.stdout
    assert "mail: failed: localhost: " in answer.stdout and "451" in answer.stdout
    assert webhook.taken[0]["kind"] == "test" and webhook.taken[0]["signed"]
    assert world.run("-test", "webhook").stdout == "webhook: delivered\n"
    assert world.run("-test", "syslog", check=False).stdout == (
        "syslog: failed: the channel is not configured: see ALERT_SETTINGS in anomaly_config.conf\n")

    world.anomaly("a", "web01")
    answer = world.run("-once", check=False)
    assert answer.returncode == 1
    assert answer.stdout == ("1 new anomaly, 2 messages delivered, 1 channel failed, see -status, "
                             "0 anomalies processed\n")
    status = world.run("-status").stdout
    assert "mail: 0 delivered, 1 pending since 20" in status
    assert "1 failed attempt: localhost: " in status
    assert "webhook: 1 delivered, 0 pending, 0 dead letters; last delivery 20" in status


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
        assert peak < 64 * 1024 or SANITIZED
        assert world.stop(process) < 1 * host.patience
    assert summary["kind"] == "summary" and summary["records"] == 10000
    assert "10,000 new incidents, on 10,000 clients" in summary["subject"]
    assert summary["details"]["total"] == 10000
    assert len(world.reports()) == 10000


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
    assert "6 new anomalies" in world.run("-once").stdout
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
        wait_until(lambda: "Configuration reloaded" in world.log(), 20, "it is read")
        world.anomaly("b", "web02")
        wait_for(mail, 1)
        path = world.directory / "anomaly_config.conf"
        path.write_text(path.read_text() + "[broken\n")
        wait_until(lambda: any("malformed or unreadable" in text for text in world.log(8)), 20, "it complains")
        world.anomaly("c", "web03")
        wait_for(mail, 2)
        world.settings = {}
        world.webhook()  # another one, and no mail
        wait_until(lambda: world.log().count("Configuration reloaded") == 2, 20, "it is read")
        world.anomaly("d", "web04")
        world.await_done()
        assert len(mail.taken) == 2 and len(webhook.taken) == 3
        assert world.stop(process) < 1 * host.patience


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


def nightly(number, start, is_encrypted=False):
    wave = number * 7 % 11 - 5
    transferred = 990000 if is_encrypted else 20000 + 300 * wave
    return backup(number, start, kbytes=1000000 + 100 * wave, numFiles=1000 + wave, applicationType="FILE_SYSTEM",
                  kilobytesTransferred=transferred, dedupRatio=round(1000000 / transferred, 4))


def test_the_whole_circle(make_machine):
    """A backup is encrypted, gathered and detected, and an alert is sent. Someone marks it as a false positive in
    the web service. The service fetches that feedback, and similar backups raise no more alerts."""
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    told = host.TREE / "var/global/told"
    configure(machine, detection=0, alert=0, ALERT_SETTINGS__COMMAND=f"/usr/bin/tee -a {told}")
    load(machine, [nightly(901, BEGIN + 60, is_encrypted=True)])
    machine.start_web_service()
    start_with_history(machine)
    with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=20)) as db, db:
        db.executemany(anomaly_db.insert_into("HIST_DATA"),
                       [live_row(nightly(800 + day, BEGIN - (41 - day) * DAY), status=-1) for day in range(40)])

    def judged():
        return dict(machine.query("SELECT JOB_ID, PROCESSED_STATUS FROM DATA_TO_PROCESS"))

    next_gather(machine)
    wait_until(lambda: judged() == {901: 2}, 60, "the detection finds it")
    wait_until(lambda: machine.query("SELECT 1 FROM ANOMALY_DATA WHERE PROCESSED = 1"), 60, "everybody is told")
    (document,) = [json.loads(line) for line in told.read_text().splitlines()]
    assert document["subject"].startswith("[critical] The daily backup of client web01 (policy nightly): ")
    assert document["subject"].endswith("; looks like encryption")
    with contextlib.closing(sqlite3.connect(host.CATALOG, timeout=10)) as catalog:
        ((name, attributes),) = catalog.execute("SELECT id, attributes FROM reports").fetchall()
    assert (name, json.loads(attributes)["text"]) == (document["id"], document["text"])

    machine.run("cvhostd", "feedback", host.CATALOG, name, "FALSE_POSITIVE")
    next_gather(machine)
    wait_until(lambda: machine.query("SELECT 1 FROM ANOMALY_DATA_FEEDBACK WHERE FEEDBACK = 1"), 60, "it is fetched")
    wait_until(lambda: (4, ALERT, f"Anomaly [{name}] was marked as a false positive") in
               machine.log_records(program=ALERT), 60, "the incident is closed")
    wait_until(lambda: machine.query("SELECT 1 FROM HIST_DATA WHERE JOB_ID = 901"), 60, "the detection learns")
    load(machine, [nightly(902, int(machine.clock.now()) + 5, is_encrypted=True)])
    next_gather(machine)
    wait_until(lambda: judged() == {901: 2, 902: 1}, 60, "the next one is judged")
    machine.stop_service()
    assert len(told.read_text().splitlines()) == 1
    assert machine.log_records(16, program=ALERT) == []
