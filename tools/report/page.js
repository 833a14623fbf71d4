// A session of input: a time line of its sources, from what docs/report.md describes.

// ---- The data ------------------------------------------------------------------------------------

const sums = (deltas) => {
  const values = new Float64Array(deltas.length);
  let value = 0;
  for (let i = 0; i < deltas.length; ++i) values[i] = value += deltas[i];
  return values;
};

// The first index of sorted values that is not less than this one.
const lowerBound = (values, value) => {
  let low = 0, high = values.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (values[middle] < value) low = middle + 1;
    else high = middle;
  }
  return low;
};

// The numbers of the events that records or lines gave, 0 for none.
const eventNumbers = (column) => {
  const numbers = new Float64Array(column.length);
  let last = 0;
  for (let i = 0; i < column.length; ++i) {
    if (column[i] !== 0) numbers[i] = last += column[i] - 1;
  }
  return numbers;
};

const events = { number: sums(data.events.number), time: sums(data.events.time), source: data.events.source,
  shape: data.events.shape, x: sums(data.events.x), y: sums(data.events.y), cause: data.events.cause };

const isPress = (event) => data.shapes[events.shape[event]].action === "down";
const isRelease = (event) => data.shapes[events.shape[event]].action === "up";

const cut = (text, length = 120) => (text.length > length ? text.slice(0, length) + "…" : text);

const eventText = (i) => {
  const shapeOf = data.shapes[events.shape[i]];
  return shapeOf.text + (shapeOf.kind === "mouse" ? ` at ${events.x[i]},${events.y[i]}` : "");
};

// What every report has, and what nobody looks for: marks between reports, scan codes, lights.
const isQuiet = (code) => (code.typeCode === 0 && code.code === 0) || code.typeCode === 4 || code.typeCode === 17;

// What came of a source, the same for records and for lines.
const rawOf = (index) => {
  const isRemote = data.sources[index].kind === "remote";
  const columns = (isRemote ? data.lines : data.records[index]) ?? { number: [], time: [], event: [], why: [], text: [], code: [], value: [] };
  const kind = isRemote ? columns.text : columns.code;
  return { number: sums(columns.number), time: sums(columns.time), event: eventNumbers(columns.event), why: columns.why, kind,
    text: isRemote ? (i) => cut(data.texts[kind[i]].line) : (i) => `${data.codes[kind[i]].name} ${columns.value[i]}`,
    label: isRemote ? (i) => cut(data.texts[kind[i]].button ?? data.texts[kind[i]].line, 24) : (i) => data.codes[kind[i]].name,
    isQuiet: isRemote ? () => false : (i) => isQuiet(data.codes[kind[i]]) };
};

// Some of the entries of columns with times: their indices and their times.
const pick = (time, chosen) => {
  const index = [];
  for (let i = 0; i < time.length; ++i) if (chosen(i)) index.push(i);
  return { index, time: Float64Array.from(index, (i) => time[i]) };
};

// Bars that overlap are drawn in tracks of their own, up to some.
const barsOf = (index) => {
  const kMostTracks = 4;
  const ends = [];
  const bars = { from: [], to: [], label: [], track: [] };
  for (let i = 0; i < data.held.from.length; ++i) {
    if (data.held.source[i] !== index) continue;
    const from = data.held.from[i], to = data.held.to[i] === -1 ? data.length : data.held.to[i];
    let track = ends.findIndex((end) => end <= from);
    if (track === -1) track = Math.min(ends.length, kMostTracks - 1);
    ends[track] = Math.max(ends[track] ?? 0, to);
    for (const [name, value] of Object.entries({ from, to, track, label: data.held.labels[data.held.label[i]] })) bars[name].push(value);
  }
  let last = 0;
  return { ...bars, tracks: ends.length, latest: bars.to.map((to) => (last = Math.max(last, to))) };
};

// Of both, by time.
const merged = (a, b) => {
  const index = new Int32Array(a.index.length + b.index.length), time = new Float64Array(index.length);
  for (let i = 0, j = 0, k = 0; k < index.length; ++k) {
    const isA = j === b.index.length || (i < a.index.length && a.time[i] <= b.time[j]);
    time[k] = isA ? a.time[i] : b.time[j];
    index[k] = isA ? a.index[i++] : b.index[j++];
  }
  return { index, time };
};

// `own` are its events, `turns` those that press or release; `told` are records and lines that say something. `steps` are what
// the caret goes through: these by their index; and events that came of none, by one that is negative.
const lanes = data.sources.map((source, index) => {
  const raw = rawOf(index);
  const own = pick(events.time, (i) => events.source[i] === index);
  const told = pick(raw.time, (i) => raw.event[i] !== 0 || !raw.isQuiet(i));
  const alone = pick(events.time, (i) => events.source[i] === index && events.cause[i] === 0);
  const turns = pick(events.time, (i) => events.source[i] === index && (isPress(i) || isRelease(i)));
  return { source, index, raw, own, turns, told, isRemote: source.kind === "remote", isShown: true, bars: barsOf(index),
    full: pick(raw.time, (i) => raw.event[i] !== 0), quiet: pick(raw.time, (i) => raw.event[i] === 0 && raw.isQuiet(i)),
    odd: pick(raw.time, (i) => raw.event[i] === 0 && !raw.isQuiet(i)),
    steps: merged(told, { time: alone.time, index: alone.index.map((event) => -1 - event) }) };
});

const states = data.states && { time: sums(data.states.time), state: data.states.state, deadline: sums(data.states.deadline) };

// ---- The pointer's path --------------------------------------------------------------------------

const kTick = 1000;  // microseconds

const levelsOf = (path) => path.levels.map((level) => ({ ticks: level.ticks, time: sums(level.at).map((at) => at * level.ticks * kTick),
  x: sums(level.x), y: sums(level.y), moves: level.moves }));

