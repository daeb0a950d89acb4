"""The companion daemons, by small stand-ins under their real names: started, stopped, and in trouble."""

import os
import signal
import time

import pytest

import stand_ins
from conftest import BEGIN
from machine import SERVICE, process_ids, wait_until
from service_runs import (
    await_end, configure, history_gathered_before, next_gather, settle, start_with_history)
from stand_ins import ALERT, DETECT

TAG = "handleChildProc"
STOPPED = (16, SERVICE, "process is stopped")  # a success, logged at the level of errors


@pytest.fixture
def machine(make_machine):
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    stand_ins.install()
    yield machine
    machine.service("-terminate")
    stand_ins.remove()


def started(name):
    return [event for event in stand_ins.events("started") if event["who"] == name]


def await_started(name, times=1):
    wait_until(lambda: len(started(name)) == times, 30, f"{name} started")
    return started(name)[-1]["pid"]


def supervision(machine):
    """The records of starting and stopping, and what a companion's end was."""
    return [r for r in machine.log_records() if r[1] == TAG or r == STOPPED or "getting " in r[2]]


def stopping(name):
    return [(4, TAG, f"UNIX: Stopping process:[{name}]"), (2, SERVICE, f"{name} service is getting terminated"),
            STOPPED]


def starting(name):
    return [(4, TAG, f"Process Name:[{name}], Command:[START]"), (4, TAG, f"UNIX: Starting process:[{name}]"),
            (2, SERVICE, f"{name} service is getting started")]


def test_started_with_their_command_lines_and_stopped_in_reverse(machine):
    configure(machine, detection=0, alert=0)
    daemon = start_with_history(machine)
    settle(machine)
    detect, alert = stand_ins.events("started")
    for event, name in ((detect, DETECT), (alert, ALERT)):
        assert event["who"] == name
        assert event["argv"] == stand_ins.COMMAND_LINES[name]
        assert event["session"] == event["pid"]
        assert process_ids(name) == [event["pid"]]
        command = " ".join(stand_ins.COMMAND_LINES[name])
        assert (2, "startProcessByName", f"CMD: [{command}]\n") in machine.log_records()

    os.kill(daemon, signal.SIGTERM)
    await_end()
    assert [event["who"] for event in stand_ins.events("asked to end")] == [ALERT, DETECT]
    assert process_ids(DETECT) == process_ids(ALERT) == []
    assert supervision(machine) == starting(DETECT) + starting(ALERT) + stopping(ALERT) + stopping(DETECT)
    assert machine.logged("Immediate child is completed with 0") == 2


def test_stop_asks_the_companions_first(machine):
    configure(machine, detection=0, alert=0)
    start_with_history(machine)
    settle(machine)
    answer = machine.service("-stop")
    assert (answer.returncode, answer.stdout) == (0, "\nSuccessfully stopped the service\n")
    assert process_ids(DETECT) == process_ids(ALERT) == []  # -stop waits for them, not for the service
    assert [event["who"] for event in stand_ins.events("asked to end")] == [ALERT, DETECT]
    await_end()


def test_terminate_ends_all_three(machine):
    configure(machine, detection=0, alert=0)
    start_with_history(machine)
    settle(machine)
    assert len(stand_ins.events("started")) == 2
    assert machine.service("-terminate").returncode == 0
    assert [process_ids(name) for name in (SERVICE, DETECT, ALERT)] == [[], [], []]


def test_one_that_is_killed_is_started_again_by_the_next_change_of_flags(machine):
    configure(machine, detection=0, alert=1)
    start_with_history(machine)
    settle(machine)
    os.kill(await_started(DETECT), signal.SIGKILL)
    wait_until(lambda: not process_ids(DETECT), 10, "it is gone")
    next_gather(machine)  # the service goes on, and does not look after it
    assert len(started(DETECT)) == 1

    configure(machine, detection=0, alert=0)
    detect = await_started(DETECT, times=2)
    alert = await_started(ALERT)
    settle(machine)
    assert process_ids(DETECT) == [detect]

    os.kill(alert, signal.SIGKILL)
    wait_until(lambda: not process_ids(ALERT), 10, "it is gone")
    configure(machine, detection=0, alert=1)
    machine.await_log(2, TAG, f"Process [{ALERT}] is not running", count=2)
    machine.await_log(2, TAG, f"Process [{DETECT}] already running", count=1)
    assert process_ids(DETECT) == [detect]


def test_one_that_outlives_a_killed_service_is_taken_over(machine):
    configure(machine, detection=0, alert=1)
    daemon = start_with_history(machine)
    detect = await_started(DETECT)
    os.kill(daemon, signal.SIGKILL)
    await_end()
    assert process_ids(DETECT) == [detect]
    start_with_history(machine)
    machine.await_log(2, TAG, f"Process [{DETECT}] already running")
    assert len(started(DETECT)) == 1
    machine.stop_service()
    assert process_ids(DETECT) == []


def test_one_that_ignores_sigterm_is_killed(machine):
    stand_ins.install(DETECT, stubborn=True)
    configure(machine, detection=0, alert=1)
    start_with_history(machine)
    settle(machine)
    assert len(started(DETECT)) == 1
    begin = time.monotonic()
    configure(machine, detection=1, alert=1)
    machine.await_log(4, TAG, f"UNIX: Stopping process:[{DETECT}]")
    wait_until(lambda: not process_ids(DETECT), 30, "it is killed")
    assert time.monotonic() - begin > 2  # it was given that time to end by itself
    machine.await_log(*STOPPED)
    assert [event["who"] for event in stand_ins.events("asked to end")] == [DETECT]
    assert machine.logged("Not able") == 0

    configure(machine, detection=0, alert=1)
    await_started(DETECT, times=2)
    settle(machine)
    machine.stop_service()
    assert process_ids(DETECT) == []


def test_one_that_cannot_be_executed(make_machine):
    # bash is started all the same, complains to nobody and ends: what is seen is that nothing appears.
    machine = make_machine(speed=20)  # 10 checks, a second apart
    history_gathered_before(BEGIN)
    stand_ins.remove()
    stand_ins.install(ALERT)
    configure(machine, detection=0, alert=0)
    machine.start_service()
    machine.await_log(8, TAG, f"Not able to start [{DETECT}]")
    alert = await_started(ALERT)  # which is started all the same
    machine.await_log(2, SERVICE, "Immediate child is completed with 0", count=2)
    machine.daemon()

    stand_ins.install(DETECT)
    (stand_ins.host.BIN / DETECT).chmod(0o644)
    configure(machine, detection=0, alert=1)
    machine.await_log(8, TAG, f"Not able to start [{DETECT}]", count=2)
    wait_until(lambda: not process_ids(ALERT), 30, f"{alert} is stopped")

    stand_ins.install(DETECT)
    configure(machine, detection=0, alert=0)
    await_started(DETECT)
    await_started(ALERT, times=2)
    assert machine.daemon()
    machine.stop_service()
    assert process_ids(DETECT) == process_ids(ALERT) == []
    stand_ins.remove()
