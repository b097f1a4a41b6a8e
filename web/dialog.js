// The settings dialog as a page: asks the host (host/web_dialog_runner.h) for the dialog's
// state, lays its controls out at their own bounds, and sends every change back as it happens.
//
// Requests go out one at a time, in order, because the host handles them one at a time anyway;
// while one is out, a newer value for the same control (or a newer mouse position) replaces the
// one still waiting, so fast typing or dragging never builds a backlog. Canvases are fetched on
// their own, whenever the state reports a newer canvas version.
//
// When the host offers looks (flare tables), they are listed beside the dialog; picking one has
// the host show the dialog again on that table, and the page rebuilds its controls from the new
// dialog's state (its "dialog" number tells a new dialog from the old).
'use strict';

const Type = Object.freeze({
  pushButton: 1, checkBox: 2, radioGroup: 3, dividerLine: 4, groupBox: 5, staticText: 9,
  editText: 10, colorButton: 11, popupMenu: 13, userControl: 15,
});
const kAccept = 1;
const kCancel = 2;
const kMostCoordinate = 32767;

const page = {
  built: false,
  dialog: 0,                // which dialog of the host the controls were built from
  closing: false,           // OK or Cancel was sent
  closed: false,
  controls: new Map(),      // id -> {info, element (the input), box (the positioned element)}
  canvasVersion: -1,        // of the pixels shown
  latestVersion: -1,        // the newest the host reported
  canvasFetch: Promise.resolve(),
  waitingEdits: new Map(),  // id -> edits queued but not sent; the page shows those, not the host's
  drag: null,               // {id, pointerId} while the mouse is down in a user control
  look: null,               // the look the dialog shows, when looks are offered
  looks: new Map(),         // name -> its radio button
};

// ---- Requests ----

const waiting = [];   // {key, run, dropped, resolve, reject}
let busy = false;

// Queues a request; a waiting one with the same key is dropped for it (its promise gets null).
function enqueue(key, run, dropped = () => {}) {
  return new Promise((resolve, reject) => {
    const index = key === null ? -1 : waiting.findIndex((entry) => entry.key === key);
    const entry = { key, run, dropped, resolve, reject };
    if (index >= 0) {
      waiting[index].dropped();
      waiting[index].resolve(null);
      waiting[index] = entry;
    } else {
      waiting.push(entry);
    }
    pump();
  });
}

async function pump() {
  if (busy) return;
  const entry = waiting.shift();
  if (!entry) return;
  busy = true;
  try {
    entry.resolve(await entry.run());
  } catch (error) {
    entry.reject(error);
  } finally {
    busy = false;
    pump();
  }
}

async function post(name, body) {
  let response;
  try {
    response = await fetch(`api/${name}`, {
      method: 'POST',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify(body),
    });
  } catch {
    showClosed(null);
    return null;
  }
  return receive(response);
}

// A reply: the new state, or an error shown to the artist (and the state fetched again, so the
// page shows what the dialog really holds).
async function receive(response) {
  if (response.status === 410) {
    showClosed(null);
    return null;
  }
  let body = null;
  try {
    body = await response.json();
  } catch {
    body = null;
  }
  if (!response.ok) {
    say(body && body.error ? body.error : `The host answered ${response.status}.`, true);
    refreshState();
    return null;
  }
  applyState(body);
  return body;
}

function send(name, body, key = null) {
  if (page.closed || page.closing) return Promise.resolve(null);
  return enqueue(key, () => post(name, body));
}

// An edit waits its turn behind earlier requests, whose replies must not undo on the page what
// the artist just did; once it is sent, its own reply shows what the host made of it.
function edit(id, value) {
  if (page.closed || page.closing) return Promise.resolve(null);
  const sent = () => page.waitingEdits.set(id, page.waitingEdits.get(id) - 1);
  page.waitingEdits.set(id, (page.waitingEdits.get(id) ?? 0) + 1);
  return enqueue(`edit:${id}`, () => {
    sent();
    return post('edit', { id, value });
  }, sent);
}

function refreshState() {
  if (page.closed || page.closing) return Promise.resolve(null);
  return enqueue('state', async () => {
    try {
      return receive(await fetch('api/state'));
    } catch {
      showClosed(null);
      return null;
    }
  });
}

// ---- Canvases ----

function refreshCanvases() {
  if (page.fetchingCanvas || page.closed || page.closing) return;
  page.canvasFetch = fetchCanvases();
}

