// Shows what the agent says of itself. Everything that it says is put in as text, never as markup: names of ports,
// tables and reasons are chosen by others.
"use strict";

const everyMs = 2000;
const colours = 6; // and one for all others
const byId = id => document.getElementById(id);

function make(name, attributes = {}, ...children) {
  const isDrawn = /^(svg|g|rect|line|path|circle|text|title|desc)$/.test(name);
  const element = isDrawn ? document.createElementNS("http://www.w3.org/2000/svg", name) : document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  element.append(...children);
  return element;
}

// Numbers for people.
const whole = new Intl.NumberFormat("en", { maximumFractionDigits: 0 });
function short(value) {
  if (value === null || value === undefined || !isFinite(value)) return "–";
  const units = ["", " k", " M", " G", " T"];
  let unit = 0;
  while (value >= 9999.5 || (unit > 0 && value >= 1000)) { value /= 1000; ++unit; if (unit === units.length - 1) break; }
  const hasTenths = unit > 0 ? value < 100 : value < 10 && value % 1 !== 0;
  return (hasTenths ? value.toFixed(1) : whole.format(value)) + units[unit];
}
const bits = value => short(value).replace(/([0-9–])$/, "$1 ") + "bit/s";
function age(seconds) {
  if (seconds < 90) return `${Math.max(0, Math.round(seconds))} s`;
  if (seconds < 5400) return `${Math.round(seconds / 60)} min`;
  return seconds < 172800 ? `${Math.round(seconds / 3600)} h` : `${Math.round(seconds / 86400)} days`;
}
const share = (part, all) => (all > 0 ? (100 * part / all).toFixed(1) + " %" : "–");

/** Makes the children of a list those of the items, by key: what stays keeps its element, and with it the focus. */
function fill(list, items, keyOf, render) {
  const known = new Map([...list.children].map(child => [child.dataset.key, child]));
  let place = list.firstElementChild;
  for (const item of items) {
    const key = String(keyOf(item));
    let element = known.get(key);
    if (element) known.delete(key); else { element = render(item); element.dataset.key = key; }
    if (element.update) element.update(item);
    if (element === place) place = place.nextElementSibling; else list.insertBefore(element, place);
  }
  for (const gone of known.values()) gone.remove();
}

/** A row of a table; `cells` makes its texts of an item. */
function row(classes, cells) {
  return item => {
    const tds = cells(item).map((_, i) => make("td", classes[i] ? { class: classes[i] } : {}));
    const element = make("tr", {}, ...tds);
    element.update = now => cells(now).forEach((text, i) => {
      if (text instanceof Node) { if (!tds[i].firstChild) tds[i].append(text); }
      else if (tds[i].textContent !== text) tds[i].textContent = text;
    });
    return element;
  };
}

async function ask(path) {
  const answer = await fetch(path, { cache: "no-store" });
  if (!answer.ok) throw new Error(`${path}: ${answer.status}`);
  return answer.json();
}

// What has been counted since the answer before, per second.
let before = null;
function rates(now) {
  const was = before;
  before = now;
  const seconds = was ? (now.at - was.at) / 1000 : 0;
  const grown = (a, b) => (seconds > 0 && a !== null && b !== null && b !== undefined && a >= b ? (a - b) / seconds : null);
  const old = new Map(was ? was.ports.map(port => [port.name, port]) : []);
  const oldLabels = new Map(was ? was.labels.map(label => [label.label, label]) : []);
  for (const port of now.ports) {
    const last = old.get(port.name);
    port.rate = {
      inFrames: grown(port.received, last?.received), inBits: grown(port.receivedBytes, last?.receivedBytes),
      outFrames: grown(port.sent.frames, last?.sent.frames), outBits: grown(port.sent.bytes, last?.sent.bytes),
    };
    for (const key of ["inBits", "outBits"]) if (port.rate[key] !== null) port.rate[key] *= 8;
  }
  for (const label of now.labels) label.rate = grown(label.packets, oldLabels.get(label.label)?.packets);
  now.rate = { in: grown(now.fates.in, was?.fates.in), dropped: grown(now.fates.dropped.frames, was?.fates.dropped.frames) };
}

