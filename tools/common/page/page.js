"use strict";
// What all pages share. Whatever the data say is put into the page as text, never as HTML.

const data = JSON.parse(document.getElementById("data").textContent);

const byId = (id) => document.getElementById(id);

const fill = (node, attributes, children) => {
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== null) node.setAttribute(name, value);
  }
  node.append(...children);
  return node;
};

const element = (tag, attributes = {}, ...children) => fill(document.createElement(tag), attributes, children);

const shape = (tag, attributes = {}, ...children) =>
  fill(document.createElementNS("http://www.w3.org/2000/svg", tag), attributes, children);

const clamp = (value, minimum, maximum) => Math.min(Math.max(value, minimum), maximum);

// Round numbers between two, some `count` of them.
const ticks = (minimum, maximum, count) => {
  const rough = (maximum - minimum) / count;
  const power = 10 ** Math.floor(Math.log10(rough));
  const step = [1, 2, 5, 10].map((factor) => factor * power).find((size) => size >= rough) ?? 10 * power;
  const first = Math.ceil(minimum / step - 1e-9);
  const all = [];
  for (let i = first; i * step <= maximum + step * 1e-9; ++i) all.push(i * step);
  return { step, all };
};
