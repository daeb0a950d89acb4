"""cvanomalyctl beside the running service, on a terminal, in a browser, and against its own documentation."""

import contextlib
import fcntl
import json
import os
import pty
import re
import select
import shutil
import signal
import sqlite3
import struct
import subprocess
import sys
import termios
import threading
import time
from pathlib import Path

import machine as host
import pytest
from conftest import BEGIN
from gathering import backup, load
from machine import process_ids, wait_until
from service_runs import configure, history_gathered_before, next_gather, start_with_history
from test_disk import small_disk

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench/detect"))
import anomaly_db  # noqa: E402

CTL = "cvanomalyctl"
PROJECT = Path(__file__).resolve().parents[2]
DAY = 86400
NO_DISK = ("--disk-warning", "0", "--disk-critical", "0")
HOSTILE = "</script><img src=x onerror=alert(1)>\"'&\n\x1b]0;title\x07\x1b[2J"


class World:
    """A database with a stream that is judged, one that learns, an anomaly and what people said of one."""

    def __init__(self, directory, name="web01"):
        self.directory = Path(directory)
        self.path = self.directory / "CV_Anomaly.db"
        self.now = int(time.time())
        self.db = anomaly_db.create(self.path)
        self.db.execute("PRAGMA synchronous=OFF")
        self.bad = self.row(name, 0, 2, files=10, job=900)
        older = self.row(name, 20, 2, files=10, job=901)
        with self.db:
            self.insert("HIST_DATA", [self.row(name, day, -1) for day in range(1, 45)])
            self.insert("HIST_DATA", [self.row("db01", day, -1) for day in range(3)])
            self.insert("DATA_TO_PROCESS", [self.bad, older, self.row(name, -1, 0, job=902)])
            for row, processed in ((self.bad, 0), (older, 1)):
                self.db.execute("INSERT INTO ANOMALY_DATA VALUES (?, ?, ?, ?, ?, ?)", (
                    "anomaly_" + row[-1], json.dumps(self.details(name, row)), processed,
                    f"{name}/policy/STANDARD/FULL/daily/FILE_SYSTEM/disk-pool01", name, row[1] + 60))
            self.db.execute("INSERT INTO ANOMALY_DATA_FEEDBACK VALUES (?, 1, ?)", ("anomaly_" + older[-1], self.now))
            self.db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (self.now - 60,))

    def row(self, client, day, mark, files=1000, job=None):
        at = self.now - day * DAY
        return anomaly_db.row(f"{client}_{at}", at, client, "FULL", "daily", files + day % 7, 100000, job or 100 + day,
                              20000, 60, 5.0, mark)

    def insert(self, table, rows):
        self.db.executemany(anomaly_db.INSERT.format(table), rows)

    @staticmethod
    def details(client, row):
        return {"schema": 1, "summary": f"daily backup of {client}: 10 files, usually 1000", "severity": 3,
                "incident": "incident_" + row[-1],
                "stream": {"client": client, "policy": "policy", "policy_type": "STANDARD", "schedule_type": "FULL",
                           "schedule_name": "daily", "application_type": "FILE_SYSTEM", "destination": "disk-pool01"},
                "backup_id": row[0], "job_id": row[10], "time": row[1],
                "causes": [{"id": "mass_deletion", "words": "Files may have been deleted."}],
                "features": [{"name": "files", "unit": "files", "value": 10, "usual": 1000, "usual_low": 990,
                              "usual_high": 1010, "deviation": -30}]}

    def command(self, *arguments):
        return [str(host.BIN / CTL), *map(str, arguments), "--database", str(self.path)]

    def run(self, *arguments, **options):
        return subprocess.run(self.command(*arguments), capture_output=True, text=True, timeout=120, **options)


@pytest.fixture
def world(tmp_path):
    made = World(tmp_path)
    yield made
    made.db.close()


def need(program):
    """Skips the test where the program is missing; in CI that is a failure."""
    if shutil.which(program) is None:
        (pytest.fail if os.environ.get("CI") == "true" else pytest.skip)(f"no {program}; ./dev test brings it")


# --- Beside the service ---


