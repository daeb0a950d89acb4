"""The units and the scripts that they call."""

import os
import re
import shutil
import stat
import subprocess
import time
from pathlib import Path

import machine as host
import pytest
from conftest import (LATER, daemon, lay_out_product, run, running, start_by_tool, write_configuration,
                      write_database)
from machine import wait_until

GUIDE = (Path(__file__).resolve().parents[2] / "docs/operating.md").read_text()
UNITS = Path("/usr/lib/systemd/system")
HELPERS = Path("/usr/lib/cvanomalymgmt")
SERVICES = ("cvanomalymgmt.service", "cvanomaly-companion@.service", "cvanomaly-heal.service",
            "cvanomaly-heartbeat.service", "cvanomaly-metrics.service", "cvanomaly-restart.service")
OTHERS = ("cvanomaly-heal.timer", "cvanomaly-heartbeat.timer", "cvanomaly-metrics.timer", "cvanomaly-restart.path")

# What stands in for systemd: keeps one unit, whose processes it starts and stops as the unit says.
SYSTEMCTL = """#!/bin/sh
echo "$*" >>/tmp/systemctl.calls
case "$*" in
*is-active*) if [ -e /tmp/unit.active ]; then echo active; else echo inactive; exit 3; fi ;;
"start cvanomalymgmt.service")
	touch /tmp/unit.active
	setpriv --reuid=corvane --regid=corvane --clear-groups {bin}/cvanomalymgmt -start >/dev/null
	;;
"stop cvanomalymgmt.service")
	rm /tmp/unit.active
	{bin}/cvanomalymgmt -stop >/dev/null
	tail --pid="$(pgrep -o -x cvanomalymgmt)" -s 0.2 -f /dev/null
	;;
esac
"""


@pytest.fixture
def systemd(tmp_path, monkeypatch):
    """A machine that systemd seems to have booted. Gives the calls of systemctl so far."""
    (tmp_path / "systemctl").write_text(SYSTEMCTL.format(bin=host.BIN))
    (tmp_path / "systemctl").chmod(0o755)
    monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")
    booted = Path("/run/systemd/system")
    if booted.exists():
        pytest.skip("this machine has a real one")
    booted.mkdir(parents=True)
    calls = Path("/tmp/systemctl.calls")
    calls.write_text("")
    yield lambda: calls.read_text().splitlines()
    shutil.rmtree("/run/systemd")
    calls.unlink()
    Path("/tmp/unit.active").unlink(missing_ok=True)


def start_by_unit():
    run("systemctl", "start", "cvanomalymgmt.service")
    return daemon()


def test_units_are_sound(package):
    package.install()
    said = run("systemd-analyze", "verify", *(UNITS / unit.replace("@.", "@cvanomalydetect.") for unit in (*SERVICES, *OTHERS)))
    assert said.stdout == ""


def exposure(unit):
    """How exposed systemd-analyze finds it, of 10; at most 3.0 or the command fails."""
    said = run("systemd-analyze", "security", "--offline=yes", "--threshold=30", "--no-pager", UNITS / unit).stdout
    return re.search(r"Overall exposure level for \S+: (\d+\.\d)", said)[1]


def test_units_are_hardened_as_the_guide_says(package):
    package.install()
    for unit in SERVICES:
        assert f"`{unit}`: {exposure(unit)}" in GUIDE


def test_upgrade_of_a_unit_that_runs(package, systemd):
    package.install()
    lay_out_product()
    before = start_by_unit()
    begin = len(systemd())
    package.install(LATER)
    calls = systemd()[begin:]
    assert [call for call in calls if call.startswith(("stop", "start"))] == [
        "stop cvanomalymgmt.service", "start cvanomalymgmt.service"]
    reload = calls.index("--system daemon-reload")
    assert calls.index("stop cvanomalymgmt.service") < reload < calls.index("start cvanomalymgmt.service")
    assert daemon() != before


def test_upgrade_of_a_unit_that_does_not_run(package, systemd):
    package.install()
    package.install(LATER)
    assert not [call for call in systemd() if call.startswith(("stop", "start", "restart", "enable"))]
    assert running() == {}


def test_removal_stops_unit_and_timer(package, systemd):
    package.install()
    lay_out_product()
    start_by_unit()
    package.remove()
    assert {"stop cvanomalymgmt.service", *(f"stop {unit}" for unit in OTHERS)} <= set(systemd())
    assert running() == {}


