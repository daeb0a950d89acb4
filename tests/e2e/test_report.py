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
from operator_world import PROJECT, World, need

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


def on_page(script, directory):
    """What an expression is on a page that has only the words of the report."""
    page = directory / "words.html"
    words = (PROJECT / "operator_tool/report/words.js").read_text()
    page.write_text(f"<!doctype html><meta charset=utf-8><script>{words}</script><script>"
                    f"document.title = JSON.stringify({script})</script>")
    dom, complaints = rendered(page)
    assert complaints == []
    return json.loads(html.unescape(re.search("<title>(.*)</title>", dom)[1]))


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
    assert "<b>0</b><span>pending messages, 0 dead letters</span>" in body
    assert "<img" not in body and "<canvas" in body
    assert "&lt;/script&gt;&lt;img src=x onerror=alert(1)&gt;" in body
    assert body.count('<article class="card">') == 2
    assert "Files may have been deleted." in body
    dom, _ = rendered(page, "#db01")
    assert body_of(dom).count('<article class="card">') == 1
    world.db.close()


def texts_of(dom):
    """The page's texts, by the section that they stand in; blanks run together."""
    parts = re.split(r'<section id="tiles"[^>]*>|<h2 id="(\w+)-title">', body_of(dom))
    sections = {"tiles": parts[2], **dict(zip(parts[3::2], parts[4::2], strict=True))}
    return {name: html.unescape(re.sub(r"\s+", " ", re.sub("<[^>]*>", " ", text))).strip()
            for name, text in sections.items()}


def test_the_words_of_the_page(world, tmp_path):
    """Every text that the page itself adds, once with and once without something to show."""
    page = tmp_path / "report.html"
    assert world.run("report", "--html", page, "--utc").returncode == 0
    data = re.search(r'id="data">(.*?)</script>', page.read_text())[1]
    document = json.loads(data)
    document["time"] = document["from"] + 30 * 86400
    document["gather"].update(last=document["time"] - 3720, next=None, queued_jobs=2)
    document["gather"]["log"].update(gathers=96, failed=3, last_seconds=135)
    document["alerts"] = {"waiting": 1, "given_up": 1, "channels": [
        {"name": "mail", "taken": 12, "waiting": 1, "given_up": 1, "failures": 2, "last_error": "refused"}]}
    document["verdict"] = "CRITICAL: two is not running"
    document["records"] = {"waiting": 3, "history": 12345}
    document.update(database_bytes=1310720, disk_free_bytes=5368709120, shortened=True, anomalies_left_out=7)
    document["processes"] = [
        {"name": "one", "running": True, "since": document["time"], "wanted": True},
        {"name": "two", "running": False, "since": None, "wanted": True},
        {"name": "three", "running": False, "since": None, "wanted": False}]
    page.write_text(page.read_text().replace(data, json.dumps(document).replace("<", "\\u003c")))
    texts = texts_of(rendered(page)[0])
    day = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}"
    now = time.strftime("%Y-%m-%d %H:%M", time.gmtime(document["time"]))
    gather = time.strftime("%Y-%m-%d %H:%M", time.gmtime(document["time"] - 3720))
    assert texts["tiles"].startswith(
        "1 ongoing incident 9 anomalies in this period 2 clients 2 streams, 1 learning 62 min since the last gather "
        "1 pending message, 1 dead letter This period has too many backups to draw. The charts show only the newest of "
        "each stream. Only the newest 2 anomalies are shown.")
    assert re.fullmatch(
        f"Incidents Last anomaly Severity Client Summary Anomalies State {day} critical web01 daily backup of web01: 10 "
        f"files, usually 1000 1 ongoing {day} critical web01 daily backup of web01: 10 files, usually 1000 1 resolved",
        texts["incidents"]), texts["incidents"]
    assert re.fullmatch(
        "Clients web01 2 anomalies, incident ongoing 1 stream Size Files Transferred policy, daily "
        f"critical {day} · policy, daily · not reviewed Files may have been deleted. Files: 10 \\(usually 990 to 1,010\\) "
        f"critical {day} · policy, daily · false positive Files may have been deleted. Files: 10 \\(usually 990 to "
        "1,010\\) db01 1 stream Size Files Transferred policy, daily \\(learning\\)", texts["clients"]), texts["clients"]
    assert texts["learning"] == (
        "Streams still learning These streams have too few accepted backups to be judged. "
        "Client Policy Schedule Accepted backups db01 policy daily 3 of 30")
    assert texts["health"] == (
        f"Service and alerts Item State Status CRITICAL: two is not running one running since {now} two not running three disabled "
        f"Last gather {gather}, took 2 min Next gather none while the service is not running "
        "Gathers in the last 24 hours 96, 3 failed Running jobs for the next gather 2 "
        "Backups waiting for the detection 3 Records in the history 12,345 Database 1.2 MB; 5.0 GB free on its disk "
        "Channel mail 12 delivered, 1 pending, 1 dead letter; failing: refused "
        "This page needs JavaScript. Allow it to see the charts and tables.")
    texts = texts_of(rendered(page, "#nothing%20like%20it")[0])
    assert texts["incidents"] == "Incidents No incident matches the search."
    assert texts["clients"] == "Clients No client matches the search."
    assert texts["learning"].endswith("to be judged. No stream matches the search.")