def ctl(machine, *arguments):
    return machine.run(CTL, *arguments, check=False)


def status(machine):
    return json.loads(ctl(machine, "status", "--json").stdout)


def test_beside_the_running_service(make_machine):
    machine = make_machine(stepped=True)
    load(machine, [backup(1, BEGIN + 300), backup(2, BEGIN + 320)])
    machine.start_web_service()
    configure(machine, detection=0, alert=0)
    history_gathered_before(BEGIN)
    start_with_history(machine)
    wait_until(lambda: all(process_ids(name) for name in host.COMPANIONS), 30, "the companions run")
    begin, end = next_gather(machine)
    wait_until(lambda: status(machine)["records"]["waiting"] == 0, 30, "the detection has judged")
    said = status(machine)
    assert [process["running"] for process in said["processes"]] == [True, True, True]
    assert [process["process"] for process in said["processes"]] == [
        process_ids(name)[0] for name in (host.SERVICE, *host.COMPANIONS)]
    assert said["gather"]["last"] == end
    assert (said["gather"]["log"]["gathers"], said["gather"]["log"]["failed"]) == (1, 0)
    assert (said["records"]["history"], said["records"]["to_process"]) == (2, 2)
    assert said["streams"] == {"total": 1, "learning": 1, "judged": 0, "dormant": 0}
    answer = ctl(machine, "check", *NO_DISK)
    assert (answer.returncode, answer.stdout[:10]) == (0, "ANOMALY OK"), answer.stdout

    machine.misbehave("500 *")
    machine.stop_web_service()
    next_gather(machine)
    assert status(machine)["gather"]["log"]["failed"] == 1
    os.kill(process_ids("cvanomalydetect")[0], signal.SIGKILL)
    wait_until(lambda: not process_ids("cvanomalydetect"), 10, "the detection is dead")
    answer = ctl(machine, "check", *NO_DISK)
    assert (answer.returncode, answer.stderr) == (2, "")
    assert answer.stdout.startswith("ANOMALY CRITICAL - cvanomalydetect does not run"), answer.stdout
    os.kill(process_ids(host.SERVICE)[0], signal.SIGKILL)
    wait_until(lambda: not process_ids(host.SERVICE), 10, "the service is dead")
    assert status(machine)["records"]["history"] == 2  # from the log that it left
    machine.clock.advance(DAY)
    answer = ctl(machine, "check", *NO_DISK)
    assert re.match(r"ANOMALY CRITICAL - cvanomalymgmt does not run; .*last gather 24 h", answer.stdout)


def test_a_fresh_machine_has_no_database(machine):
    answer = ctl(machine, "status")
    assert (answer.returncode, answer.stdout) == (3, "")
    assert answer.stderr.count("\n") == 1 and str(host.DATABASE) in answer.stderr
    assert ctl(machine, "check").returncode == 3


def test_writers_are_not_held_up(world):
    ended = threading.Event()
    commits = []

    def write():
        with contextlib.closing(sqlite3.connect(world.path, timeout=0)) as db:
            db.execute("PRAGMA synchronous=OFF")
            while not ended.is_set():
                with db:
                    db.execute("UPDATE LAST_BACKUP_DATA_CAPTURE SET LAST_BACKUP_TIME = LAST_BACKUP_TIME + 1")
                commits.append(1)
                if len(commits) % 50 == 0:
                    db.execute("PRAGMA wal_checkpoint(PASSIVE)")

    writer = threading.Thread(target=write)
    writer.start()
    try:
        for _ in range(5):
            for command in (("status",), ("streams",), ("anomalies",), ("metrics",), ("show", world.bad[0])):
                answer = world.run(*command)
                assert (answer.returncode, answer.stderr) == (0, "")
        assert writer.is_alive()  # a lock would have ended it
    finally:
        ended.set()
        writer.join()
    assert len(commits) > 100
    assert world.db.execute("PRAGMA wal_checkpoint(TRUNCATE)").fetchone()[0] == 0


