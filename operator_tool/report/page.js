"use strict";
// Everything from the data is shown as text: it never becomes markup.
(() => {
  const data = JSON.parse(document.getElementById("data").textContent);
  const byId = (id) => document.getElementById(id);
  const PAGE = 20;
  const ROWS = 20;

  const node = (name, className, text) => {
    const element = document.createElement(name);
    if (className) element.className = className;
    if (text !== undefined && text !== null) element.textContent = String(text);
    return element;
  };

  // --- Words ---

  const {number, counted, size, span, axis} = words;
  const zone = data.utc ? "UTC" : undefined;
  const timeFormat = new Intl.DateTimeFormat("sv-SE", {timeZone: zone, year: "numeric", month: "2-digit",
    day: "2-digit", hour: "2-digit", minute: "2-digit"});
  const dayFormat = new Intl.DateTimeFormat("en-GB", {timeZone: zone, day: "numeric", month: "short"});
  const time = (seconds) => seconds ? timeFormat.format(new Date(seconds * 1000)) : "-";
  const day = (seconds) => dayFormat.format(new Date(seconds * 1000));
  const moreText = (left) => "Show more (" + number(left) + " left)";
  const severityClass = ["", "", "warn", "bad"];
  const severityNode = (of) => node("span", "tag " + severityClass[of.severity], of.severity_words);

  // --- Tables, a part at a time ---

  const table = (place, columns, rows, limit, empty) => {
    const draw = (shown) => {
      place.textContent = "";
      if (!rows.length) {
        place.append(node("p", "faint", empty));
        return;
      }
      const body = node("tbody");
      for (const row of rows.slice(0, shown)) {
        const line = node("tr");
        for (const column of columns) {
          const cell = node("td", column.className);
          const content = column.of(row);
          cell.append(content instanceof Node ? content : String(content ?? "-"));
          line.append(cell);
        }
        body.append(line);
      }
      const head = node("tr");
      for (const column of columns) head.append(node("th", column.className === "number" ? "number" : "", column.title));
      const whole = node("table");
      whole.append(node("thead"), body);
      whole.firstChild.append(head);
      const scroll = node("div", "scroll");
      scroll.append(whole);
      place.append(scroll);
      if (rows.length > shown) {
        const more = node("button", "", moreText(rows.length - shown));
        more.type = "button";
        more.addEventListener("click", () => draw(shown + limit));
        place.append(more);
      }
    };
    draw(limit);
  };

  // --- Charts, drawn only while they are in view ---

  const style = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
  const CHARTS = [["Size", "size", size], ["Files", "files", number], ["Transferred", "moved", size]];
  const charts = new Map();

  const valuesOf = (client, figure) => client.streams.flatMap((stream) => stream[figure]).filter((value) => value !== null);

  const chartOf = (canvas) => {
    const {client, figure, amount} = canvas.report;
    const largest = valuesOf(client, figure).reduce((most, value) => Math.max(most, value), 0);
    const y = axis(largest, amount === size);
    const bad = style("--bad");
    const datasets = client.streams.map((stream, index) => {
      const marked = new Set(stream.reported);
      const colour = style("--s" + index % 6);
      const at = (plain, special) => stream.time.map((_, i) => marked.has(i) ? special : plain);
      const known = (i) => stream[figure][i] !== null && stream[figure][i] !== undefined;
      // A point without a neighbour has no line to show it.
      const radius = stream.time.map((_, i) => marked.has(i) ? 6 : stream.time.length <= 60 || (!known(i - 1) && !known(i + 1)) ? 1.5 : 0);
      return {
        label: stream.policy + ", " + stream.schedule,
        data: stream.time.map((seconds, i) => ({x: seconds, y: stream[figure][i]})),
        borderColor: colour, borderWidth: 1.5, spanGaps: true,
        pointRadius: radius, clip: 8, pointHoverRadius: at(3, 7),
        pointStyle: at("circle", "triangle"), pointBackgroundColor: at(colour, bad), pointBorderColor: at(colour, bad),
      };
    });
    return new Chart(canvas, {
      type: "line",
      data: {datasets},
      options: {
        animation: false, responsive: true, maintainAspectRatio: false, parsing: false, normalized: true,
        layout: {padding: {top: 8, right: 10}},
        interaction: {mode: "nearest", intersect: false},
        scales: {
          x: {type: "linear", min: data.from, max: data.time, grid: {display: false},
            ticks: {color: style("--faint"), maxTicksLimit: 5, maxRotation: 0, callback: (value) => day(value)}},
          y: {min: 0, max: y.top, grid: {color: style("--line")},
            ticks: {color: style("--faint"), stepSize: y.step, callback: y.label}},
        },
        plugins: {
          legend: {display: false},
          tooltip: {callbacks: {
            title: (items) => items.length ? time(items[0].parsed.x) : "",
            label: (item) => item.dataset.label + ": " + amount(item.parsed.y),
          }},
        },
      },
    });
  };
  const drawn = (canvas, visible) => {
    if (visible && !valuesOf(canvas.report.client, canvas.report.figure).length) {
      canvas.replaceWith(node("p", "faint", "No data in this period."));
    } else if (visible && !charts.has(canvas)) {
      charts.set(canvas, chartOf(canvas));
    } else if (!visible && charts.has(canvas)) {
      charts.get(canvas).destroy();
      charts.delete(canvas);
    }
  };
  const watcher = new IntersectionObserver((entries) => {
    for (const entry of entries) {
      const canvas = entry.target.querySelector("canvas");
      if (canvas) drawn(canvas, entry.isIntersecting);
    }
  }, {rootMargin: "300px"});
  const redraw = () => {
    for (const canvas of [...charts.keys()]) {
      drawn(canvas, false);
      drawn(canvas, true);
    }
  };
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redraw);

  // --- Clients ---

  const figureWords = (figure) => figure.label + ": " + figure.value + " (usually " + figure.usual + ")";

  const markOf = (anomaly) => {
    const item = node("li", anomaly.state === "false_positive" ? "over" : "");
    const head = node("div");
    head.append(severityNode(anomaly), " " + time(anomaly.time || anomaly.detected) + " · " + anomaly.policy +
      ", " + anomaly.schedule_name + " · " + anomaly.review);
    item.append(head, node("div", "", anomaly.cause_words || anomaly.summary || "No details."));
    if (anomaly.figures.length) item.append(node("div", "faint", anomaly.figures.map(figureWords).join(" · ")));
    return item;
  };

  const cardOf = (client) => {
    const card = node("article", "card");
    const head = node("div", "head");
    head.append(node("h3", "", client.name));
    const count = client.anomalies.length;
    if (count) head.append(node("span", client.ongoing ? "bad" : "faint", counted(count, "anomaly", "anomalies") + (client.ongoing ? ", incident ongoing" : "")));
    head.append(node("span", "faint", counted(client.streams.length, "stream", "streams")));
    card.append(head);
    const rows = node("div", "charts");
    for (const [title, figure, amount] of CHARTS) {
      const box = node("div");
      const frame = node("div", "chart");
      const canvas = node("canvas");
      canvas.report = {client, figure, amount};
      canvas.setAttribute("role", "img");
      canvas.setAttribute("aria-label", title + " of the backups of " + client.name);
      frame.append(canvas);
      box.append(node("p", "chart-title", title), frame);
      rows.append(box);
      watcher.observe(frame);
    }
    card.append(rows);
    const legend = node("ul", "legend");
    client.streams.forEach((stream, index) => {
      const item = node("li");
      const mark = node("i");
      mark.style.background = "var(--s" + index % 6 + ")";
      item.append(mark, stream.policy + ", " + stream.schedule + (stream.state === "judged" ? "" : " (" + stream.state + ")"));
      legend.append(item);
    });
    card.append(legend);
    if (count) {
      const marks = node("ul", "marks");
      for (const anomaly of client.anomalies.slice(0, PAGE)) marks.append(markOf(anomaly));
      if (count > PAGE) marks.append(node("li", "over", "and " + counted(count - PAGE, "older anomaly", "older anomalies")));
      card.append(marks);
    }
    return card;
  };

  const showClients = (clients) => {
    const place = byId("clients");
    for (const canvas of [...charts.keys()]) drawn(canvas, false);
    watcher.disconnect();
    place.textContent = "";
    if (!clients.length) place.append(node("p", "faint", data.clients.length ? "No client matches the search." : "No backups in this period."));
    let shown = 0;
    const more = node("button");
    more.type = "button";
    const add = () => {
      const cards = clients.slice(shown, shown + PAGE).map(cardOf);
      shown += cards.length;
      more.remove();
      place.append(...cards);
      if (shown < clients.length) {
        more.textContent = moreText(clients.length - shown);
        place.append(more);
      }
    };
    more.addEventListener("click", add);
    add();
  };

  // --- The parts of the page ---

  const ongoing = data.incidents.filter((incident) => !incident.over);
  const ongoingClients = new Set(ongoing.map((incident) => incident.client));
  const anomaliesOf = new Map();
  for (const anomaly of data.anomalies) {
    if (!anomaliesOf.has(anomaly.client)) anomaliesOf.set(anomaly.client, []);
    anomaliesOf.get(anomaly.client).push(anomaly);
  }
  for (const client of data.clients) {
    client.anomalies = anomaliesOf.get(client.name) || [];
    client.ongoing = ongoingClients.has(client.name);
    client.words = [client.name, ...client.streams.flatMap((stream) => [stream.policy, stream.schedule]),
      ...client.anomalies.map((anomaly) => anomaly.cause_words)].join("\n").toLowerCase();
  }
  data.clients.sort((a, b) => (b.ongoing - a.ongoing) || (b.anomalies.length - a.anomalies.length) || (a.name < b.name ? -1 : 1));

  const tile = (value, words, className) => {
    const box = node("div", "tile");
    box.append(node("b", className, value), node("span", "", words));
    byId("tiles").append(box);
  };
  byId("period").textContent = time(data.from) + " to " + time(data.time) + (data.utc ? " UTC" : "");
  tile(number(ongoing.length), ongoing.length === 1 ? "ongoing incident" : "ongoing incidents", ongoing.length ? "bad" : "good");
  const inPeriod = data.anomalies.length + data.anomalies_left_out;
  tile(number(inPeriod), inPeriod === 1 ? "anomaly in this period" : "anomalies in this period");
  tile(number(data.clients.length), data.clients.length === 1 ? "client" : "clients");
  tile(number(data.streams.total), (data.streams.total === 1 ? "stream, " : "streams, ") + number(data.streams.learning) + " learning");
  tile(data.gather.last ? span(data.time - data.gather.last) : "-", data.gather.last ? "since the last gather" : "history not gathered yet");
  if (data.alerts.trouble) {
    tile("unknown", "pending messages: " + data.alerts.trouble, "bad");
  } else {
    tile(number(data.alerts.waiting), (data.alerts.waiting === 1 ? "pending message, " : "pending messages, ") +
      counted(data.alerts.given_up, "dead letter", "dead letters"), data.alerts.given_up ? "bad" : "");
  }
  const notices = [];
  if (data.shortened) notices.push("This period has too many backups to draw. The charts show only the newest of each stream.");
  if (data.anomalies_left_out) notices.push("Only the newest " + number(data.anomalies.length) + " anomalies are shown.");
  byId("notice").hidden = !notices.length;
  byId("notice").textContent = notices.join(" ");

  const learning = data.learning;
  const show = () => {
    const words = byId("search").value.trim().toLowerCase().split(/\s+/).filter(Boolean);
    const matches = (text) => words.every((word) => text.includes(word));
    table(byId("incidents"), [
      {title: "Last anomaly", className: "time", of: (incident) => time(incident.last)},
      {title: "Severity", className: "short", of: (incident) => severityNode(incident)},
      {title: "Client", className: "name", of: (incident) => incident.client},
      {title: "Summary", className: "wide", of: (incident) => incident.summary || incident.name},
      {title: "Anomalies", className: "number", of: (incident) => number(incident.records)},
      {title: "State", className: "short", of: (incident) => node("span", incident.over ? "faint" : "bad", incident.over ? "resolved" : "ongoing")},
    ], data.incidents.filter((incident) => matches((incident.client + "\n" + incident.summary + "\n" + incident.cause).toLowerCase())),
    ROWS, data.incidents.length ? "No incident matches the search." : "No incidents in this period.");
    table(byId("learning"), [
      {title: "Client", className: "name", of: (stream) => stream.client},
      {title: "Policy", className: "name", of: (stream) => stream.policy},
      {title: "Schedule", className: "name", of: (stream) => stream.schedule},
      {title: "Accepted backups", className: "number", of: (stream) => number(stream.records) + " of " + number(data.records_wanted)},
    ], learning.filter((stream) => matches((stream.client + "\n" + stream.policy + "\n" + stream.schedule).toLowerCase())), ROWS,
    learning.length ? "No stream matches the search." : "No stream is learning.");
    showClients(data.clients.filter((client) => matches(client.words)));
  };

  const showHealth = () => {
    const place = byId("health");
    const {gather, alerts} = data;
    const facts = [["Status", data.verdict]].concat(data.processes.map((process) => [process.name,
      process.running ? "running" + (process.since ? " since " + time(process.since) : "") : process.wanted ? "not running" : "disabled"]));
    facts.push(["Last gather", gather.last ? time(gather.last) + (gather.log.last_seconds === null ? "" : ", took " + span(gather.log.last_seconds)) : "history not gathered yet"],
      ["Next gather", gather.next ? time(gather.next) : "none while the service is not running"],
      ["Gathers in the last 24 hours", number(gather.log.gathers) + ", " + number(gather.log.failed) + " failed"],
      ["Running jobs for the next gather", number(gather.queued_jobs)],
      ["Backups waiting for the detection", number(data.records.waiting)],
      ["Records in the history", number(data.records.history)],
      ["Database", size(data.database_bytes / 1024) + "; " + size(data.disk_free_bytes / 1024) + " free on its disk"]);
    if (alerts.trouble) facts.push(["Alerts", "unknown: " + alerts.trouble]);
    for (const channel of alerts.channels) {
      facts.push(["Channel " + channel.name, number(channel.taken) + " delivered, " + number(channel.waiting) + " pending, " +
        counted(channel.given_up, "dead letter", "dead letters") + (channel.failures ? "; failing: " + channel.last_error : "")]);
    }
    table(place, [{title: "Item", className: "name", of: (fact) => fact[0]}, {title: "State", of: (fact) => fact[1]}], facts, ROWS, "");
  };

  let pending = 0;
  byId("search").addEventListener("input", () => {
    clearTimeout(pending);
    pending = setTimeout(show, 120);
  });
  // A link to the page may end with a search text: report.html#web01
  try {
    byId("search").value = decodeURIComponent(location.hash.slice(1));
  } catch {
    byId("search").value = "";
  }
  show();
  showHealth();
  document.documentElement.dataset.drawn = "yes";
})();
