// The page's script. Whatever comes from a run is set as text, never as markup.
#include "client/view/page.h"

const char kPageScript[] = R"js(
'use strict';
const data = JSON.parse(document.getElementById('data').textContent);
const kinds = {crash: ['C', ''], anr: ['A', ''], tombstone: ['T', ''], reboot: ['R', 'odd'],
  replaced: ['L', 'odd'], evicted: ['E', 'odd'], step: ['S', 'odd'], hole: ['H', 'odd'],
  daemon: ['D', 'calm'], start: ['\u25b6', 'calm'], stop: ['\u25a0', 'calm']};
const names = {crash: 'crash', anr: 'ANR', tombstone: 'tombstone', reboot: 'reboot',
  replaced: 'logcat replaced', evicted: 'run evicted', step: 'clock set back', hole: 'lines missing',
  daemon: 'the daemon', start: 'logging started', stop: 'logging stopped'};
const one = id => document.getElementById(id);
function put(parent, tag, text, name) {
  const made = parent.appendChild(document.createElement(tag));
  if (text !== undefined) made.textContent = text;
  if (name) made.className = name;
  return made;
}
function stamp(micros) {
  const date = new Date(Math.floor(micros / 1000));
  const rest = String(((micros % 1000) + 1000) % 1000).padStart(3, '0');
  return date.toISOString().replace('T', ' ').replace('Z', rest);
}
function size(bytes) {
  const units = ['B', 'KiB', 'MiB', 'GiB', 'TiB'];
  let unit = 0;
  for (; bytes >= 1024 && unit < 4; unit++) bytes /= 1024;
  return bytes.toFixed(unit ? 1 : 0) + ' ' + units[unit];
}

// What the run is.
document.title = 'run ' + data.name;
one('name').textContent = data.name;
for (const [key, value] of [['State', data.state], ['Types', data.types], ['Build', data.build],
    ['First line', data.first === null ? '' : stamp(data.first)],
    ['Last line', data.last === null ? '' : stamp(data.last)], ['Quota', data.quota]]) {
  if (!value) continue;
  put(one('about'), 'dt', key);
  put(one('about'), 'dd', value);
}

// The time of the run: lines and marks, with a margin. Holes beside it and old crash files do not extend it.
const inside = data.marks.filter(mark => !['hole', 'anr', 'tombstone'].includes(mark.kind));
const times = inside.map(mark => mark.time).concat([data.first, data.last]).filter(time => time !== null);
if (!times.length) times.push(...data.marks.map(mark => mark.time));
const least = times.length ? Math.min(...times) : 0, most = times.length ? Math.max(...times) : 1;
const margin = Math.max((most - least) / 50, 10000);
const whole = [least - margin, most + margin];
let shown = whole.slice(), picked = null;

const timeline = one('timeline');
function lane(name, kind) {
  const row = put(timeline, 'div', undefined, 'lane' + (kind ? ' ' + kind : ''));
  put(row, 'span', name);
  return put(row, 'div');
}
const markLane = lane('marks', 'marks');
const lanes = data.lanes.map(one => {
  const box = lane(one.name);
  return {counts: one.counts, canvas: put(box, 'canvas')};
});
const axis = put(timeline, 'div', undefined, 'axis');
const pick = put(timeline, 'div');
pick.id = 'pick';
const share = time => (time - shown[0]) / (shown[1] - shown[0]);

function drawLane(one) {
  const canvas = one.canvas, ratio = window.devicePixelRatio || 1;
  const width = Math.max(1, Math.round(canvas.clientWidth * ratio));
  const height = Math.round(canvas.clientHeight * ratio);
  canvas.width = width;
  canvas.height = height;
  const columns = new Map();
  let top = 1;
  for (let i = 0; i < one.counts.length; i += 4) {
    const from = data.base + one.counts[i] * data.width;
    if (from + data.width < shown[0] || from > shown[1]) continue;
    const at = Math.max(0, Math.floor(share(from) * width));
    const sum = columns.get(at) || [0, 0, 0, 1];
    for (let k = 0; k < 3; k++) sum[k] += one.counts[i + 1 + k];
    sum[3] = Math.max(1, Math.ceil(data.width / (shown[1] - shown[0]) * width));
    columns.set(at, sum);
    top = Math.max(top, sum[0]);
  }
  const pen = canvas.getContext('2d'), style = getComputedStyle(document.documentElement);
  const colours = ['--bar', '--warn', '--error'].map(key => style.getPropertyValue(key));
  // Square roots, and at least two pixels: one error among many lines is to be seen.
  const tall = count => count ? Math.max(2 * ratio, Math.sqrt(count / top) * height) : 0;
  for (const [at, sum] of columns) {
    const parts = [sum[0], sum[1] + sum[2], sum[2]];
    parts.forEach((count, k) => {
      pen.fillStyle = colours[k];
      pen.fillRect(at, height - tall(count), sum[3], tall(count));
    });
  }
}

