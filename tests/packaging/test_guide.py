"""What the operator's guide tells people to type, typed: on a machine that boot has booted."""

import contextlib
import re
import shutil
import sqlite3
from pathlib import Path

import machine as host
import pytest
from conftest import FIRST, LATER, lay_out_product, run, running
from machine import SERVICE, wait_until

GUIDE = (Path(__file__).resolve().parents[2] / "docs/operating.md").read_text()
COPIES = Path("/var/backups/cvanomalymgmt")


def blocks(heading):
    """The shell commands of a section, block by block."""
    section = re.search(rf"^## {heading}\n(.*?)(?=^## )", GUIDE, re.M | re.S)[1]
    found = re.findall(r"^( *)```sh\n(.*?)^\1```", section, re.M | re.S)
    assert found, heading
    return [re.sub(rf"^{indent}", "", text, flags=re.M) for indent, text in found]


def type_in(commands, **substitutes):
    for this, that in substitutes.items():
        assert this in commands
        commands = commands.replace(this, that)
    return run("bash", "-e", "-u", "-c", commands).stdout


def main_process():
    return run("systemctl", "show", "--value", "--property", "MainPID", "cvanomalymgmt").stdout.strip()


@pytest.fixture
def installed(package):
    """The guide's first steps: installed, configured, running. A program takes the alerts."""
    install, reconfigure, configure, start, test = blocks("From installation to the first alert")
    lay_out_product()
    # No mirror here; what apt-get does with a file besides fetching what it depends on, dpkg does.
    assert install == "apt-get install ./cvanomalymgmt_*.deb\n"
    package.install()
    if shutil.which("dpkg-reconfigure"):
        type_in(reconfigure)
    command = Path("/usr/local/bin/take-alert")
    command.write_text("#!/bin/sh\nexec cat >>/tmp/alerts-of-the-test\n")
    command.chmod(0o755)
    type_in(configure, **{"editor anomaly_config.conf": f"sed -i 's|^COMMAND=|&{command}|' anomaly_config.conf"})
    assert SERVICE in type_in(start)
    yield package, test
    run("systemctl", "disable", "--now", "cvanomalymgmt", check=False)
    shutil.rmtree(COPIES, ignore_errors=True)


def test_first_alert(installed):
    _, test = installed
    taken = Path("/tmp/alerts-of-the-test")
    taken.unlink(missing_ok=True)
    said = run("bash", "-c", test, check=False).stdout
    assert '"kind":"test"' in taken.read_text().replace(": ", ":"), said
    assert "command" in said


def add_gather(at):
    with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=10)) as db, db:
        db.execute("DELETE FROM LAST_BACKUP_DATA_CAPTURE")
        db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (at,))


def last_gather():
    return host.Machine(host.RealClock()).last_gather_time()


def test_backup_and_restore(installed):
    backup, restore = blocks("Backup and restore")
    wait_until(lambda: host.Machine(host.RealClock()).query("SELECT name FROM sqlite_master"), 20, "a database")
    add_gather(1700000000)
    configuration = host.CONFIG.read_text()
    type_in(backup)
    assert {"CV_Anomaly.db", "anomaly_config.conf"} <= {path.name for path in COPIES.iterdir()}
    for path in COPIES.iterdir():
        assert path.stat().st_mode & 0o077 == 0 or path.name == "anomaly_config.conf", path
    for path in host.DATABASE_DIR.iterdir():
        assert path.owner() == "corvane" or path.name == "anomaly_config.conf", path

    add_gather(1800000000)
    host.CONFIG.write_text("spoilt")
    said = type_in(restore)
    assert said.splitlines()[0] == "ok"
    assert last_gather() == 1700000000
    assert host.CONFIG.read_text() == configuration
    assert main_process() != "0"
    records = host.Machine(host.RealClock())
    wait_until(lambda: records.logged("Historical data captured earlier."), 20, "the service goes on from the copy")
    assert {path.owner() for path in host.DATABASE_DIR.iterdir()} == {"corvane"}


def test_upgrade(installed):
    package, _ = installed
    (upgrade,) = blocks("Upgrading and removing")
    assert upgrade == "apt-get install ./cvanomalymgmt_*.deb\n"
    before = main_process()
    package.install(LATER)
    assert main_process() not in ("0", before)
    package.remove()
    package.install(FIRST)
    assert running() == {}
