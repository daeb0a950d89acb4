"""What one incident is and whether it is over, what a stream is: all programs are asked after each step of a history.

A step is a night's backups or what people say; then the detection and the alerts run, each as a new process, and the
operator's list, status, report and the alerts' database have to say the same.
"""

import json
import re
import sqlite3
import subprocess
import sys
import time
from pathlib import Path

import machine as host
import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench/detect"))
import anomaly_db  # noqa: E402

DAY = 86400
LEARNT = 40  # nights of history before the first step
FALSE_POSITIVE, CONFIRMED = 1, 0

USUAL = {"files": 1000, "kb": 1000000, "transferred": 20000}
ENCRYPTED = {"files": 1000, "kb": 1000000, "transferred": 990000}
DELETED = {"files": 300, "kb": 300000, "transferred": 6000}
GROWN = {"files": 5000, "kb": 5000000, "transferred": 100000}
DOUBLED = {"files": 2500, "kb": 2500000, "transferred": 50000}


class World:
    """A database with two streams of one client, and the programs on it."""

    def __init__(self, directory):
        self.directory = Path(directory)
        self.path = self.directory / "CV_Anomaly.db"
        self.db = anomaly_db.create(self.path)
        self.db.execute("PRAGMA synchronous=OFF")
        self.night = LEARNT
        self.begin = int(time.time()) - 100 * DAY - 60
        self.anomalous = []  # keys, in the order in which they were reported
        for schedule in ("daily", "weekly"):
            self.insert("HIST_DATA", [self.row(night, schedule, -1, **USUAL) for night in range(LEARNT)])

    def row(self, night, schedule, mark, files, kb, transferred):
        wave = night * 7 % 11 - 5
        at = self.begin + night * DAY + (1800 if schedule == "weekly" else 0)
        return anomaly_db.row(f"client_{at}", at, "client", "FULL", schedule, files + wave, kb + 100 * wave,
                              (1000 if schedule == "daily" else 5000) + night, transferred + 300 * wave, 60,
                              round(kb / transferred, 4), mark)

    def insert(self, table, rows):
        with self.db:
            self.db.executemany(anomaly_db.insert_into(table), rows)

    def backup(self, figures, schedule="daily"):
        row = self.row(self.night, schedule, 0, **figures)
        self.insert("DATA_TO_PROCESS", [row])
        return row.UNIQUE_KEY

    def feedback(self, key, value):
        with self.db:
            self.db.execute("INSERT OR REPLACE INTO ANOMALY_DATA_FEEDBACK VALUES (?, ?, ?)",
                            ("anomaly_" + key, value, int(time.time())))

    def purge_anomaly(self, key):
        """As the service does when it has become old; the feedback is fetched anew with each gather."""
        with self.db:
            self.db.execute("DELETE FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = ?", ("anomaly_" + key,))

    def run(self, program, *arguments, check=True):
        return subprocess.run([str(host.BIN / program), *map(str, arguments)], check=check, capture_output=True,
                              text=True, timeout=60)

    def companions(self):
        place = ("-database_location", self.directory, "-database_file_name", self.path.name)
        self.run("cvanomalydetect", *place, "-config_file", self.directory / "anomaly_config.conf", "-once")
        # There is no web service, so nothing is delivered; the messages are created nevertheless.
        self.run("cvanomalyalert", *place, "-master", "localhost", "-once", check=False)

    def ctl(self, *arguments):
        return json.loads(self.run("cvanomalyctl", *arguments, "--database", self.path, "--json").stdout)

    # --- What each says: {key of the incident's first record: is it over} ---

    def of_the_list(self):
        over = {}
        for anomaly in self.ctl("anomalies")["anomalies"]:
            name = anomaly["incident"]
            assert over.setdefault(name, anomaly["incident_over"]) == anomaly["incident_over"], "one incident, one answer"
        return over

    def of_the_filters(self):
        return {anomaly["incident"]: over for over, option in ((False, "--ongoing"), (True, "--resolved"))
                for anomaly in self.ctl("anomalies", option)["anomalies"]}

    def of_the_report(self):
        page = self.directory / "report.html"
        self.ctl("report", "--html", page, "--days", "200")
        data = json.loads(re.search(r'<script[^>]*type="application/json"[^>]*>(.*?)</script>', page.read_text(),
                                    re.DOTALL)[1])
        return {incident["name"]: incident["over"] for incident in data["incidents"]}

    def of_the_alerts(self):
        with sqlite3.connect(self.directory / "CV_Anomaly_Alerts.db") as alerts:
            return {name: not is_open for name, is_open in alerts.execute("SELECT name, is_open FROM incident")}

    def check(self, expected, with_alerts=True):
        expected = {"incident_" + key: over for key, over in expected.items()}
        self.companions()
        assert self.of_the_list() == expected
        assert self.of_the_filters() == expected
        assert self.of_the_report() == expected
        if with_alerts:
            assert self.of_the_alerts() == expected
        assert self.ctl("status")["open_incidents"] == list(expected.values()).count(False)

    def nights(self, *all_figures):
        keys = []
        for figures in all_figures:
            keys.append(self.backup(figures))
            self.night += 1
        return keys


@pytest.fixture
def world(make_machine, tmp_path):
    make_machine(real=True)
    made = World(tmp_path)
    yield made
    made.db.close()


