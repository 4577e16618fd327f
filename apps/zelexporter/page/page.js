// Draws what the exporter reads, and asks again once there may be something newer. Texts from outside become text nodes
// only, never markup.
"use strict";

const byId = (id) => document.getElementById(id);
const answerWithin = 5000; // milliseconds
const askAtLeastEvery = 2000; // so that the loss of the agent or of the exporter is seen at once
const askAtMostEvery = 250;

// What is shown. The choices are also in the address, so that a reload or a bookmark brings them back.
const chosen = { colour: "use", port: null, last: "15m" };
const shown = {
  ports: null, // the document
  portsAt: 0, // performance.now() when the exporter read it
  tiles: new Map(), // by name
  order: [], // tiles as they stand
  heardAt: new Date(), // when the exporter answered last; the page is an answer, too
  lostSince: null, // the same, while it does not answer
  details: null,
  history: null,
  cursor: null, // a time in the plots
};
let documents = new Map(); // what was drawn last, with its tag, by address
let timer = 0;
let round = 0;

// Makes an element with properties and children; a text becomes a text node.
function make(tag, properties = {}, ...children) {
  const element = Object.assign(document.createElement(tag), properties);
  element.append(...children);
  return element;
}

function makeSvg(tag, attributes, ...children) {
  const element = document.createElementNS("http://www.w3.org/2000/svg", tag);
  for (const [name, value] of Object.entries(attributes)) {
    element.setAttribute(name, value);
  }
  element.append(...children);
  return element;
}