const paths = data.paths.map((path) => ({ path, levels: levelsOf(path), starts: sums(path.chunks.time).map((tick) => tick * kTick),
  decoded: new Map() }));

// The moves of a chunk. What a byte stands for: docs/report.md.
const decodeChunk = ({ path, starts }, number) => {
  const bytes = Uint8Array.from(atob(path.chunks.data[number]), (character) => character.charCodeAt(0));
  let at = 0, time = starts[number], x = path.chunks.x[number], y = path.chunks.y[number], wait = path.usual;
  const takeNumber = () => {
    let value = 0, factor = 1, byte;
    do {
      byte = bytes[at++];
      value += (byte & 127) * factor;
      factor *= 128;
    } while (byte > 127);
    return value % 2 === 0 ? value / 2 : -(value + 1) / 2;
  };
  const moves = { time: [time], x: [x], y: [y] };
  const move = (dx, dy) => {
    time += wait * kTick;
    wait = path.usual;
    moves.time.push(time);
    moves.x.push(x += dx);
    moves.y.push(y += dy);
  };
  while (at < bytes.length) {
    const byte = bytes[at++];
    if (byte <= 224) move(byte % 15 - 7, Math.floor(byte / 15) - 7);
    else if (byte <= 250) {
      const value = (byte - 225) * 256 + bytes[at++];
      move(value % 81 - 40, Math.floor(value / 81) - 40);
    } else if (byte === 251) move(takeNumber(), takeNumber());
    else if (byte === 252) wait += takeNumber();
    else ++wait;
  }
  return moves;
};

const chunkOf = (pointer, number) => {
  const kMostKept = 200;
  if (!pointer.decoded.has(number)) {
    if (pointer.decoded.size >= kMostKept) pointer.decoded.delete(pointer.decoded.keys().next().value);
    pointer.decoded.set(number, decodeChunk(pointer, number));
  }
  return pointer.decoded.get(number);
};

// The moves of a time, as runs of columns: all of them if they are not too many, or else a coarser level.
const movesIn = (pointer, from, to) => {
  const kMostPoints = 4000;
  const starts = pointer.starts;
  const first = Math.max(lowerBound(starts, from) - 1, 0), end = lowerBound(starts, to);
  let count = 0;
  for (let i = first; i < end; ++i) count += pointer.path.chunks.moves[i];
  const level = pointer.levels.find((one) => (to - from) / (one.ticks * kTick) <= kMostPoints) ?? pointer.levels.at(-1);
  if (count > kMostPoints * 3 && level) {
    return { width: level.ticks * kTick, runs: [level] };
  }
  const runs = [];
  for (let i = first; i < end; ++i) runs.push(chunkOf(pointer, i));
  return { width: kTick, runs };
};

// Calls `visit` with the place, the time and the number of each move of a run in a time.
const eachMove = (run, from, to, visit) => {
  for (let i = lowerBound(run.time, from); i < run.time.length && run.time[i] <= to; ++i) visit(run.x[i], run.y[i], run.time[i]);
};

// ---- Words ---------------------------------------------------------------------------------------

// A time of the session, to so many decimals of a second.
const timeText = (time, decimals = 6) => {
  const seconds = time / 1e6;
  if (data.length < 120e6) return `${seconds.toFixed(decimals)} s`;
  const minutes = Math.floor(seconds / 60);
  const hours = data.length < 3600e6 ? "" : `${Math.floor(minutes / 60)}:`;
  const inHour = hours === "" ? String(minutes) : String(minutes % 60).padStart(2, "0");
  return `${hours}${inHour}:${(seconds - minutes * 60).toFixed(decimals).padStart(decimals === 0 ? 2 : decimals + 3, "0")}`;
};

const spanText = (span) => {
  if (span < 1000) return `${span} µs`;
  if (span < 1e6) return `${(span / 1000).toFixed(span < 1e5 ? 2 : 1)} ms`;
  if (span < 120e6) return `${(span / 1e6).toFixed(3)} s`;
  return span < 7200e6 ? `${(span / 60e6).toFixed(1)} min` : `${(span / 3600e6).toFixed(1)} h`;
};

const counted = (number, what) => `${number} ${what}${number === 1 ? "" : "s"}`;

const eventAt = (number) => {
  const i = lowerBound(events.number, number);
  return i < events.number.length && events.number[i] === number ? i : -1;
};

// What the reader made of a record or line.
const outcomeOf = (lane, i) => {
  const number = lane.raw.event[i];
  if (number === 0) return data.whys[lane.raw.why[i]]?.text ?? "no event";
  const event = eventAt(number);
  return event === -1 ? `event ${number}` : eventText(event);
};

// A mark of the time line: a record or line, or an event.
const markText = ({ lane, raw, event }) => {
  if (raw !== undefined) {
    const gives = lane.raw.event[raw] === 0 ? "no event" : `event ${lane.raw.event[raw]}`;
    return `${lane.isRemote ? "line" : "record"} ${lane.raw.number[raw]}, ${lane.raw.text(raw)}: ${gives}, ${outcomeOf(lane, raw)}`;
  }
  const cause = events.cause[event];
  return `event ${events.number[event]}, ${eventText(event)}, ` +
    (cause === 0 ? "made by the reader alone" : `of ${lane.isRemote ? "line" : "record"} ${cause}`);
};

// The mark with a number among a lane's steps.
const markOf = (lane, number) => {
  const index = lane.steps.index[number], time = lane.steps.time[number];
  return index >= 0 ? { lane, time, raw: index } : { lane, time, event: -1 - index };
};

// ---- The view ------------------------------------------------------------------------------------