def test_a_locked_database(world):
    world.db.close()
    with contextlib.closing(sqlite3.connect(world.path)) as db:
        db.execute("PRAGMA locking_mode=EXCLUSIVE")
        db.execute("BEGIN EXCLUSIVE")
        begin = time.monotonic()
        answer = world.run("status")
        assert 4 < time.monotonic() - begin < 30
        assert (answer.returncode, answer.stdout) == (4, "")
        assert answer.stderr == (f"cvanomalyctl: {world.path} is locked by another program, and stayed so for 5 "
                                 "seconds; try again.\n")
        assert world.run("check").returncode == 3
    assert world.run("status").returncode == 0


def test_a_full_disk_does_not_look_like_success(world):
    with open("/dev/full", "w") as full:
        answer = subprocess.run(world.command("streams"), stdout=full, stderr=subprocess.PIPE, text=True, timeout=60)
    assert (answer.returncode, answer.stderr) == (
        8, "cvanomalyctl: Cannot write to standard output: No space left on device.\n")
    with open("/dev/full", "w") as full:
        answer = subprocess.run(world.command("check"), stdout=full, stderr=subprocess.PIPE, text=True, timeout=60)
    assert (answer.returncode, answer.stderr) == (
        3, "cvanomalyctl: Cannot write to standard output: No space left on device.\n")
    page = small_disk() / "report.html"
    page.write_text("former")
    filler = page.parent / "filler"
    with contextlib.suppress(OSError), filler.open("wb", buffering=0) as out:
        while out.write(bytes(65536)):
            pass
    try:
        answer = world.run("report", "--html", page)
        assert (answer.returncode, page.read_text()) == (8, "former")
        assert list(page.parent.glob(".report.html*")) == []
    finally:
        filler.unlink()
        page.unlink()


# --- On a terminal ---