function setText(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

// Numbers, as the client writes them.

function scaled(value, digits) {
  const limit = 1 - 0.5 / 10 ** digits; // 999.5 of three digits is the next unit's 1.00
  let unit = 0;
  for (value /= 1000; value >= 1000 * limit && unit < 5; value /= 1000) {
    ++unit;
  }
  const whole = value < 10 * limit ? 1 : value < 100 * limit ? 2 : 3;
  return value.toFixed(digits - whole) + "kMGTPE"[unit];
}

// Rates are thousandths in documents; null is not known. Narrow texts have a unit from 1000 on.
function rateText(thousandths, isNarrow = false) {
  if (thousandths === null) {
    return "–";
  }
  const rate = thousandths / 1000;
  if (rate <= 0) {
    return "0";
  }
  if (rate >= (isNarrow ? 999.5 : 99999.5)) {
    return scaled(rate, 3);
  }
  return rate < 10 ? Math.max(rate, 0.1).toFixed(1) : rate.toFixed(0);
}

// Counts are texts of all their digits.
function countText(count) {
  return count === null ? "–" : count.length <= 5 ? count : scaled(Number(count), 4);
}

function exactText(count) {
  return count === null ? "never read" : count.replace(/\B(?=(\d{3})+$)/g, "\u2009");
}

function percentText(useThousandths) {
  if (useThousandths === null) {
    return "–";
  }
  const percent = useThousandths / 10000;
  return percent === 0 ? "0%" : percent < 0.05 ? "<0.1%" : percent.toFixed(percent < 99.95 ? 1 : 0) + "%";
}

function durationText(milliseconds) {
  if (milliseconds === null) {
    return "unknown";
  }
  let left = Math.round(milliseconds / 1000);
  const parts = [];
  for (const [unit, seconds] of [["d", 86400], ["h", 3600], ["min", 60], ["s", 1]]) {
    const count = Math.floor(left / seconds);
    if (count > 0 && parts.length < 2) {
      parts.push(`${count} ${unit}`);
      left -= count * seconds;
    } else if (parts.length > 0) {
      break;
    }
  }
  return parts.join(" ") || "0 s";
}

const timeText = (time) => new Date(time).toLocaleTimeString("en-GB");

function momentText(time) {
  const date = new Date(time);
  const isToday = date.toDateString() === new Date().toDateString();
  return isToday ? timeText(time) : `${date.toLocaleDateString("en-CA")} ${timeText(time)}`;
}

const counted = (count, noun) => `${count} ${noun}${count === 1 ? "" : "s"}`;

// Scales. A level is where the value is among the limits: 0 is nothing, 6 the most.

const scales = {
  use: {
    limits: [0, 1, 5, 15, 40, 70],
    labels: ["0%", "< 1%", "< 5%", "< 15%", "< 40%", "< 70%", "70% and more"],
    legend: "of the line, the busier direction",
    value: (port) => (port["in-use"] === null && port["out-use"] === null
      ? null : Math.max(port["in-use"] ?? 0, port["out-use"] ?? 0) / 10000),
    // Without a speed there is no use, but there are bits.
    text: (port, value) => (value !== null ? percentText(value * 10000)
      : port["in-bits"] === null ? "–" : rateText(Math.max(port["in-bits"], port["out-bits"] ?? 0), true) + "b/s"),
  },
  drops: {
    limits: [0, 1, 10, 100, 1000, 100000],
    labels: ["0", "< 1", "< 10", "< 100", "< 1k", "< 100k", "100k and more"],
    legend: "packets dropped per second",
    note: "; not “same port”, nor “bad FCS”, which is an error",
    value: (port) => (port.drops === null ? null : port.drops / 1000),
    text: (port) => (port.drops === null ? "–" : rateText(port.drops, true) + "/s"),
  },
  errors: {
    limits: [0, 1, 10, 100, 1000, 10000],
    labels: ["0", "< 1", "< 10", "< 100", "< 1k", "< 10k", "10k and more"],
    legend: "frames with errors per second",
    value: (port) => (port.errors === null ? null : port.errors / 1000),
    text: (port) => (port.errors === null ? "–" : rateText(port.errors, true) + "/s"),
  },
};

function levelOf(value, limits) {
  if (value === null || value <= 0) {
    return 0;
  }
  const level = limits.findIndex((limit, i) => i > 0 && value < limit);
  return level === -1 ? limits.length : level;
}

// Documents.

// Asks for a document, which may be the one that was drawn last. Throws if there is no answer in time.
async function load(address) {
  const drawn = documents.get(address);
  const headers = drawn ? { "If-None-Match": drawn.tag } : {};
  const answer = await fetch(address, { headers, cache: "no-store", signal: AbortSignal.timeout(answerWithin) });
  const next = Number(answer.headers.get("Zel-Next-Reading-Ms"));
  if (answer.status === 304) {
    return { ...drawn, next, isNew: false };
  }
  if (!answer.ok) {
    throw Object.assign(new Error(await answer.text()), { status: answer.status });
  }
  return { tag: answer.headers.get("ETag"), document: await answer.json(), next, isNew: true,
    readAt: performance.now() - Number(answer.headers.get("Zel-Reading-Age-Ms")) };
}

const query = (name) => `interface=${encodeURIComponent(name)}`;

// One round: asks for all that is on the screen, draws it, and comes again.
async function refresh() {
  clearTimeout(timer);
  const mine = ++round;
  const port = chosen.port;
  const addresses = ["/api/ports", "/api/drops", "/api/events"];
  if (port !== null) {
    addresses.push(`/api/port?${query(port)}`, `/api/history?${query(port)}&last=${chosen.last}`);
  }
  let next = askAtLeastEvery;
  try {
    const answers = await Promise.all(addresses.map((address, i) =>
      // A port that went is no reason to show nothing of the others.
      load(address).catch((error) => {
        if (i < 3 || error.status === undefined) {
          throw error;
        }
        return { document: { problem: error.message } };
      })));
    if (mine !== round) {
      return;
    }
    // What another round overtook was not drawn, and is asked for again: so tags are kept here.
    documents = new Map(answers.map((answer, i) => [addresses[i], answer]).filter(([, answer]) => answer.tag));
    const [ports, drops, events, details, history] = answers;
    next = Math.min(Math.max(ports.next + 30, askAtMostEvery), askAtLeastEvery);
    shown.heardAt = new Date();
    shown.lostSince = null;
    if (ports.isNew) {
      takePorts(ports);
    }
    if (drops.isNew) {
      drawDrops(drops.document);
    }
    if (events.isNew) {
      drawEvents(events.document);
    }
    shown.details = details?.document;
    shown.history = history?.document;
  } catch {
    if (mine !== round) {
      return;
    }
    shown.lostSince ??= shown.heardAt;
  }
  draw();
  if (!document.hidden) {
    timer = setTimeout(refresh, next);
  }
}

// The ports, as objects by column.
function takePorts({ document: ports, readAt }) {
  ports.ports = ports.ports.map((row) => Object.fromEntries(ports.columns.map((column, i) => [column, row[i]])));
  shown.ports = ports;
  shown.portsAt = readAt;
}

// Milliseconds since the reading that is shown.
const sinceReading = () => performance.now() - shown.portsAt;

function isOld(port) {
  return !["up", "idle", "no rate"].includes(port.state) || shown.lostSince !== null ||
    port["age-ms"] === null || port["age-ms"] + sinceReading() > shown.ports["stale-after-ms"] + askAtLeastEvery;
}

function ageOf(port) {
  return port["age-ms"] === null ? null : port["age-ms"] + sinceReading();
}

// Health that nobody tells any more is none.
function hasHealth(chip) {
  return chip.verdict !== undefined && shown.ports["writer-alive"] && shown.lostSince === null &&
    chip["age-ms"] !== null && chip["age-ms"] + sinceReading() <= shown.ports["stale-after-ms"] + askAtLeastEvery;
}

// Drawing.

function draw() {
  drawBanner();
  if (shown.ports) {
    drawField();
    drawSummary();
  }
  drawDetails();
  drawTip();
}

function drawBanner() {
  const ports = shown.ports;
  const silent = (ports?.chips ?? []).filter((chip) => chip.verdict === "silent" && hasHealth(chip))
    .map((chip) => chip.name);
  let text = "";
  if (shown.lostSince) {
    text = `No answer from the exporter since ${timeText(shown.lostSince)}.` +
      (ports ? " What is shown is from before that." : "");
  } else if (ports && !ports.published) {
    text = `Nothing is published: ${ports.notes.join(" ")}`;
  } else if (ports && !ports["writer-alive"]) {
    const ages = ports.ports.map(ageOf).filter((age) => age !== null);
    text = "The agent is gone: nothing newer is published." +
      (ages.length > 0 ? ` What is shown is ${durationText(Math.min(...ages))} old.` : "");
  } else if (silent.length > 0) {
    text = `${silent.join(", ")}: no answer from the chip.`;
  } else if (ports && ports.ports.length > 0 && ports.ports.every(isOld)) {
    text = "An agent is running, but publishes nothing new.";
  }
  setText(byId("banner"), text);
  document.title = `${text === "" ? "" : "⚠ "}Ports of ${location.hostname}`;
}

function drawSummary() {
  const { ports } = shown.ports;
  const now = ports.filter((port) => !isOld(port));
  const dropping = now.filter((port) => port.drops > 0).length;
  const erring = now.filter((port) => port.errors > 0).length;
  const parts = [counted(ports.length, "port")];
  if (now.length > 0) {
    parts.push(`${dropping} dropping`, `${erring} with errors`);
  }
  if (now.length < ports.length) {
    parts.push(`${now.length === 0 ? "none" : now.length} up to date`);
  }
  parts.push(`read ${timeText(shown.ports["read-unix-ms"])}, every ${shown.ports["polling-interval-ms"] / 1000} s`);
  setText(byId("summary"), parts.join(" · "));
}

function drawLegend() {
  const scale = scales[chosen.colour];
  byId("legend").replaceChildren(
    ...scale.labels.map((label, level) => make("span", { className: `l${level}` }, label)),
    make("span", { className: "old" }, "not up to date"),
    make("span", {}, scale.legend + (scale.note ?? "")));
}

// A name without what all names share: "Eth7", or "7" where there is no room.
function shortName(name, density) {
  const parts = /^([A-Za-z]+)(\d.*)$/.exec(name);
  if (density === "roomy" || !parts) {
    return name;
  }
  return density === "dense" ? parts[2] : parts[1].slice(0, 3) + parts[2];
}

function groupsOf(ports) {
  const groups = ports.chips.map((chip) => ({ chip, ports: [] }));
  const others = { chip: { name: groups.length > 0 ? "Chip unknown" : "All ports" }, ports: [] };
  for (const port of ports.ports) {
    (groups[port.chip] ?? others).ports.push(port);
  }
  return others.ports.length > 0 ? [...groups, others] : groups;
}

// Tiles are made when ports or chips come or go; else only what changed is written.
function drawField() {
  const groups = groupsOf(shown.ports);
  const places = JSON.stringify(groups.map((group) => [group.chip.name, group.ports.map((port) => port.name)]));
  if (places !== shown.places) {
    shown.places = places;
    makeField(groups);
  }
  groups.forEach((group, i) => drawChip(group.chip, group.ports, shown.heads[i]));
  for (const port of shown.ports.ports) {
    drawTile(shown.tiles.get(port.name), port);
  }
}

function makeField(groups) {
  const count = shown.ports.ports.length;
  const density = count <= 72 ? "roomy" : count <= 600 ? "close" : "dense";
  const focused = document.activeElement?.tile?.name;
  shown.tiles.clear();
  shown.order = [];
  shown.heads = [];
  byId("field").className = density;
  byId("field").replaceChildren(...groups.map((group, i) => {
    const head = { verdict: make("span"), facts: make("p") };
    shown.heads.push(head);
    const list = make("ul", { className: "tiles" }, ...group.ports.map((port) => {
      const tile = { name: port.name, title: make("b", {}, shortName(port.name, density)), value: make("i"), key: "" };
      tile.button = make("button", { type: "button", className: "tile", tabIndex: -1 }, tile.title, tile.value);
      tile.button.tile = tile;
      shown.tiles.set(port.name, tile);
      shown.order.push(tile);
      return make("li", {}, tile.button);
    }));
    const heading = make("h3", { id: `group-${i}` }, group.chip.name);
    list.setAttribute("aria-labelledby", heading.id);
    return make("div", { className: "group" },
      make("div", { className: "head" }, heading, head.verdict, head.facts), list);
  }));
  const first = shown.tiles.get(focused ?? chosen.port) ?? shown.order[0];
  if (first) {
    first.button.tabIndex = 0;
    if (focused !== undefined) {
      first.button.focus();
    }
  }
}

const verdictSigns = { ok: "●", degraded: "▲", silent: "■" };

function drawChip(chip, ports, head) {
  const isKnown = chip.verdict !== undefined;
  const isNow = hasHealth(chip);
  head.verdict.className = isNow ? `verdict ${chip.verdict}` : isKnown ? "verdict old" : "";
  setText(head.verdict, !isKnown ? "" : isNow ? `${verdictSigns[chip.verdict] ?? ""} ${chip.verdict}`
    : `was ${chip.verdict}`);
  const facts = [counted(ports.length, "port")];
  if (ports.length > 1) {
    facts[0] += `, ${ports[0].name} to ${ports[ports.length - 1].name}`;
  }
  if (isNow && chip["up-ms"] !== null && chip.verdict === "ok") {
    facts.push(`up for ${durationText(chip["up-ms"])}`);
  }
  if (isKnown && chip.verdict !== "ok") {
    facts.push("last read: " + Object.entries(chip["read-ages-ms"])
      .map(([kind, age]) => `${kind} ${age === null ? "never" : durationText(age) + " ago"}`).join(", "));
  }
  if (isKnown) {
    const odd = Object.entries(chip.counts).filter(([, count]) => count !== "0");
    facts.push(...odd.map(([kind, count]) => `${kind} ${countText(count)}`));
  }
  setText(head.facts, facts.join(" · "));
}

function drawTile(tile, port) {
  const scale = scales[chosen.colour];
  const old = isOld(port);
  const value = scale.value(port);
  const text = old ? (port["age-ms"] === null ? port.state : durationText(ageOf(port))) : scale.text(port, value);
  const level = old ? "old" : `l${levelOf(value, scale.limits)}`;
  const isChosen = port.name === chosen.port;
  tile.port = port;
  const key = `${chosen.colour} ${level} ${text} ${isChosen}`;
  if (key === tile.key) {
    return;
  }
  tile.key = key;
  tile.button.className = `tile ${level}`;
  tile.value.textContent = text;
  tile.button.setAttribute("aria-pressed", String(isChosen));
  const spoken = old ? `not up to date, ${text}` : `${text} ${scale.legend}`;
  tile.button.setAttribute("aria-label", `${port.name}, ${spoken}`);
}

// The list that rows are drawn in: those that are there are written anew, so that the focus stays where it is.
function drawRows(body, rows, makeRow, writeRow) {
  while (body.children.length > rows.length) {
    body.lastChild.remove();
  }
  rows.forEach((row, i) => {
    if (i === body.children.length) {
      body.append(makeRow());
    }
    writeRow(body.children[i], row);
  });
}

function portButton(name) {
  const button = make("button", { type: "button", className: "port" }, name);
  button.dataset.port = name;
  return button;
}

function writePortButton(button, name) {
  setText(button, name);
  button.dataset.port = name;
}

const dropCounterNames = { "in-discards": "discarded at the input", "out-discards": "discarded at the output",
  "out-queue-drops": "queues" };

function drawDrops(drops) {
  const [ports, reasons] = byId("drops").querySelectorAll("table");
  // A rate that is not known is not one of 0.
  const caption = (table, what, isByRate, rows) => setText(table.caption, what + (isByRate ? ", packets per second"
    : `, packets in total${rows.some((row) => row.rate === 0) ? "; none now" : ""}`));
  const valueOf = (one, isByRate) => (isByRate ? rateText(one.rate) : countText(one.total));
  caption(ports, "Ports", drops["ports-by-rate"], drops.ports);
  drawRows(ports.tBodies[0], drops.ports,
    () => make("tr", {}, make("td", {}, portButton("")), make("td", { className: "why" }),
      make("td", { className: "number" })),
    (row, port) => {
      const isByRate = drops["ports-by-rate"];
      const parts = port.parts.filter((part) => !isByRate || part.rate > 0);
      writePortButton(row.cells[0].firstChild, port.name);
      setText(row.cells[1], parts.map((part) => (dropCounterNames[part.name] ?? part.name) +
        (parts.length > 1 ? ` ${valueOf(part, isByRate)}` : "")).join(", "));
      setText(row.cells[2], valueOf(port, isByRate));
    });
  caption(reasons, "Reasons", drops["reasons-by-rate"], drops.reasons);
  drawRows(reasons.tBodies[0], drops.reasons,
    () => make("tr", {}, make("td", {}, make("div"), make("div", { className: "why" })),
      make("td", { className: "number" })),
    (row, reason) => {
      setText(row.cells[0].firstChild, `${reason.point}: ${reason.reason}`);
      drawRows(row.cells[0].lastChild, reason.ports, () => make("span", {}, portButton("")),
        (span, name) => writePortButton(span.firstChild, name));
      setText(row.cells[1], valueOf(reason, drops["reasons-by-rate"]));
    });
  ports.hidden = drops.ports.length === 0;
  reasons.hidden = drops.reasons.length === 0;
  setText(byId("drops").querySelector("p"), ports.hidden && reasons.hidden ? "Nothing was dropped." : "");
}

const graveKinds = ["upset", "suspect", "reset", "chip-silent", "chip-went", "table-full", "table-mended",
  "table-remade", "agent-killed", "message"];

function drawEvents(events) {
  const list = byId("events").querySelector("ol");
  setText(byId("events-note"), [events.problem, ...events.notes].filter((note) => note).join(" "));
  // Numbers begin anew with new tables.
  const keyOf = (event) => [event.number, event["unix-ms"], event.kind, event.where].join(" ");
  const there = new Map([...list.children].map((item) => [item.key, item]));
  const isFirst = there.size === 0;
  const items = events.events.map((event) => {
    const key = keyOf(event);
    let item = there.get(key);
    if (!item) {
      const place = shown.tiles.has(event.where) && event.place === event.where
        ? portButton(event.where) : make("span", {}, event.place === "-" ? "" : event.place);
      item = make("li", { className: graveKinds.includes(event.kind) ? "grave" : "", key },
        make("time"), make("div", {}, make("span", { className: "kind" }, event.kind), place),
        make("div", { className: "what" }));
      item.classList.toggle("new", !isFirst);
    }
    setText(item.children[0], momentText(event["unix-ms"]));
    setText(item.children[2], event.text + (event.count > 1
      ? `; ${event.count} times, last ${momentText(event["last-unix-ms"])}` : ""));
    return item;
  });
  const kept = new Set(items);
  [...list.children].filter((item) => !kept.has(item)).forEach((item) => item.remove());
  items.forEach((item, i) => {
    if (list.children[i] !== item) {
      list.insertBefore(item, list.children[i] ?? null);
    }
  });
  if (isFirst) { // what was there before the page is not read out
    list.setAttribute("role", "log");
  }
}

// Details of a port.

function drawDetails() {
  const isOpen = chosen.port !== null;
  byId("details").hidden = !isOpen;
  document.querySelector("main").classList.toggle("detailed", isOpen);
  if (!isOpen) {
    return;
  }
  setText(byId("details-name"), chosen.port);
  const port = shown.details;
  byId("details").classList.toggle("empty", port?.problem !== undefined);
  if (!port || port.name !== chosen.port) {
    setText(byId("details-facts"),
      port?.problem ? `${port.problem.trim()}; Escape or ✕ closes this.` : "Reading …");
    byId("details-body").hidden = true;
    return;
  }
  byId("details-body").hidden = false;
  const row = shown.ports.ports.find((one) => one.name === port.name);
  const facts = [row && isOld(row) ? `${port.state}, ${durationText(ageOf(row))} old` : port.state];
  if (row?.speed > 0) {
    facts.push(`${row.speed / 1e9} Gb/s, in ${percentText(row["in-use"])}, out ${percentText(row["out-use"])}`);
  }
  if (port.chip) {
    facts.push(`${port.chip}, device port ${port["device-port"]}`);
  }
  if (port["created-age-ms"] !== null) {
    facts.push(`counting for ${durationText(port["created-age-ms"])}`);
  }
  setText(byId("details-facts"), facts.join(" · "));
  drawCounters(port);
  drawPlots();
}

function drawCounters(port) {
  const makeRow = () => make("tr", {}, make("td"), make("td", { className: "number" }),
    make("td", { className: "number" }));
  const writeRow = (row, [name, total, rate]) => {
    setText(row.cells[0], name);
    setText(row.cells[1], exactText(total));
    setText(row.cells[2], rateText(rate));
  };
  byId("port-reasons").hidden = port.reasons.length === 0;
  drawRows(byId("port-reasons").tBodies[0],
    port.reasons.map((one) => [`${one.point}: ${one.reason}`, one.total, one.rate]), makeRow, writeRow);
  const withZeros = byId("zeros").querySelector("input").checked;
  drawRows(byId("counters").tBodies[0],
    port.counters.filter((one) => withZeros || (one.total !== "0" && one.total !== null))
      .map((one) => [one.name, one.total, one.rate]), makeRow, writeRow);
}

const plots = [
  { name: "Bits/s", series: { "in-octets": "in", "out-octets": "out" } },
  { name: "Packets/s", series: { "in-pkts": "in", "out-pkts": "out" } },
  { name: "Drops/s", series: { "in-discards": "in", "out-discards": "out", "out-queue-drops": "queues" } },
  { name: "Errors/s", series: { "in-errors": "in", "out-errors": "out" } },
];

function drawPlots() {
  const history = shown.history;
  if (history?.interface !== chosen.port) {
    byId("plots").replaceChildren();
    return;
  }
  if (history.problem) {
    byId("plots").replaceChildren(make("p", {}, history.problem));
    return;
  }
  if (byId("plots").querySelectorAll(".plot").length !== plots.length) {
    byId("plots").replaceChildren(...plots.map((plot) => {
      const element = make("div", { className: "plot", tabIndex: 0 }, make("div", { className: "name" }));
      element.append(makeSvg("svg", { "aria-hidden": "true" }));
      element.setAttribute("role", "img");
      return element;
    }));
  }
  plots.forEach((plot, i) => drawPlot(byId("plots").children[i], plot, history));
}

const plotHeight = 96;
const plotTop = 14;
const plotBottom = plotHeight - 16;

// A round time between marks on the axis, so that there are about four.
function markEvery(milliseconds) {
  const steps = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 21600, 43200].map((s) => s * 1000);
  return steps.find((step) => milliseconds / step <= 4) ?? steps[steps.length - 1];
}

