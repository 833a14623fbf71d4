// A study of a remote's timing: dots, sliders, a table.

const isKernel = data.decoder === "kernel";
const repeatField = isKernel ? "periodMs" : "repeatTimeoutMs";
const startField = isKernel ? "delayMs" : "releaseTimeoutMs";
const pollField = "timeoutMs";
const tried = data.settings.filter((setting) => setting.tried);
const recommended = data.settings.find((setting) => setting.recommended);
const now = data.settings.find((setting) => setting.now);
const polls = now[pollField] !== undefined;

// ---- Words ---------------------------------------------------------------------------------------

const nameOf = (setting) => `${data.terms.start} ${setting[startField]} ms, ${data.terms.repeat} ${setting[repeatField]} ms` +
  (polls ? `, polled every ${setting[pollField]} ms` : "");

const meanings = new Map(data.faults.map((fault) => [fault.name, fault.meaning]));

const verdictOn = (setting) => (setting.faults.length === 0 ? "No fault." :
  setting.faults.map((fault) => `${fault}: ${meanings.get(fault)}.`).join(" "));

const roleOf = (setting) => [setting.now && "now", setting.recommended && "recommended"].filter(Boolean).join(", ");

const rangeText = (range, decimals) => {
  if (range === null) return "-";
  const [minimum, maximum] = [range.minimum.toFixed(decimals), range.maximum.toFixed(decimals)];
  return minimum === maximum ? minimum : `${minimum} to ${maximum}`;
};

// ---- Marks of faults -----------------------------------------------------------------------------

// Faults of a kind have a colour and a shape.
const kinds = [
  { name: "good", faults: [], path: "M-6 0a6 6 0 1 0 12 0a6 6 0 1 0-12 0z" },
  { name: "count", faults: ["ghosts", "misses"], path: "M-5.5-5.5h11v11h-11z" },
  { name: "repeats", faults: ["off", "no repeats", "uneven"], path: "M0-7l7 12h-14z" },
  { name: "start", faults: ["hasty", "slow start"], path: "M0-8l7 8l-7 8l-7-8z" },
  { name: "pace", faults: ["fast", "slow", "late"], path: "M0 7l7-12h-14z" },
];

const kindOf = (fault) => kinds.find((kind) => kind.faults.includes(fault)) ?? kinds[0];

const mark = (kind) => shape("path", { class: `mark ${kind.name}`, d: kind.path });

const drawLegend = () => {
  const sample = (...shapes) => shape("svg", { width: 18, height: 18, viewBox: "-9 -9 18 18", "aria-hidden": "true" }, ...shapes);
  const entry = (kind, ...text) => element("li", {}, sample(mark(kind)), ...text);
  const ringEntry = (ring, text) => element("li", {}, sample(shape("circle", { class: ring, r: 7 })), text);
  byId("legend").append(entry(kinds[0], element("strong", {}, "good"), ": no fault"),
    ...data.faults.map((fault) => entry(kindOf(fault.name), element("strong", {}, fault.name), `: ${fault.meaning}`)),
    ringEntry("ring", "recommended"), ringEntry("ring now", "now"));
};

// ---- Dots ----------------------------------------------------------------------------------------

const middleOf = (range) => (range.minimum + range.maximum) / 2;

// Where a setting's dot is: one that does not repeat has no time of its first repeat.
const placeOf = (setting) => ({
  x: setting.firstRepeatMs === null ? null : middleOf(setting.firstRepeatMs),
  y: setting.repeatsPerSecond === null ? 0 : middleOf(setting.repeatsPerSecond),
});

// The scales of the two axes, and the room around them.
const scalesFor = (width, height) => {
  const firsts = tried.flatMap((setting) => (setting.firstRepeatMs === null ? [] : Object.values(setting.firstRepeatMs)));
  const rates = tried.map((setting) => (setting.repeatsPerSecond === null ? 0 : setting.repeatsPerSecond.maximum));
  const [low, high] = firsts.length === 0 ? [0, 500] : [Math.min(...firsts), Math.max(...firsts)];
  const margin = Math.max((high - low) * 0.15, 20);
  const box = { left: 46, right: width - 70, top: 12, bottom: height - 46 };
  const x = { minimum: Math.max(low - margin, 0), maximum: high + margin };
  const y = { minimum: 0, maximum: Math.max(...rates, 4) * 1.1 };
  return { box, x, y,
    toX: (ms) => (ms === null ? width - 35 :
      box.left + (ms - x.minimum) / (x.maximum - x.minimum) * (box.right - box.left)),
    toY: (rate) => box.bottom - rate / y.maximum * (box.bottom - box.top) };
};

