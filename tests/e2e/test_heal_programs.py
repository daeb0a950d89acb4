"""Companions that die, hang or cannot begin, and a configuration that ends them."""

import fcntl
import os
import signal

import machine as host
from conftest import BEGIN
from gathering import backup, load
from healing import AFTER_STARTS, DAY, HOUR, MINUTE, Attacks, critical, gathered, heal, keys, stored
from machine import process_ids, wait_until
from service_runs import configure, history_gathered_before, start_with_history


def test_a_companion_that_is_killed(make_machine):
    machine = make_machine(stepped=True)
    configure(machine, detection=0, alert=0)
    history_gathered_before(BEGIN)
    load(machine, [])
    machine.start_web_service()
    start_with_history(machine)
    for companion in host.COMPANIONS:
        (process,) = wait_until(lambda name=companion: process_ids(name), 30, "a companion")
        os.kill(process, signal.SIGKILL)
        wait_until(lambda name=companion: not process_ids(name), 10, "it is gone")
        assert "program_absent" in critical(machine)
        heal(machine)
        assert process_ids(companion) == []
        heal(machine)
        assert len(process_ids(companion)) == 1
    assert "program_absent" not in critical(machine)
    machine.stop_service()
    heal(machine)
    heal(machine)
    assert process_ids(host.COMPANIONS[0]) == []


def suspended(machine):
    for companion in host.COMPANIONS:
        (process,) = wait_until(lambda name=companion: process_ids(name), 30, "a companion")
        os.kill(process, signal.SIGSTOP)


def test_companions_that_hang(make_machine):
    machine = make_machine(stepped=True, begin=AFTER_STARTS)
    configure(machine, detection=0, alert=0)
    history_gathered_before(AFTER_STARTS)
    load(machine, [backup(1, AFTER_STARTS + 60)])
    machine.start_web_service()
    start_with_history(machine)
    heal(machine)
    wait_until(lambda: "program_hung" not in critical(machine), 30, "both have made a pass")
    suspended(machine)
    assert "program_hung" in critical(machine)
    gathered(machine, 2)
    machine.clock.advance(25 * HOUR)
    gathered(machine)
    assert {"program_hung", "rows_unjudged"} <= critical(machine)
    for companion in host.COMPANIONS:
        os.kill(process_ids(companion)[0], signal.SIGCONT)
    wait_until(lambda: machine.query("SELECT * FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS = 0") == [], 30, "all are judged")
    gathered(machine)
    wait_until(lambda: not {"program_hung", "rows_unjudged"} & critical(machine), 30, "nothing is wrong any more")
    machine.stop_service()


def test_an_alert_lock_that_another_program_holds(make_machine):
    machine = make_machine(stepped=True, begin=AFTER_STARTS)
    configure(machine, detection=0, alert=0)
    history_gathered_before(AFTER_STARTS)
    load(machine, [])
    machine.start_web_service()
    with (host.DATABASE_DIR / "CV_Anomaly_Alerts.lock").open("w") as held:
        fcntl.flock(held, fcntl.LOCK_EX)
        start_with_history(machine)
        gathered(machine, 2)
        assert critical(machine) & {"program_hung", "program_absent"}
    gathered(machine, 2)
    wait_until(lambda: not {"program_hung", "program_absent"} & critical(machine), 30, "the alerts have taken the lock")
    machine.stop_service()


def test_a_configuration_that_is_malformed(make_machine):
    """The service stores the backups of that time in the history: they are not judged, and learnt. What was reported
    before is not, and what comes afterwards is judged again."""
    machine = make_machine(stepped=True)
    configure(machine, detection=0, alert=0)
    history_gathered_before(BEGIN)
    attacks = Attacks(machine, BEGIN, nights=3)
    load(machine, attacks.nights[0])
    machine.start_web_service()
    start_with_history(machine)
    attacks.learn_the_usual()
    gathered(machine)
    wait_until(lambda: attacks.found(0) == 20, 30, "the first night is reported")

    whole = host.CONFIG.read_text()
    host.CONFIG.write_text(whole + "a line without an equals sign\n")
    assert "configuration" in critical(machine)
    for companion in host.COMPANIONS:
        wait_until(lambda name=companion: not process_ids(name), 30, "it has ended")
    load(machine, attacks.nights[1])
    machine.clock.advance(DAY - 30 * MINUTE)
    gathered(machine, 2)
    assert "configuration" in critical(machine)
    assert (attacks.found(1), attacks.learnt(1)) == (0, 20)

    host.CONFIG.write_text(whole)
    assert "configuration" not in critical(machine)
    for companion in host.COMPANIONS:
        wait_until(lambda name=companion: process_ids(name), 30, "it runs again")
    load(machine, attacks.nights[2])
    machine.clock.advance(DAY - 30 * MINUTE)
    gathered(machine, 2)
    wait_until(lambda: attacks.found(2) == 20, 60, "the third night is reported")
    machine.stop_service()
    assert [attacks.found(night) for night in range(3)] == [20, 0, 20]
    assert [attacks.learnt(night) for night in range(3)] == [0, 20, 0]
    assert {*stored(machine)} >= {key for night in attacks.nights for key in keys(night)}
