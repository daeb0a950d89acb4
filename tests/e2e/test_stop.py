"""Stopping while the service is busy, and what the next start makes of it."""

import os
import signal

import pytest

from conftest import BEGIN
from gathering import backup, load
from machine import SERVICE, wait_until
from service_runs import (
    await_end, configure, history_gathered_before, history_row, integrity, rows_of, start_with_history)

HISTORICAL = "ManagementService::do_historical_gather"
DAY = 86400


@pytest.fixture
def machine(make_machine):
    machine = make_machine(stepped=True)
    configure(machine)
    return machine


def begin_history(machine, times=1):
    daemon = machine.start_service()
    machine.await_log(2, SERVICE, "Historical gather is not done.", count=times)
    machine.clock.advance(15 * 60)
    machine.await_log(2, HISTORICAL, "Capturing historical data.", count=times)
    return daemon


def test_a_stop_during_the_history_and_a_start_that_begins_it_again(machine):
    backups = [backup(day, BEGIN - day * DAY) for day in range(1, 91)]
    load(machine, backups)
    machine.start_web_service()
    # A server that is slow once, so that the signal meets the gather in the middle of a slice.
    machine.misbehave("corvane/catalog/images hang 2 skip 700 count 1")
    daemon = begin_history(machine)
    wait_until(lambda: machine.logged("Executing API with path:") == 701, 60, "the slow answer is awaited")
    before = len(machine.log_records())
    os.kill(daemon, signal.SIGTERM)
    await_end()

    left = machine.log_records()[before:]
    assert left[0] == (4, SERVICE, "Intercepted signal SIGTERM. Will stop the service")
    others = ("CurlClient::process_curl_response", "handleChildProc")
    assert [r for r in left[1:] if r[0] == 4 and r[1] not in others] == [
        (4, "isTimeToStop", "System called for Service ShutDown. Stopping the service"),
        (4, HISTORICAL, "Service has been requested to stop"),
        (4, SERVICE, f"[{HISTORICAL}] intercepted a shutdown request")]
    assert machine.logged("Executing API with path:") == 701  # the slice was finished, no other begun
    assert machine.last_gather_time() == 0
    first_part = rows_of(machine, "HIST_DATA")
    assert 0 < len(first_part) < len(backups)
    assert set(first_part) <= {history_row(b) for b in backups}

    begin_history(machine, times=2)
    wait_until(machine.last_gather_time, 60, "the history is gathered")
    machine.stop_service()
    assert rows_of(machine, "HIST_DATA") == [history_row(b) for b in backups]
    assert integrity(machine) == [("ok",)]


def test_a_stop_in_the_first_interval_leaves_the_history_for_later(machine):
    daemon = machine.start_service()
    machine.await_log(2, SERVICE, "Historical gather is not done.")
    os.kill(daemon, signal.SIGTERM)
    await_end()
    assert machine.logged("Capturing") == 0
    assert machine.last_gather_time() == 0


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_a_signal_ends_the_main_loop(machine, number):
    history_gathered_before(BEGIN)
    daemon = start_with_history(machine)
    os.kill(daemon, number)
    await_end()
    assert [r for r in machine.log_records(4) if r[1] in (SERVICE, "isTimeToStop")][1:] == [
        (4, SERVICE, f"Intercepted signal {number.name}. Will stop the service"),
        (4, "isTimeToStop", "System called for Service ShutDown. Stopping the service")]
    assert machine.last_gather_time() == BEGIN


def test_other_signals_keep_their_effect(machine):
    history_gathered_before(BEGIN)
    daemon = start_with_history(machine)
    os.kill(daemon, signal.SIGHUP)
    await_end()
    assert machine.logged("Intercepted") == machine.logged("Unknown Signal") == 0
    assert integrity(machine) == [("ok",)]