function axisText(history, time) {
  if (!history["is-unix-time"]) {
    return time === 0 ? "0" : `-${durationText(-time)}`;
  }
  const text = timeText(time);
  return text.endsWith(":00") ? text.slice(0, 5) : text;
}

function drawPlot(element, plot, history) {
  const [name, svg] = element.children;
  const width = Math.max(svg.clientWidth, 100);
  const from = history["from-ms"];
  const to = history["to-ms"];
  const names = Object.keys(plot.series);
  const columns = history.series[names[0]].means.length;
  const highest = Math.max(0, ...names.flatMap((one) => history.series[one].peaks.map((peak) => peak ?? 0)));
  const x = (time) => Math.min(Math.max((time - from) / (to - from), 0), 1) * width;
  const y = (value) => plotBottom - (highest > 0 ? value / highest : 0) * (plotBottom - plotTop);
  const timeOf = (column) => history["begin-ms"] + (column + 0.5) * history["column-ms"];
  const parts = [makeSvg("line", { class: "axis", x1: 0, x2: width, y1: plotBottom, y2: plotBottom })];
  for (const [begin, end] of history["gaps-ms"]) {
    parts.push(makeSvg("rect", { class: "gap", x: x(begin), width: x(end) - x(begin), y: plotTop,
      height: plotBottom - plotTop }));
  }
  const step = markEvery(to - from);
  const offset = new Date(to).getTimezoneOffset() * 60000 * (history["is-unix-time"] ? 1 : 0);
  for (let time = Math.ceil((from - offset) / step) * step + offset; time <= to; time += step) {
    parts.push(makeSvg("line", { class: "axis", x1: x(time), x2: x(time), y1: plotBottom, y2: plotBottom + 3 }));
    const anchor = x(time) < 16 ? "start" : x(time) > width - 16 ? "end" : "middle";
    parts.push(makeSvg("text", { x: x(time), y: plotHeight - 2, "text-anchor": anchor }, axisText(history, time)));
  }
  // A line is broken where nothing is known.
  const path = (values) => {
    let isOpen = false;
    return values.map((value, i) => {
      const command = value === null ? "" : `${isOpen ? "L" : "M"}${x(timeOf(i)).toFixed(1)} ${y(value).toFixed(1)}` +
        (values[i - 1] == null && values[i + 1] == null ? "h1" : "");
      isOpen = value !== null;
      return command;
    }).join("");
  };
  names.forEach((one, i) => {
    parts.push(makeSvg("path", { class: `peak s${i}`, d: path(history.series[one].peaks) }));
    parts.push(makeSvg("path", { class: `series s${i}`, d: path(history.series[one].means) }));
  });
  const mark = (time, sign) => {
    parts.push(makeSvg("line", { class: "mark", x1: x(time), x2: x(time), y1: plotTop, y2: plotBottom }));
    parts.push(makeSvg("text", { class: "mark-head", x: x(time), y: plotTop - 2, "text-anchor": "middle" }, sign));
  };
  history["discontinuities-ms"].forEach((time) => mark(time, "!"));
  history["begins-ms"].forEach((time) => mark(time, "+"));
  parts.push(makeSvg("text", { x: 0, y: plotTop - 3 }, highest > 0 ? rateText(highest) : "0"));
  // What was counted last is shown as of now, unless it is too old for that.
  const last = Math.max(...names.map((one) => history.series[one].means.findLastIndex((value) => value !== null)));
  const isNow = to - timeOf(last) <= shown.ports["stale-after-ms"] + history["column-ms"];
  const pointed = shown.cursor === null ? (isNow ? last : -1)
    : Math.min(Math.max(Math.floor((shown.cursor - history["begin-ms"]) / history["column-ms"]), 0), columns - 1);
  if (shown.cursor !== null) {
    const at = x(timeOf(pointed));
    parts.push(makeSvg("line", { class: "cursor", x1: at, x2: at, y1: plotTop, y2: plotBottom }));
  }
  svg.setAttribute("viewBox", `0 0 ${width} ${plotHeight}`);
  svg.replaceChildren(...parts);
  const values = names.map((one) => (pointed < 0 ? null : history.series[one].means[pointed]));
  const key = (i) => {
    const line = makeSvg("svg", { class: "key", viewBox: "0 0 18 8", "aria-hidden": "true" });
    line.append(makeSvg("line", { class: `series s${i}`, x1: 0, x2: 18, y1: 5, y2: 5 }));
    return line;
  };
  name.replaceChildren(make("b", {}, plot.name),
    ...names.map((one, i) => make("span", {}, key(i), `${plot.series[one]} ${rateText(values[i])}`)),
    ...(shown.cursor === null ? [] : [make("span", {}, axisText(history, Math.round(timeOf(pointed) / 1000) * 1000))]));
  element.setAttribute("aria-label", `${plot.name}: ` +
    names.map((one, i) => `${plot.series[one]} ${rateText(values[i])}`).join(", ") + `; highest ${rateText(highest)}`);
}

