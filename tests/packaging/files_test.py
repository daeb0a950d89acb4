"""The files around the programs: sample configuration, manual pages, monitoring, maintainer scripts."""

import json
import os
import re
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
PACKAGING = PROJECT / "packaging"
BUILD = Path(os.environ["CV_BUILD_DIRECTORY"])
MADE = BUILD / "packaging"
PAGES = {page.name: page for page in [*(PACKAGING / "man").glob("*.8"), *MADE.glob("*.5")]}

# That the tool has these and no others, an end-to-end test says (e2e.operator_tool).
METRICS = set(re.findall(r"^\| `(cvanomaly_\w+)`", (PROJECT / "docs/operator-tool.md").read_text(), re.M))


def said(program, *arguments):
    """What a program of the build prints."""
    return subprocess.run([BUILD / program, *arguments], capture_output=True, text=True, check=True, timeout=60).stdout


def settings():
    """{(section, key): row of the table}."""
    return {(row["section"], row["key"]): row for row in json.loads(said("config/settings_documents", "json"))}


def sample():
    """{(section, key): (value, comment before it)} of the sample, which has nothing else."""
    entries, section, comment = {}, None, []
    for line in (MADE / "anomaly_config.conf").read_text().splitlines():
        if line.startswith("#"):
            comment.append(line[1:].strip())
        elif line.startswith("["):
            section, comment = line.strip("[]"), []
        elif line:
            key, _, value = line.partition("=")
            assert (section, key) not in entries, f"{key} stands there twice"
            entries[section, key] = (value, " ".join(comment))
            comment = []
    return entries


class SampleConfiguration(unittest.TestCase):
    def test_has_every_key_at_its_default_and_no_other(self):
        found = {place: value for place, (value, _) in sample().items()}
        self.assertEqual(len(found), 29)
        self.assertEqual(found, {place: row["default"] for place, row in settings().items()})

    def test_says_of_every_key_what_it_means_its_bounds_and_who_reads_it(self):
        table = settings()
        for place, (_, comment) in sample().items():
            row = table[place]
            with self.subTest(key=row["key"]):
                allowed = f"{row['least']} to {row['most']} {row['unit']}" if row["type"] == "integer" else row["unit"]
                self.assertEqual(comment, " ".join(filter(None, (
                    row["meaning"], f"Value: {allowed or '0 or 1'}. Read by {row['readers']}.", row["note"]))))


class ManualPages(unittest.TestCase):
    def test_there_is_one_for_each_program_and_the_configuration(self):
        self.assertEqual(sorted(PAGES), [
            "anomaly_config.conf.5", "cvanomalyalert.8", "cvanomalyctl.8", "cvanomalydetect.8", "cvanomalyheal.8",
            "cvanomalymgmt.8"])

    def test_are_well_formed(self):
        for name, page in PAGES.items():
            with self.subTest(page=name):
                lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", str(page)], capture_output=True,
                                      text=True, check=False)
                self.assertEqual((lint.returncode, lint.stdout, lint.stderr), (0, "", ""))

    def test_name_every_option_of_the_companions(self):
        for program in ("detect", "alert"):
            usage = said(f"companions/{program}/cvanomaly{program}", "-help")
            page = PAGES[f"cvanomaly{program}.8"].read_text()
            options = set(re.findall(r"(?<![\w-])-([a-z_]+)", usage))
            self.assertGreater(len(options), 5)
            for option in options:
                with self.subTest(program=program, option=option):
                    self.assertRegex(page, rf"Fl [^\n]*\b{option}\b")

    def test_name_every_command_and_option_of_the_operators_tool(self):
        usage = said("operator_tool/cvanomalyctl", "--help")
        page = PAGES["cvanomalyctl.8"].read_text()
        commands = re.findall(r"^  (\w+) ", usage.split("Subcommands:")[1], re.M)
        usages = [usage, *(said("operator_tool/cvanomalyctl", command, "--help") for command in commands)]
        options = {option for text in usages for option in re.findall(r"^  (?:-\w,)?--([\w-]+)", text, re.M)}
        self.assertEqual(len(commands), 11)
        self.assertGreater(len(options), 10)
        for command in commands:
            self.assertRegex(page, rf"(?m)^\.It Cm {command}\b")
        for option in options:
            self.assertRegex(page, rf"(Fl|\|) -{option}\b")

    def test_exit_statuses_are_those_of_the_tool(self):
        told = said("operator_tool/cvanomalyctl", "--help").split("Exit status: ")[1].split(".\n")[0]
        statuses = re.findall(r"\b(\d) ", told)
        self.assertEqual(len(statuses), 9)
        page = PAGES["cvanomalyctl.8"].read_text()
        self.assertEqual(re.findall(r"^\.It (\d)$", page, re.M), statuses)
        table = (PROJECT / "docs/operator-tool.md").read_text().split("## Exit status")[1].split("\n## ")[0]
        self.assertEqual(re.findall(r"^\| (\d) \|", table, re.M), statuses)

    def test_has_every_key_with_its_default(self):
        page = PAGES["anomaly_config.conf.5"].read_text()
        described = dict(re.findall(r"^\.It Li (\w+)\n(?:(?!\.It)[^\n]*\n)*?Default: ([^\n]*)\.$", page, re.M))
        self.assertEqual(described, {key: row["default"] or "empty" for (_, key), row in settings().items()})