const drawAxes = (scales, width, height) => {
  const { box, x, y, toX, toY } = scales;
  const axes = shape("g", { "aria-hidden": "true" });
  for (const rate of ticks(0, y.maximum, 5).all) {
    axes.append(shape("line", { class: "grid", x1: box.left, x2: width - 4, y1: toY(rate), y2: toY(rate) }),
      shape("text", { class: "axis", x: box.left - 6, y: toY(rate) + 4, "text-anchor": "end" }, String(rate)));
  }
  for (const ms of ticks(x.minimum, x.maximum, Math.max(width / 110, 4)).all) {
    axes.append(shape("line", { class: "grid", x1: toX(ms), x2: toX(ms), y1: box.top, y2: box.bottom }),
      shape("text", { class: "axis", x: toX(ms), y: box.bottom + 17, "text-anchor": "middle" }, String(ms)));
  }
  axes.append(
    shape("text", { x: (box.left + box.right) / 2, y: height - 8, "text-anchor": "middle" }, "first repeat after, in ms"),
    shape("text", { x: 13, y: (box.top + box.bottom) / 2, "text-anchor": "middle",
      transform: `rotate(-90 13 ${(box.top + box.bottom) / 2})` }, "repeats a second"));
  if (tried.some((setting) => setting.firstRepeatMs === null)) {
    axes.append(shape("text", { class: "axis", x: width - 35, y: box.bottom + 17, "text-anchor": "middle" }, "no repeat"));
  }
  return axes;
};

// Where each dot goes: those that would hide each other stand side by side.
const spread = (scales) => {
  const groups = new Map();
  for (const setting of tried) {
    const { x, y } = placeOf(setting);
    const place = { setting, x: scales.toX(x), y: scales.toY(y) };
    const group = `${Math.round(place.x / 8)} ${Math.round(place.y / 8)}`;
    groups.set(group, [...(groups.get(group) ?? []), place]);
  }
  for (const group of groups.values()) {
    group.forEach((place, i) => { place.shift = (i - (group.length - 1) / 2) * 22; });
  }
  return [...groups.values()].flat();
};

const tell = (setting) => {
  const role = roleOf(setting);
  byId("told").replaceChildren(element("strong", {}, nameOf(setting) + (role === "" ? "" : ` (${role})`)),
    `: ${setting.summary} ${verdictOn(setting)}`);
};

const drawDot = ({ setting, x, y, shift }, scales) => {
  const role = roleOf(setting);
  const kind = kindOf(setting.faults[0]);
  const dot = shape("g", { role: "option", tabindex: setting.recommended ? 0 : -1, class: kind.name,
    "aria-selected": String(setting === chosen), "aria-label":
      `${nameOf(setting)}${role === "" ? "" : ` (${role})`}: ${setting.summary} ${verdictOn(setting)}` });
  if (setting.repeatsPerSecond !== null) {
    dot.append(shape("line", { class: "range", x1: x + shift, x2: x + shift, y1: scales.toY(setting.repeatsPerSecond.minimum),
      y2: scales.toY(setting.repeatsPerSecond.maximum) }));
  }
  const centre = shape("g", { transform: `translate(${x + shift} ${y})` }, shape("circle", { class: "spot", r: 13 }), mark(kind));
  if (setting.now) centre.append(shape("circle", { class: "ring now", r: 10 }));
  if (setting.recommended) centre.append(shape("circle", { class: "ring", r: 13 }));
  dot.append(centre);
  dot.addEventListener("pointerenter", () => tell(setting));
  dot.addEventListener("focus", () => tell(setting));
  dot.addEventListener("click", () => choose(setting));
  return dot;
};

const moveInDots = (event) => {
  const dots = [...byId("dots").querySelectorAll("[role=option]")];
  const here = dots.indexOf(document.activeElement);
  const steps = { ArrowRight: 1, ArrowDown: 1, ArrowLeft: -1, ArrowUp: -1, Home: -here, End: dots.length - 1 - here };
  if (here === -1) return;
  if (event.key === "Enter" || event.key === " ") choose(tried[here]);
  else if (event.key in steps) dots[clamp(here + steps[event.key], 0, dots.length - 1)].focus();
  else return;
  event.preventDefault();
};