// The tip at a tile.

function drawTip(tile = shown.tipped) {
  const tip = byId("tip");
  if (shown.tipped && shown.tipped !== tile) {
    shown.tipped.button.removeAttribute("aria-describedby");
  }
  shown.tipped = tile?.button.isConnected ? tile : null;
  tip.hidden = !shown.tipped;
  if (tip.hidden) {
    return;
  }
  const port = tile.port;
  const rows = [["State", port.state], ["Age", durationText(ageOf(port))],
    ["In", `${rateText(port["in-bits"])} bit/s, ${percentText(port["in-use"])}`],
    ["Out", `${rateText(port["out-bits"])} bit/s, ${percentText(port["out-use"])}`],
    ["Packets/s", rateText(port.packets)],
    ["Drops/s", `${rateText(port.drops)}, ${countText(port["drops-total"])} in all`],
    ["Errors/s", `${rateText(port.errors)}, ${countText(port["errors-total"])} in all`]];
  tip.replaceChildren(make("b", {}, port.name),
    ...rows.map(([name, value]) => make("div", {}, make("span", {}, name), make("span", {}, value))));
  tile.button.setAttribute("aria-describedby", "tip");
  const box = tile.button.getBoundingClientRect();
  const left = Math.min(Math.max(box.left, 4), innerWidth - tip.offsetWidth - 4);
  const below = box.bottom + 6;
  const top = below + tip.offsetHeight < innerHeight ? below : box.top - tip.offsetHeight - 6;
  tip.style.transform = `translate(${Math.max(left, 0)}px, ${Math.max(top, 0)}px)`;
}