function showNumbers(now) {
  const { status, fates } = now;
  byId("tables").textContent = status.tables.name;
  document.title = `Ovix agent ${status.tables.name}`.trim();
  const committed = status.tables.committedAt / 1e9;
  const entries = Object.entries(status.tables.entries).filter(([table]) => table !== "adjacency" && table !== "mvpn");
  const routes = entries.filter(([table]) => table !== "hardware").reduce((sum, [, count]) => sum + count, 0);
  const numbers = [
    ["Frames in, per second", short(now.rate.in)],
    ["Dropped, per second", short(now.rate.dropped), now.rate.dropped > 0],
    ["Forwarded", short(fates.forwarded)], ["Dropped", short(fates.dropped.frames)],
    ["Punted", short(fates.punted.frames)], ["Waiting", short(fates.queued)],
    ["Label routes", short(Math.max(routes, status.tables.entries.hardware || 0))],
    ["Tables changed", committed > 0 ? `${age(Date.now() / 1000 - committed)} ago` : "–"],
  ];
  fill(byId("numbers"), numbers, ([name]) => name, ([name]) => {
    const value = make("dd");
    const element = make("div", {}, make("dt", {}, name), value);
    element.update = ([, text, isBad]) => {
      if (value.textContent !== text) value.textContent = text;
      element.classList.toggle("bad", Boolean(isBad));
    };
    return element;
  });
  const problems = [];
  if (status.tables.problem) problems.push(status.tables.problem);
  if (!status.balanced) problems.push("the frames do not add up");
  const down = now.ports.filter(port => port.state !== "up").map(port => port.name);
  if (down.length) problems.push(`${down.length > 3 ? `${down.length} ports are` : down.join(", ") + (down.length > 1 ? " are" : " is")} down`);
  say(problems.length ? problems.join("; ") : `Forwarding by generation ${whole.format(status.tables.generation)}`, problems.length > 0);
}

function say(text, isBad) {
  const state = byId("state");
  if (state.textContent !== text) state.textContent = text;
  state.classList.toggle("bad", isBad);
}

const clip = (text, most) => (text.length > most ? text.slice(0, most - 1) + "…" : text);

/** One port with its wire: `side` is 1 to the right of the router, -1 to the left. */
function drawPort(port, x, y, side) {
  const end = side > 0 ? "" : "end";
  const at = distance => x + side * distance;
  const isUp = port.state === "up";
  const group = make("g", { class: isUp ? "up" : "down" });
  const width = 1 + Math.min(4, Math.log10(1 + (port.rate.inBits || 0) + (port.rate.outBits || 0)) / 2.5);
  const text = (classes, dx, dy, words) => make("text", { class: classes, x: at(dx), y: y + dy }, words);
  const known = port.neighbours;
  const title = `${port.name}: ${port.state}; in ${short(port.rate.inFrames)} frames/s, out ${short(port.rate.outFrames)} frames/s; ` +
    (known.length ? `neighbours ${known.slice(0, 8).map(each => each.address).join(", ")}${known.length > 8 ? " and others" : ""}` : "no neighbours");
  group.append(make("title", {}, title),
    make("line", { class: "wire", x1: at(112), y1: y, x2: at(250), y2: y, "stroke-width": isUp ? width.toFixed(1) : 1 }),
    make("rect", { class: "box", x: Math.min(at(0), at(112)), y: y - 13, width: 112, height: 26, rx: 5 }),
    make("circle", { class: "dot", cx: at(14), cy: y, r: 5 }),
    text(`name ${end}`, 26, 4.5, clip(port.name, 13)));
  if (isUp) {
    group.append(text(`soft ${end}`, 120, -5, `out ${short(port.rate.outFrames)}/s · ${bits(port.rate.outBits)}`),
      text(`soft ${end}`, 120, 13, `in ${short(port.rate.inFrames)}/s · ${bits(port.rate.inBits)}`));
  } else {
    group.append(text(`word ${end}`, 120, -5, port.state === "waiting" ? "no interface" : port.state));
  }
  if (known.length) {
    group.append(make("circle", { class: "neighbour", cx: at(256), cy: y, r: 5 }),
      text(end, 266, known.length > 1 ? -1 : 4, clip(known[0].address, 19)));
    if (known.length > 1) group.append(text(`soft ${end}`, 266, 13, `and ${known.length - 1} more`));
  }
  return group;
}