const kShortestView = 500;
const margin = Math.max(data.length * 0.02, 20000);
const view = { from: -margin, to: data.length + margin };
const caret = { time: null, anchor: null, mark: null, lane: lanes[0] ?? null };
let finding = null;   // the one that was jumped to
let matches = [];     // marks that were searched for, by time
let matchTimes = [];
let isAsked = false;  // whether a drawing is

const isShown = (lane) => lane.isShown;

const show = (from, to) => {
  const span = clamp(to - from, kShortestView, data.length + 2 * margin);
  const start = clamp((from + to - span) / 2, -margin, data.length + margin - span);
  Object.assign(view, { from: start, to: start + span });
  ask();
};

const zoom = (factor, centre = caretIsShown() ? caret.time : (view.from + view.to) / 2) =>
  show(centre - (centre - view.from) * factor, centre + (view.to - centre) * factor);

const pan = (part) => show(view.from + (view.to - view.from) * part, view.to + (view.to - view.from) * part);

const caretIsShown = () => caret.time !== null && caret.time >= view.from && caret.time <= view.to;

// Moves the view as little as it has to.
const reveal = (time) => {
  const span = view.to - view.from;
  if (time < view.from + span * 0.05) show(time - span * 0.3, time + span * 0.7);
  else if (time > view.to - span * 0.05) show(time - span * 0.7, time + span * 0.3);
};

const setCaret = (mark, keepAnchor) => {
  if (!keepAnchor) caret.anchor = mark.time;
  else caret.anchor ??= mark.time;
  Object.assign(caret, { time: mark.time, mark, lane: mark.lane ?? caret.lane });
  sayCaret();
  ask();
};

const sayCaret = () => {
  const { time, anchor, mark } = caret;
  const parts = time === null ? ["Click, or press left and right, to see what came when."] : [element("strong", {}, timeText(time))];
  if (mark?.lane) parts.push(` ${mark.lane.source.source}: ${markText(mark)}.`);
  if (anchor !== null && anchor !== time) {
    parts.push(" ", element("strong", { id: "between" }, spanText(Math.abs(time - anchor))), ` from ${timeText(anchor)}.`);
  }
  byId("caret").replaceChildren(...parts);
};

// ---- Drawing: where things are -------------------------------------------------------------------

const kAxis = 30, kTitle = 20, kRaw = 34, kTrack = 17, kZones = 20, kMoves = 12, kEvents = 38;

const timeline = byId("timeline");
const map = byId("map");
const colours = {};

const readColours = () => {
  const style = getComputedStyle(document.documentElement);
  for (const name of ["paper", "panel", "ink", "dim", "rule", "blue", "pale", "orange", "red", "purple"]) {
    colours[name] = style.getPropertyValue(`--${name}`).trim();
  }
};

const pathsOf = (lane) => paths.filter(({ path }) => path.source === lane.index);

// Each shown lane with the heights at which its rows begin.
const placeLanes = () => {
  let y = kAxis;
  const take = (height) => (y += height) - height;
  return lanes.filter(isShown).map((lane) => {
    const rows = { lane, top: y, title: take(kTitle), raw: take(kRaw) };
    rows.zones = lane.isRemote && states ? take(kZones) : null;
    rows.bars = take(lane.bars.tracks * kTrack);
    rows.moves = pathsOf(lane).length > 0 ? take(kMoves) : null;
    rows.events = take(kEvents);
    return { ...rows, bottom: y };
  });
};

// The size that a canvas has on the page, and what draws on it, in pixels of the page.
const prepare = (canvas, width, height) => {
  const ratio = window.devicePixelRatio;
  canvas.width = Math.round(width * ratio);
  canvas.height = Math.round(height * ratio);
  canvas.style.height = `${height}px`;
  const pen = canvas.getContext("2d");
  pen.setTransform(ratio, 0, 0, ratio, 0, 0);
  pen.font = "12px system-ui, 'DejaVu Sans', sans-serif";
  pen.textBaseline = "middle";
  return pen;
};

const scaleOf = (width) => {
  const factor = width / (view.to - view.from);
  return { width, toX: (time) => (time - view.from) * factor, toTime: (x) => view.from + x / factor };
};

// Visits what there is in the view, each pixel once: the index into `times`.
const eachPixel = (times, scale, visit) => {
  let i = lowerBound(times, scale.toTime(-8));
  const last = scale.toTime(scale.width + 8);
  while (i < times.length && times[i] <= last) {
    const x = scale.toX(times[i]);
    visit(i, x);
    i = Math.max(i + 1, lowerBound(times, scale.toTime(Math.floor(x) + 1)));
  }
};

const countIn = (times) => lowerBound(times, view.to) - lowerBound(times, view.from);

// ---- Drawing: lanes ------------------------------------------------------------------------------

const tick = (pen, x, y, height, colour) => {
  pen.fillStyle = colour;
  pen.fillRect(Math.round(x) - 0.75, y, 1.5, height);
};

const dot = (pen, x, y, radius, colour, isFull) => {
  pen.beginPath();
  pen.arc(x, y, radius, 0, 2 * Math.PI);
  pen.lineWidth = 1.6;
  pen.fillStyle = isFull ? colour : colours.panel;
  pen.strokeStyle = colour;
  pen.fill();
  pen.stroke();
};

const cross = (pen, x, y, colour) => {
  pen.strokeStyle = colour;
  pen.lineWidth = 2;
  pen.beginPath();
  pen.moveTo(x - 4, y - 4);
  pen.lineTo(x + 4, y + 4);
  pen.moveTo(x + 4, y - 4);
  pen.lineTo(x - 4, y + 4);
  pen.stroke();
};