// Choices.

function choose(changes) {
  Object.assign(chosen, changes);
  const parameters = new URLSearchParams();
  for (const [name, usual] of [["colour", "use"], ["port", null], ["last", "15m"]]) {
    if (chosen[name] !== usual) {
      parameters.set(name, chosen[name]);
    }
  }
  const text = parameters.toString();
  history.replaceState(null, "", text === "" ? "/" : `/?${text}`);
  showChoices();
  draw();
}

function showChoices() {
  document.documentElement.dataset.colour = chosen.colour;
  document.querySelector(`#colours input[value="${chosen.colour}"]`).checked = true;
  byId("span").querySelector("select").value = chosen.last;
  drawLegend();
}

function readAddress() {
  const parameters = new URLSearchParams(location.search);
  chosen.colour = parameters.get("colour") in scales ? parameters.get("colour") : "use";
  chosen.port = parameters.get("port");
  const spans = [...byId("span").querySelectorAll("option")].map((option) => option.value);
  chosen.last = spans.includes(parameters.get("last")) ? parameters.get("last") : "15m";
  showChoices();
}

function openPort(name, isByKey) {
  shown.details = shown.history = null;
  choose({ port: name });
  refresh();
  shown.tiles.get(name)?.button.scrollIntoView({ block: "nearest" });
  drawTip(null);
  if (isByKey) {
    byId("details-name").focus();
  }
}