const drawDots = () => {
  const width = Math.max(byId("dots").clientWidth - 16, 240);
  const height = Math.min(380, Math.max(260, width * 0.6));
  const scales = scalesFor(width, height);
  const places = spread(scales).sort((a, b) => tried.indexOf(a.setting) - tried.indexOf(b.setting));
  const picture = shape("svg", { width, height, viewBox: `0 0 ${width} ${height}`, role: "listbox",
    "aria-label": "Each setting as a dot: when a held button repeats first, and how often. Arrow keys go through them" },
    drawAxes(scales, width, height), ...places.map((place) => drawDot(place, scales)));
  picture.addEventListener("keydown", moveInDots);
  byId("dots").replaceChildren(picture);
};

// ---- A tap and a held button ---------------------------------------------------------------------

const kLinesRow = 22, kStateRow = 52, kDownsRow = 82, kRowLeft = 86;

const lineMark = (x, fate) => {
  if (fate === 2) return shape("path", { class: "lost", d: `M${x - 5} ${kLinesRow - 5}l10 10m0-10l-10 10` });
  return shape("circle", { class: fate === 0 ? "line" : "skipped", cx: x, cy: kLinesRow, r: 5 });
};

// The times at which the button was held, and at which it repeated.
const stateBars = (press, end, toX) => press.states.flatMap(([from, state], i) => {
  const to = i + 1 < press.states.length ? press.states[i + 1][0] : end;
  if (state === 0 || from >= end) return [];
  return [shape("rect", { class: state === 1 ? "held" : "repeating", x: toX(from), y: kStateRow - 9,
    width: Math.max(toX(Math.min(to, end)) - toX(from), 1), height: 18 })];
});

const drawPress = (title, press, setting, width, end) => {
  const toX = (ms) => kRowLeft + 10 + (ms + 20) / (end + 40) * (width - kRowLeft - 20);
  const words = `${title}: ${press.keyDowns.length} key-down${press.keyDowns.length === 1 ? "" : "s"} of ` +
    `${press.lines.length} ${data.terms.line}${press.lines.length === 1 ? "" : "s"}`;
  const picture = shape("svg", { width, height: 128, viewBox: `0 0 ${width} 128`, role: "img", "aria-label": words });
  for (const [text, y] of [[data.terms.line + "s", kLinesRow], ["button", kStateRow], ["key-downs", kDownsRow]]) {
    picture.append(shape("text", { class: "axis", x: 0, y: y + 4 }, text));
  }
  for (const ms of ticks(0, end, Math.max(width / 90, 3)).all) {
    picture.append(shape("line", { class: "grid", x1: toX(ms), x2: toX(ms), y1: 8, y2: 98 }),
      shape("text", { class: "axis", x: toX(ms), y: 114, "text-anchor": "middle" }, String(ms)));
  }
  picture.append(...stateBars(press, end, toX), ...press.lines.map(([ms, fate]) => lineMark(toX(ms), fate)));
  for (const ms of press.keyDowns.filter((time) => time <= end)) {
    picture.append(shape("line", { class: "down", x1: toX(ms), x2: toX(ms), y1: kDownsRow - 10, y2: kDownsRow + 10 }));
  }
  const limit = press.keyDowns[0] + setting[startField];
  if (limit <= end) {
    picture.append(shape("line", { class: "limit", x1: toX(limit), x2: toX(limit), y1: 4, y2: 98 }));
    picture.append(shape("text", { class: "limit-text", x: toX(limit), y: 127, "text-anchor": "middle" }, data.terms.start));
  }
  return [element("h3", {}, words + ", ms"), picture];
};

// As long as the longest that can be chosen, so that a slider moves what is in the picture and not its axis.
const endOf = (what) => Math.max(...data.settings.map((setting) =>
  Math.max(setting[what].lines.at(-1)[0], setting[what].keyDowns.at(-1) ?? 0))) + 150;
const ends = { tap: Math.max(endOf("tap"), Math.min(Math.max(...data.settings.map((setting) => setting[startField])) + 60, 1000)),
  hold: endOf("hold") };