// Texts beside marks, as many as there is room for.
const kMostLabelled = 400;
const label = (pen, marks, scale, y, textOf) => {
  if (countIn(marks.time) > kMostLabelled) return;
  let free = -Infinity;
  pen.fillStyle = colours.ink;
  eachPixel(marks.time, scale, (i, x) => {
    if (x < free) return;
    const text = textOf(marks.index[i]);
    pen.fillText(text, x - 2, y);
    free = x + pen.measureText(text).width + 10;
  });
};

const drawRecords = (pen, { lane, raw }, scale) => {
  eachPixel(lane.quiet.time, scale, (i, x) => tick(pen, x, raw + 24, 8, colours.rule));
  eachPixel(lane.full.time, scale, (i, x) => tick(pen, x, raw + 16, 16, colours.blue));
  eachPixel(lane.odd.time, scale, (i, x) => dot(pen, x, raw + 22, 4, colours.orange, false));
  label(pen, lane.told, scale, raw + 7, lane.raw.text);
};

// The milliseconds since the line before, where there is room between the two.
const drawGaps = (pen, { lane, raw }, scale) => {
  const time = lane.raw.time;
  pen.fillStyle = colours.dim;
  pen.textAlign = "center";
  for (let i = Math.max(lowerBound(time, view.from), 1); i < time.length && time[i - 1] <= view.to; ++i) {
    const from = scale.toX(time[i - 1]), to = scale.toX(time[i]);
    const gap = (time[i] - time[i - 1]) / 1000;
    if (gap < 2000 && to - from > 44) pen.fillText(gap.toFixed(to - from > 60 ? 1 : 0), (from + to) / 2, raw + 25);
    if (scale.toX(time[i - 1]) > scale.width) break;
  }
  pen.textAlign = "left";
};

const drawLines = (pen, rows, scale) => {
  const { lane, raw } = rows;
  if (countIn(lane.raw.time) < scale.width) drawGaps(pen, rows, scale);
  eachPixel(lane.odd.time, scale, (i, x) => {
    const line = lane.odd.index[i];
    if (data.texts[lane.raw.kind[line]].button === undefined) cross(pen, x, raw + 25, colours.orange);
    else dot(pen, x, raw + 25, 4.5, colours.dim, false);
  });
  eachPixel(lane.full.time, scale, (i, x) => dot(pen, x, raw + 25, 4.5, colours.blue, true));
  label(pen, lane.told, scale, raw + 7, lane.raw.label);
};

// What the reader takes the remote's key for; and until when a line is too early to count.
const drawZones = (pen, y, scale) => {
  const { time, state, deadline } = states;
  for (let i = Math.max(lowerBound(time, view.from) - 1, 0); i < time.length && time[i] <= view.to; ++i) {
    if (state[i] === 0) continue;
    const end = i + 1 < time.length ? time[i + 1] : data.length;
    const from = scale.toX(time[i]);
    pen.fillStyle = state[i] === 1 ? colours.pale : colours.blue;
    pen.globalAlpha = state[i] === 1 ? 1 : 0.45;
    pen.fillRect(from, y + 3, Math.max(scale.toX(end) - from, 0.5), kZones - 6);
    pen.globalAlpha = 1;
    const early = scale.toX(Math.min(deadline[i], end)) - from;
    if (early <= 2) continue;
    pen.fillStyle = colours.orange;
    pen.fillRect(from, y + kZones - 6, early, 3);
    if (deadline[i] <= end) tick(pen, from + early, y, kZones, colours.orange);
    const text = `${state[i] === 1 ? "release" : "repeat"} timeout ${data.timeouts[state[i] === 1 ? "release" : "repeat"]} ms`;
    const left = Math.max(from, 0);
    if (pen.measureText(text).width + 12 > from + early - left) continue;
    pen.fillStyle = colours.ink;
    pen.fillText(text, left + 5, y + 8);
  }
};

const drawBars = (pen, { lane, bars: top }, scale) => {
  const { from, to, latest, track, label: labels } = lane.bars;
  const filled = Array(lane.bars.tracks).fill(-Infinity);
  for (let i = lowerBound(latest, view.from); i < from.length && from[i] <= view.to; ++i) {
    const left = Math.max(scale.toX(from[i]), -2), right = Math.min(Math.max(scale.toX(to[i]), left + 2), scale.width + 2);
    if (Math.floor(right) <= filled[track[i]]) continue;  // nothing of it would be seen
    filled[track[i]] = Math.floor(right);
    const y = top + track[i] * kTrack;
    pen.fillStyle = colours.pale;
    pen.fillRect(left, y + 1, right - left, kTrack - 3);
    pen.fillStyle = colours.blue;
    pen.fillRect(left, y + 1, 1.5, kTrack - 3);
    const text = cut(labels[i], 24);
    if (pen.measureText(text).width + 8 > right - Math.max(left, 0)) continue;
    pen.fillStyle = colours.ink;
    pen.fillText(text, Math.max(left, 0) + 5, y + kTrack / 2);
  }
};

const drawMoves = (pen, { lane, moves: y }, scale) => {
  pen.fillStyle = colours.purple;
  for (const pointer of pathsOf(lane)) {
    const { width, runs } = movesIn(pointer, view.from, view.to);
    const wide = Math.max(scale.toX(width) - scale.toX(0), 1.2);
    for (const run of runs) {
      let last = -Infinity;
      eachMove(run, view.from - width, view.to, (mx, my, time) => {
        const x = scale.toX(time);
        if (x - last < 0.8) return;
        last = x;
        pen.fillRect(x, y + 3, wide, kMoves - 6);
      });
    }
  }
};