function showTopology(now) {
  const place = byId("topology");
  const isNarrow = place.clientWidth > 0 && place.clientWidth < 640;
  const ports = now.ports.slice(0, portsShown);
  const left = isNarrow ? [] : ports.filter((_, i) => i % 2 === 1);
  const right = isNarrow ? ports : ports.filter((_, i) => i % 2 === 0);
  const step = 46;
  const height = Math.max(1, left.length, right.length) * step + 12;
  const router = isNarrow ? { x: 2, width: 34 } : { x: 400, width: 80 };
  const total = isNarrow ? router.x + router.width + 386 : 880;
  const up = ports.filter(port => port.state === "up").length;
  const svg = make("svg", { viewBox: `0 0 ${total} ${height}`, role: "img", "aria-label": `The router with ${now.ports.length} ports, of which ${up} are up; the table below tells the same` },
    make("rect", { class: "box", x: router.x, y: 4, width: router.width, height: height - 8, rx: 8 }));
  if (!isNarrow) svg.append(make("text", { class: "name middle", x: 440, y: height / 2 + 4 }, "router"));
  right.forEach((port, i) => svg.append(drawPort(port, router.x + router.width, 29 + i * step, 1)));
  left.forEach((port, i) => svg.append(drawPort(port, router.x, 29 + i * step, -1)));
  place.replaceChildren(svg);
  fill(byId("ports"), ports, port => port.name, row(["", "", "n", "n", "n", "n", ""], port => [port.name, port.state, short(port.rate.inFrames),
    short(port.rate.inBits), short(port.rate.outFrames), short(port.rate.outBits),
    port.neighbours.slice(0, 4).map(each => each.address).join(", ") + (port.neighbours.length > 4 ? ` and ${port.neighbours.length - 4} more` : "")]));
  byId("ports-more").textContent = now.ports.length >= portsShown ? `The first ${portsShown} ports are shown; "ovixctl port show" lists all.` : "";
}
const portsShown = 256;

function swatch(i) {
  return make("svg", { viewBox: "0 0 10 10", "aria-hidden": "true" }, make("rect", { class: `c${i}`, width: 10, height: 10, rx: 2 }));
}

/** Bars of ten seconds each, by reason; the newest to the right. */
function showDrops(history) {
  const seconds = history.seconds * 5;
  const bars = 30;
  const rows = history.reasons.map((each, i) => {
    const sums = new Array(bars).fill(0);
    each.frames.forEach((count, at) => { sums[bars - 1 - Math.floor((each.frames.length - 1 - at) / 5)] += count; });
    return { name: each.reason ?? "all others", colour: each.reason === null ? colours : i, sums, all: sums.reduce((a, b) => a + b, 0) };
  });
  const heights = Array.from({ length: bars }, (_, i) => rows.reduce((sum, each) => sum + each.sums[i], 0));
  const most = Math.max(...heights);
  const all = rows.reduce((sum, each) => sum + each.all, 0);
  const wide = byId("chart").clientWidth || 880; // so that its text is as large as other text
  const svg = make("svg", { viewBox: `0 0 ${wide} 150`, role: "img", "aria-label": all ? `${whole.format(all)} frames dropped; by reason in the list below` : "No frame was dropped" });
  svg.append(make("line", { class: "grid", x1: 0, x2: wide, y1: 130, y2: 130 }),
    make("text", { class: "soft", x: 0, y: 146 }, "5 minutes ago"), make("text", { class: "soft end", x: wide, y: 146 }, "now"));
  if (most > 0) {
    svg.append(make("line", { class: "grid", x1: 0, x2: wide, y1: 18, y2: 18 }), make("text", { class: "soft", x: 0, y: 12 }, `${short(most / seconds)} frames/s`));
  } else {
    svg.append(make("text", { class: "middle", x: wide / 2, y: 80 }, "No frame was dropped."));
  }
  for (let i = 0; i < bars && most > 0; ++i) {
    let y = 130;
    for (const each of rows) {
      const height = 112 * each.sums[i] / most;
      if (height > 0) svg.append(make("rect", { class: `c${each.colour}`, x: (i * wide / bars + 1.5).toFixed(1), y: (y - height).toFixed(2), width: (wide / bars - 3).toFixed(1), height: height.toFixed(2) }));
      y -= height;
    }
  }
  byId("chart").replaceChildren(svg);
  byId("legend").replaceChildren(...rows.map(each => make("li", {}, swatch(each.colour), make("span", {}, each.name), make("span", { class: "n" }, whole.format(each.all)))));
}

