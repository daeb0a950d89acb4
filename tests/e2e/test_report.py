"""The report of cvanomalyctl in a browser."""

import html
import json
import os
import re
import subprocess
import time
import zlib

import machine as host
import pytest
from operator_world import World, need

HOSTILE = "</script><img src=x onerror=alert(1)>\"'&\n\x1b]0;title\x07\x1b[2J"


@pytest.fixture
def world(tmp_path):
    made = World(tmp_path)
    yield made
    made.db.close()


def browse(page, *flags):
    """What the browser says on its two outputs after the page's scripts have run."""
    need("chromium")
    answer = subprocess.run(
        ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--disable-breakpad",
         "--user-data-dir=/tmp/chromium", "--virtual-time-budget=5000", "--enable-logging=stderr", *flags,
         f"file://{page}"],
        capture_output=True, text=True, timeout=120, check=True, env={"PATH": os.environ["PATH"], "HOME": "/tmp"})
    return answer.stdout, answer.stderr


def rendered(page, fragment="", flags=()):
    """The page's document, and what was complained of there, not in the browser's own pages."""
    dom, said = browse(f"{page}{fragment}", "--dump-dom", "--window-size=1400,3000", *flags)
    return dom, [line for line in said.splitlines() if "CONSOLE" in line and "source: chrome://" not in line]


def brightness(page, picture, flags=()):
    """Of the page's first pixel, 0 to 255."""
    browse(page, f"--screenshot={picture}", "--window-size=400,400", *flags)
    data, packed, at = picture.read_bytes(), b"", 8
    while at < len(data):
        length = int.from_bytes(data[at:at + 4], "big")
        if data[at + 4:at + 8] == b"IDAT":
            packed += data[at + 8:at + 8 + length]
        at += 12 + length
    return sum(zlib.decompress(packed)[1:4]) / 3  # nothing lies before it that it could be told relative to


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
    assert "how many alerts wait" not in body and "<span>alerts wait, 0 given up</span>" in body
    assert "<img" not in body and "<canvas" in body
    assert "&lt;/script&gt;&lt;img src=x onerror=alert(1)&gt;" in body
    assert body.count('<article class="card">') == 2
    assert "Files may have been deleted." in body
    dom, _ = rendered(page, "#db01")
    assert body_of(dom).count('<article class="card">') == 1
    world.db.close()


DARK = ("--blink-settings=preferredColorScheme=0",)


def canvas_widths(dom):
    return [int(width) for width in re.findall(r'<canvas[^>]* width="(\d+)"', body_of(dom))]


def test_the_report_is_dark_where_that_is_liked(world, tmp_path):
    page = tmp_path / "report.html"
    assert world.run("report", "--html", page).returncode == 0
    dom, complaints = rendered(page, flags=DARK)
    assert complaints == []
    assert 'data-drawn="yes"' in dom and len(canvas_widths(dom)) >= 3
    assert brightness(page, tmp_path / "dark.png", DARK) < 60
    assert brightness(page, tmp_path / "light.png") > 200


# A window of the browser has at least 500 pixels; a frame has any width.
FRAME = """<!doctype html><iframe src="report.html" style="width: 390px; height: 3000px; border: 0"></iframe><script>
const frame = document.querySelector("iframe");
frame.addEventListener("load", () => setTimeout(() => {
  const inner = frame.contentDocument.documentElement;
  const widths = {wanted: inner.clientWidth, needed: inner.scrollWidth,
    canvases: [...inner.querySelectorAll("canvas")].map((canvas) => canvas.width), drawn: inner.dataset.drawn};
  document.body.append("<<" + JSON.stringify(widths) + ">>");
}, 1000));
</script>"""


def test_the_report_on_a_narrow_screen(world, tmp_path):
    (world.directory / "CV_Anomaly_Alerts.db").write_bytes(b"x" * 100000)  # for the longest tile
    assert world.run("report", "--html", tmp_path / "report.html").returncode == 0
    (tmp_path / "frame.html").write_text(FRAME)
    dom, complaints = rendered(tmp_path / "frame.html", flags=["--allow-file-access-from-files"])
    assert complaints == []
    widths = json.loads(html.unescape(re.search(r"&lt;&lt;(.*)&gt;&gt;", dom)[1]))
    assert widths["drawn"] == "yes"
    assert 350 < widths["wanted"] <= 390  # less where a scroll bar has its place
    assert widths["needed"] == widths["wanted"]  # nothing sticks out at the side
    assert len(widths["canvases"]) >= 3
    assert all(250 < width < 390 for width in widths["canvases"]), widths


def test_alerts_that_cannot_be_read_are_not_told_as_none(world, tmp_path):
    (world.directory / "CV_Anomaly_Alerts.db").write_bytes(b"x" * 100000)
    page = tmp_path / "report.html"
    assert world.run("report", "--html", page).returncode == 0
    dom, complaints = rendered(page)
    assert complaints == []
    body = body_of(dom)
    why = f"{world.directory}/CV_Anomaly_Alerts.db is damaged or no database at all."
    assert f'<b class="bad">unknown</b><span>how many alerts wait: {why}</span>' in body
    assert f"unknown: {why}" in body[body.index('id="health"'):]
    assert "alerts wait, " not in body


def test_a_report_of_many_clients_is_drawn_as_it_is_looked_at(tmp_path):
    world = World(tmp_path)
    with world.db:
        world.insert("HIST_DATA", (world.row(f"client{number:04}", day, -1, job=number * 100 + day)
                                   for number in range(2000) for day in range(10)))
    page = tmp_path / "report.html"
    begin = time.monotonic()
    assert world.run("report", "--html", page).stdout.startswith(f"{page}: 2,002 clients, 2 anomalies")
    assert time.monotonic() - begin < 20 * host.patience
    begin = time.monotonic()
    dom, complaints = rendered(page)
    assert time.monotonic() - begin < 60
    assert complaints == []
    body = body_of(dom)
    assert body.count('<article class="card">') == 20
    assert "Show more, 1,982 are left" in body
    dom, _ = rendered(page, "#client1234")
    assert body_of(dom).count('<article class="card">') == 1
    world.db.close()
