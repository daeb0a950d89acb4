"""The machine that the demo and the end-to-end tests run on.

To be used inside embedded_host/sandbox, where /usr/tessel is a tree of our own: lays out the host
product's files, starts its web service and a sped-up clock, runs cvanomalymgmt, looks at what came of it.
Everything it starts it ends, by process id.
"""

import contextlib
import os
import re
import signal
import sqlite3
import subprocess
import tempfile
import time
from pathlib import Path

TREE = Path("/usr/tessel")
BIN = TREE / "corvane/bin"
LOGS = TREE / "corvane/logs"
CREDENTIALS = TREE / "var/credentials"
DATABASE_DIR = TREE / "var/global/anomaly_detection"
DATABASE = DATABASE_DIR / "CV_Anomaly.db"
CONFIG = DATABASE_DIR / "anomaly_config.conf"
CATALOG = TREE / "var/global/catalog.db"
FAULTS = TREE / "var/global/faults"

MASTER = "master01.example.com"
SERVICE = "cvanomalymgmt"
COMPANIONS = ("cvanomalydetect", "cvanomalyalert")

HISTORY_SECONDS = 7862400

BASE_ENVIRONMENT = {"PATH": os.environ["PATH"], "TZ": "UTC",
                    **{name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}}
FAKE_ENVIRONMENT = {**BASE_ENVIRONMENT, "FAKETIME_DONT_RESET": "1", "NO_FAKE_STAT": "1"}


class FakeTime:
    """The memory that libfaketime's processes share, for as long as this object is open. `environment` is for
    them."""

    def __init__(self, setting):
        self._holder = subprocess.Popen(
            ["faketime", "-m", "-f", setting, "sh", "-c", "env; echo; exec cat >/dev/null"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, env=FAKE_ENVIRONMENT)
        wanted = ("LD_PRELOAD", "FAKETIME", "FAKETIME_SHARED")
        self.environment = dict(FAKE_ENVIRONMENT)
        for line in iter(self._holder.stdout.readline, "\n"):
            name, _, value = line.rstrip("\n").partition("=")
            if name in wanted:
                self.environment[name] = value

    def close(self):
        self._holder.stdin.close()
        self._holder.wait()
        self._holder.stdout.close()


class Clock(FakeTime):
    """A clock that begins at `begin` (seconds since the epoch) and runs `speed` times as fast, the same
    for all processes that are started with `environment`. Sleeps and time-outs shrink with it."""

    def __init__(self, begin, speed):
        stamp = time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(begin))
        super().__init__(f"@{stamp} x{speed}")
        self.speed = speed
        reading = subprocess.run(["date", "+%s.%N"], env=self.environment, capture_output=True, text=True,
                                 check=True)
        self._read_at = time.monotonic()
        self._reading = float(reading.stdout)

    def now(self):
        return self._reading + (time.monotonic() - self._read_at) * self.speed


class SteppedClock(FakeTime):
    """A clock that begins at `begin`, runs at normal speed, and is set forward by advance() for all
    processes that are started with `environment`. Sleeps and time-outs keep their length."""

    speed = 1

    def __init__(self, begin):
        super().__init__("+0")
        self._offset = begin - time.time()
        descriptor, self._file = tempfile.mkstemp(prefix="clock-")
        os.close(descriptor)
        self.advance(0)
        del self.environment["FAKETIME"]
        self.environment.update({"FAKETIME_TIMESTAMP_FILE": self._file, "FAKETIME_NO_CACHE": "1",
                                 "FAKETIME_DONT_FAKE_MONOTONIC": "1", "DONT_FAKE_MONOTONIC": "1"})

    def now(self):
        return time.time() + self._offset

    def advance(self, seconds):
        self._offset += seconds
        fresh = self._file + ".new"
        Path(fresh).write_text(f"{self._offset:+.6f}\n")
        os.rename(fresh, self._file)

    def close(self):
        super().close()
        Path(self._file).unlink(missing_ok=True)


class RealClock:
    """The machine's own clock, in the form of Clock."""

    speed = 1
    environment = BASE_ENVIRONMENT

    def now(self):
        return time.time()

    def close(self):
        pass


# A factor for time limits, for programs that are slower by nature, as under a sanitizer.
patience = 1


def wait_until(condition, seconds, what):
    """Polls until condition() is true and returns its value; fails after `seconds` of real time."""
    deadline = time.monotonic() + seconds * patience
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise TimeoutError(f"not within {seconds} s: {what}")
        time.sleep(0.02)


def process_ids(name):
    """The running processes whose short name or executable is `name`, without zombies."""
    found = []
    for entry in Path("/proc").iterdir():
        if not entry.name.isdigit():
            continue
        with contextlib.suppress(OSError):
            if re.search(r"\) [ZX] ", (entry / "stat").read_text()):
                continue
            executable = ""
            with contextlib.suppress(OSError):
                executable = os.path.basename(os.readlink(entry / "exe"))
            if name in ((entry / "comm").read_text().rstrip("\n"), executable):
                found.append(int(entry.name))
    return sorted(found)


def add_log_line(records, line):
    if line.startswith("\t") and records:
        level, tag, text = records[-1]
        records[-1] = (level, tag, text + "\n" + line[1:])
        return
    begin = re.match(r"\S+Z \d+d? (\d+) ([^:]*(?:::\w+)?): (.*)", line)
    if begin is None:
        raise ValueError(f"no record of a log: {line!r}")
    records.append((int(begin[1]), begin[2], begin[3]))


