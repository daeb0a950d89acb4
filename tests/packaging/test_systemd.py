"""The units under a real systemd: these tests run on a machine that boot has booted."""

import contextlib
import os
import pwd
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
from pathlib import Path

import machine as host
import pytest
from conftest import (LATER, MASTER_CONFIG, PACKAGES, daemon, lay_out_product, run, running, start_by_tool, write_configuration,
                      write_database)
from machine import COMPANIONS, SERVICE, wait_until

sys.path.append(str(Path(__file__).resolve().parents[1] / "e2e"))
from gathering import backup, load  # noqa: E402

BEGIN = 1795000000  # when the clock of the one test with a clock begins
EMBEDDED_HOST = PACKAGES.parent / "embedded_host"
UNIT = "cvanomalymgmt.service"
DROP_IN = Path(f"/run/systemd/system/{UNIT}.d/test.conf")
RESTART_SECONDS = 1


def systemctl(*arguments, check=True):
    return run("systemctl", *arguments, check=check)


def shown(name, unit=UNIT):
    return systemctl("show", "--value", "--property", name, unit).stdout.strip()


def main_process():
    return int(shown("MainPID"))


def companions():
    """The process ids of both, once they run."""
    ids = [host.process_ids(name) for name in COMPANIONS]
    return [pid for (pid,) in ids] if all(len(found) == 1 for found in ids) else None


@pytest.fixture
def unit(package):
    """The package on a server of the product, with its history gathered."""
    DROP_IN.parent.mkdir(parents=True)
    DROP_IN.write_text(f"[Service]\nRestartSec={RESTART_SECONDS}\n")
    package.install()
    lay_out_product()
    write_configuration()
    write_database()
    yield package
    systemctl("kill", "--signal=KILL", UNIT, check=False)
    systemctl("stop", UNIT, check=False)
    systemctl("reset-failed", UNIT, check=False)
    shutil.rmtree(DROP_IN.parent)


@pytest.fixture
def both_wanted(unit):
    """Both companions are switched on. A stop right after their start takes some 10 seconds."""
    write_configuration(detection=0, alert=0)


def test_main_process_is_the_daemon(both_wanted):
    systemctl("start", UNIT)
    assert main_process() == daemon()
    assert pwd.getpwuid(os.stat(f"/proc/{main_process()}").st_uid).pw_name == "corvane"


def test_main_process_is_found_when_the_companions_are_faster_than_the_tool(both_wanted):
    tool = f"{host.BIN / SERVICE} -start"
    wait = "until pgrep -x cvanomalyalert >/dev/null; do sleep 0.1; done"
    DROP_IN.write_text(f"[Service]\nExecStart=\nExecStart=/bin/sh -c '{tool} && {wait}'\n")
    systemctl("daemon-reload")
    systemctl("start", UNIT)
    assert companions()
    assert main_process() == daemon()


def test_companions_belong_to_the_unit_and_end_with_it(both_wanted):
    systemctl("start", UNIT)
    for pid in wait_until(companions, 30, "both companions run"):
        assert UNIT in Path(f"/proc/{pid}/cgroup").read_text()
    systemctl("stop", UNIT)
    assert running() == {}
    assert (shown("ActiveState"), shown("Result")) == ("inactive", "success")
    # Asked to end by the tool, not by systemd's signal.
    ended = [text for _, _, text in host.Machine(host.RealClock()).log_records() if "SIGTERM is getting sent" in text]
    assert len(ended) == 1


def test_crash_is_followed_by_a_restart_with_companions(both_wanted):
    systemctl("start", UNIT)
    before = wait_until(companions, 30, "both companions run")
    crashed = main_process()
    os.kill(crashed, signal.SIGSEGV)
    wait_until(lambda: shown("NRestarts") == "1" and main_process() not in (0, crashed), 20, "the service is back")
    after = wait_until(companions, 30, "both companions are back")
    assert not set(before) & set(after)


def test_crashes_without_end_are_given_up(unit):
    systemctl("start", UNIT)
    for _ in range(5):
        wait_until(lambda: main_process() != 0, 20, "the service runs")
        pid = main_process()
        os.kill(pid, signal.SIGABRT)
        wait_until(lambda pid=pid: main_process() != pid, 20, "the crash is seen")
    wait_until(lambda: shown("ActiveState") == "failed", 20, "the unit is given up")
    assert running() == {}


def stays(state):
    """For longer than a restart would take."""
    assert shown("ActiveState") == state
    subprocess.run(["sleep", str(RESTART_SECONDS + 1)], check=True)
    return shown("ActiveState") == state and shown("NRestarts") == "0"


def test_service_that_cannot_run_as_configured_is_not_started_again(unit):
    MASTER_CONFIG.unlink()
    assert systemctl("start", UNIT, check=False).returncode == 1
    assert stays("failed")