async function fetchCanvases() {
  page.fetchingCanvas = true;
  try {
    while (page.latestVersion > page.canvasVersion && !page.closed && !page.closing) {
      const wanted = page.latestVersion;
      for (const [id, control] of page.controls) {
        if (control.info.type !== Type.userControl) continue;
        const response = await fetch(`api/canvas/${id}`);
        if (response.status === 410) return showClosed(null);
        if (!response.ok) continue;
        const width = Number(response.headers.get('X-Canvas-Width'));
        const height = Number(response.headers.get('X-Canvas-Height'));
        const pixels = new Uint8ClampedArray(await response.arrayBuffer());
        if (width > 0 && height > 0 && pixels.length === width * height * 4) {
          control.element.getContext('2d').putImageData(new ImageData(pixels, width, height), 0, 0);
        }
      }
      page.canvasVersion = wanted;
    }
  } catch {
    showClosed(null);
  } finally {
    page.fetchingCanvas = false;
  }
}

// ---- Building the controls ----

function element(tag, className, properties = {}) {
  const made = document.createElement(tag);
  if (className) made.className = className;
  Object.assign(made, properties);
  return made;
}

function place(box, bounds) {
  box.style.left = `${bounds.left}px`;
  box.style.top = `${bounds.top}px`;
  box.style.width = `${bounds.right - bounds.left}px`;
  box.style.height = `${bounds.bottom - bounds.top}px`;
}

function controlId(id) {
  return `control-${id}`;
}

function labelled(state) {
  const named = new Set();
  for (const info of state.controls) {
    if (info.type === Type.staticText && info.labelFor) named.add(info.labelFor);
  }
  return named;
}

function looksNumeric(text) {
  return /^\s*[-+]?(\d+\.?\d*|\.\d+)([eE][-+]?\d+)?\s*$/.test(text);
}

function build(state) {
  const surface = document.getElementById('surface');
  surface.replaceChildren();
  // A new dialog (another look) has the same controls by ID: edits still waiting go to it.
  page.controls.clear();
  page.dialog = state.dialog;
  surface.style.width = `${state.width}px`;
  surface.style.height = `${state.height}px`;
  document.getElementById('dialog-title').textContent = state.title;
  document.title = `${state.title} – settings`;
  const named = labelled(state);

  for (const info of state.controls) {
    const built = makeControl(info, named.has(info.id));
    if (!built) continue;
    built.box.dataset.setting = settingHint(info);
    built.box.title = built.box.dataset.setting;
    built.box.classList.add('control');
    place(built.box, info.bounds);
    surface.append(built.box);
    page.controls.set(info.id, { info, ...built });
  }
  page.built = true;
  document.getElementById('loading').hidden = true;
  document.getElementById('card').hidden = false;
  fitTexts();
  document.fonts.ready.then(fitTexts);
}

// The setting a control edits, by the name the tool, look files, Python, Blender and the video
// editors give it ("flare-intensity"), shown as the control's tooltip beside the dialog's own label.
function settingHint(info) {
  if (!info.setting) return '';
  return info.settingInverted ? `${info.setting} (on when this is off)` : info.setting;
}

// Texts were laid out for the dialog's own font; where this browser's is wider, a text shrinks a
// little to stay inside its bounds rather than run into the next control (the whole text then in
// its tooltip).
function fitTexts() {
  const kSmallest = 10;
  for (const { box } of page.controls.values()) {
    if (!box.classList.contains('static-text') && !box.classList.contains('check-box')) continue;
    box.style.fontSize = '';
    let size = parseFloat(getComputedStyle(box).fontSize);
    while (box.scrollWidth > box.clientWidth && size > kSmallest) {
      size -= 0.5;
      box.style.fontSize = `${size}px`;
    }
    const cut = box.scrollWidth > box.clientWidth;
    box.title = [cut ? box.textContent : '', box.dataset.setting].filter(Boolean).join(' · ');
  }
}