const drawEvents = (pen, { lane, raw, events: y }, scale) => {
  pen.strokeStyle = colours.dim;
  pen.lineWidth = 0.8;
  pen.globalAlpha = 0.6;
  eachPixel(lane.own.time, scale, (i, x) => {
    const cause = events.cause[lane.own.index[i]];
    const record = lowerBound(lane.raw.number, cause);
    if (cause === 0 || lane.raw.number[record] !== cause) return;
    pen.beginPath();
    pen.moveTo(scale.toX(lane.raw.time[record]), raw + kRaw - 2);
    pen.lineTo(x, y + 6);
    pen.stroke();
  });
  pen.globalAlpha = 1;
  eachPixel(lane.own.time, scale, (i, x) => dot(pen, x, y + 10, 2, colours.ink, true));
  eachPixel(lane.turns.time, scale, (i, x) => dot(pen, x, y + 10, 4.5, colours.ink, isPress(lane.turns.index[i])));
  label(pen, countIn(lane.own.time) > kMostLabelled ? lane.turns : lane.own, scale, y + 26, eventText);
};

const drawLane = (pen, rows, scale) => {
  const { lane, top } = rows;
  pen.fillStyle = lane === caret.lane && document.activeElement === timeline ? colours.blue : colours.rule;
  pen.fillRect(0, top, scale.width, lane === caret.lane && document.activeElement === timeline ? 2 : 1);
  if (rows.zones !== null) drawZones(pen, rows.zones, scale);
  drawBars(pen, rows, scale);
  if (rows.moves !== null) drawMoves(pen, rows, scale);
  drawEvents(pen, rows, scale);
  if (lane.isRemote) drawLines(pen, rows, scale);
  else drawRecords(pen, rows, scale);
  pen.fillStyle = colours.ink;
  pen.font = "600 12px system-ui, 'DejaVu Sans', sans-serif";
  pen.fillText(cut(lane.source.source + (lane.source.name === "" ? "" : ` – ${lane.source.name}`), 60), 6, rows.title + 11);
  pen.font = "12px system-ui, 'DejaVu Sans', sans-serif";
};

// ---- Drawing: all --------------------------------------------------------------------------------

// Of minutes and hours, other steps are round than of seconds.
const timeTicks = (count) => {
  const step = [30, 60, 120, 300, 600, 1200, 1800, 3600, 7200, 14400, 21600, 43200, 86400].map((seconds) => seconds * 1e6)
    .find((size) => size >= (view.to - view.from) / count);
  if (step === 30e6 || step === undefined) return ticks(view.from, view.to, count);
  const all = [];
  for (let time = Math.ceil(view.from / step) * step; time <= view.to; time += step) all.push(time);
  return { step, all };
};

const drawAxis = (pen, scale, height) => {
  const { step, all } = timeTicks(Math.max(scale.width / 120, 2));
  const decimals = clamp(-Math.floor(Math.log10(step / 1e6)), 0, 6);
  pen.textAlign = "center";
  for (const time of all) {
    const x = scale.toX(time);
    pen.fillStyle = colours.rule;
    pen.fillRect(x, kAxis - 8, 1, height);
    pen.fillStyle = colours.dim;
    if (time >= 0 && x > 20 && x < scale.width - 20) pen.fillText(timeText(time, decimals), x, 12);
  }
  pen.textAlign = "left";
};

const drawFindings = (pen, scale, height) => {
  if (finding) {
    const from = scale.toX(finding.from), to = scale.toX(finding.to);
    pen.fillStyle = colours.orange;
    pen.globalAlpha = 0.14;
    pen.fillRect(from, kAxis - 8, Math.max(to - from, 2), height);
    pen.globalAlpha = 1;
  }
  for (const one of data.findings.filter(({ from }) => from !== undefined)) {
    const x = scale.toX(one.from);
    pen.fillStyle = one.severity === "notice" ? colours.dim : colours.red;
    pen.beginPath();
    pen.moveTo(x - 5, kAxis - 9);
    pen.lineTo(x + 5, kAxis - 9);
    pen.lineTo(x, kAxis - 1);
    pen.fill();
  }
};

const drawMatches = (pen, scale, placed) => {
  const heights = new Map(placed.map((rows) => [rows.lane, rows]));
  eachPixel(matchTimes, scale, (i, x) => {
    const { lane, event } = matches[i];
    const rows = heights.get(lane);
    if (!rows) return;
    pen.strokeStyle = colours.red;
    pen.lineWidth = 2.5;
    pen.beginPath();
    pen.arc(x, event === undefined ? rows.raw + 24 : rows.events + 10, 8, 0, 2 * Math.PI);
    pen.stroke();
  });
};

const drawCaret = (pen, scale, height) => {
  if (caret.time === null) return;
  const [x, anchor] = [scale.toX(caret.time), scale.toX(caret.anchor)];
  pen.fillStyle = colours.blue;
  if (anchor !== x) {
    pen.globalAlpha = 0.12;
    pen.fillRect(Math.min(x, anchor), kAxis - 8, Math.abs(x - anchor), height);
    pen.globalAlpha = 1;
    pen.fillRect(anchor - 0.5, kAxis - 8, 1, height);
  }
  pen.fillRect(x - 1, kAxis - 8, 2, height);
};

const drawTimeline = () => {
  const width = byId("stage").clientWidth;
  const placed = placeLanes();
  const height = placed.at(-1)?.bottom ?? kAxis;
  const pen = prepare(timeline, width, height);
  const scale = scaleOf(width);
  pen.fillStyle = colours.panel;
  pen.fillRect(0, 0, width, height);
  drawAxis(pen, scale, height);
  drawFindings(pen, scale, height);
  for (const rows of placed) drawLane(pen, rows, scale);
  drawMatches(pen, scale, placed);
  drawCaret(pen, scale, height);
};