function drawMarks() {
  markLane.textContent = '';
  for (const mark of data.marks) {
    const end = mark.until === undefined ? mark.time : mark.until;
    if (end < shown[0] || mark.time > shown[1]) continue;
    const label = names[mark.kind] + ', ' + stamp(mark.time) + ': ' + mark.text;
    if (mark.until !== undefined) {
      const area = put(markLane, 'div', undefined, 'hole');
      area.style.left = 100 * Math.max(0, share(mark.time)) + '%';
      area.style.width = 100 * (Math.min(1, share(end)) - Math.max(0, share(mark.time))) + '%';
      area.title = label;
    }
    if (mark.time < shown[0]) continue;
    const button = put(markLane, 'button', kinds[mark.kind][0], 'mark ' + kinds[mark.kind][1]);
    button.type = 'button';
    button.tabIndex = -1;
    button.title = label;
    button.setAttribute('aria-label', label);
    button.dataset.kind = mark.kind;
    button.style.left = 100 * share(mark.time) + '%';
    button.onclick = () => select(mark.time - 5e6, end + 5e6);
  }
}

// The time face that the scale needs.
function tick(time) {
  const text = stamp(time), span = shown[1] - shown[0];
  return span > 2 * 86400e6 ? text.slice(5, 16) : span > 60e6 ? text.slice(11, 19) : text.slice(11, 23);
}

