"""The package's life: installed, used, upgraded, removed, purged."""

import os
import pwd
import re
import shutil
import stat
import subprocess

import pytest

import machine as host
from conftest import (FIRST, LATER, MASTER_CONFIG, PROGRAMS, end_all_processes, daemon, lay_out_product, run, running,
                      start_by_tool, write_configuration, write_database)
from machine import COMPANIONS, SERVICE, wait_until

EVERYTHING = ("/etc", "/usr/tessel", "/usr/lib/systemd/system", "/usr/lib/cvanomalymgmt", "/var/lib", "/run")
# Of the units that run as the service account.
DROP_INS = [host.Path(f"/usr/lib/systemd/system/{unit}.service.d/50-account.conf")
            for unit in ("cvanomalymgmt", "cvanomaly-companion@", "cvanomaly-heal", "cvanomaly-heartbeat")]
# What adduser and dpkg keep for themselves, and caches.
OTHERS = ("/etc/passwd", "/etc/shadow", "/etc/group", "/etc/gshadow", "/etc/subuid", "/etc/subgid", "/etc/.pwd.lock",
          "/var/lib/dpkg", "/run/lock")


def everything():
    """Every path where the package may put something."""
    found = set()
    for top in EVERYTHING:
        for directory, directories, files in os.walk(top):
            found.update(os.path.join(directory, name) for name in (*directories, *files))
    return {path for path in found if not path.startswith(OTHERS)}


def accounts():
    return {entry.pw_name for entry in pwd.getpwall()}


def owner_and_mode(path):
    return path.owner(), path.group(), oct(stat.S_IMODE(path.stat().st_mode))


def account_of(pid):
    return pwd.getpwuid(os.stat(f"/proc/{pid}").st_uid).pw_name


def program_of(pid):
    return os.readlink(f"/proc/{pid}/exe")


def all_three():
    now = running()
    return now if len(now) == 3 else None


def test_installs_and_starts_nothing(package):
    package.install()
    assert running() == {}
    assert not host.CONFIG.exists()
    assert {path.name for path in host.BIN.iterdir()} == {*PROGRAMS, "cvanomalyctl", "cvanomalyheal"}
    assert owner_and_mode(host.BIN / SERVICE) == ("root", "root", "0o755")
    for directory in (host.DATABASE_DIR, host.LOGS):
        assert owner_and_mode(directory) == ("corvane", "corvane", "0o750")
    assert pwd.getpwnam("corvane").pw_shell == "/usr/sbin/nologin"
    assert run("dpkg", "--verify", "cvanomalymgmt").stdout == ""


def test_operators_tool_is_there_with_completion_and_page(package):
    package.install()
    script = (f"source /usr/share/bash-completion/completions/cvanomalyctl; COMP_WORDS=({host.BIN}/cvanomalyctl sta);"
              'COMP_CWORD=1; _cvanomalyctl; echo "${COMPREPLY[@]}"')
    assert run("bash", "-c", script).stdout == "status\n"
    assert run("gzip", "-t", "/usr/share/man/man8/cvanomalyctl.8.gz").stdout == ""
    # Nothing has made a database yet.
    for command, status in (("check", 3), ("status", 3)):
        assert run(host.BIN / "cvanomalyctl", command, check=False).returncode == status


def test_documents_refer_to_nothing_that_is_missing(package):
    package.install()
    documents = host.Path("/usr/share/doc/cvanomalymgmt")
    links = {(document, link) for document in documents.rglob("*.md")
             for link in re.findall(r"\]\(([^)#:]+)[^)]*\)", document.read_text())}
    assert len(links) > 5
    assert [link for link in links if not (link[0].parent / link[1]).exists()] == []


def test_copyright_names_what_is_built_in(package):
    """What is neither ours nor in a package that this one depends on."""
    package.install()
    notice = host.Path("/usr/share/doc/cvanomalymgmt/copyright").read_text()
    tool = (host.BIN / "cvanomalyctl").read_bytes()
    for name, mark in (("Chart.js", b"Chart.js v"), ("@kurkle/color", b"@kurkle/color v"), ("CLI11", b"N3CLI3AppE")):
        assert (mark in tool, name in notice) == (True, True), name
    for linked in ("libprometheus-cpp-core", "libjansson", "libsqlite3", "libcurl", "libace", "libssl"):
        assert linked in run("dpkg-query", "-W", "-f", "${Depends}", "cvanomalymgmt").stdout


def test_leaves_no_trace(package):
    before, accounts_before = everything(), accounts()
    package.install()
    assert everything() > before
    package.purge()
    assert everything() == before
    assert accounts() == accounts_before