function closePort() {
  const tile = shown.tiles.get(chosen.port);
  const hadFocus = byId("details").contains(document.activeElement);
  choose({ port: null });
  shown.details = shown.history = shown.cursor = null;
  if (hadFocus) {
    rove(tile ?? shown.order[0]);
  }
}

// Tab reaches one tile; arrows go on from there.
function rove(tile) {
  if (tile) {
    shown.order.find((one) => one.button.tabIndex === 0)?.button.setAttribute("tabindex", "-1");
    tile.button.tabIndex = 0;
    tile.button.focus();
  }
}

// The tile above or below: in the next row that way, the nearest one.
function tileInNextRow(tile, step) {
  const topOf = (one) => one.button.getBoundingClientRect().top;
  const leftOf = (one) => one.button.getBoundingClientRect().left;
  let at = shown.order.indexOf(tile);
  const top = topOf(tile);
  while (shown.order[at] && topOf(shown.order[at]) === top) {
    at += step;
  }
  const row = shown.order[at] && topOf(shown.order[at]);
  let best = shown.order[at];
  for (; shown.order[at] && topOf(shown.order[at]) === row; at += step) {
    const isNearer = Math.abs(leftOf(shown.order[at]) - leftOf(tile)) < Math.abs(leftOf(best) - leftOf(tile));
    best = isNearer ? shown.order[at] : best;
  }
  return best;
}

