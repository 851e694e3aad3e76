// The catalogue's page: asks the JSON API (/api/...) and shows its answers.
// Every text from the catalogue goes into the page as text, never as markup.
'use strict';

const state = { token: sessionStorage.getItem('ngi-token') || '', query: null, next: null, points: new Map() };
const $ = (id) => document.getElementById(id);

function status(text, error) {
  setText($('status'), text);
  $('status').className = error ? 'error' : '';
}

// Whether text[i] is a surrogate that is not half of a pair.
function isLone(text, i) {
  const c = text.charCodeAt(i);
  if (c >= 0xD800 && c <= 0xDBFF) return !(i + 1 < text.length && (text.charCodeAt(i + 1) & 0xFC00) === 0xDC00);
  return c >= 0xDC00 && c <= 0xDFFF && !(i > 0 && (text.charCodeAt(i - 1) & 0xFC00) === 0xD800);
}

// A parameter as the server reads it: UTF-8, percent-encoded, where a lone
// surrogate of a damaged name (which encodeURIComponent and URLSearchParams
// refuse or replace) is the three bytes its code point would take (WTF-8).
function encodeParam(text) {
  let out = '';
  for (let i = 0; i < text.length; ++i) {
    if (!isLone(text, i)) {
      const pair = (text.charCodeAt(i) & 0xFC00) === 0xD800;
      out += encodeURIComponent(text.slice(i, pair ? i + 2 : i + 1));
      if (pair) ++i;
      continue;
    }
    const c = text.charCodeAt(i);
    for (const byte of [0xE0 | (c >> 12), 0x80 | ((c >> 6) & 0x3F), 0x80 | (c & 0x3F)])
      out += '%' + byte.toString(16).toUpperCase();
  }
  return out;
}

// GET /api/<question>; resolves to the answer, or rejects with its error.
async function api(question, params) {
  const query = [];
  for (const [key, value] of Object.entries(params))
    if (value !== '' && value != null) query.push(key + '=' + encodeParam(String(value)));
  const headers = state.token ? { Authorization: 'Bearer ' + state.token } : {};
  const response = await fetch('/api/' + question + '?' + query.join('&'), { headers });
  if (response.status === 401) {
    $('token-form').hidden = false;
    $('token').focus();
    throw new Error('give the access token first');
  }
  const body = await response.json();
  if (!response.ok) throw new Error(body.error || response.statusText);
  return body;
}

// Sizes in the units people read: 51000 -> "49.8 KB" (1 KB = 1024 bytes).
function humanSize(bytes) {
  if (bytes == null) return '';
  const units = ['bytes', 'KB', 'MB', 'GB', 'TB', 'PB'];
  let value = bytes, unit = 0;
  while (value >= 1024 && unit < units.length - 1) { value /= 1024; ++unit; }
  return unit === 0 ? bytes + ' bytes' : value.toFixed(value < 10 ? 2 : 1) + ' ' + units[unit];
}

// ISO 8601 to the second: "2026-01-05T00:00:00Z".
function isoTime(text) {
  return text ? text.replace(/\.\d+Z$/, 'Z') : '';
}

// "1-3,5" for [1,2,3,5].
function pointList(points) {
  const parts = [];
  for (let i = 0; i < points.length;) {
    let j = i;
    while (j + 1 < points.length && points[j + 1] === points[j] + 1) ++j;
    parts.push(j > i ? points[i] + '-' + points[j] : String(points[i]));
    i = j + 1;
  }
  return parts.join(',');
}

// `text` into `element` as text; a lone surrogate, which a font would draw
// as the same box for every one, as its code ("\uDC00") marked apart, so
// that two damaged names that differ only there look different.
function setText(element, text) {
  element.textContent = '';
  let from = 0;
  for (let i = 0; i < text.length; ++i) {
    if (!isLone(text, i)) continue;
    if (i > from) element.append(text.slice(from, i));
    const mark = document.createElement('span');
    const code = text.charCodeAt(i).toString(16).toUpperCase();
    mark.className = 'lone';
    mark.textContent = '\\u' + code;
    mark.title = 'A lone UTF-16 unit ' + code + ': the name is damaged on the volume';
    element.append(mark);
    from = i + 1;
  }
  if (from < text.length) element.append(text.slice(from));
}

function cell(row, text, className) {
  const td = row.insertCell();
  setText(td, text);
  if (className) td.className = className;
  return td;
}

function link(td, text, onClick) {
  td.textContent = '';
  const a = document.createElement('a');
  setText(a, text);
  a.href = '#';
  a.addEventListener('click', (event) => { event.preventDefault(); onClick(); });
  td.appendChild(a);
}

function fullPath(v) {
  return v.volume + v.path + (v.type === 'dir' && v.path !== '\\' ? '\\' : '');
}

