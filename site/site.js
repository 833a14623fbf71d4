"use strict";
// Search in all pages, and in the rows of the key map. Without this script, the pages can be read all the same.

const kMostResults = 30;
const kTextBefore = 40;
const kTextShown = 160;

const query = document.getElementById("site-query");
const found = document.getElementById("site-found");
const results = document.getElementById("site-results");

function wordsOf(text) {
  return text.toLowerCase().split(/\s+/).filter((word) => word !== "");
}

// How well a section fits, 0 if a word is missing, or there is none.
function rank(entry, words) {
  const [page, heading, , text] = entry.lower;
  let sum = 0;
  for (const word of words) {
    if (heading.includes(word)) sum += heading === word ? 40 : 20;
    else if (page.includes(word)) sum += heading === "" ? 15 : 5;
    else if (text.includes(word)) sum += 1;
    else return 0;
  }
  return sum;
}

// The text around the first word that is found in it.
function excerpt(text, words) {
  const lower = text.toLowerCase();
  const places = words.map((word) => lower.indexOf(word)).filter((place) => place >= 0);
  const from = places.length === 0 ? 0 : Math.max(0, Math.min(...places) - kTextBefore);
  return (from > 0 ? "…" : "") + text.slice(from, from + kTextShown) + (from + kTextShown < text.length ? "…" : "");
}

function element(name, text) {
  const made = document.createElement(name);
  made.textContent = text;
  return made;
}

function result(entry, words) {
  const [page, heading, address, text] = entry;
  const link = document.createElement("a");
  link.href = document.documentElement.dataset.root + address;
  link.append(element("b", heading === "" ? page : heading));
  if (heading !== "") link.append(` ${page}`);
  link.append(element("span", excerpt(text, words)));
  const item = document.createElement("li");
  item.append(link);
  return item;
}

function search() {
  const words = wordsOf(query.value);
  const ranked = searchIndex.map((entry) => [rank(entry, words), entry]).filter(([value]) => value > 0);
  ranked.sort((one, other) => other[0] - one[0]);
  results.replaceChildren(...ranked.slice(0, kMostResults).map(([, entry]) => result(entry, words)));
  if (words.length === 0) found.textContent = "";
  else found.textContent = ranked.length === 0 ? "Nothing found" : `${ranked.length} found`;
}

// The field and the results, as a list through which the arrow keys go.
function step(by) {
  const places = [query, ...results.querySelectorAll("a")];
  const next = places[places.indexOf(document.activeElement) + by];
  if (next !== undefined) next.focus();
}

function isTyping(target) {
  return target instanceof HTMLInputElement;
}

function onKey(event) {
  const inSearch = document.getElementById("site-search").contains(event.target);
  if (event.key === "/" && !isTyping(event.target)) query.focus();
  else if (!inSearch) return;
  else if (event.key === "ArrowDown") step(1);
  else if (event.key === "ArrowUp") step(-1);
  else if (event.key === "Enter" && event.target === query) results.querySelector("a")?.click();
  else if (event.key === "Escape") {
    query.value = "";
    search();
    query.focus();
  } else return;
  event.preventDefault();
}

// A field that leaves only the rows of a page's tables that have all words, and nothing else of the page.
function addFilter(main) {
  const what = main.dataset.filter;
  const rows = [...main.querySelectorAll("tbody tr")].filter((row) => row.querySelector("code") !== null);
  const others = [...main.children].filter((child) => child.tagName !== "H1");
  const label = element("label", `Find among the ${what}: `);
  const field = document.createElement("input");
  field.type = "search";
  field.id = "site-filter";
  const told = element("p", "");
  told.setAttribute("role", "status");
  const form = document.createElement("div");
  form.className = "filter controls";
  label.append(field);
  form.append(label, told);
  main.querySelector("h1").after(form);
  field.addEventListener("input", () => {
    const words = wordsOf(field.value);
    for (const row of rows) row.hidden = !words.every((word) => row.textContent.toLowerCase().includes(word));
    const shown = rows.filter((row) => !row.hidden);
    for (const other of others) other.hidden = words.length > 0 && !shown.some((row) => other.contains(row));
    told.textContent = words.length === 0 ? "" : `${shown.length} of ${rows.length} rows`;
  });
}

for (const entry of searchIndex) entry.lower = entry.map((text) => text.toLowerCase());
document.getElementById("site-search").hidden = false;
query.addEventListener("input", search);
document.addEventListener("keydown", onKey);
results.addEventListener("click", () => {
  query.value = "";
  search();
});
const main = document.querySelector("main[data-filter]");
if (main !== null) addFilter(main);