function moveAmongTiles(event) {
  const tile = event.target.tile;
  if (!tile || event.altKey || event.ctrlKey || event.metaKey) {
    return;
  }
  const at = shown.order.indexOf(tile);
  const moves = {
    ArrowLeft: () => shown.order[at - 1],
    ArrowRight: () => shown.order[at + 1],
    ArrowUp: () => tileInNextRow(tile, -1),
    ArrowDown: () => tileInNextRow(tile, 1),
    Home: () => shown.order[0],
    End: () => shown.order[shown.order.length - 1],
  };
  if (event.key in moves) {
    event.preventDefault();
    rove(moves[event.key]());
  }
}

function movePlotCursor(event) {
  const history = shown.history;
  const step = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
  if (!history || step === undefined || !event.target.classList.contains("plot")) {
    return;
  }
  event.preventDefault();
  const from = shown.cursor ?? history["to-ms"];
  shown.cursor = Math.min(Math.max(from + step * history["column-ms"], history["from-ms"]), history["to-ms"]);
  drawPlots();
}

function pointIntoPlot(event) {
  const svg = event.target.closest?.(".plot")?.querySelector("svg:not(.key)");
  const history = shown.history;
  if (svg && history && !history.problem) {
    const box = svg.getBoundingClientRect();
    const share = Math.min(Math.max((event.clientX - box.left) / box.width, 0), 1);
    shown.cursor = history["from-ms"] + share * (history["to-ms"] - history["from-ms"]);
    drawPlots();
  }
}

