"""The alerts while receivers, files and the machine fail them: nothing is lost, no secret gets out."""

import contextlib
import json
import random
import signal
import sqlite3
import subprocess
import time
from pathlib import Path

import machine as host
import pytest
from alert_world import ALERT, DAY, FIRST, SECRET, make_world, world  # noqa: F401
from machine import process_ids, wait_until
from receivers import make_certificate, server_context, wait_for


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
        assert took < 1 * host.patience, took
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
        assert took < 1 * host.patience, took
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
        assert len([text for text in world.log(8) if text.startswith("Channel webhook failed")]) == 1
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
    assert "webhook: 0 delivered, 0 pending, 2 dead letters" in world.run("-status").stdout
    assert [text for text in world.log(16)] == [f"Channel webhook: 2 messages not delivered for a day, now in {dead}"]
    assert world.unprocessed() == 2

    webhook.mode = "take"
    assert world.run("-once").stdout == "0 new anomalies, 0 messages delivered, 0 anomalies processed\n"
    assert world.run("-resend").stdout == "2 dead letters are pending again, 2 messages delivered\n"
    assert (len(webhook.taken), world.unprocessed(), dead.read_text()) == (2, 0, "")
    assert world.run("-resend").stdout == "0 dead letters are pending again, 0 messages delivered\n"


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
        assert world.run("-resend").stdout == ("1 dead letter is pending again; the running cvanomalyalert will send "
                                               "all pending messages\n")
        wait_for(webhook, 1)
        world.await_done()


def test_secrets_stay_secret(world):
    webhook = world.webhook()
    mail = world.mail(login="user:" + SECRET)
    for mode in (0o640, 0o604, 0o660):
        world.configure(WEBHOOK_SECRET_FILE=world.secret("webhook", SECRET, mode),
                        SMTP_CREDENTIALS_FILE=world.secret("smtp", "user:" + SECRET, mode))
        answer = world.run("-test", check=False)
        assert "webhook: failed: secret file" in answer.stdout and "mail: failed: secret file" in answer.stdout
        assert "other users have access to it" in answer.stdout
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
    assert b"Channel webhook failed" in everything
    assert SECRET.encode() not in everything
    assert b"token=hidden" not in everything  # of the address


def test_mail_is_encrypted(world, tmp_path):
    own = server_context(*make_certificate(tmp_path))
    credentials = world.secret("smtp", "user:" + SECRET)
    for implicit in (False, True):
        mail = world.mail(context=own, implicit=implicit, login="user:" + SECRET)
        world.configure(CA_FILE=tmp_path / "localhost.pem", SMTP_CREDENTIALS_FILE=credentials)
        assert world.run("-test", "mail").stdout == "mail: delivered\n"
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
    assert "webhook: failed: WEBHOOK_URL must begin with https:// unless the server is on this machine" in answer
    assert mail.seen == []


def test_a_webhook_with_a_certificate(world, tmp_path):
    webhook = world.webhook(context=server_context(*make_certificate(tmp_path)))
    assert "webhook: failed: localhost: " in world.run("-test", "webhook", check=False).stdout
    world.configure(CA_FILE=tmp_path / "localhost.pem")
    assert world.run("-test", "webhook").stdout == "webhook: delivered\n"
    assert webhook.taken[0]["signed"]
    webhook = world.webhook(context=server_context(*make_certificate(tmp_path, "elsewhere")))
    world.configure(CA_FILE=tmp_path / "elsewhere.pem")
    assert "webhook: failed: localhost: " in world.run("-test", "webhook", check=False).stdout
    assert webhook.seen == []


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
        assert world.stop(process) < 1 * host.patience


def test_without_the_databases_it_waits(world):
    path = world.directory / "CV_Anomaly.db"
    away = world.directory / "away"
    world.db.close()
    path.rename(away)
    with world.daemon() as process:
        wait_until(lambda: any("Cannot use the databases" in text for text in world.log(16)), 20, "it complains")
        away.rename(path)
        wait_until(lambda: "The databases can be used again" in world.log(4), 20, "it goes on")
        assert world.stop(process) < 1 * host.patience
    assert len(world.log(16)) == 1