def test_the_words_of_an_empty_page(world, tmp_path):
    with world.db:
        for table in ("HIST_DATA", "DATA_TO_PROCESS", "ANOMALY_DATA", "LAST_BACKUP_DATA_CAPTURE"):
            world.db.execute(f"DELETE FROM {table}")
    page = tmp_path / "report.html"
    assert world.run("report", "--html", page).returncode == 0
    texts = texts_of(rendered(page)[0])
    assert texts["tiles"] == ("0 ongoing incidents 0 anomalies in this period 0 clients 0 streams, 0 learning "
                              "- history not gathered yet 0 pending messages, 0 dead letters")
    assert texts["incidents"] == "Incidents No incidents in this period."
    assert texts["clients"] == "Clients No backups in this period."
    assert texts["learning"].endswith("to be judged. No stream is learning.")
    assert "Last gather history not gathered yet Next gather none while the service is not running" in texts["health"]


def test_the_page_writes_numbers_as_the_terminal_does(tmp_path):
    cases = [line.split("\t") for line in (PROJECT / "tests/support/words.tsv").read_text().splitlines()]
    more = {"counted": ', "file", "files"'}
    calls = [f"words.{kind}({value}{more.get(kind, '')})" for kind, value, _ in cases]
    assert on_page("[" + ",".join(calls) + "]", tmp_path) == [text for _, _, text in cases]
    assert on_page("[words.number(null), words.size(null), words.size(undefined)]", tmp_path) == ["-"] * 3


AXES = [  # the largest value, whether it is a size in KB, and the labels
    (0, False, ["0", "1"]),
    (3, False, ["0", "1", "2", "3"]),
    (4, False, ["0", "1", "2", "3", "4"]),
    (5, False, ["0", "2", "4", "6"]),
    (16278, False, ["0", "5,000", "10,000", "15,000", "20,000"]),
    (0, True, ["0 KB", "1 KB"]),
    (1000, True, ["0 KB", "500 KB", "1,000 KB"]),
    (1024, True, ["0 MB", "0.5 MB", "1 MB"]),
    (12.5 * 1024, True, ["0 MB", "5 MB", "10 MB", "15 MB"]),
    (1.5 * 1024 ** 3, True, ["0 TB", "0.5 TB", "1 TB", "1.5 TB"]),
]


def test_an_axis_has_few_round_steps_in_one_unit(tmp_path):
    labels = ("((largest, isSize) => (({top, step, label}) => Array.from({length: Math.round(top / step) + 1}, "
              "(_, i) => label(i * step)))(words.axis(largest, isSize)))")
    calls = [f"{labels}({largest}, {str(is_size).lower()})" for largest, is_size, _ in AXES]
    assert on_page("[" + ",".join(calls) + "]", tmp_path) == [said for _, _, said in AXES]


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
    why = f"{world.directory}/CV_Anomaly_Alerts.db is damaged or is not a database."
    assert f'<b class="bad">unknown</b><span>pending messages: {why}</span>' in body
    assert f"unknown: {why}" in body[body.index('id="health"'):]
    assert "dead letter" not in body


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
    assert "Show more (1,982 left)" in body
    dom, _ = rendered(page, "#client1234")
    assert body_of(dom).count('<article class="card">') == 1
    world.db.close()
