"""Fixtures of the tests that install the package, which run inside scratch_root (see run.sh)."""

import contextlib
import os
import shutil
import signal
import sqlite3
import subprocess
import sys
from pathlib import Path

import pytest

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "embedded_host"))
import machine as host  # noqa: E402

PROGRAMS = (host.SERVICE, *host.COMPANIONS)
PACKAGES = Path(os.environ["CV_PACKAGES"])
(FIRST,) = PACKAGES.glob("cvanomalymgmt_*.deb")
(LATER,) = (PACKAGES / "later").glob("cvanomalymgmt_*.deb")
MASTER_CONFIG = host.TREE / "corvane/corvane.conf"


def run(*command, check=True, **options):
    options = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.STDOUT,
               "text": True, "timeout": 240, **options}
    done = subprocess.run(list(map(str, command)), check=False, **options)
    if check and done.returncode != 0:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}")
    return done


class Package:
    """The package on this machine. What containers leave out of packages is put in, as on any server."""

    def install(self, file=FIRST, check=True):
        return run("dpkg", "--path-include=/usr/share/*", "--install", file, check=check)

    def remove(self):
        return run("dpkg", "--remove", "cvanomalymgmt")

    def purge(self):
        return run("dpkg", "--purge", "cvanomalymgmt")

    def is_installed(self):
        status = run("dpkg-query", "-W", "-f", "${Status}", "cvanomalymgmt", check=False).stdout
        return "ok installed" in status

    def version(self):
        return run("dpkg-query", "-W", "-f", "${Version}", "cvanomalymgmt").stdout


def end_all_processes():
    for program in PROGRAMS:
        for pid in host.process_ids(program):
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)


@pytest.fixture
def package():
    """Nothing of it is there, before and after."""
    yield Package()
    end_all_processes()
    run("dpkg", "--purge", "--force-all", "cvanomalymgmt", check=False)
    shutil.rmtree(host.TREE, ignore_errors=True)


def lay_out_product(account="corvane", others=""):
    """The product's own files."""
    MASTER_CONFIG.parent.mkdir(parents=True, exist_ok=True)
    account_line = f"service_account={account}\n" if account else ""
    MASTER_CONFIG.write_text(f"[domain]\nservers={host.MASTER}\n[host]\nname={host.MASTER}\n{account_line}{others}")
    host.CREDENTIALS.mkdir(parents=True, exist_ok=True)
    (host.CREDENTIALS / "host.key").write_text("the product's key\n")


def write_configuration(detection=1, alert=1):
    host.CONFIG.write_text("[ANOMALY_DETECTION_FUNCTIONALITY]\n"
                           f"DISABLE_DETECTION_SERVICE={detection}\nDISABLE_ALERT_SERVICE={alert}\n")


def write_database(last_gather=1700000000):
    """One whose history is gathered, so that the service goes straight into its main loop."""
    with contextlib.closing(sqlite3.connect(host.DATABASE)) as db, db:
        db.execute("DROP TABLE IF EXISTS LAST_BACKUP_DATA_CAPTURE")
        db.execute("CREATE TABLE LAST_BACKUP_DATA_CAPTURE (LAST_BACKUP_TIME INT PRIMARY KEY NOT NULL)")
        db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (last_gather,))
    for path in host.DATABASE_DIR.iterdir():
        shutil.chown(path, "corvane", "corvane")


def start_by_tool():
    """Starts the service and gives the daemon's process id."""
    run(host.BIN / host.SERVICE, "-start")
    return daemon()


def daemon():
    def only_one():
        ids = host.process_ids(host.SERVICE)
        return ids[0] if len(ids) == 1 else None
    return host.wait_until(only_one, 10, "one process of the service runs")


def running():
    return {program: host.process_ids(program) for program in PROGRAMS if host.process_ids(program)}


@pytest.hookimpl(tryfirst=True)
def pytest_runtest_makereport(item, call):
    """The logs of a test that fails."""
    if call.excinfo is not None:
        for log in sorted(host.LOGS.glob("*")):
            item.add_report_section(call.when, log.name, log.read_text(errors="replace")[-3000:])
