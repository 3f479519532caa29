// SPDX-License-Identifier: MIT
// What all parts of the page's script use. The parts are joined in the order of CMakeLists.txt.
'use strict';

const data = JSON.parse(document.getElementById('data').textContent);
const byId = (id) => document.getElementById(id);
const isVolume = data.extents.length === 3;
const axisNames = ['x', 'y', 'z'];

// Four digits, without zeros that tell nothing.
function digits(number, count = 4) {
  if (!Number.isFinite(number)) return String(number);
  return String(Number(number.toPrecision(count))).replace('-', '−');
}

const percent = (share) => `${share >= 0.0995 || share === 0 ? Math.round(share * 100) : digits(share * 100, 2)} %`;
const stepsText = (steps) => `${steps} ${steps === 1 ? 'step' : 'steps'}`;

// An element with attributes, properties that start with a dot, and children.
function make(name, attributes = {}, ...children) {
  const isDrawn = ['svg', 'g', 'rect', 'path', 'line', 'text'].includes(name);
  const element = isDrawn ? document.createElementNS('http://www.w3.org/2000/svg', name)
                          : document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  element.append(...children);
  return element;
}

function say(text) {
  byId('said').textContent = text;
}