def on_terminal(command, columns=80, **environment):
    """What the command writes to a terminal of so many columns."""
    ours, its = pty.openpty()
    fcntl.ioctl(its, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    process = subprocess.Popen(command, stdin=its, stdout=its, stderr=its, env={
        "PATH": os.environ["PATH"], "TERM": "xterm", "LANG": "C.UTF-8", **environment})
    os.close(its)
    said = b""
    while select.select([ours], [], [], 60)[0]:
        try:
            said += os.read(ours, 65536)
        except OSError:  # its end is closed
            break
    os.close(ours)
    assert process.wait() == 0
    return said.decode()


def test_colour_only_on_a_terminal(world):
    assert "\x1b[31m" in on_terminal(world.command("anomalies"))
    assert "\x1b" not in on_terminal(world.command("anomalies"), NO_COLOR="1")
    assert "\x1b" not in on_terminal(world.command("anomalies", "--no-color"))
    assert "\x1b" not in on_terminal(world.command("anomalies"), TERM="dumb")
    assert "\x1b" not in world.run("anomalies").stdout


@pytest.mark.parametrize("columns", [60, 80, 132])
def test_tables_fit_the_terminal(world, columns):
    for command in (("streams",), ("anomalies",), ("show", world.bad[0])):
        for line in on_terminal(world.command(*command), columns, NO_COLOR="1").split("\r\n"):
            assert len(line) <= columns or " " not in line.strip(), line
    assert "\N{HORIZONTAL ELLIPSIS}" in on_terminal(world.command("anomalies"), 60)


def test_a_terminal_without_utf8(world):
    assert on_terminal(world.command("show", world.bad[0]), LANG="C").isascii()


def test_times_are_local_or_utc(world):
    last = world.now - 60
    for zone, flags in (("Asia/Tokyo", ()), ("UTC", ("--utc",))):
        said = world.run("status", *flags, env={"TZ": "Asia/Tokyo"}).stdout
        wanted = subprocess.run(["date", "-d", f"@{last}", "+%Y-%m-%d %H:%M"], env={"TZ": zone}, capture_output=True,
                                text=True, check=True).stdout.strip()
        assert f"Last gather   {wanted}" in said


def completions(world, *words, setup=""):
    script = (f"PATH={host.BIN}:$PATH; source {PROJECT}/operator_tool/completion/cvanomalyctl.bash; {setup}"
              'COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _cvanomalyctl; printf "%s\\n" "${COMPREPLY[@]}"')
    answer = subprocess.run(["bash", "-c", script, "bash", CTL, *words], capture_output=True, text=True, timeout=60,
                            check=True)
    assert answer.stderr == ""
    return answer.stdout.split()


def test_completion_of_bash(world, tmp_path):
    assert completions(world, "st") == ["status", "streams"]
    assert completions(world, "anomalies", "--se") == ["--severity"]
    assert completions(world, "--utc", "check", "--disk") == ["--disk-warning", "--disk-critical"]
    assert completions(world, "anomalies", "--severity", "") == ["1", "2", "3"]
    assert completions(world, "streams", "--state", "l") == ["learning"]
    assert str(world.path) in completions(world, "--database", str(tmp_path / "CV_A"))
    ids = completions(world, "--database", str(world.path), "show", "anomaly_")
    assert ids[0] == "anomaly_" + world.bad[-1] and len(ids) == 2
    witness = tmp_path / "witness"
    with world.db:
        world.db.execute("UPDATE ANOMALY_DATA SET ANOMALY_UNIQUE_ID = ANOMALY_UNIQUE_ID || ?",
                         (f"$(touch {witness})`touch {witness}`",))
    assert completions(world, "--database", str(world.path), "show", "anomaly_") == []
    assert not witness.exists()


def test_completion_knows_every_option(world):
    """What --help names is completed, and nothing else."""
    help_of = lambda *words: world.run(*words, "--help").stdout  # noqa: E731
    commands = re.findall(r"^  (\w+) ", help_of().split("Subcommands:")[1], re.M)
    option = r"^  (?:-\w,)?(--[\w-]+)"
    general = re.findall(option, help_of(), re.M)
    assert sorted(completions(world, "")) == sorted(commands + general)
    for command in commands:
        own = set(re.findall(option, help_of(command), re.M))
        assert set(completions(world, command, "--")) == own | set(general), command


# --- For programs ---


def test_metrics_are_prometheus_own(world, tmp_path):
    need("promtool")
    target = tmp_path / "cvanomaly.prom"
    assert world.run("metrics", "--output", target).stdout == ""
    text = target.read_text()
    assert text == world.run("metrics").stdout or "cvanomaly_rows_waiting 1\n" in text
    checked = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True, timeout=60)
    assert (checked.returncode, checked.stdout, checked.stderr) == (0, "", "")
    documented = set(re.findall(r"^\| `(cvanomaly_\w+)`", (PROJECT / "docs/operator-tool.md").read_text(), re.M))
    assert set(re.findall(r"^# TYPE (\w+)", text, re.M)) < documented
    assert list(tmp_path.glob(".cvanomaly*")) == []


def members(value, path=""):
    """(path, type) of all that a document holds, as the documentation writes them."""
    if isinstance(value, dict) and value:
        for name, inner in value.items():
            yield from members(inner, f"{path}.{name}" if path else name)
    elif isinstance(value, list):
        for inner in value:
            yield from members(inner, path + "[]")
    else:
        names = {bool: "boolean", int: "integer", float: "number", str: "text", type(None): "null", dict: "object"}
        yield path, names[type(value)]


def documented(command):
    text = (PROJECT / "docs/operator-tool.md").read_text()
    section = re.search(rf"^### {command}\n(.*?)(?=^### |\Z)", text, re.M | re.S)[1]
    return dict(re.findall(r"^\| `([^`]+)` \| ([^|]+?) \|", section, re.M))


def fits(kind, wanted):
    return kind in wanted.split(" or ") or (kind == "integer" and wanted == "number")


