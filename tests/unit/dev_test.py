"""What ./dev asks of apt, CMake and ctest, which stand-ins take the place of."""

import os
import shutil
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
TESTS_NEED = {"libgtest-dev", "libgmock-dev", "python3-pytest", "chromium", "lintian", "systemd-container"}
LOCKED = "E: Could not get lock /var/lib/apt/lists/lock. It is held by process 42 (apt-get)"
# Each notes its name and arguments. dpkg-query finds what stands in `installed`; apt-get fails with the
# next line of `apt_errors` while there is one.
STAND_INS = {
    "cmake": "",
    "ctest": "",
    "sleep": "",
    "sudo": 'exec "$@"',
    "promtool": "",
    "dpkg-query": 'grep -qx "${@: -1}" installed && echo "install ok installed"',
    "apt-get": 'if [ -s apt_errors ]; then head -1 apt_errors >&2; sed -i 1d apt_errors; exit 100; fi',
    "../embedded_host/demo.sh": "",
    "../bench/detect/run.sh": "",
    "../bench/gather/run.sh": "",
}


class DevTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name)
        shutil.copy(PROJECT / "dev", self.root)
        (self.root / "installed").touch()
        (self.root / "bin").mkdir()
        for name, body in STAND_INS.items():
            self.stand_in(f"bin/{name}", body)

    def stand_in(self, name, body=""):
        path = (self.root / name).resolve()
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(f'#!/bin/bash\ncd {self.root}\necho "{path.name} $*" >>calls\n{body}\n')
        path.chmod(0o755)

    def dev(self, *arguments):
        """Runs ./dev; gives its end and the calls that it made, in order."""
        (self.root / "calls").write_text("")
        done = subprocess.run([self.root / "dev", *arguments], capture_output=True, text=True, timeout=60, check=False,
                              env={"PATH": f"{self.root}/bin:{os.environ['PATH']}"})
        return done, (self.root / "calls").read_text().splitlines()

    def succeeds(self, *arguments):
        done, calls = self.dev(*arguments)
        self.assertEqual(done.returncode, 0, done.stderr)
        return calls

    def of(self, program, calls):
        return [call.removeprefix(program + " ") for call in calls if call.startswith(program + " ")]

    def build_folder_with(self, tests):
        cache = self.root / "build/dev/CMakeCache.txt"
        cache.parent.mkdir(parents=True)
        cache.write_text(f"CV_BUILD_BENCH:BOOL=ON\nCV_BUILD_TESTS:BOOL={tests}\n")

    def test_the_demo_builds_the_programs_alone(self):
        before = int(time.time())
        calls = self.succeeds("demo")
        self.assertEqual(self.of("cmake", calls), ["--preset dev -DCV_BUILD_TESTS=OFF",
                                                   "--build --preset dev --target cv_programs"])
        (demo,) = self.of("demo.sh", calls)
        self.assertEqual(demo.split()[:2], ["build/dev", "build/demo"])
        self.assertLessEqual(before, int(demo.split()[2]))
        self.assertLessEqual(int(demo.split()[2]), time.time())

    def test_the_demo_installs_nothing_that_only_tests_need(self):
        update, install = self.of("apt-get", self.succeeds("demo"))
        self.assertIn(" update", update)
        packages = set(install.split())
        self.assertFalse(packages & TESTS_NEED)
        self.assertLessEqual({"g++", "libcpp-httplib-dev", "bubblewrap", "faketime"}, packages)

    def test_a_build_folder_that_has_the_tests_keeps_them(self):
        self.build_folder_with(tests="ON")
        self.assertEqual(self.of("cmake", self.succeeds("demo"))[0], "--preset dev")

    def test_a_build_folder_without_the_tests_stays_without_them(self):
        self.build_folder_with(tests="OFF")
        self.assertEqual(self.of("cmake", self.succeeds("demo"))[0], "--preset dev -DCV_BUILD_TESTS=OFF")

    def test_each_kind_of_tests_builds_what_it_needs(self):
        for kind, targets, label in (("unit", "tests/unit/all tests/fuzz/all", " -L unit"),
                                     ("e2e", "cv_programs", " -L e2e"),
                                     ("package", "cv_programs package_pages", " -L package"),
                                     ("all", "all", "")):
            with self.subTest(kind):
                calls = self.succeeds("test", *([] if kind == "all" else [kind]))
                self.assertEqual(self.of("cmake", calls), ["--preset dev", f"--build --preset dev --target {targets}"])
                (run,) = self.of("ctest", calls)
                self.assertRegex(run, rf"^--test-dir build/dev --output-on-failure -j [0-9]+{label}$")

    def test_one_kind_of_tests_runs_under_a_sanitizer(self):
        calls = self.succeeds("sanitize", "asan", "unit")
        self.assertEqual(self.of("cmake", calls),
                         ["--preset asan", "--build --preset asan --target tests/unit/all tests/fuzz/all"])
        self.assertRegex(self.of("ctest", calls)[0], "^--test-dir build/asan .* -L unit$")

    def test_all_tests_run_under_all_sanitizers(self):
        runs = self.of("ctest", self.succeeds("sanitize"))
        self.assertEqual([run.split()[1] for run in runs], ["build/asan", "build/tsan"])
        self.assertFalse([run for run in runs if "-L" in run])

    def test_all_parsers_share_the_seconds(self):
        for name in ("a", "b"):
            corpus = self.root / f"tests/fuzz/corpus/{name}.tar"
            corpus.parent.mkdir(parents=True, exist_ok=True)
            corpus.touch()
            self.stand_in(f"build/fuzz/tests/fuzz/fuzz_{name}")
        calls = self.succeeds("fuzz", "all", "60")
        self.assertEqual(self.of("cmake", calls)[1], "--build --preset fuzz --target fuzz_a fuzz_b")
        for name in ("a", "b"):
            (run,) = self.of(f"fuzz_{name}", calls)
            self.assertIn("-max_total_time=31 ", run)

    def test_all_tests_install_what_they_need(self):
        packages = set(self.of("apt-get", self.succeeds("test"))[1].split())
        self.assertLessEqual(TESTS_NEED | {"libcpp-httplib-dev", "bubblewrap", "sqlite3"}, packages)

    def test_a_benchmark_builds_what_it_needs(self):
        for name in ("detect", "gather"):
            with self.subTest(name):
                calls = self.succeeds("bench", name)
                self.assertEqual(self.of("cmake", calls)[1], f"--build --preset release --target bench_{name}")
                self.assertEqual(self.of("run.sh", calls), ["build/release"])
                packages = self.of("apt-get", calls)[1].split()
                self.assertEqual("python3-sklearn" in packages, name == "detect")
                self.assertEqual("bubblewrap" in packages, name == "gather")
                self.assertFalse(set(packages) & TESTS_NEED)

    def test_all_benchmarks_are_built_at_once(self):
        calls = self.succeeds("bench")
        self.assertEqual(self.of("cmake", calls)[1], "--build --preset release --target bench_detect bench_gather")
        self.assertEqual(len(self.of("run.sh", calls)), 2)

    def test_what_does_not_exist_is_refused_before_anything_is_done(self):
        for arguments in (("test", "nothing"), ("bench", "nothing"), ("fuzz", "nothing"),
                          ("fuzz", "all", "0"), ("sanitize", "asan", "nothing"), ("nothing",)):
            with self.subTest(arguments):
                done, calls = self.dev(*arguments)
                self.assertEqual((done.returncode, calls), (2, []))

    def test_nothing_is_installed_when_nothing_is_missing(self):
        install = self.of("apt-get", self.succeeds("demo"))[1].split()
        (self.root / "installed").write_text("\n".join(install) + "\n")
        self.assertEqual(self.of("apt-get", self.succeeds("demo")), [])

    def test_each_call_of_apt_waits_for_the_lock(self):
        for call in self.of("apt-get", self.succeeds("demo")):
            self.assertIn("-o DPkg::Lock::Timeout=300", call)

    def test_a_list_that_another_apt_holds_is_waited_for(self):
        (self.root / "apt_errors").write_text(f"{LOCKED}\n{LOCKED}\n")
        done, calls = self.dev("demo")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual([call.split()[-1] for call in self.of("apt-get", calls)[:3]], ["update"] * 3)
        self.assertEqual(len(self.of("apt-get", calls)), 4)
        self.assertEqual(len(self.of("sleep", calls)), 2)
        self.assertEqual(done.stderr.count(LOCKED), 1)

    def test_any_other_failure_of_apt_ends_it(self):
        (self.root / "apt_errors").write_text("E: Unable to fetch some archives\n")
        done, calls = self.dev("demo")
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual(len(self.of("apt-get", calls)), 1)
        self.assertIn("E: Unable to fetch some archives", done.stderr)
        self.assertEqual(self.of("cmake", calls), [])


if __name__ == "__main__":
    unittest.main()