function quoted(text) {
  return /^[\w@%+=:,.\/-]+$/.test(text) ? text : "'" + text.replace(/'/g, "'\\''") + "'";
}

function drawPick() {
  const box = markLane.getBoundingClientRect(), all = timeline.getBoundingClientRect();
  pick.hidden = !picked;
  const range = picked || shown;
  one('range').textContent = (picked ? 'Selected: ' : 'Shown: ') + stamp(range[0]) + ' to ' + stamp(range[1]);
  one('command').value = 'harrowmossctl log ' + quoted(data.run) + " --since '" + stamp(range[0]) + "' --until '" +
      stamp(range[1]) + "'";
  if (!picked) return;
  const from = Math.max(0, share(picked[0])), to = Math.min(1, share(picked[1]));
  pick.hidden = to <= 0 || from >= 1;
  pick.style.left = box.left - all.left + from * box.width + 'px';
  pick.style.width = Math.max(1, (to - from) * box.width) + 'px';
}

function draw() {
  lanes.forEach(drawLane);
  drawMarks();
  axis.textContent = '';
  for (let i = 0; i <= 4; i++) put(axis, 'span', tick(shown[0] + (shown[1] - shown[0]) * i / 4));
  drawPick();
}

function show(from, to) {
  const least = 1000;
  if (to - from < least) to = from + least;
  shown = [Math.max(whole[0], Math.round(from)), Math.min(whole[1], Math.round(to))];
  if (shown[1] - shown[0] < least) shown = whole.slice();
  draw();
}
function select(from, to) {
  picked = [Math.round(Math.min(from, to)), Math.round(Math.max(from, to))];
  drawPick();
}
function zoom(factor) {
  const middle = picked ? (picked[0] + picked[1]) / 2 : (shown[0] + shown[1]) / 2;
  const half = (shown[1] - shown[0]) * factor / 2;
  show(middle - half, middle + half);
}
function everything() {
  picked = null;
  show(whole[0], whole[1]);
}
function toPicked() {
  if (picked) show(picked[0], picked[1]);
}

const timeAt = event => {
  const box = markLane.getBoundingClientRect();
  const part = Math.min(1, Math.max(0, (event.clientX - box.left) / box.width));
  return shown[0] + part * (shown[1] - shown[0]);
};
let from = null;
timeline.addEventListener('pointerdown', event => {
  if (event.button !== 0 || event.target.closest('button')) return;
  from = timeAt(event);
  timeline.setPointerCapture(event.pointerId);
});
timeline.addEventListener('pointermove', event => {
  if (from !== null) select(from, timeAt(event));
});
timeline.addEventListener('pointerup', event => {
  if (from !== null && Math.abs(timeAt(event) - from) < (shown[1] - shown[0]) / 300) {
    picked = null;
    drawPick();
  }
  from = null;
});
timeline.addEventListener('pointercancel', () => { from = null; });
timeline.addEventListener('keydown', event => {
  const step = (shown[1] - shown[0]) / 20, sign = event.key === 'ArrowLeft' ? -1 : 1;
  if (event.ctrlKey || event.metaKey || event.altKey) return;
  if (event.key === 'ArrowLeft' || event.key === 'ArrowRight') {
    if (event.shiftKey) {
      const middle = (shown[0] + shown[1]) / 2, now = picked || [middle, middle];
      sign > 0 ? select(now[0], now[1] + step) : select(now[0], Math.max(now[0], now[1] - step));
    } else {
      const move = Math.min(whole[1] - shown[1], Math.max(whole[0] - shown[0], sign * 2 * step));
      show(shown[0] + move, shown[1] + move);
    }
  } else if (event.key === '+' || event.key === '=') {
    zoom(1 / 2);
  } else if (event.key === '-') {
    zoom(2);
  } else if (event.key === 'Enter' && event.target === timeline) {
    toPicked();
  } else if (event.key === 'Escape') {
    everything();
  } else {
    return;
  }
  event.preventDefault();
});
one('in').onclick = () => zoom(1 / 2);
one('out').onclick = () => zoom(2);
one('zoom').onclick = toPicked;
one('all').onclick = everything;
one('copy').onclick = () => {
  one('command').select();
  // A page from the disk may have no clipboard of the newer kind.
  if (navigator.clipboard) navigator.clipboard.writeText(one('command').value).catch(() => {});
  else document.execCommand('copy');
};
window.addEventListener('resize', draw);
window.matchMedia('(prefers-color-scheme: dark)').addEventListener('change', draw);

// The tables.
function table(id, heads, rows, empty) {
  if (!rows.length) return put(one(id), 'p', empty, 'help');
  const made = put(put(one(id), 'div', undefined, 'scroll'), 'table');
  const top = put(put(made, 'thead'), 'tr');
  heads.forEach(([text, kind]) => put(top, 'th', text, kind));
  const body = put(made, 'tbody');
  for (const row of rows) {
    const line = put(body, 'tr');
    row.forEach((cell, k) => {
      const box = put(line, 'td', undefined, heads[k][1]);
      if (cell instanceof Node) box.appendChild(cell);
      else box.textContent = cell;
    });
  }
  return made;
}
function jump(time) {
  const button = document.createElement('button');
  button.type = 'button';
  button.textContent = stamp(time);
  button.onclick = () => {
    select(time - 5e6, time + 5e6);
    show(time - 30e6, time + 30e6);
    timeline.scrollIntoView({block: 'nearest'});
  };
  return button;
}
for (const [colour, text] of [['--bar', 'lines'], ['--warn', 'warnings'], ['--error', 'errors']]) {
  const key = put(one('keys'), 'span');
  put(key, 'span', undefined, 'swatch').style.background = 'var(' + colour + ')';
  key.appendChild(document.createTextNode(text));
}
for (const kind of new Set(data.marks.map(mark => mark.kind))) {
  put(one('keys'), 'span', kinds[kind][0] + ' ' + names[kind]);
}
table('marks', [['Time', 'time'], ['What'], ['Text']],
    data.marks.filter(mark => mark.time !== null).map(mark => [jump(mark.time), names[mark.kind], mark.text]),
    'Nothing happened that has a mark.');
if (data.marks_left_out) put(one('marks'), 'p', data.marks_left_out + ' more are left out.', 'help');
for (const crash of data.crashes) put(one('crashes'), 'pre', crash.lines.join('\n'));
if (!data.crashes.length) put(one('crashes'), 'p', 'No crash is in the log.', 'help');
for (const id of ['tags', 'pids']) {
  table(id, [[id === 'tags' ? 'Tag' : 'Pid'], ['Lines', 'number'], ['Errors', 'number']],
      data[id].map(row => [row[0], row[1].toLocaleString('en'), row[2].toLocaleString('en')]), 'No lines.');
}
for (const text of data.findings) put(one('findings'), 'li', text);
table('files', [['File'], ['Size', 'number'], ['Check']], data.files.map(row => [row[0], size(row[1]), row[2]]),
    'No files.');
if (data.files_left_out) put(one('files'), 'p', data.files_left_out + ' more are left out.', 'help');
draw();
)js";