/** Those that are known by now have answered. */
function showWanted(now) {
  const known = new Set(now.ports.flatMap(port => port.neighbours.map(each => `${port.name} ${each.address}`)));
  const lost = now.wanted.filter(each => each.nexthop !== null && !known.has(`${each.port} ${each.nexthop}`)).slice(0, 5)
    .map(each => `${each.nexthop}${each.port ? ` at ${each.port}` : ""} (${short(each.frames)})`);
  byId("wanted").replaceChildren(...(lost.length ? [make("p", { class: "note" },
    `Neighbours that are not known, and the frames dropped for each since the agent has started: ${lost.join(", ")}.`)] : []));
}

// The recorder's frames, by pages.
const fates = { punted: "punted", dropped: "dropped", handedOn: "handed on" };
let oldest = 0;
let isNewest = true;
async function showFrames(from = 0) {
  const reason = byId("reason").value;
  const answer = await ask(`/frames?before=${from}&reason=${encodeURIComponent(reason)}`);
  isNewest = from === 0;
  const time = frame => new Date(frame.time / 1e6).toLocaleTimeString("en-GB");
  const link = frame => {
    const element = make("a", { href: `/explain?frame=${frame.sequence}` }, "Explain");
    element.setAttribute("aria-label", `Explain frame ${frame.sequence}: ${frame.reason}`);
    return element;
  };
  fill(byId("frames"), answer.frames, frame => frame.sequence, row(["", "extra", "", "", "n", "n extra", ""], frame => [time(frame), fates[frame.fate] ?? frame.fate,
    frame.reason, frame.port ?? "–", frame.label === null ? "–" : String(frame.label), whole.format(frame.length), frame.port === null ? "–" : link(frame)]));
  byId("frames-none").hidden = answer.frames.length > 0;
  oldest = answer.frames.length ? answer.frames[answer.frames.length - 1].sequence : 0;
  byId("older").disabled = !answer.more;
  byId("newest").disabled = isNewest;
}
function showReasons(now) {
  const names = ["dropped", "punted", "handedOn"].flatMap(fate => Object.keys(now.fates[fate].reasons));
  const select = byId("reason");
  const have = new Set([...select.options].map(option => option.value));
  for (const name of names) if (!have.has(name)) { have.add(name); select.append(make("option", { value: name }, name)); }
}

function showLabels(now) {
  const all = now.labels.reduce((sum, label) => sum + label.packets, 0);
  byId("labels-none").hidden = now.labels.length > 0;
  const most = Math.max(1, ...now.labels.map(label => label.packets));
  for (const label of now.labels) Object.assign(label, { length: 100 * label.packets / most, share: share(label.packets, all) });
  fill(byId("labels"), now.labels, label => label.label, label => {
    const made = row(["n", "n", "n extra", "n"], each => [String(each.label), whole.format(each.packets), short(each.bytes), short(each.rate)])(label);
    const bar = make("rect", { class: "c0", height: 10, rx: 2 });
    const cell = make("td", { class: "bar" }, make("svg", { viewBox: "0 0 100 10", preserveAspectRatio: "none", role: "img" }, make("rect", { class: "track", width: 100, height: 10 }), bar));
    made.append(cell);
    const texts = made.update;
    made.update = each => {
      texts(each);
      bar.setAttribute("width", each.length.toFixed(1));
      cell.firstChild.setAttribute("aria-label", each.share);
    };
    return made;
  });
}