function makeControl(info, hasLabel) {
  const id = controlId(info.id);
  switch (info.type) {
    case Type.staticText: {
      const text = element(info.labelFor ? 'label' : 'span', 'static-text', { textContent: info.title });
      if (info.labelFor) text.htmlFor = controlId(info.labelFor);
      return { box: text, element: text };
    }
    case Type.groupBox: {
      const box = element('div', 'group-box');
      box.setAttribute('role', 'group');
      if (info.title) {
        box.setAttribute('aria-label', info.title);
        box.append(element('span', 'group-title', { textContent: info.title }));
      }
      return { box, element: box };
    }
    case Type.dividerLine: {
      const line = element('div', 'divider');
      line.setAttribute('role', 'separator');
      return { box: line, element: line };
    }
    case Type.pushButton: {
      const kind = info.id === kAccept ? 'primary' : 'secondary';
      const button = element('button', `button ${kind}`, { type: 'button', id, textContent: info.title });
      button.addEventListener('click', () => press(info.id));
      return { box: button, element: button };
    }
    case Type.checkBox: {
      const box = element('label', 'check-box');
      const input = element('input', '', { type: 'checkbox', id });
      input.addEventListener('input', () => edit(info.id, input.checked));
      box.append(input, element('span', '', { textContent: info.title }));
      return { box, element: input };
    }
    case Type.editText: {
      const input = element('input', 'edit-text', { type: 'text', id, maxLength: 255, spellcheck: false });
      if (looksNumeric(info.text)) {
        input.inputMode = 'decimal';
        input.classList.add('numeric');
      }
      if (!hasLabel) input.setAttribute('aria-label', info.label);
      input.addEventListener('input', () => edit(info.id, input.value));
      // While the artist types the field shows what was typed; once it loses focus, what the
      // plug-in made of it.
      input.addEventListener('blur', () => refreshState());
      return { box: input, element: input };
    }
    case Type.popupMenu: {
      const select = element('select', 'popup-menu', { id });
      for (const item of info.menu) select.append(element('option', '', { value: String(item.value), textContent: item.text }));
      if (!hasLabel) select.setAttribute('aria-label', info.label);
      select.addEventListener('input', () => edit(info.id, Number(select.value)));
      return { box: select, element: select };
    }
    case Type.colorButton: {
      const input = element('input', 'color-button', { type: 'color', id });
      if (!hasLabel) input.setAttribute('aria-label', info.label);
      input.addEventListener('input', () => edit(info.id, input.value));
      return { box: input, element: input };
    }
    case Type.userControl:
      return makeCanvas(info, hasLabel);
    default:
      return null;   // nothing a person acts on or reads
  }
}

function makeCanvas(info, hasLabel) {
  const width = info.bounds.right - info.bounds.left;
  const height = info.bounds.bottom - info.bounds.top;
  const well = element('div', 'canvas-well');
  const canvas = element('canvas', 'user-control', { id: controlId(info.id), width, height, tabIndex: 0 });
  if (!hasLabel) canvas.setAttribute('aria-label', info.label.startsWith('#') ? 'Preview' : info.label);
  canvas.setAttribute('role', 'img');
  well.append(canvas);

  // Dialog coordinates of a pointer event, whatever the canvas's drawn size.
  const at = (event) => {
    const rect = canvas.getBoundingClientRect();
    const clamp = (value) => Math.max(-kMostCoordinate, Math.min(kMostCoordinate, Math.round(value)));
    return {
      x: clamp(info.bounds.left + ((event.clientX - rect.left) * width) / rect.width),
      y: clamp(info.bounds.top + ((event.clientY - rect.top) * height) / rect.height),
    };
  };
  const end = (event) => {
    if (!page.drag || page.drag.pointerId !== event.pointerId) return;
    page.drag = null;
    send('mouse', { id: info.id, event: 'up', ...at(event) });
  };
  canvas.addEventListener('pointerdown', (event) => {
    if (event.button !== 0 || page.drag || page.closed || canvas.classList.contains('disabled')) return;
    event.preventDefault();
    canvas.focus();
    canvas.setPointerCapture(event.pointerId);
    page.drag = { id: info.id, pointerId: event.pointerId };
    send('mouse', { id: info.id, event: 'down', ...at(event) });
  });
  canvas.addEventListener('pointermove', (event) => {
    if (!page.drag || page.drag.pointerId !== event.pointerId) return;
    send('mouse', { id: info.id, event: 'move', ...at(event) }, `move:${info.id}`);
  });
  canvas.addEventListener('pointerup', end);
  canvas.addEventListener('pointercancel', end);
  canvas.addEventListener('lostpointercapture', end);
  return { box: well, element: canvas };
}

// ---- State ----

function applyState(state) {
  if (!page.built || state.dialog !== page.dialog) build(state);
  for (const info of state.controls) {
    const control = page.controls.get(info.id);
    if (!control || page.waitingEdits.get(info.id) > 0) continue;
    control.info = info;
    const { box, element: input } = control;
    box.hidden = !info.visible;
    if ('disabled' in input) input.disabled = !info.enabled;
    box.classList.toggle('disabled', !info.enabled);
    switch (info.type) {
      case Type.checkBox: input.checked = info.value !== 0; break;
      case Type.popupMenu: input.value = String(info.value); break;
      case Type.colorButton:
        if (document.activeElement !== input) input.value = info.color.toLowerCase();
        break;
      case Type.editText:
        if (document.activeElement !== input && input.value !== info.text) input.value = info.text;
        break;
      case Type.staticText: input.textContent = info.title; break;
      case Type.pushButton: input.textContent = info.title; break;
      default: break;
    }
  }
  if (state.canvasVersion > page.latestVersion) {
    page.latestVersion = state.canvasVersion;
    refreshCanvases();
  }
  if (state.look !== undefined) showLook(state.look);
  if (state.closed) showClosed(state.accepted);
}