class Machine:
    def __init__(self, clock):
        self.clock = clock
        self._web_service = None
        self._logs = {}  # by program: how many bytes have been read, and the records in them

    def lay_out(self):
        """The host product's directories, configuration and credentials."""
        for directory in (LOGS, TREE / "var/global/incremental"):
            directory.mkdir(parents=True, exist_ok=True)
        (TREE / "corvane/corvane.conf").write_text(
            f"[domain]\nservers={MASTER} media01.example.com\n"
            f"[host]\nname={MASTER}\n"
            "[web]\nconnect_to=127.0.0.1\n")
        if not CREDENTIALS.exists():
            self.run("cvhostd", "credentials", CREDENTIALS, "--server", MASTER)

    def run(self, program, *arguments, check=True, **options):
        """Runs one of the product's programs under the machine's clock."""
        path = BIN / program
        command = [str(path if path.exists() else BIN / "admincmd" / program), *map(str, arguments)]
        options = {"capture_output": True, "text": True, "timeout": 120 * patience, **options}
        return subprocess.run(command, env=self.clock.environment, check=check, **options)

    def misbehave(self, *lines):
        """Makes the web service answer as these lines say (embedded_host/fault.h)."""
        fresh = FAULTS.with_suffix(".new")
        fresh.write_text("".join(line + "\n" for line in lines))
        fresh.rename(FAULTS)

    def requests(self):
        """The web service's access log, a line for each answered request."""
        try:
            return (LOGS / "web_access").read_text().splitlines()
        except FileNotFoundError:
            return []

    def start_web_service(self, *options, credentials=CREDENTIALS):
        self._web_service = subprocess.Popen(
            [str(BIN / "cvhostd"), "serve", "--catalog", str(CATALOG), "--credentials", str(credentials),
             "--fault-file", str(FAULTS), "--access-log", str(LOGS / "web_access"),
             "--time-out", str(10 * self.clock.speed), *map(str, options)],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=self.clock.environment)
        first_line = self._web_service.stdout.readline()
        if "1556" not in first_line:
            raise RuntimeError("cvhostd: " + first_line + self._web_service.stdout.read())

    def stop_web_service(self):
        if self._web_service is None:
            return
        self._web_service.send_signal(signal.SIGTERM)
        self._web_service.wait(timeout=20)
        self._web_service.stdout.close()
        self._web_service = None

    def configure(self, **keys):
        """Writes anomaly_config.conf; keys are named SECTION__KEY."""
        sections = {}
        for name, value in keys.items():
            section, _, key = name.partition("__")
            sections.setdefault(section, []).append(f"{key}={value}\n")
        DATABASE_DIR.mkdir(parents=True, exist_ok=True)
        fresh = CONFIG.with_suffix(".new")
        fresh.write_text("".join(f"[{section}]\n" + "".join(lines) for section, lines in sections.items()))
        fresh.rename(CONFIG)

    def service(self, option, **options):
        """One call of the control tool; the daemon that -start leaves behind does not inherit our pipes."""
        return self.run(SERVICE, option, check=False, **options)

    def daemon(self):
        """The process id of the daemon. A forked child has the daemon's name for a moment, until it becomes a tool
        or ends."""
        def only_one():
            ids = process_ids(SERVICE)
            return ids[0] if len(ids) == 1 else None
        return wait_until(only_one, 10, "one process of the service runs")

    def stop_service(self):
        self.service("-stop")
        wait_until(lambda: not process_ids(SERVICE), 60, "the service ends")

    def start_service(self):
        """Starts the service and returns the daemon's process id."""
        answer = self.service("-start")
        if answer.returncode != 0:
            raise RuntimeError(f"cvanomalymgmt -start: {answer}")
        return self.daemon()

    def log_records(self, level=None, program=SERVICE):
        """A program's log as (level, tag, text); continuation lines belong to their record."""
        read, records = self._logs.setdefault(program, (0, []))
        with contextlib.suppress(FileNotFoundError), (LOGS / program).open("rb") as log:
            if os.fstat(log.fileno()).st_size < read:  # it was rotated
                read = 0
            log.seek(read)
            fresh = log.read()
            fresh = fresh[:fresh.rfind(b"\n") + 1]
            for line in fresh.decode(errors="replace").split("\n")[:-1]:
                add_log_line(records, line)
            self._logs[program] = (read + len(fresh), records)
        return [record for record in records if level is None or record[0] == level]

    def logged(self, text):
        """The number of records whose text begins with this."""
        return sum(body.startswith(text) for _, _, body in self.log_records())

    def await_log(self, level, tag, text, count=1, seconds=60):
        """Waits until exactly this record is in the service's log `count` times."""
        record = (level, tag, text)
        wait_until(lambda: self.log_records().count(record) >= count, seconds, f"{record} in the log")

    def query(self, sql, *parameters):
        """The rows of a query on the anomaly database; none while it does not exist."""
        if not DATABASE.exists():
            return []
        with contextlib.closing(sqlite3.connect(f"file:{DATABASE}?mode=ro", uri=True, timeout=10)) as db:
            try:
                return db.execute(sql, parameters).fetchall()
            except sqlite3.OperationalError as error:
                if "no such table" in str(error):
                    return []
                raise

    def last_gather_time(self):
        rows = self.query("SELECT LAST_BACKUP_TIME FROM LAST_BACKUP_DATA_CAPTURE")
        return rows[0][0] if rows else 0

    def close(self):
        for name in (SERVICE, *COMPANIONS):
            for pid in process_ids(name):
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGKILL)
        if self._web_service is not None:
            self._web_service.kill()
            self._web_service.wait()
            self._web_service.stdout.close()
            self._web_service = None
        self.clock.close()