class Monitoring(unittest.TestCase):
    def test_rules_use_known_metrics(self):
        for name in ("alerts.yml", "alerts_test.yml", "dashboard.json"):
            used = set(re.findall(r"\bcvanomaly_\w+", (PACKAGING / "monitoring" / name).read_text()))
            self.assertGreater(len(used), 5)
            self.assertEqual(used - METRICS, set(), name)

    def test_dashboard_shows_every_metric(self):
        dashboard = json.loads((PACKAGING / "monitoring/dashboard.json").read_text())
        shown = " ".join(target["expr"] for panel in dashboard["panels"] for target in panel["targets"])
        self.assertEqual(len(METRICS), 28)
        self.assertEqual(set(re.findall(r"cvanomaly_\w+", shown)), METRICS)

    def test_panels_do_not_overlap(self):
        dashboard = json.loads((PACKAGING / "monitoring/dashboard.json").read_text())
        taken = set()
        for panel in dashboard["panels"]:
            at = panel["gridPos"]
            cells = {(x, y) for x in range(at["x"], at["x"] + at["w"]) for y in range(at["y"], at["y"] + at["h"])}
            self.assertFalse(cells & taken, panel["title"])
            self.assertLessEqual(at["x"] + at["w"], 24)
            taken |= cells


ENDING = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)


def heed_signals():
    """Whoever called this test may have had some of them ignored, as nohup does; that is inherited."""
    for number in ENDING:
        signal.signal(number, signal.SIG_DFL)


class WritingTheMetrics(unittest.TestCase):
    """packaging/write_metrics with a stand-in for cvanomalyctl."""

    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = Path(scratch.name)
        self.directory = self.root / "collected"
        self.directory.mkdir()
        script = (PACKAGING / "write_metrics").read_text()
        for place, own in (("/usr/tessel/corvane/bin/cvanomalyctl", self.root / "stand_in"),
                           ("/usr/tessel/var/global/anomaly_detection", self.root)):
            self.assertIn(place, script)
            script = script.replace(place, str(own))
        (self.root / "write_metrics").write_text(script)

    def start(self, stand_in):
        """The script in a process group of its own."""
        (self.root / "stand_in").write_text("#!/bin/sh\n" + stand_in)
        (self.root / "stand_in").chmod(0o755)
        return subprocess.Popen(["/bin/sh", self.root / "write_metrics", self.directory], start_new_session=True,
                                preexec_fn=heed_signals)

    def collected(self):
        return {path.name: path.read_text() for path in self.directory.iterdir()}

    def test_what_the_tool_says_becomes_the_file(self):
        self.assertEqual(self.start("echo figures").wait(30), 0)
        self.assertEqual(self.collected(), {"cvanomaly.prom": "figures\n"})

    def test_a_failure_leaves_the_former_file_alone(self):
        (self.directory / "cvanomaly.prom").write_text("former")
        self.assertEqual(self.start("echo half; exit 5").wait(30), 5)
        self.assertEqual(self.collected(), {"cvanomaly.prom": "former"})

    def test_what_is_known_without_a_database_becomes_the_file(self):
        (self.directory / "cvanomaly.prom").write_text("former")
        problems = 'cvanomaly_health_problems{level="critical"} 1\n'
        self.assertEqual(self.start(f"printf '{problems}'; exit 6").wait(30), 6)
        self.assertEqual(self.collected(), {"cvanomaly.prom": problems})

    def test_a_run_that_is_ended_leaves_nothing_behind(self):
        for number in ENDING:
            with self.subTest(signal=number):
                (self.root / "hangs").unlink(missing_ok=True)
                run = self.start(f"touch {self.root}/hangs; exec sleep 60")
                deadline = time.monotonic() + 30
                while not (self.root / "hangs").exists() and time.monotonic() < deadline:
                    time.sleep(0.01)
                self.assertEqual(len(self.collected()), 1)
                os.killpg(run.pid, number)  # as the service manager ends a unit: every process of it
                self.assertGreater(run.wait(30), 0)
                self.assertEqual(self.collected(), {})


class Programs(unittest.TestCase):
    def test_package_and_logrotate_know_the_same_logs(self):
        rotated = re.findall(r"^/usr/tessel/corvane/logs/(\w+)$", (PACKAGING / "logrotate/cvanomalymgmt").read_text(),
                             re.M)
        self.assertEqual(sorted(rotated), ["cvanomalyalert", "cvanomalydetect", "cvanomalyheal", "cvanomalymgmt"])

    def test_versions_agree(self):
        project = re.search(r"project\(cvanomalymgmt VERSION ([\d.]+)", (PROJECT / "CMakeLists.txt").read_text())[1]
        changelog = (PACKAGING / "debian/changelog").read_text()
        self.assertTrue(changelog.startswith(f"cvanomalymgmt ({project}) "))


if __name__ == "__main__":
    unittest.main()