const drawPresses = () => {
  const width = Math.max(byId("presses").clientWidth - 16, 240);
  byId("presses").replaceChildren(...drawPress("A tap", chosen.tap, chosen, width, ends.tap),
    ...drawPress("A held button", chosen.hold, chosen, width, ends.hold));
  const role = roleOf(chosen);
  byId("outcome").replaceChildren(element("strong", {}, nameOf(chosen) + (role === "" ? "" : ` (${role})`)),
    `: ${chosen.summary} ${verdictOn(chosen)}`);
};

// ---- Sliders -------------------------------------------------------------------------------------

const valuesOf = (field) => [...new Set(data.settings.map((setting) => setting[field]))].sort((a, b) => a - b);

const sliders = [[startField, data.terms.start], [repeatField, data.terms.repeat], ...(polls ? [[pollField, "poll timeout"]] : [])]
  .map(([field, label]) => ({ field, label, values: valuesOf(field), input: element("input", { type: "range", id: field }),
    output: element("output", { for: field, class: "number" }) }));

let chosen = recommended;

const choose = (setting) => {
  chosen = setting;
  for (const { field, values, input, output } of sliders) {
    input.value = values.indexOf(setting[field]);
    output.textContent = `${setting[field]} ms`;
    input.setAttribute("aria-valuetext", output.textContent);
  }
  drawPresses();
  byId("dots").querySelectorAll("[role=option]").forEach((dot, i) =>
    dot.setAttribute("aria-selected", String(tried[i] === chosen)));
};

const slide = () => choose(data.settings.find((setting) =>
  sliders.every(({ field, values, input }) => setting[field] === values[input.value])));

const addSliders = () => {
  for (const { label, values, input, output, field } of sliders) {
    input.max = values.length - 1;
    input.disabled = values.length === 1;
    input.addEventListener("input", slide);
    byId("sliders").append(element("label", { for: field }, label), input, output);
  }
  const buttons = [["Now", now], ["Recommended", recommended]].map(([text, setting]) => {
    const button = element("button", { type: "button" }, text);
    button.addEventListener("click", () => choose(setting));
    return button;
  });
  byId("sliders").append(element("div", { class: "row" }, ...buttons));
};

// ---- The table -----------------------------------------------------------------------------------

const columns = [
  [data.terms.start, (setting) => setting[startField]],
  [data.terms.repeat, (setting) => setting[repeatField]],
  ...(polls ? [["poll timeout", (setting) => setting[pollField]]] : []),
  ["key-downs a tap", (setting) => rangeText(setting.keyDownsPerTap, 0)],
  ["first repeat", (setting) => rangeText(setting.firstRepeatMs, 0)],
  ["repeats a second", (setting) => rangeText(setting.repeatsPerSecond, 1)],
  ["last key-down after the end", (setting) => rangeText(setting.lastAfterReleaseMs, 0)],
  ...(isKernel ? [] : [["lines skipped", (setting) => setting.linesSkipped]]),
];

const drawTable = () => {
  byId("table").append(element("caption", {}, "Times are in ms."), element("thead", {}, element("tr", {},
    ...columns.map(([name]) => element("th", { class: "number", scope: "col" }, name)), element("th", { scope: "col" }, "faults"))),
  element("tbody", {}, ...tried.map((setting) => element("tr", { class: setting.recommended ? "recommended" : null },
    ...columns.map(([, text]) => element("td", { class: "number" }, String(text(setting)))),
    element("td", {}, [setting.faults.join(", ") || "good", roleOf(setting)].filter(Boolean).join("; "))))));
};

// ---- The page ------------------------------------------------------------------------------------

byId("remote").append(`Remote: ${data.remote}.`);
byId("runs").append(data.runs);
byId("reason").append(data.reason);
byId("commands").append(data.whatToSet);
byId("key").append(`The worst run of the setting. A dot is a ${data.terms.line} that counts; a ring, one that ` +
  (isKernel ? "keeps the key down" : "comes too soon to count") + (polls && !isKernel ? "; a cross, one that was read too late" : "") +
  "; a bar, a key-down. Between them is what the button is taken for: pale, held; dark, repeating.");
drawLegend();
addSliders();
choose(recommended);
tell(recommended);
drawTable();
new ResizeObserver(() => { drawDots(); drawPresses(); }).observe(byId("dots"));