def test_runs_as_its_account_and_is_upgraded_while_it_runs(package):
    package.install()
    lay_out_product()
    write_configuration(detection=0, alert=0)
    write_database()
    start_by_tool()
    before = wait_until(all_three, 30, "service and companions run")
    configuration = host.CONFIG.read_text()

    package.install(LATER)
    assert package.version() in LATER.name
    after = wait_until(all_three, 30, "service and companions run again")
    for program, (pid, *more) in after.items():
        assert more == [] and pid not in before[program]
        assert program_of(pid) == str(host.BIN / program)
        assert account_of(pid) == "corvane"
    assert host.CONFIG.read_text() == configuration
    assert host.Machine(host.RealClock()).last_gather_time() == 1700000000


def test_stops_before_files_are_replaced(package):
    package.install()
    lay_out_product()
    start_by_tool()
    package.install(LATER)
    ended = "Intercepted signal SIGTERM. Will stop the service"
    texts = [text for _, _, text in host.Machine(host.RealClock()).log_records()]
    assert ended in texts
    assert texts.count("Successfully started the service") == 2
    assert texts.index(ended) < len(texts) - 1 - texts[::-1].index("Successfully started the service")


def test_upgrade_starts_nothing_that_did_not_run(package):
    package.install()
    lay_out_product()
    package.install(LATER)
    assert running() == {}


def test_upgrade_ends_companions_whose_service_has_died(package):
    package.install()
    lay_out_product()
    write_configuration(detection=0, alert=0)
    write_database()
    start_by_tool()
    wait_until(all_three, 30, "service and companions run")
    os.kill(daemon(), 9)
    wait_until(lambda: SERVICE not in running(), 10, "the service is dead")
    package.install(LATER)
    assert running() == {}


def broken_package(tmp_path):
    """A later version that cannot be installed."""
    tree = tmp_path / "broken"
    run("dpkg-deb", "--raw-extract", LATER, tree)
    (tree / "DEBIAN/preinst").write_text("#!/bin/sh\nexit 1\n")
    run("dpkg-deb", "--build", tree, tmp_path / "broken.deb")
    return tmp_path / "broken.deb"


def test_failed_upgrade_starts_the_old_one_again(package, tmp_path):
    package.install()
    lay_out_product()
    before = start_by_tool()
    assert package.install(broken_package(tmp_path), check=False).returncode != 0
    assert package.version() in FIRST.name
    assert daemon() != before


def test_removal_keeps_data_and_purge_removes_only_its_own(package):
    lay_out_product()
    (host.TREE / "var/global/incremental").mkdir(parents=True)
    (host.TREE / "var/global/product.db").write_text("the product's\n")
    shutil.rmtree(host.CREDENTIALS / "empty", ignore_errors=True)
    (host.CREDENTIALS / "empty").mkdir()
    run("adduser", "--quiet", "--system", "--group", "--home", "/nonexistent", "--no-create-home", "corvane")
    product = {path: path.read_bytes() if path.is_file() else None for path in host.TREE.rglob("*")}

    package.install()
    write_configuration(detection=0, alert=0)
    write_database()
    start_by_tool()
    wait_until(all_three, 30, "service and companions run")
    (host.LOGS / f"{SERVICE}.1.gz").write_text("rotated\n")
    (host.DATABASE_DIR / "notes.txt").write_text("somebody's\n")

    package.remove()
    assert running() == {}
    assert not (host.BIN / SERVICE).exists()
    for kept in (host.CONFIG, host.DATABASE, host.LOGS / SERVICE, host.DATABASE_DIR / "notes.txt"):
        assert kept.exists(), kept

    package.purge()
    left = {path: path.read_bytes() if path.is_file() else None for path in host.TREE.rglob("*")}
    assert left.pop(host.DATABASE_DIR / "notes.txt") == b"somebody's\n"
    del left[host.DATABASE_DIR]
    assert left == product
    assert "corvane" in accounts()
    run("deluser", "--quiet", "--system", "corvane", check=False)


def test_what_is_there_is_never_overwritten(package):
    lay_out_product(account="")
    package.install()
    write_configuration()
    write_database()
    (host.LOGS / SERVICE).write_text("yesterday's\n")
    contents = {path: path.read_bytes() for path in (host.CONFIG, host.DATABASE, host.LOGS / SERVICE)}
    package.remove()
    package.install()
    package.install(LATER)
    for path, content in contents.items():
        assert path.read_bytes() == content, path


def test_account_of_the_product_is_used(package):
    lay_out_product(account="keeper")
    run("useradd", "--system", "--user-group", "keeper")
    try:
        package.install()
        assert "corvane" not in accounts()
        assert owner_and_mode(host.DATABASE_DIR) == ("keeper", "keeper", "0o750")
        for drop_in in DROP_INS:
            assert "User=keeper\nGroup=keeper\n" in drop_in.read_text()
        assert account_of(start_by_tool()) == "keeper"

        # The product comes to use another: its data goes with it.
        wait_until(host.DATABASE.exists, 20, "the service has made its database")
        lay_out_product(account="")
        run(host.BIN / SERVICE, "-terminate")
        package.install(LATER)
        assert owner_and_mode(host.DATABASE_DIR) == ("corvane", "corvane", "0o750")
        assert host.DATABASE.owner() == "corvane"
        assert (host.LOGS / SERVICE).owner() == "corvane"
        assert not any(drop_in.exists() for drop_in in DROP_INS)
    finally:
        end_all_processes()
        run("userdel", "keeper", check=False)