function addVersionRow(tbody, v) {
  const row = tbody.insertRow();
  cell(row, v.machine);
  cell(row, pointList(v.points)).title = v.points.map(pointTitle).join('\n');
  const path = cell(row, '', 'path');
  if (v.type === 'file') link(path, fullPath(v), () => showVersions(v));
  else if (v.type === 'dir') link(path, fullPath(v), () => showListing(v.machine, v.volume + v.path, v.points[v.points.length - 1]));
  else setText(path, fullPath(v) + ' -> ' + v.target);
  cell(row, humanSize(v.size), 'num').title = v.size == null ? '' : v.size + ' bytes';
  cell(row, isoTime(v.modified));
  cell(row, v.owner || '').title = v.owner_sid || '';
}

function pointTitle(id) {
  const p = state.points.get(id);
  return p ? id + ': ' + p.machine + ', taken ' + isoTime(p.taken) : String(id);
}

async function loadPoints() {
  let after = 0;
  do {
    const page = await api('points', { limit: 1000, after });
    for (const p of page.results) state.points.set(p.id, p);
    after = page.next;
  } while (after != null);
}

async function search(more) {
  const tbody = $('results').tBodies[0];
  if (!more) {
    // The fields as typed (FormData would replace a lone surrogate).
    state.query = {};
    for (const field of $('search-form').elements) if (field.name) state.query[field.name] = field.value;
    state.next = 0;
    tbody.textContent = '';
    $('detail-section').hidden = true;
  }
  status('Searching...');
  try {
    const page = await api('search', { ...state.query, limit: 100, after: state.next });
    for (const v of page.results) addVersionRow(tbody, v);
    state.next = page.next;
    $('more').hidden = page.next == null;
    $('results-section').hidden = false;
    const shown = tbody.rows.length;
    const plus = page.next == null ? '' : '+';
    status(shown === 0 ? 'Nothing found.' : shown + plus + (shown === 1 && !plus ? ' version' : ' versions') + ' found.');
  } catch (e) {
    status(e.message, true);
  }
}

function showDetail(title, headings) {
  setText($('detail-title'), title);
  const table = $('detail');
  table.tHead.textContent = '';
  const head = table.tHead.insertRow();
  for (const h of headings) {
    const th = document.createElement('th');
    th.textContent = h;
    head.appendChild(th);
  }
  table.tBodies[0].textContent = '';
  $('detail-section').hidden = false;
  return table.tBodies[0];
}

async function showVersions(v) {
  status('Reading versions...');
  try {
    const page = await api('versions', { machine: v.machine, path: v.volume + v.path, limit: 1000 });
    const tbody = showDetail('Versions of ' + v.volume + v.path + ' on ' + v.machine,
      ['Size', 'Last written (UTC)', 'Owner', 'Held by restore points']);
    for (const version of page.results) {
      const row = tbody.insertRow();
      cell(row, humanSize(version.size), 'num').title = version.size + ' bytes';
      cell(row, isoTime(version.modified));
      cell(row, version.owner || '');
      cell(row, version.points.map(pointTitle).join('; '));
    }
    const count = page.results.length;
    status(count + (count === 1 ? ' version of ' : ' versions of ') + v.volume + v.path + '.');
    $('detail-section').scrollIntoView();
  } catch (e) {
    status(e.message, true);
  }
}

async function showListing(machine, path, at) {
  status('Reading the folder...');
  try {
    const tbody = showDetail(path + ' on ' + machine + ' at ' + pointTitle(at),
      ['Name', 'Type', 'Size', 'Last written (UTC)', 'Owner']);
    let after = 0;
    do {
      const page = await api('ls', { machine, path, at, limit: 1000, after });
      for (const v of page.results) {
        const row = tbody.insertRow();
        const shown = v.path.slice(v.path.lastIndexOf('\\') + 1);
        const name = cell(row, shown, 'path');
        if (v.type === 'dir') link(name, shown + '\\', () => showListing(machine, v.volume + v.path, at));
        cell(row, v.type);
        cell(row, humanSize(v.size), 'num');
        cell(row, isoTime(v.modified));
        cell(row, v.owner || '');
      }
      after = page.next;
    } while (after != null);
    status(tbody.rows.length + ' entries.');
    $('detail-section').scrollIntoView();
  } catch (e) {
    status(e.message, true);
  }
}

async function start() {
  try {
    const machines = await api('machines', { limit: 1000 });
    for (const m of machines.results) {
      const option = document.createElement('option');
      option.value = option.textContent = m.machine;
      $('machine').appendChild(option);
    }
    await loadPoints();
    status(machines.results.length + ' machines, ' + state.points.size + ' restore points.');
  } catch (e) {
    status(e.message, true);
  }
}

$('search-form').addEventListener('submit', (event) => { event.preventDefault(); search(false); });
$('more').addEventListener('click', () => search(true));
$('token-form').addEventListener('submit', (event) => {
  event.preventDefault();
  state.token = $('token').value;
  sessionStorage.setItem('ngi-token', state.token);
  $('token-form').hidden = true;
  start();
});
start();