def test_service_that_is_switched_off_is_no_failure(unit):
    host.CONFIG.write_text("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=1\n")
    systemctl("start", UNIT)
    wait_until(lambda: shown("ActiveState") == "inactive", 20, "the service ends by itself")
    assert shown("Result") == "success"
    assert stays("inactive")


def test_service_that_was_started_by_hand_is_left_alone(unit):
    pid = start_by_tool()
    assert systemctl("start", UNIT, check=False).returncode == 1
    assert daemon() == pid
    assert stays("failed")
    assert f"is already running as process {pid}, started outside this unit" in systemctl("status", UNIT, check=False).stdout
    run(host.BIN / SERVICE, "-terminate")


def test_stop_by_the_tool_is_no_failure(unit):
    systemctl("start", UNIT)
    run(host.BIN / SERVICE, "-stop")
    wait_until(lambda: shown("ActiveState") == "inactive", 60, "the service ends")
    assert shown("Result") == "success"
    assert stays("inactive")


def test_upgrade_restarts_a_unit_that_nobody_enabled(unit):
    systemctl("start", UNIT)
    before = main_process()
    unit.install(LATER)
    assert main_process() not in (0, before)
    assert main_process() == daemon()
    unit.remove()
    assert running() == {}


def test_upgrade_between_a_crash_and_the_restart(unit):
    DROP_IN.write_text("[Service]\nRestartSec=1h\n")
    systemctl("daemon-reload")
    systemctl("start", UNIT)
    os.kill(main_process(), signal.SIGABRT)
    wait_until(lambda: shown("SubState") == "auto-restart", 20, "the crash is seen")
    unit.install(LATER)
    assert main_process() == daemon()


def test_purge_of_an_enabled_unit_leaves_no_link(unit):
    systemctl("enable", "--now", UNIT)
    systemctl("enable", "--now", "cvanomaly-metrics.timer")
    unit.purge()
    assert running() == {}
    left = [path for path in Path("/etc/systemd").rglob("cvanomaly*")]
    assert left == []
    assert shown("ActiveState", "cvanomaly-metrics.timer") == "inactive"


def may_write(pid, directory):
    """Whether a process in the main process's place, as root, may make a file there."""
    probe = f"{directory}/probe-of-the-test"
    return run("nsenter", f"--target={pid}", "--mount", "sh", "-c", f"touch {probe} && rm {probe}",
               check=False).returncode == 0


def test_only_its_own_places_can_be_written(unit):
    systemctl("start", UNIT)
    pid = main_process()
    for directory in (host.DATABASE_DIR, host.LOGS):
        assert may_write(pid, directory), directory
    for directory in (host.BIN, host.CREDENTIALS, MASTER_CONFIG.parent, host.TREE / "var/global", "/etc", "/usr/bin",
                      "/var/lib", "/home", "/root"):
        assert not may_write(pid, directory), directory
    status = dict(line.split(":\t", 1) for line in Path(f"/proc/{pid}/status").read_text().splitlines())
    assert (status["CapBnd"].strip("0"), status["NoNewPrivs"], status["Seccomp"]) == ("", "1", "2")


@pytest.fixture
def clock():
    """One that the unit's processes can read: they have a /tmp of their own."""
    directory = Path("/run/clock")
    directory.mkdir()
    tempfile.tempdir = str(directory)
    with contextlib.closing(host.SteppedClock(BEGIN)) as stepped:
        for shared in Path("/dev/shm").glob("*faketime*"):
            shared.chmod(0o666)
        names = ("LD_PRELOAD", "FAKETIME_SHARED", "FAKETIME_TIMESTAMP_FILE", "FAKETIME_NO_CACHE", "FAKETIME_DONT_FAKE_MONOTONIC",
                 "DONT_FAKE_MONOTONIC", "NO_FAKE_STAT")
        lines = "".join(f'Environment="{name}={stepped.environment[name]}"\n' for name in names)
        drop_ins = [DROP_IN.parent.with_name(f"{name}.service.d") / "clock.conf" for name in ("cvanomalymgmt", "cvanomaly-heal")]
        for drop_in in drop_ins:
            drop_in.parent.mkdir(exist_ok=True)
            drop_in.write_text(f"[Service]\n{lines}")
        yield stepped
        shutil.rmtree(drop_ins[1].parent)
    tempfile.tempdir = None
    shutil.rmtree(directory)


@pytest.fixture
def server(unit, clock):
    """The whole product on this machine, with some backups after BEGIN."""
    (host.BIN / "admincmd").mkdir()
    for name in ("cvhostd", "admincmd/qpgetconfig"):
        shutil.copy(EMBEDDED_HOST / Path(name).name, host.BIN / name)
    shutil.rmtree(host.CREDENTIALS)
    with contextlib.closing(host.Machine(clock)) as machine:
        machine.lay_out()
        MASTER_CONFIG.write_text(MASTER_CONFIG.read_text().replace("[host]\n", "[host]\nservice_account=corvane\n"))
        for key in host.CREDENTIALS.iterdir():
            shutil.chown(key, "corvane")
        (host.TREE / "var/global/qp.conf").write_text(f"ANOMALY_PROXY_SERVER = {host.MASTER}\n")
        load(machine, [backup(number, BEGIN + number) for number in range(1, 6)])
        machine.start_web_service()
        yield machine