const drawPath = (pen, pointer, factor) => {
  pen.strokeStyle = colours.purple;
  pen.lineWidth = 1.3;
  pen.beginPath();
  let isFirst = true;
  for (const run of movesIn(pointer, view.from, view.to).runs) {
    eachMove(run, view.from, view.to, (x, y) => {
      if (isFirst) pen.moveTo(x * factor, y * factor);
      else pen.lineTo(x * factor, y * factor);
      isFirst = false;
    });
  }
  pen.stroke();
};

// Where the pointer is at the caret: as the last event says.
const placeAtCaret = () => {
  let i = lowerBound(events.time, caret.time + 1) - 1;
  while (i >= 0 && data.shapes[events.shape[i]].kind === "key") --i;
  return i < 0 ? null : [events.x[i], events.y[i]];
};

// The clicks in the view, up to so many that a dot more would be none. Returns how many there are.
const drawClicks = (pen, factor) => {
  const kMostDots = 2000;
  let clicks = 0;
  for (const { turns } of lanes.filter(isShown)) {
    for (let i = lowerBound(turns.time, view.from); i < turns.time.length && turns.time[i] <= view.to; ++i) {
      const event = turns.index[i];
      if (data.shapes[events.shape[event]].kind !== "mouse" || !isPress(event)) continue;
      if (++clicks <= kMostDots) dot(pen, events.x[event] * factor, events.y[event] * factor, 4.5, colours.red, true);
    }
  }
  return clicks;
};

const drawMap = () => {
  const width = Math.min(byId("stage").clientWidth, 480);
  const factor = width / data.screen.width;
  const pen = prepare(map, width, Math.round(data.screen.height * factor));
  map.style.width = `${width}px`;
  const shownPaths = paths.filter(({ path }) => lanes[path.source].isShown);
  for (const pointer of shownPaths) drawPath(pen, pointer, factor);
  const clicks = drawClicks(pen, factor);
  const place = caret.time === null ? null : placeAtCaret();
  if (place) cross(pen, place[0] * factor, place[1] * factor, colours.blue);
  byId("map-text").textContent = `The screen of ${data.screen.width} x ${data.screen.height}, in the time that is shown: ` +
    `its path, ${counted(clicks, "click")} as dots` + (place ? `, and where it was at the caret, ${place.join(",")}.` : ".");
};

// ---- The table -----------------------------------------------------------------------------------

const kMostRows = 200;

// What came in the view, and what the reader made alone: the first of it, and how much it is.
const marksInView = () => {
  const marks = [];
  let count = 0;
  for (const lane of lanes.filter(isShown)) {
    const first = lowerBound(lane.steps.time, view.from), end = lowerBound(lane.steps.time, view.to);
    count += end - first;
    for (let i = first; i < Math.min(end, first + kMostRows); ++i) marks.push(markOf(lane, i));
  }
  marks.sort((a, b) => a.time - b.time);
  return { marks: marks.slice(0, kMostRows), count };
};

const rowOf = (mark) => {
  const { lane, time, raw, event } = mark;
  const button = element("button", { type: "button" }, timeText(time));
  button.addEventListener("click", () => setCaret(mark, false));
  const isNothing = raw !== undefined && lane.raw.event[raw] === 0;
  return element("tr", {}, element("td", {}, button), element("td", {}, lane.source.source),
    element("td", {}, raw === undefined ? "-" : lane.raw.text(raw)),
    element("td", { class: isNothing ? "none" : null }, raw === undefined ? eventText(event) : outcomeOf(lane, raw)));
};

// Of a long session, moves are left out far from what else happened.
const isWhole = () => data.whole.some(([from, to]) => from <= Math.max(view.from, 0) && to >= Math.min(view.to, data.length));

let tableIsAsked = 0;

const drawTable = () => {
  const { marks, count } = marksInView();
  byId("rows").replaceChildren(...marks.map(rowOf));
  byId("view-text").textContent = `From ${timeText(Math.max(view.from, 0), 3)} to ${timeText(Math.min(view.to, data.length), 3)}: ` +
    `${counted(count, "mark")}, without those between reports, scan codes and lights` +
    (count === marks.length ? "." : `; the first ${marks.length} are here. Zoom in to see the others.`) +
    (isWhole() ? "" : " Here, moves are in the pointer's path alone.");
};

const draw = () => {
  isAsked = false;
  drawTimeline();
  if (paths.length > 0) drawMap();
};

const ask = () => {
  clearTimeout(tableIsAsked);
  tableIsAsked = setTimeout(drawTable, 150);
  if (isAsked) return;
  isAsked = true;
  requestAnimationFrame(draw);
};

// ---- Marks under the pointer, and beside the caret -----------------------------------------------

// The mark of a lane that is closest to a time.
const closest = (lane, time, kinds = ["raw", "event"]) => {
  let best = null;
  const look = (times, kind, isFine, indexOf) => {
    const kAround = 3;
    const i = lowerBound(times, time);
    for (let near = Math.max(i - kAround, 0); near < Math.min(i + kAround, times.length); ++near) {
      if (!isFine(near)) continue;
      const mark = { lane, time: times[near], [kind]: indexOf(near) };
      if (best === null || Math.abs(mark.time - time) < Math.abs(best.time - time)) best = mark;
    }
  };
  if (kinds.includes("raw")) look(lane.raw.time, "raw", (i) => !lane.raw.isQuiet(i), (i) => i);
  if (kinds.includes("event")) look(lane.own.time, "event", () => true, (i) => lane.own.index[i]);
  return best;
};

// What is at a place of the time line: a mark, or a time alone.
const markAt = (x, y) => {
  const kNear = 9;
  const scale = scaleOf(byId("stage").clientWidth);
  const time = clamp(Math.round(scale.toTime(x)), 0, data.length);
  const rows = placeLanes().find(({ top, bottom }) => y >= top && y < bottom);
  if (!rows) return { time };
  const mark = closest(rows.lane, scale.toTime(x), [y >= rows.events ? "event" : "raw"]);
  return mark && Math.abs(scale.toX(mark.time) - x) <= kNear ? mark : { time, at: rows.lane };
};