@pytest.mark.parametrize("account", ["corvane", ""])  # without a name the directory's owner counts
def test_first_look_by_root_leaves_nothing_of_roots(package, account):
    package.install()
    lay_out_product(account)
    assert list(host.DATABASE_DIR.iterdir()) == []
    assert run(host.BIN / "cvanomalyheal").stdout == ""
    assert {path.name for path in host.DATABASE_DIR.iterdir()} == {"CV_Anomaly_Coverage.db", "CV_Anomaly_Coverage.lock"}
    for path in (*host.DATABASE_DIR.iterdir(), host.LOGS / "cvanomalyheal"):
        assert owner_and_mode(path)[:2] == ("corvane", "corvane"), path


def test_account_that_does_not_exist_is_told(package):
    lay_out_product(account="nobody-knows")
    said = package.install().stdout
    assert "the service account 'nobody-knows' in corvane.conf does not exist" in said
    assert owner_and_mode(host.DATABASE_DIR)[0] == "root"
    run("useradd", "--system", "nobody-knows")
    try:
        package.install(LATER)
        assert owner_and_mode(host.DATABASE_DIR)[0] == "nobody-knows"
    finally:
        run("userdel", "nobody-knows", check=False)


def test_the_products_log_directory_stays_as_it_is(package):
    lay_out_product()
    host.LOGS.mkdir(parents=True)
    os.chmod(host.LOGS, 0o751)
    package.install()
    assert owner_and_mode(host.LOGS) == ("root", "root", "0o751")
    assert account_of(start_by_tool()) == "corvane"
    wait_until(lambda: "m_database_location" in (host.LOGS / SERVICE).read_text(), 10, "the service logs")


def test_log_goes_on_after_rotation(package):
    package.install()
    lay_out_product()
    write_configuration()
    write_database()
    pid = start_by_tool()
    log = host.LOGS / SERVICE
    before = log.read_text()
    assert before
    run("logrotate", "--force", "--state", "/tmp/logrotate.state", "/etc/logrotate.d/cvanomalymgmt")
    rotated = subprocess.run(["zcat", str(log) + ".1.gz"], capture_output=True, text=True, check=True).stdout
    assert rotated.startswith(before)
    os.kill(pid, 15)
    wait_until(lambda: "Will stop the service" in log.read_text(), 20, "the running service logs into the new file")
    assert "\0" not in log.read_text()
    assert owner_and_mode(log) == ("corvane", "corvane", "0o644")


def test_sample_configuration_is_taken(package):
    package.install()
    lay_out_product()
    shutil.copy("/usr/share/doc/cvanomalymgmt/examples/anomaly_config.conf", host.CONFIG)
    start_by_tool()
    machine = host.Machine(host.RealClock())
    wait_until(lambda: machine.logged("Historical gather is not done."), 20, "the service is at work")
    for level in (8, 16):
        assert machine.log_records(level) == []
    for companion in COMPANIONS:
        answer = run(host.BIN / companion, "-once", "-config_file", host.CONFIG, check=False)
        assert "configuration" not in answer.stdout.lower(), answer.stdout
        for level in (8, 16):
            assert not [text for _, _, text in machine.log_records(level, companion) if "onfiguration" in text]


def check_as(account):
    return run("setpriv", f"--reuid={account}", f"--regid={account}", "--init-groups", host.BIN / "cvanomalyctl",
               "check", check=False).stdout


def test_monitoring_of_the_group_may_look(package):
    package.install()
    lay_out_product()
    start_by_tool()
    run("useradd", "--system", "--groups", "corvane", "watcher")
    run("useradd", "--system", "stranger")
    try:
        wait_until(lambda: "ANOMALY WARNING - the detection is disabled in the configuration" in check_as("watcher"), 20,
                   "the database is there and can be read")
        assert re.fullmatch("ANOMALY UNKNOWN - Cannot read .*: permission denied\\.\n", check_as("stranger"))
    finally:
        for account in ("watcher", "stranger"):
            run("userdel", account)


def test_removal_ends_the_metrics(package):
    exporter = host.Path("/var/lib/prometheus/node-exporter")
    exporter.mkdir(parents=True, exist_ok=True)
    others = exporter / "of-the-test.prom"
    others.write_text("others_value 1\n")
    package.install()
    lay_out_product()
    for name in ("cvanomaly.prom", ".cvanomaly.aB3xYz"):
        (exporter / name).write_text("cvanomaly_rows_waiting 1\n")
    package.install(LATER)
    assert (exporter / "cvanomaly.prom").exists()
    package.remove()
    assert [path for path in exporter.iterdir() if "cvanomaly" in path.name] == []
    assert others.exists()
    others.unlink()