// Weighted sets, by pages.
let nextSet = null;
function wayText(via) {
  const labels = via.labels.length ? `label ${via.labels.join("/")} ` : "";
  const to = via.fec !== null ? `toward FEC ${via.fec}` : [via.nexthop ? `to ${via.nexthop}` : "", via.port ? `by ${via.port}` : ""].filter(Boolean).join(" ");
  return (labels + to).trim() || "nowhere";
}
function drawSet(set) {
  const total = set.vias.reduce((sum, via) => sum + via.weight, 0);
  const shown = set.vias.slice(0, colours);
  const rest = set.vias.slice(colours);
  const parts = shown.map((via, i) => ({ text: wayText(via), weight: via.weight, colour: i }));
  if (rest.length) parts.push({ text: `${rest.length} others`, weight: rest.reduce((sum, via) => sum + via.weight, 0), colour: colours });
  const words = part => (set.multicast ? "a copy" : share(part.weight, total));
  const bar = make("svg", { viewBox: "0 0 1000 10", preserveAspectRatio: "none", role: "img", "aria-label": `Label ${set.label}: ` + parts.map(part => `${part.text} ${words(part)}`).join(", ") });
  let x = 0;
  for (const part of parts) {
    const width = set.multicast ? 1000 / parts.length : 1000 * part.weight / Math.max(1, total);
    bar.append(make("rect", { class: `c${part.colour}`, x: x.toFixed(1), width: Math.max(0, width - 3).toFixed(1), height: 10 }));
    x += width;
  }
  return make("li", {}, make("strong", {}, `Label ${set.label}`), ` in table ${set.table}, ${set.vias.length} ${set.multicast ? "copies" : "ways"}`, bar,
    make("ul", { class: "legend" }, ...parts.map(part => make("li", {}, swatch(part.colour), make("span", {}, part.text), make("span", { class: "n" }, words(part))))));
}
let searches = 0;
async function showSets(from) {
  const mine = ++searches; // a later one takes the place of this
  let sets = [];
  for (nextSet = from; sets.length === 0 && nextSet !== null;) { // the agent looks at some thousands of labels at a time
    const answer = await ask(`/sets?from=${nextSet}`);
    if (mine !== searches) return;
    const list = answer?.["weighted-sets"] ?? [];
    nextSet = list.find(each => "next" in each)?.next ?? null;
    sets = list.filter(each => "vias" in each);
    byId("sets-none").textContent = sets.length ? "" : nextSet !== null ? `Looked at the labels from ${from} to ${nextSet - 1}…` : from > 0 ? `None from label ${from} on.` : "There are none.";
  }
  byId("sets").replaceChildren(...sets.map(drawSet));
  byId("next").disabled = nextSet === null;
}

// Once every two seconds, one after the other, while it is looked at.
let isPaused = false;
async function refresh() {
  const now = await ask("/data");
  if (!now.status || !now.fates || !now.ports || !now.neighbours || !now.labels) { say("The agent does not answer", true); return; }
  const data = { at: performance.now(), status: now.status, fates: now.fates, ports: now.ports.ports, labels: now.labels["top-labels"], wanted: now.wanted?.["drops-by-neighbour"] ?? [] };
  const byPort = new Map(data.ports.map(port => [port.name, port.neighbours = []]));
  for (const each of now.neighbours.neighbours) byPort.get(each.port)?.push(each);
  rates(data);
  showNumbers(data);
  showTopology(data);
  showDrops(await ask("/history"));
  showWanted(data);
  showReasons(data);
  showLabels(data);
  if (isNewest) await showFrames();
}
async function turn() {
  const wait = before === null ? 1000 : everyMs; // the first rates soon
  try {
    if (!isPaused && !document.hidden) await refresh();
  } catch (failed) {
    say("The agent cannot be reached", true);
  }
  document.body.dataset.turns = String(Number(document.body.dataset.turns ?? 0) + 1);
  setTimeout(turn, wait);
}

byId("pause").addEventListener("click", () => {
  isPaused = !isPaused;
  byId("pause").setAttribute("aria-pressed", String(isPaused));
});
const unlessFailed = work => () => work().catch(() => say("The agent cannot be reached", true));
byId("older").addEventListener("click", unlessFailed(() => showFrames(oldest)));
byId("newest").addEventListener("click", unlessFailed(() => showFrames()));
byId("reason").addEventListener("change", unlessFailed(() => showFrames()));
byId("next").addEventListener("click", unlessFailed(() => showSets(nextSet ?? 0)));
byId("from").addEventListener("change", unlessFailed(() => showSets(Math.max(0, Math.min(1048575, Number(byId("from").value) || 0)))));
showSets(0).catch(() => {});
turn();