def record_pid(directory, **options):
    return run("setpriv", "--reuid=corvane", "--regid=corvane", "--clear-groups", HELPERS / "record_pid",
               env={**os.environ, "RUNTIME_DIRECTORY": str(directory)}, check=False, **options)


@pytest.fixture
def runtime_directory():
    directory = Path("/run/cvanomalymgmt")
    directory.mkdir()
    yield directory
    shutil.rmtree(directory)


def test_main_process_is_found(package, runtime_directory):
    package.install()
    lay_out_product()
    shutil.chown(runtime_directory, "corvane", "corvane")
    nothing = record_pid(runtime_directory)
    assert (nothing.returncode, nothing.stdout) == (1, "cvanomalymgmt has already ended; its log says why\n")
    pid = start_by_tool()
    assert record_pid(runtime_directory).returncode == 0
    assert (runtime_directory / "pid").read_text() == f"{pid}\n"


def stand_in_for_metrics(text):
    (host.BIN / "cvanomalyctl").write_text(f"#!/bin/sh\n{text}\n")
    (host.BIN / "cvanomalyctl").chmod(0o755)


def test_metrics_are_written_whole_or_not_at_all(package, tmp_path):
    package.install()
    stand_in_for_metrics('[ "$1" = metrics ] && echo "cvanomaly_test{user=\\"$(id -un)\\"} 1"')
    run(HELPERS / "write_metrics", tmp_path)
    metrics = tmp_path / "cvanomaly.prom"
    assert metrics.read_text() == 'cvanomaly_test{user="corvane"} 1\n'
    assert stat.S_IMODE(metrics.stat().st_mode) == 0o644

    stand_in_for_metrics("echo half; exit 3")
    assert run(HELPERS / "write_metrics", tmp_path, check=False).returncode == 3
    assert metrics.read_text() == 'cvanomaly_test{user="corvane"} 1\n'
    assert list(tmp_path.iterdir()) == [metrics]


def test_stop_of_the_unit_waits_for_the_daemon(package):
    package.install()
    lay_out_product()
    write_configuration(detection=0, alert=0)
    write_database()
    pid = start_by_tool()
    unit = (UNITS / "cvanomalymgmt.service").read_text()
    stop, wait = re.findall(r"^ExecStop=-(.*)$", unit, re.M)
    wait_until(lambda: host.COMPANIONS[0] in running(), 30, "the service is busy with starting its companions")
    run(*stop.split())
    assert Path(f"/proc/{pid}").exists()
    subprocess.run(wait.replace("${MAINPID}", str(pid)).split(), check=True, timeout=60)
    assert not Path(f"/proc/{pid}").exists()


REQUESTS = host.DATABASE_DIR / "CV_Anomaly_Coverage.requests"


def requested(text):
    """What is started for requests that say this."""
    REQUESTS.write_bytes(text.encode())
    begin = len(Path("/tmp/systemctl.calls").read_text().splitlines())
    run(HELPERS / "restart_programs")
    assert not REQUESTS.exists()
    return Path("/tmp/systemctl.calls").read_text().splitlines()[begin:]


def test_only_known_requests_start_something(package, systemd):
    package.install()
    assert requested("start cvanomalydetect\n") == ["start cvanomaly-companion@cvanomalydetect.service"]
    assert requested("start cvanomalyalert\nrestart cvanomalymgmt\nstart cvanomalyalert\n") == [
        "--no-block try-restart cvanomalymgmt.service", "start cvanomaly-companion@cvanomalyalert.service"]
    assert requested("start sshd\nstart cvanomalydetect; reboot\n$(reboot)\n start cvanomalyalert\n") == []
    assert requested("") == []


def test_a_request_that_is_no_file_is_removed_and_not_read(package, systemd, tmp_path):
    package.install()
    (tmp_path / "secret").write_text("start cvanomalydetect\n")
    REQUESTS.symlink_to(tmp_path / "secret")
    run(HELPERS / "restart_programs")
    REQUESTS.mkdir()
    (REQUESTS / "file").touch()
    run(HELPERS / "restart_programs")
    assert not any(call.startswith("start ") for call in systemd())
    assert (tmp_path / "secret").exists()
    assert not REQUESTS.is_symlink() and not REQUESTS.exists()
    run(HELPERS / "restart_programs")  # without a request nothing happens


def test_an_old_request_is_not_carried_out(package, systemd):
    package.install()
    REQUESTS.write_text("start cvanomalydetect\n")
    os.utime(REQUESTS, (time.time() - 660, time.time() - 660))
    run(HELPERS / "restart_programs")
    assert not any(call.startswith("start ") for call in systemd())
    assert not REQUESTS.exists()