function focusKeyControl(state) {
  const control = state.focus === null ? null : page.controls.get(state.focus);
  if (!control) return;
  control.element.focus();
  if (control.info.type === Type.editText) {
    const [start, end] = control.info.selection;
    // A dialog opens with its key field's text selected, ready to be typed over.
    if (start === end) control.element.select();
    else control.element.setSelectionRange(start, end);
  }
}

// ---- Looks ----

async function buildLooks() {
  let listed;
  try {
    const response = await fetch('api/looks');
    if (!response.ok) return;
    listed = await response.json();
  } catch {
    return;
  }
  const list = document.getElementById('look-list');
  list.replaceChildren();
  page.looks.clear();
  let group = null;
  for (const look of listed.looks) {
    if (look.group !== group) {
      group = look.group;
      list.append(element('p', 'look-group', { textContent: group }));
    }
    const label = element('label', 'look');
    const radio = element('input', '', { type: 'radio', name: 'look', value: look.name });
    radio.addEventListener('change', () => { if (radio.checked) pickLook(look.name); });
    label.append(radio, element('span', 'look-name', { textContent: look.name }),
      element('span', 'look-about', { textContent: look.description }));
    list.append(label);
    page.looks.set(look.name, radio);
  }
  document.getElementById('looks').hidden = false;
  showLook(page.look ?? listed.current);
}

function showLook(name) {
  page.look = name;
  for (const [lookName, radio] of page.looks) radio.checked = lookName === name;
}

// The host ends the dialog and shows it again on the table picked; the reply is the new dialog.
function pickLook(name) {
  if (page.closed || page.closing) return;
  const list = document.getElementById('look-list');
  list.classList.add('busy');
  send('look', { name }, 'look').then((state) => {
    list.classList.remove('busy');
    if (state) say(`Showing ${state.look}`);
    else showLook(page.look);
  });
}

// ---- Closing ----

function press(id) {
  if (id === kAccept || id === kCancel) {
    if (page.closing || page.closed) return;
    // After the edits before it, and once no canvas is on its way, so that nothing asks the
    // host for anything after it closed.
    enqueue(null, async () => {
      page.closing = true;
      await page.canvasFetch;
      const state = await post('close', { accept: id === kAccept });
      if (!state) page.closing = false;
      return state;
    });
  } else {
    send('press', { id });
  }
}

function showClosed(accepted) {
  if (page.closed) return;
  page.closed = true;
  for (const control of page.controls.values()) {
    if ('disabled' in control.element) control.element.disabled = true;
  }
  const title = document.getElementById('notice-title');
  const text = document.getElementById('notice-text');
  if (accepted === true) {
    title.textContent = 'Settings accepted';
    text.textContent = 'The dialog is closed; the tool saves the settings. You can close this tab.';
  } else if (accepted === false) {
    title.textContent = 'Cancelled';
    text.textContent = 'The dialog is closed and nothing was changed. You can close this tab.';
  } else {
    title.textContent = 'The dialog is closed';
    text.textContent = 'This settings dialog is no longer open. You can close this tab.';
  }
  document.getElementById('card').hidden = true;
  document.getElementById('looks').hidden = true;
  document.getElementById('loading').hidden = true;
  document.getElementById('notice').hidden = false;
  document.body.classList.add('closed');
}

let sayTimer = 0;
function say(message, isError = false) {
  const status = document.getElementById('status');
  status.textContent = message;
  status.classList.toggle('error', isError);
  clearTimeout(sayTimer);
  if (message) sayTimer = setTimeout(() => say(''), 6000);
}

// ---- Keys ----

document.addEventListener('keydown', (event) => {
  if (page.closed || !page.built || event.isComposing) return;
  if (event.key === 'Escape') {
    event.preventDefault();
    press(kCancel);
  } else if (event.key === 'Enter' && !event.shiftKey && !event.altKey && !event.ctrlKey && !event.metaKey) {
    const target = event.target;
    // Buttons and menus keep Enter for themselves.
    if (target instanceof HTMLButtonElement || target instanceof HTMLSelectElement) return;
    event.preventDefault();
    press(kAccept);
  }
});

// ---- Start ----

async function start() {
  try {
    const response = await fetch('api/state');
    const state = await receive(response);
    if (state) focusKeyControl(state);
    if (state && state.look !== undefined) await buildLooks();
  } catch {
    showClosed(null);
  }
}

start();