def reviews(world):
    return {anomaly["id"]: anomaly["state"] for anomaly in world.ctl("anomalies")["anomalies"]}


def test_an_incident_is_resolved_by_the_next_usual_backup(world):
    first, _ = world.nights(ENCRYPTED, DELETED)
    world.check({first: False})
    world.nights(USUAL)
    world.check({first: True})
    again, = world.nights(DELETED)
    world.check({first: True, again: False})
    world.nights(USUAL)
    world.check({first: True, again: True})


@pytest.mark.parametrize("which", [0, 1, 2])
def test_a_false_positive_on_any_record_ends_the_incident(world, which):
    records = world.nights(ENCRYPTED, DELETED, GROWN)
    incident = records[0]
    world.check({incident: False})
    assert set(reviews(world).values()) == {"open"}
    world.feedback(records[which], CONFIRMED)
    world.check({incident: False})
    world.feedback(records[which], FALSE_POSITIVE)
    world.check({incident: True})
    said = {name for name, review in reviews(world).items() if review == "false_positive"}
    assert said == {"anomaly_" + records[which]}, "what people said of the others is another column"
    world.check({incident: True})  # nothing new
    world.feedback(records[which], CONFIRMED)
    world.check({incident: False})
    world.nights(USUAL)
    world.check({incident: True})


def test_an_anomaly_after_a_false_positive_is_an_incident_of_its_own(world):
    records = world.nights(ENCRYPTED, DELETED)
    world.check({records[0]: False})
    world.feedback(records[1], FALSE_POSITIVE)
    world.check({records[0]: True})
    own, = world.nights(GROWN)
    world.check({records[0]: True, own: False})
    world.feedback(records[1], CONFIRMED)
    world.check({records[0]: False, own: False})
    world.nights(USUAL)
    world.check({records[0]: True, own: True})


def test_an_adopted_change_is_resolved_whatever_people_say_afterwards(world):
    first, second = world.nights(DOUBLED, DOUBLED)
    world.check({first: False})
    world.nights(DOUBLED)
    world.check({first: True})
    assert "adopted" in json.loads(world.db.execute(
        "SELECT ANOMALY_DETAILS FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = ?", ("anomaly_" + first,)).fetchone()[0])
    for feedback in (FALSE_POSITIVE, CONFIRMED):
        world.feedback(second, feedback)
        world.check({first: True})


def test_a_false_positive_before_the_adoption(world):
    first, = world.nights(DOUBLED)
    world.check({first: False})
    world.feedback(first, FALSE_POSITIVE)
    world.check({first: True})
    world.nights(DOUBLED)  # treated as normal now
    world.check({first: True})
    world.feedback(first, CONFIRMED)
    world.check({first: True})  # a backup after it was accepted


def test_two_streams_of_one_client_are_two_incidents(world):
    daily, weekly = world.backup(ENCRYPTED), world.backup(ENCRYPTED, "weekly")
    world.night += 1
    world.check({daily: False, weekly: False})
    world.nights(USUAL)
    world.check({daily: True, weekly: False})
    world.feedback(weekly, FALSE_POSITIVE)
    world.check({daily: True, weekly: True})


def test_a_backup_that_is_gathered_late(world):
    missing = world.night
    world.night += 1
    world.nights(USUAL)
    world.companions()
    world.insert("DATA_TO_PROCESS", [late := world.row(missing, "daily", 0, **DELETED)])
    world.check({late.UNIQUE_KEY: True})


def test_after_the_purge_of_the_first_record(world):
    records = world.nights(ENCRYPTED, DELETED)
    world.check({records[0]: False})
    world.feedback(records[0], FALSE_POSITIVE)
    world.check({records[0]: True})
    world.purge_anomaly(records[0])
    world.check({records[0]: True})


def test_all_say_the_same_of_a_stream(world):
    """Judged, learning, dormant: as streams and explain say of the next backup."""

    def said(key):
        judgement = world.ctl("explain", key)["judgement"]
        [stream] = [one for one in world.ctl("streams")["streams"] if one["schedule_name"] == "daily"]
        words = re.search(r"^Stream state +(.*)$", world.run("cvanomalyctl", "explain", key, "--database", world.path)
                          .stdout, re.M)[1]
        assert words == judgement["stream_state"]
        return stream["state"], stream["that_matter"], judgement["stream_state"]

    def configure(days, least=30):
        (world.directory / "anomaly_config.conf").write_text(
            f"[ANOMALY_MODEL_SETTINGS]\nDAYS_FOR_LAST_BACKUP_TO_IGNORE_ANOMALY={days}\n"
            f"MIN_OBSERVATIONS_FOR_TRAINING={least}\n")

    configure(365)
    world.night = 99
    latest, = world.nights(USUAL)  # a day ago
    world.companions()
    assert said(latest) == ("judged", LEARNT + 1, "judged")
    configure(10)
    assert said(latest) == ("learning", 1, "dormant")  # it came after a pause of two months
    world.night = 96
    world.nights(USUAL, USUAL, USUAL)
    world.companions()
    assert said(latest) == ("learning", 4, "learning 3 of 30")
    configure(10, least=4)
    assert said(latest)[:2] == ("judged", 4)
    configure(1)
    assert said(latest)[0] == "dormant"  # silent for a day and a minute
