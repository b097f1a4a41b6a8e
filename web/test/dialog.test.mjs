// The settings dialog in a real browser: `vellux edit` serves it, headless Chromium edits it as an
// artist would, and the settings file shows what was saved (or that nothing was).
//
//   node web/test/dialog.test.mjs build/default/tools/vellux     (or VELLUX_TOOL=...)
//
// Builds nothing. Needs node, /usr/bin/chromium and `npm ci` in web/. Exits 77 (skipped) when
// one of those is missing. Screenshots go to VELLUX_SCREENSHOTS (default: web-screenshots beside
// the tool's folder, i.e. build/<preset>/web-screenshots); with VELLUX_DOCS_SCREENSHOT set, the
// screenshot after the drag is also copied there (the README's docs/settings-dialog.png), and with
// VELLUX_DOCS_PLATE_SCREENSHOT the dialog on the sample plate (docs/settings-dialog-plate.png).
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { existsSync } from 'node:fs';
import { copyFile, mkdir, mkdtemp, readFile, rm, stat, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { after, before, describe, test } from 'node:test';

const kSkipped = 77;
const kChromium = '/usr/bin/chromium';
const kChromiumFlags = ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync'];

const tool = process.env.VELLUX_TOOL ?? process.argv[2];
if (!tool || !existsSync(tool)) {
  console.error(`dialog test skipped: no vellux tool at "${tool ?? ''}" (give its path or VELLUX_TOOL)`);
  process.exit(kSkipped);
}
if (!existsSync(kChromium)) {
  console.error(`dialog test skipped: ${kChromium} is missing (Debian package chromium)`);
  process.exit(kSkipped);
}
let chromium;
try {
  ({ chromium } = await import('playwright-core'));
} catch {
  console.error('dialog test skipped: playwright-core is not installed (run npm ci in web/)');
  process.exit(kSkipped);
}

const screenshots = resolve(process.env.VELLUX_SCREENSHOTS ?? join(dirname(resolve(tool)), '..', 'web-screenshots'));

// ---- The tool ----

// Starts `vellux edit`, resolves once it printed the dialog's address.
function startEdit(args) {
  const child = spawn(tool, ['edit', ...args, '--no-browser'], { stdio: ['ignore', 'pipe', 'pipe'] });
  const run = { child, out: '', err: '', exit: null };
  run.exited = new Promise((resolveExit) => {
    child.on('exit', (code, signal) => {
      run.exit = code ?? signal;
      resolveExit(run.exit);
    });
  });
  child.stderr.setEncoding('utf8').on('data', (text) => { run.err += text; });
  run.address = new Promise((resolveAddress, reject) => {
    child.stdout.setEncoding('utf8').on('data', (text) => {
      run.out += text;
      const found = /^Settings dialog: (http:\/\/127\.0\.0\.1:\d+\/[0-9a-f]{32}\/)$/m.exec(run.out);
      if (found) resolveAddress(found[1]);
    });
    run.exited.then(() => reject(new Error(`vellux edit ended (${run.exit}) before serving:\n${run.out}${run.err}`)));
    setTimeout(() => reject(new Error(`no address from vellux edit after 60 s:\n${run.out}${run.err}`)), 60000).unref();
  });
  return run;
}

// Runs the tool to its end; rejects unless it exits 0.
function runTool(args) {
  return new Promise((done, fail) => {
    const child = spawn(tool, args, { stdio: ['ignore', 'ignore', 'pipe'] });
    let err = '';
    child.stderr.setEncoding('utf8').on('data', (text) => { err += text; });
    child.on('exit', (code) => (code === 0 ? done() : fail(new Error(`vellux ${args.join(' ')} answered ${code}: ${err}`))));
  });
}

async function waitForExit(run, seconds = 30) {
  const timer = new Promise((_, reject) => setTimeout(() => reject(new Error('vellux edit did not end')), seconds * 1000).unref());
  return Promise.race([run.exited, timer]);
}

// ---- The saved look: every setting by its name (the record's hex only where names cannot say it) ----

async function readSettings(file) {
  const json = JSON.parse(await readFile(file, 'utf8'));
  assert.equal(json.settings.hex, undefined, 'a look the dialog saves is said by names alone');
  return json.settings;
}

// ---- The page ----

async function openBrowser() {
  const profile = await mkdtemp(join(tmpdir(), 'vellux-chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: kChromium,
    headless: true,
    args: kChromiumFlags,
    viewport: { width: 1100, height: 740 },
    deviceScaleFactor: 1,
    colorScheme: 'light',
  });
  return { context, profile };
}

// The page's state as the host reports it, fetched from inside the page (same origin, same token).
function hostState(page) {
  return page.evaluate(async () => (await fetch('api/state')).json());
}

function findControl(state, type, pattern) {
  const found = state.controls.find((control) => control.type === type && pattern.test(control.label));
  assert.ok(found, `no control of type ${type} labelled ${pattern}; labels: ${state.controls.map((c) => c.label).join(', ')}`);
  return found;
}

// A digest of the canvas as drawn on the page, and how many of its pixels are lit.
function canvasPixels(page, id) {
  return page.evaluate((canvasId) => {
    const canvas = document.getElementById(canvasId);
    const data = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
    let hash = 2166136261;
    let lit = 0;
    for (let i = 0; i < data.length; i += 1) {
      hash = Math.imul(hash ^ data[i], 16777619) >>> 0;
      if (i % 4 !== 3 && data[i] > 8) lit += 1;
    }
    return { hash, lit };
  }, `control-${id}`);
}

// The canvas's pixels as drawn on the page: {width, height, data (RGBA)}.
function canvasData(page, id) {
  return page.evaluate((canvasId) => {
    const canvas = document.getElementById(canvasId);
    const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
    return { width: canvas.width, height: canvas.height, data: Array.from(data) };
  }, `control-${id}`);
}

// The canvas once it stopped changing, different from `previous` (a digest) when one is given.
async function settledCanvas(page, id, previous = null) {
  return until('the preview to settle', async () => {
    const a = await canvasPixels(page, id);
    if (previous && a.hash === previous.hash) return false;
    await new Promise((wake) => setTimeout(wake, 300));
    const b = await canvasPixels(page, id);
    return a.hash === b.hash && b;
  });
}

async function typeInto(page, control, text) {
  await page.locator(`#control-${control.id}`).fill(text);
  await until(`"${control.label}" to read ${text}`, async () => {
    const now = await hostState(page);
    return now.controls.find((c) => c.id === control.id).text === text;
  });
}

async function until(what, check, seconds = 20) {
  const end = Date.now() + seconds * 1000;
  for (;;) {
    const value = await check();
    if (value) return value;
    if (Date.now() > end) throw new Error(`timed out waiting for ${what}`);
    await new Promise((wake) => setTimeout(wake, 50));
  }
}

async function openDialog(context, address) {
  const page = await context.newPage();
  const problems = [];
  page.on('pageerror', (error) => problems.push(`page error: ${error.message}`));
  page.on('console', (message) => {
    if (message.type() === 'error') problems.push(`console: ${message.text()}`);
  });
  await page.goto(address);
  await page.locator('#card').waitFor({ state: 'visible' });
  const state = await hostState(page);
  const preview = state.controls.find((control) => control.type === 15);
  assert.ok(preview, 'the dialog has a preview');
  // The preview shows the plug-in's drawing once its pixels arrived.
  await until('the preview to be drawn', async () => (await canvasPixels(page, preview.id)).lit > 0);
  return { page, state, preview, problems };
}

// ---- Tests ----

describe('settings dialog in the browser', { timeout: 240000 }, () => {
  let scratch;
  let browser;

  before(async () => {
    scratch = await mkdtemp(join(tmpdir(), 'vellux-dialog-test-'));
    await mkdir(screenshots, { recursive: true });
    browser = await openBrowser();
  });

  after(async () => {
    await browser?.context.close();
    if (browser) await rm(browser.profile, { recursive: true, force: true });
    if (scratch) await rm(scratch, { recursive: true, force: true });
  });

  test('edits, a drag in the preview and OK save the settings', async () => {
    const file = join(scratch, 'look.json');
    const run = startEdit(['--settings', file]);
    try {
      const address = await run.address;
      const { page, state, preview, problems } = await openDialog(browser.context, address);

      // The dialog opens with the key control focused and its text selected.
      if (state.focus !== null) {
        const focus = await page.evaluate(() => {
          const active = document.activeElement;
          return { id: active.id, selected: active.value?.slice(active.selectionStart, active.selectionEnd), value: active.value };
        });
        assert.equal(focus.id, `control-${state.focus}`);
        if (focus.value !== undefined) assert.equal(focus.selected, focus.value);
      }
      await page.screenshot({ path: join(screenshots, 'dialog-open.png') });

      const intensity = findControl(state, 10, /^intensity$/i);
      const streak = findControl(state, 2, /anamorphic streak/i);
      assert.equal(streak.value, 0, 'the anamorphic streak starts off');

      // Each setting's control shows the setting's name as the other front ends spell it.
      assert.equal(await page.locator(`#control-${intensity.id}`).getAttribute('title'), 'flare-intensity');
      assert.equal(await page.locator(`#control-${streak.id}`).locator('..').getAttribute('title'), 'anamorphic-streak');
      const painted = findControl(state, 2, /painted preview/i);
      assert.match(await page.locator(`#control-${painted.id}`).locator('..').getAttribute('title'),
        /^wireframe-preview \(on when this is off\)$/);

      // Typed key by key: every keystroke is an edit, the last one wins.
      const field = page.locator(`#control-${intensity.id}`);
      await field.click();
      await field.press('Control+A');
      await field.pressSequentially('0.8', { delay: 30 });
      await until('the intensity edit', async () => {
        const now = await hostState(page);
        return now.controls.find((control) => control.id === intensity.id).text === '0.8';
      });

      await page.getByLabel(streak.label).click();   // not check(): see the table picker below
      await until('the check box edit', async () => {
        const now = await hostState(page);
        return now.controls.find((control) => control.id === streak.id).value === 1;
      });

      // Drag the light across the preview; the preview follows it.
      const settled = await until('the preview to settle', async () => {
        const a = await canvasPixels(page, preview.id);
        await new Promise((wake) => setTimeout(wake, 300));
        const b = await canvasPixels(page, preview.id);
        return a.hash === b.hash && b;
      });
      const box = await page.locator(`#control-${preview.id}`).boundingBox();
      await page.mouse.move(box.x + box.width * 0.3, box.y + box.height * 0.35);
      await page.mouse.down();
      for (let step = 1; step <= 12; step += 1) {
        await page.mouse.move(box.x + box.width * (0.3 + 0.4 * step / 12), box.y + box.height * (0.35 + 0.3 * step / 12));
      }
      await page.mouse.up();
      const dragged = await until('the preview to change', async () => {
        const now = await canvasPixels(page, preview.id);
        return now.hash !== settled.hash && now.lit > 0 && now;
      });
      assert.notEqual(dragged.hash, settled.hash);
      await until('the preview to settle after the drag', async () => {
        const a = await canvasPixels(page, preview.id);
        await new Promise((wake) => setTimeout(wake, 300));
        return a.hash === (await canvasPixels(page, preview.id)).hash;
      });
      await page.screenshot({ path: join(screenshots, 'after-drag.png') });
      if (process.env.VELLUX_DOCS_SCREENSHOT) await copyFile(join(screenshots, 'after-drag.png'), process.env.VELLUX_DOCS_SCREENSHOT);

      await page.locator('#control-1').click();
      await page.locator('#notice').waitFor({ state: 'visible' });
      assert.equal(await waitForExit(run), 0, run.out + run.err);
      assert.match(run.out, /Settings saved to /);
      assert.deepEqual(problems, []);
      await page.close();

      const saved = await readSettings(file);
      assert.equal(saved['flare-intensity'], 0.8);
      assert.equal(saved['anamorphic-streak'], true, 'the anamorphic streak is saved');
    } finally {
      if (run.exit === null) run.child.kill('SIGINT');
    }
  });

  test('picking another table repaints the preview, keeps the edits, and OK saves its name', async () => {
    const file = join(scratch, 'picked.json');
    const run = startEdit(['--settings', file]);
    try {
      const { page, state, preview, problems } = await openDialog(browser.context, await run.address);
      await page.locator('#looks').waitFor({ state: 'visible' });
      assert.equal(await page.getByRole('radio', { name: /^Vellux\b/ }).isChecked(), true, 'the dialog opens on the default table');
      assert.equal(await page.getByRole('radio').count(), (await (await page.request.get(`${await run.address}api/looks`)).json()).looks.length);

      const intensity = findControl(state, 10, /^intensity$/i);
      await typeInto(page, intensity, '0.8');
      const before = await settledCanvas(page, preview.id);
      // A click, not check(): the list is drawn again from the host's answer, so the radio may
      // show the old table until the host has switched (check() would call that a failed click).
      await page.getByRole('radio', { name: /^LongZoom\b/ }).click();
      await until('the dialog on LongZoom', async () => (await hostState(page)).look === 'LongZoom');
      await until('LongZoom checked', async () => page.getByRole('radio', { name: /^LongZoom\b/ }).isChecked());
      const after = await settledCanvas(page, preview.id, before);
      assert.notEqual(after.hash, before.hash, 'the preview shows the other table');
      assert.equal(await page.locator(`#control-${intensity.id}`).inputValue(), '0.8', 'the edit carried over');
      await page.screenshot({ path: join(screenshots, 'picked-table.png') });

      await page.locator('#control-1').click();
      await page.locator('#notice').waitFor({ state: 'visible' });
      assert.equal(await waitForExit(run), 0, run.out + run.err);
      assert.match(run.out, /Settings saved to .* \(table LongZoom\)/);
      assert.deepEqual(problems, []);
      await page.close();
    } finally {
      if (run.exit === null) run.child.kill('SIGINT');
    }
    const saved = JSON.parse(await readFile(file, 'utf8'));
    assert.equal(saved.table, 'LongZoom');
    assert.equal(saved.settings['flare-intensity'], 0.8);
  });

  test('on a plate the preview is the plate where the flare adds nothing and lighter where it adds light', async () => {
    const plate = join(scratch, 'sample-plate.png');
    await runTool(['sample-frame', '-o', plate]);

    // The flare alone: the preview on black.
    let flare;
    {
      const run = startEdit([]);
      try {
        const { page, preview } = await openDialog(browser.context, await run.address);
        await settledCanvas(page, preview.id);
        flare = await canvasData(page, preview.id);
        await page.locator('#control-2').click();
        await page.locator('#notice').waitFor({ state: 'visible' });
        assert.equal(await waitForExit(run), 0, run.out + run.err);
        await page.close();
      } finally {
        if (run.exit === null) run.child.kill('SIGINT');
      }
    }

    const run = startEdit(['-i', plate]);
    try {
      const { page, state, preview, problems } = await openDialog(browser.context, await run.address);
      const opened = await settledCanvas(page, preview.id);
      // Dissolved all the way the flare adds nothing: the plate as the preview shows it.
      const dissolve = findControl(state, 10, /^dissolve$/i);
      await typeInto(page, dissolve, '1');
      const bareDigest = await settledCanvas(page, preview.id, opened);
      const bare = await canvasData(page, preview.id);
      await typeInto(page, dissolve, '0');
      const onPlateDigest = await settledCanvas(page, preview.id, bareDigest);
      assert.equal(onPlateDigest.hash, opened.hash);
      const onPlate = await canvasData(page, preview.id);

      // Inside the preview's 1-pixel frame: the plate plus the flare, channel by channel, as the
      // plug-in adds a flare into an 8-bit frame.
      const { width, height } = onPlate;
      let lighter = 0;
      let same = 0;
      let wrong = 0;
      for (let y = 1; y < height - 1; y += 1) {
        for (let x = 1; x < width - 1; x += 1) {
          for (let c = 0; c < 3; c += 1) {
            const i = (y * width + x) * 4 + c;
            if (onPlate.data[i] !== Math.min(255, bare.data[i] + flare.data[i])) wrong += 1;
            if (onPlate.data[i] > bare.data[i]) lighter += 1;
            else if (onPlate.data[i] === bare.data[i]) same += 1;
          }
        }
      }
      assert.equal(wrong, 0, 'every pixel is the plate plus the flare');
      const values = (width - 2) * (height - 2) * 3;
      assert.ok(lighter > values / 20 && same > values / 20, `lighter ${lighter}, unchanged ${same} of ${values}`);

      // Edits still reach the preview at once, on the plate too.
      const intensity = findControl(state, 10, /^intensity$/i);
      await typeInto(page, intensity, '0.9');
      await settledCanvas(page, preview.id, onPlateDigest);

      // The light onto the sun (a third across, a third down), another look, for the README.
      const box = await page.locator(`#control-${preview.id}`).boundingBox();
      await page.mouse.click(box.x + box.width * 0.3, box.y + box.height * 0.35);
      const onSun = await settledCanvas(page, preview.id);
      // A click, not check(): the list is drawn again from the host's answer, so the radio may
      // show the old table until the host has switched (check() would call that a failed click).
      await page.getByRole('radio', { name: /^LongZoom\b/ }).click();
      await until('the dialog on LongZoom', async () => (await hostState(page)).look === 'LongZoom');
      await until('LongZoom checked', async () => page.getByRole('radio', { name: /^LongZoom\b/ }).isChecked());
      await settledCanvas(page, preview.id, onSun);
      await page.screenshot({ path: join(screenshots, 'on-plate.png') });
      if (process.env.VELLUX_DOCS_PLATE_SCREENSHOT) await copyFile(join(screenshots, 'on-plate.png'), process.env.VELLUX_DOCS_PLATE_SCREENSHOT);

      await cancelDialog(page, run, problems);
    } finally {
      if (run.exit === null) run.child.kill('SIGINT');
    }
  });

  test('Cancel leaves an existing settings file as it was', async () => {
    const file = join(scratch, 'kept.json');
    const before = await defaultsLook(scratch);
    await writeFile(file, before);
    const beforeStat = await stat(file);
    const run = startEdit(['--settings', file]);
    try {
      const { page, state, problems } = await openDialog(browser.context, await run.address);
      const intensity = findControl(state, 10, /^intensity$/i);
      await page.locator(`#control-${intensity.id}`).fill('2.5');
      await until('the intensity edit', async () => {
        const now = await hostState(page);
        return now.controls.find((control) => control.id === intensity.id).text === '2.5';
      });
      await cancelDialog(page, run, problems);
    } finally {
      if (run.exit === null) run.child.kill('SIGINT');
    }
    assert.equal(await readFile(file, 'utf8'), before);
    assert.equal((await stat(file)).mtimeMs, beforeStat.mtimeMs);
  });

  test('Enter accepts and Escape cancels', async () => {
    for (const [key, saved] of [['Enter', true], ['Escape', false]]) {
      const file = join(scratch, `${key}.json`);
      const run = startEdit(['--settings', file]);
      try {
        const { page, state, problems } = await openDialog(browser.context, await run.address);
        const density = findControl(state, 10, /^streak density$/i);
        await page.locator(`#control-${density.id}`).fill('75');
        await page.keyboard.press(key);
        await page.locator('#notice').waitFor({ state: 'visible' });
        assert.equal(await waitForExit(run), 0, run.out + run.err);
        assert.deepEqual(problems, []);
        await page.close();
      } finally {
        if (run.exit === null) run.child.kill('SIGINT');
      }
      assert.equal(existsSync(file), saved, `${key}: ${run.out}`);
      if (saved) assert.equal((await readSettings(file))['streak-density'], 75);
    }
  });
});

// A look file the tool makes (the plug-in's defaults, intensity 0.5), as text: OK on an untouched
// dialog through the headless runner.
// Cancel (the dialog's item 2): the tool ends saying nothing was saved, and the page saw no problem.
async function cancelDialog(page, run, problems) {
  await page.locator('#control-2').click();
  await page.locator('#notice').waitFor({ state: 'visible' });
  assert.equal(await waitForExit(run), 0, run.out + run.err);
  assert.match(run.out, /Cancelled, nothing saved/);
  assert.deepEqual(problems, []);
  await page.close();
}

async function defaultsLook(folder) {
  const file = join(folder, 'defaults.json');
  await new Promise((done, fail) => {
    const child = spawn(tool, ['settings', 'set', '--settings', file, 'Intensity=0.5'], { stdio: 'ignore' });
    child.on('exit', (code) => (code === 0 ? done() : fail(new Error(`vellux settings set answered ${code}`))));
  });
  return readFile(file, 'utf8');
}