@pytest.fixture
def told_world(world):
    """With a channel of the alerts that fails."""
    schema = (PROJECT / "companions/alert/state_database.cpp").read_text()
    statements = re.search(r"kSchema\{(.*?)\};", schema, re.S)[1]
    with contextlib.closing(sqlite3.connect(world.directory / "CV_Anomaly_Alerts.db")) as db, db:
        for statement in re.split(r",\n\s*(?=\"CREATE)", statements):
            db.execute("".join(re.findall(r'"(.*?)"', statement)))
        db.execute("INSERT INTO meta VALUES ('tag', 'x')")
        db.execute("INSERT INTO channel VALUES ('mail', 3, 0, 1, 'no answer', 0, 5)")
        db.execute("INSERT INTO incident (id, name, anomaly_id, last_anomaly, client, policy, policy_type, schedule_type,"
                   " schedule_name, application_type, destination, has_stream, first_time, last_time, severity, cause,"
                   " records, until, is_open, changed) VALUES (1, ?, '', '', '', '', '', '', '', '', '', 0, 0, 0, 1, '',"
                   " 1, 0, 1, 0)", ("incident_" + world.bad[-1],))
        db.execute("INSERT INTO delivery VALUES (1, 'mail', 1, 1, 3, 0, ?, 0, 0, 1, 1, 'no answer', 0)", (world.now,))
    return world


@pytest.mark.parametrize("command", ["status", "streams", "anomalies", "show", "explain", "backtest", "check", "metrics",
                                     "report"])
def test_every_document_is_as_documented(told_world, command):
    more = {"show": [told_world.bad[0]], "explain": [told_world.bad[-1]], "backtest": ["30"],
            "report": ["--html", str(told_world.directory / "report.html")]}
    answer = told_world.run(command, *more.get(command, []), "--json")
    document = json.loads(answer.stdout)
    assert (document.pop("schema"), document.pop("command")) == (1, command)
    wanted = documented(command)
    objects = [path for path, kind in wanted.items() if kind == "object"]
    seen = set()
    for path, kind in members(document):
        whole = next((name for name in objects if path == name or path.startswith((name + ".", name + "["))), None)
        seen.add(whole or path)
        if whole is None:
            assert path in wanted, f"{path} is not documented"
            assert fits(kind, wanted[path]), f"{path} is {kind}, documented as {wanted[path]}"
    assert seen == set(wanted)


# --- The report in a browser ---


def rendered(page, fragment=""):
    """The page's document after its scripts have run, and what was complained of there, not in the browser's own pages."""
    need("chromium")
    answer = subprocess.run(
        ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--disable-breakpad",
         "--user-data-dir=/tmp/chromium", "--window-size=1400,3000", "--virtual-time-budget=5000",
         "--enable-logging=stderr", "--dump-dom", f"file://{page}{fragment}"],
        capture_output=True, text=True, timeout=120, check=True, env={"PATH": os.environ["PATH"], "HOME": "/tmp"})
    return answer.stdout, [line for line in answer.stderr.splitlines()
                           if "CONSOLE" in line and "source: chrome://" not in line]


def body_of(dom):
    return dom[:dom.index('<script type="application/json"')]


def test_the_report_in_a_browser(tmp_path):
    world = World(tmp_path, HOSTILE)
    page = tmp_path / "report.html"
    answer = world.run("report", "--html", page)
    assert (answer.returncode, answer.stderr) == (0, "")
    dom, complaints = rendered(page)
    assert complaints == []
    assert 'data-drawn="yes"' in dom
    body = body_of(dom)
    assert "<img" not in body and "<canvas" in body
    assert "&lt;/script&gt;&lt;img src=x onerror=alert(1)&gt;" in body
    assert body.count('<article class="card">') == 2
    assert "Files may have been deleted." in body
    dom, _ = rendered(page, "#db01")
    assert body_of(dom).count('<article class="card">') == 1
    world.db.close()


def test_a_report_of_many_clients_is_drawn_as_it_is_looked_at(tmp_path):
    world = World(tmp_path)
    with world.db:
        world.insert("HIST_DATA", (world.row(f"client{number:04}", day, -1, job=number * 100 + day)
                                   for number in range(2000) for day in range(10)))
    page = tmp_path / "report.html"
    assert world.run("report", "--html", page).stdout.startswith(f"{page}: 2,002 clients, 2 anomalies")
    dom, complaints = rendered(page)
    assert complaints == []
    body = body_of(dom)
    assert body.count('<article class="card">') == 20
    assert "Show more, 1,982 are left" in body
    dom, _ = rendered(page, "#client1234")
    assert body_of(dom).count('<article class="card">') == 1
    world.db.close()