function listen() {
  byId("colours").addEventListener("change", (event) => choose({ colour: event.target.value }));
  byId("span").addEventListener("change", (event) => {
    choose({ last: event.target.value });
    refresh();
  });
  byId("zeros").addEventListener("change", draw);
  byId("close").addEventListener("click", closePort);
  byId("field").addEventListener("keydown", moveAmongTiles);
  document.addEventListener("click", (event) => {
    const tile = event.target.closest(".tile")?.tile;
    const name = tile?.name ?? event.target.closest(".port")?.dataset.port;
    if (tile) {
      rove(tile);
    }
    if (name !== undefined) {
      openPort(name, event.detail === 0); // a click without a mouse
    }
  });
  document.addEventListener("keydown", (event) => {
    if (event.key === "Escape") {
      if (shown.tipped) {
        drawTip(null);
      } else if (chosen.port !== null) {
        closePort();
      }
    }
  });
  for (const [type, from] of [["mouseover", "mouseout"], ["focusin", "focusout"]]) {
    byId("field").addEventListener(type, (event) => {
      const tile = event.target.closest(".tile")?.tile;
      if (tile && (type === "mouseover" || event.target.matches(":focus-visible"))) {
        drawTip(tile);
      }
    });
    byId("field").addEventListener(from, () => drawTip(null));
  }
  byId("ports").addEventListener("scroll", () => drawTip(null), { passive: true });
  byId("plots").addEventListener("keydown", movePlotCursor);
  byId("plots").addEventListener("mousemove", pointIntoPlot);
  byId("plots").addEventListener("mouseleave", () => {
    shown.cursor = null;
    drawPlots();
  });
  byId("plots").addEventListener("focusout", () => {
    shown.cursor = null;
  });
  addEventListener("resize", draw);
  addEventListener("popstate", readAddress);
  // A hidden page asks for nothing.
  document.addEventListener("visibilitychange", () => {
    if (document.hidden) {
      clearTimeout(timer);
    } else {
      refresh();
    }
  });
}

setText(byId("host"), location.hostname);
readAddress();
listen();
refresh();