def test_gathers_and_judges_under_its_restraints(both_wanted, clock, server):
    write_database(last_gather=BEGIN)
    systemctl("start", UNIT)
    wait_until(companions, 30, "both companions run")
    clock.advance(16 * 60)
    wait_until(lambda: server.logged("Using gather frequency as "), 60, "a gather")
    wait_until(lambda: any("Judged 0 normal, 5 learning, 0 anomalous" in text
                           for _, _, text in server.log_records(2, "cvanomalydetect")), 30, "the detection judges")
    assert server.query("SELECT COUNT(*) FROM HIST_DATA") == [(5,)]
    for program in (SERVICE, *COMPANIONS):
        assert server.log_records(16, program) == []
        assert server.log_records(8, program) == []


@pytest.fixture
def exporter():
    """The directory of the node exporter, which is not there yet."""
    directory = Path("/var/lib/prometheus/node-exporter")
    shutil.rmtree(directory.parent, ignore_errors=True)
    yield directory
    shutil.rmtree(directory.parent, ignore_errors=True)


def test_metrics_come_to_the_node_exporter(unit, exporter):
    (host.BIN / "cvanomalyctl").write_text('#!/bin/sh\necho "cvanomaly_test{user=\\"$(id -un)\\"} 1"\n')
    (host.BIN / "cvanomalyctl").chmod(0o755)
    systemctl("start", "cvanomaly-metrics.service")  # nobody to write for
    assert not exporter.exists()
    exporter.mkdir(parents=True)
    systemctl("start", "cvanomaly-metrics.service")
    assert (exporter / "cvanomaly.prom").read_text() == 'cvanomaly_test{user="corvane"} 1\n'
    assert len(list(exporter.iterdir())) == 1


def test_tool_gives_its_metrics_under_the_units_restraints(both_wanted, clock, server, exporter):
    write_database(last_gather=BEGIN)
    exporter.mkdir(parents=True)
    systemctl("start", UNIT)
    wait_until(companions, 30, "both companions run")
    for _ in range(2):  # the second finds what the first may have left
        systemctl("start", "cvanomaly-metrics.service")
        text = (exporter / "cvanomaly.prom").read_text()
        assert f"cvanomaly_last_gather_timestamp_seconds {BEGIN}" in text
        for program in (SERVICE, *COMPANIONS):
            assert f'cvanomaly_process_up{{process="{program}"}} 1' in text
    assert {path.owner() for path in host.DATABASE_DIR.iterdir()} <= {"corvane", "root"}
    for path in host.DATABASE_DIR.glob("CV_Anomaly*"):
        assert path.owner() == "corvane", path


def heal_unit(name):
    return shown("ActiveState", f"cvanomaly-{name}")


def test_healing_starts_and_stops_with_the_service(unit):
    systemctl("start", UNIT)
    assert (heal_unit("heal.timer"), heal_unit("restart.path")) == ("active", "active")
    systemctl("stop", UNIT)
    assert (heal_unit("heal.timer"), heal_unit("restart.path")) == ("inactive", "inactive")


def test_a_companion_that_was_killed_is_started_again(both_wanted):
    systemctl("start", UNIT)
    detect, _ = wait_until(companions, 30, "both companions run")
    os.kill(detect, signal.SIGKILL)
    systemctl("start", "cvanomaly-heal.service")
    assert host.process_ids(COMPANIONS[0]) == []
    systemctl("start", "cvanomaly-heal.service")
    (again,) = wait_until(lambda: host.process_ids(COMPANIONS[0]), 30, "the detection runs again")
    assert f"cvanomaly-companion@{COMPANIONS[0]}.service" in Path(f"/proc/{again}/cgroup").read_text()
    assert pwd.getpwuid(os.stat(f"/proc/{again}").st_uid).pw_name == "corvane"
    systemctl("stop", UNIT)
    assert running() == {}


def test_the_healer_works_under_its_restraints(both_wanted, clock, server):
    write_database(last_gather=BEGIN)
    systemctl("start", UNIT)
    clock.advance(16 * 60)
    wait_until(lambda: server.logged("Using gather frequency as "), 60, "a gather")
    systemctl("start", "cvanomaly-heal.service")
    with contextlib.closing(sqlite3.connect(host.DATABASE)) as db, db:
        db.execute("DELETE FROM HIST_DATA")
        db.execute("DELETE FROM DATA_TO_PROCESS")
    systemctl("start", "cvanomaly-heal.service")
    assert server.log_records(16, "cvanomalyheal") == []
    assert server.query("SELECT COUNT(*) FROM DATA_TO_PROCESS") == [(5,)]
    assert {path.owner() for path in host.DATABASE_DIR.iterdir()} == {"corvane"}