const isCaret = (mark) => mark.lane === caret.mark?.lane && mark.raw === caret.mark?.raw && mark.event === caret.mark?.event;

// The number of the mark after the caret, or before it, of those with these times.
const neighbour = (times, by, isHere) => {
  const time = caret.time ?? view.from;
  let i = lowerBound(times, time);
  for (let here = i; here < times.length && times[here] === time; ++here) {
    if (isHere(here)) return here + by;
  }
  return by > 0 ? i : i - 1;
};

const stepTo = (lane, number, keepAnchor) => {
  if (lane === null || lane.steps.time.length === 0) return;
  setCaret(markOf(lane, clamp(number, 0, lane.steps.time.length - 1)), keepAnchor);
  reveal(caret.time);
};

const step = (by, keepAnchor) => {
  const lane = caret.lane;
  stepTo(lane, neighbour(lane?.steps.time ?? [], by, (i) => isCaret(markOf(lane, i))), keepAnchor);
};

const changeLane = (by) => {
  const shownLanes = lanes.filter(isShown);
  if (shownLanes.length === 0) return;
  caret.lane = shownLanes[clamp(shownLanes.indexOf(caret.lane) + by, 0, shownLanes.length - 1)];
  const mark = closest(caret.lane, caret.time ?? view.from);
  if (mark) setCaret(mark, false);
  ask();
};

// ---- Keys, wheel, pointers -----------------------------------------------------------------------

const actions = {
  ArrowLeft: ({ shiftKey }) => step(-1, shiftKey), ArrowRight: ({ shiftKey }) => step(1, shiftKey),
  ArrowUp: () => changeLane(-1), ArrowDown: () => changeLane(1),
  Home: ({ shiftKey }) => stepTo(caret.lane, 0, shiftKey), End: ({ shiftKey }) => stepTo(caret.lane, Infinity, shiftKey),
  PageUp: () => pan(-0.9), PageDown: () => pan(0.9),
  "+": () => zoom(0.5), "=": () => zoom(0.5), "-": () => zoom(2), 0: () => show(-margin, data.length + margin),
};

timeline.addEventListener("keydown", (event) => {
  if (event.ctrlKey || event.altKey || event.metaKey || !(event.key in actions)) return;
  actions[event.key](event);
  event.preventDefault();
});
timeline.addEventListener("focus", () => ask());
timeline.addEventListener("blur", () => ask());

timeline.addEventListener("wheel", (event) => {
  const kPerZoom = 300;
  event.preventDefault();
  const scale = scaleOf(byId("stage").clientWidth);
  const pixels = event.deltaMode === 0 ? 1 : 30;
  const sideways = event.shiftKey && event.deltaX === 0 ? event.deltaY : event.deltaX;
  if (sideways !== 0) pan(sideways * pixels / scale.width);
  else zoom(2 ** (event.deltaY * pixels / kPerZoom), scale.toTime(event.offsetX));
}, { passive: false });

// Fingers, or the mouse while its button is down: where they are, and where they were first.
const pointers = new Map();

timeline.addEventListener("pointerdown", (event) => {
  timeline.setPointerCapture(event.pointerId);
  pointers.set(event.pointerId, { x: event.offsetX, y: event.offsetY, startX: event.offsetX, startY: event.offsetY, isMoved: pointers.size > 0 });
});

const drag = (pointer, x) => {
  const scale = scaleOf(byId("stage").clientWidth);
  if (Math.abs(x - pointer.startX) > 4) pointer.isMoved = true;
  if (!pointer.isMoved) return;
  if (pointers.size === 1) return pan((pointer.x - x) / scale.width);
  const other = [...pointers.values()].find((one) => one !== pointer);
  const distance = Math.abs(x - other.x);
  if (distance > 8) zoom(clamp(Math.abs(pointer.x - other.x) / distance, 0.5, 2), scale.toTime((x + other.x) / 2));
  other.isMoved = true;
};

timeline.addEventListener("pointermove", (event) => {
  const pointer = pointers.get(event.pointerId);
  if (!pointer) return showTip(event.offsetX, event.offsetY);
  drag(pointer, event.offsetX);
  Object.assign(pointer, { x: event.offsetX, y: event.offsetY });
});

timeline.addEventListener("pointerup", (event) => {
  const pointer = pointers.get(event.pointerId);
  pointers.delete(event.pointerId);
  if (!pointer || pointer.isMoved) return;
  const { at, ...mark } = markAt(event.offsetX, event.offsetY);
  if (at) caret.lane = at;
  setCaret(mark, event.shiftKey);
});
timeline.addEventListener("pointercancel", (event) => pointers.delete(event.pointerId));
timeline.addEventListener("pointerleave", () => { byId("tip").style.display = "none"; });

const showTip = (x, y) => {
  const mark = markAt(x, y);
  const tip = byId("tip");
  tip.style.display = mark.lane ? "block" : "none";
  if (!mark.lane) return;
  tip.textContent = `${timeText(mark.time)} ${markText(mark)}`;
  tip.style.left = `${clamp(x + 12, 0, Math.max(byId("stage").clientWidth - tip.offsetWidth, 0))}px`;
  tip.style.top = `${y + 18}px`;
};

// ---- Search, filter, findings --------------------------------------------------------------------

// The marks whose key, code or button has these words: events, and what gave none.
const search = (words) => {
  const wanted = words.trim().toLowerCase();
  matches = [];
  if (wanted !== "") {
    const has = (text) => text !== undefined && text.toLowerCase().includes(wanted);
    const shapes = data.shapes.map(({ text }) => has(text));
    const codes = data.codes.map(({ name }) => has(name));
    const texts = data.texts.map(({ line, button }) => has(button ?? line));
    matches = lanes.filter(isShown).flatMap((lane) => matchesIn(lane, shapes, lane.isRemote ? texts : codes));
  }
  matches.sort((a, b) => a.time - b.time);
  matchTimes = matches.map(({ time }) => time);
  byId("matches").textContent = wanted === "" ? "" : `${counted(matches.length, "mark")} found`;
  ask();
};

const matchesIn = (lane, shapes, kinds) => {
  const found = [];
  for (const event of lane.own.index) {
    const cause = lowerBound(lane.raw.number, events.cause[event]);
    const isCause = lane.raw.number[cause] === events.cause[event];
    if (shapes[events.shape[event]] || (isCause && kinds[lane.raw.kind[cause]])) found.push({ lane, event, time: events.time[event] });
  }
  for (const raw of lane.odd.index) {
    if (kinds[lane.raw.kind[raw]]) found.push({ lane, raw, time: lane.raw.time[raw] });
  }
  return found;
};

// To the next match, or to the one before; after the last comes the first.
const goToMatch = (by) => {
  if (matches.length === 0) return;
  const next = neighbour(matchTimes, by, (i) => isCaret(matches[i]));
  setCaret(matches[(next + matches.length) % matches.length], false);
  reveal(caret.time);
};

const addFilter = () => {
  for (const lane of lanes) {
    const input = element("input", { type: "checkbox", id: `source-${lane.index}` });
    input.checked = true;
    input.addEventListener("change", () => showLane(lane, input.checked));
    byId("filter").append(element("label", { for: input.id }, input, lane.source.source));
  }
};

const showLane = (lane, shownNow) => {
  lane.isShown = shownNow;
  byId(`source-${lane.index}`).checked = shownNow;
  if (!isShown(caret.lane)) caret.lane = lanes.find(isShown) ?? caret.lane;
  search(byId("words").value);
};

const jumpTo = (one) => {
  finding = one;
  if (one.source !== undefined) {
    showLane(lanes[one.source], true);
    caret.lane = lanes[one.source];
  }
  const room = Math.max((one.to - one.from) * 0.8, 300e3);
  show(one.from - room, one.to + room);
  const lane = lanes[one.source];
  const raw = lane && one.record !== undefined ? lowerBound(lane.raw.number, one.record) : -1;
  const isThere = raw !== -1 && lane.raw.number[raw] === one.record;
  setCaret(isThere ? { lane, raw, time: lane.raw.time[raw] } : { time: one.from }, false);
  timeline.focus({ preventScroll: true });
  byId("timeline-heading").scrollIntoView();
};

const findingItem = (one) => {
  const item = element("li", { "data-id": one.id }, element("span", { class: `severity ${one.severity}` }, `${one.severity}: `),
    `${cut(one.what, 1000)}. ${cut(one.remedy, 1000)}. `, element("span", { class: "dim" }, `(${cut(one.where, 200)})`));
  if (one.from === undefined) return item;
  const button = element("button", { type: "button" }, `Show ${timeText(one.from, 3)}`);
  button.addEventListener("click", () => jumpTo(one));
  item.append(" ", button);
  return item;
};

// ---- The page ------------------------------------------------------------------------------------

const sourcePart = ({ source, file, name, secretsText, count, events: given, about }) => element("section", {},
  element("h3", {}, cut(source + (name === "" ? "" : ` – ${name}`), 300)),
  element("p", {}, `${file === "" ? "" : `${file}: `}${counted(count, source === "remote" ? "line" : "record")}, ` +
    `${counted(given, "event")}. ${secretsText}`),
  ...(about.length === 0 ? [] : [element("table", {}, element("tbody", {}, ...about.map(([name_, text]) =>
    element("tr", {}, element("th", { scope: "row" }, name_), element("td", {}, cut(text, 1000))))))]));

const fillPage = () => {
  document.title = `${cut(data.session, 60)} – a session of input`;
  byId("title").textContent = `A session of input: ${cut(data.session, 200)}`;
  const count = data.sources.reduce((sum, source) => sum + source.events, 0);
  byId("summary").textContent = `${spanText(data.length)}, ${counted(count, "event")} of ${counted(data.sources.length, "source")}. ` +
    [...new Set(data.sources.map(({ secretsText }) => secretsText))].join(" ");
  byId("damages").append(...data.damages.map((text) => element("li", {}, cut(text, 1000))));
  byId("findings").append(...data.findings.map(findingItem));
  if (data.findings.length === 0) byId("findings").replaceWith(element("p", { id: "findings" }, "Nothing is wrong, as far as can be seen."));
  byId("sources").append(...data.sources.map(sourcePart));
  byId("map-part").hidden = paths.length === 0;
};

const connect = () => {
  const on = (id, action) => byId(id).addEventListener("click", action);
  on("in", () => zoom(0.5));
  on("out", () => zoom(2));
  on("whole", () => show(-margin, data.length + margin));
  on("earlier", () => pan(-0.5));
  on("later", () => pan(0.5));
  on("before", () => goToMatch(-1));
  byId("words").addEventListener("input", () => search(byId("words").value));
  byId("search").addEventListener("submit", (event) => {
    event.preventDefault();
    goToMatch(1);
  });
};

// Paper is white.
const recolour = () => {
  readColours();
  draw();
};

fillPage();
addFilter();
connect();
sayCaret();
drawTable();
for (const query of ["(prefers-color-scheme: dark)", "print"]) matchMedia(query).addEventListener("change", recolour);
readColours();
new ResizeObserver(ask).observe(byId("stage"));
