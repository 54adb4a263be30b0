// SPDX-License-Identifier: MIT
//
// node page_check.js REPORT.html REPORT.json [PICTURES]: opens a report in a headless Chromium, holds
// what it shows against the numbers in JSON, and uses it as a person would. With a folder for
// PICTURES it takes them and tries every layer, the dark scheme and paper too.
'use strict';
const { spawn } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const [page, numbers, pictures] = process.argv.slice(2);
const told = JSON.parse(fs.readFileSync(numbers, 'utf8'));
const faults = [];
const check = (what, good, seen) => {
  console.log(`${good ? 'ok   ' : 'FAULT'} ${what}`);
  if (!good) faults.push(`${what}: ${JSON.stringify(seen)}`);
};

// The browser's protocol over two pipes, a JSON text up to each zero byte.
class Browser {
  constructor() {
    this.profile = fs.mkdtempSync(path.join(os.tmpdir(), 'report-'));
    this.process = spawn('chromium', ['--headless=new', '--no-sandbox', '--disable-gpu',
      '--hide-scrollbars', '--no-first-run', '--disable-background-networking',
      `--user-data-dir=${this.profile}`, '--remote-debugging-pipe', 'about:blank'],
    { stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'] });
    this.waiting = new Map();
    this.complaints = [];
    this.requests = [];
    this.number = 0;
    let text = '';
    this.process.stdio[4].setEncoding('utf8').on('data', (more) => {
      text += more;
      for (let end; (end = text.indexOf('\0')) >= 0; text = text.slice(end + 1)) {
        this.take(JSON.parse(text.slice(0, end)));
      }
    });
  }

  take(message) {
    if (message.id) {
      const { resolve, reject } = this.waiting.get(message.id);
      message.error ? reject(new Error(message.error.message)) : resolve(message.result);
    } else if (message.method === 'Runtime.exceptionThrown') {
      this.complaints.push(message.params.exceptionDetails);
    } else if (message.method === 'Runtime.consoleAPICalled' &&
               ['error', 'warning', 'assert'].includes(message.params.type)) {
      this.complaints.push(message.params.args);
    } else if (message.method === 'Log.entryAdded' && message.params.entry.level === 'error') {
      this.complaints.push(message.params.entry);
    } else if (message.method === 'Network.requestWillBeSent') {
      this.requests.push(message.params.request.url);
    }
  }

  send(method, params = {}) {
    const id = ++this.number;
    this.process.stdio[3].write(`${JSON.stringify({ id, method, params, sessionId: this.session })}\0`);
    return new Promise((resolve, reject) => this.waiting.set(id, { resolve, reject }));
  }

  async open(url) {
    const { targetInfos } = await this.send('Target.getTargets');
    const { targetId } = targetInfos.find((target) => target.type === 'page');
    this.session = (await this.send('Target.attachToTarget', { targetId, flatten: true })).sessionId;
    for (const domain of ['Runtime', 'Log', 'Page', 'Network']) await this.send(`${domain}.enable`);
    await this.send('Emulation.setDeviceMetricsOverride',
      { width: 1400, height: 1000, deviceScaleFactor: 1, mobile: false });
    await this.send('Page.navigate', { url });
    await this.until("document.body && document.body.dataset.ready === 'yes'");
  }

  async run(expression) {
    const { result, exceptionDetails } =
      await this.send('Runtime.evaluate', { expression, returnByValue: true, awaitPromise: true });
    if (exceptionDetails) throw new Error(JSON.stringify(exceptionDetails));
    return result.value;
  }

  async until(expression) {
    for (let left = 600; left > 0; --left) {
      if (await this.run(expression)) return;
      await new Promise((resolve) => setTimeout(resolve, 50));
    }
    throw new Error(`never: ${expression}`);
  }

  // Until the picture has settled: tiles arrive after the first drawing.
  settle() {
    return this.run('new Promise((r) => setTimeout(() => requestAnimationFrame(() => r(1)), 400))');
  }

  async picture(name) {
    await this.settle();
    if (!pictures) return;
    const { data } = await this.send('Page.captureScreenshot', { format: 'png' });
    fs.writeFileSync(path.join(pictures, `${name}.png`), Buffer.from(data, 'base64'));
  }

  async key(key, code, text) {
    await this.send('Input.dispatchKeyEvent', { type: 'keyDown', key, code, text });
    await this.send('Input.dispatchKeyEvent', { type: 'keyUp', key, code });
  }

  async close() {
    const ended = new Promise((resolve) => this.process.on('exit', resolve));
    this.send('Browser.close').catch(() => {});
    await ended;
    fs.rmSync(this.profile, { recursive: true, force: true });
  }
}

const near = (a, b, most) => a.every((v, i) => Math.abs(v - b[i]) <= most);

// The drops of a place as the page's cells and planes have them.
const SUMS = (index) => `(() => {
  const { data, prints, valuesAt } = window.corvane;
  const area = data.summary.areas[${index}], perMm = data.grid.perInch / 25.4;
  const [left, top, width, height] = area.millimetres.map((v) => v * perMm);
  const cells = data.inks.map(() => 0), planes = data.inks.map(() => 0);
  const edge = Math.abs(left - Math.round(left)) + Math.abs(top - Math.round(top));
  for (let row = Math.round(top); row < Math.round(top + height); ++row) {
    for (let column = Math.round(left); column < Math.round(left + width); ++column) {
      const { drops } = valuesAt((column + 0.5) / perMm, (row + 0.5) / perMm).prints[0];
      drops.forEach((v, i) => { cells[i] += v; });
    }
  }
  prints[0].areas[${index}].planes.forEach((plane, i) => {
    const ink = data.inks.findIndex((ink) => ink.name === data.planes[i].ink);
    for (const byte of plane.bits) {
      for (let rest = byte; rest; rest &= rest - 1) planes[ink] += data.planes[i].drops;
    }
  });
  return { name: area.name, cells, planes, snapped: edge < 1e-6,
           told: data.inks.map((ink) => area.drops[ink.name]) };
})()`;

// What the canvas shows in its middle.
const MIDDLE = `(() => {
  const canvas = document.getElementById('view'), side = 120;
  const { data } = canvas.getContext('2d').getImageData((canvas.width - side) >> 1,
    (canvas.height - side) >> 1, side, side);
  let sum = 0;
  const colours = new Set();
  for (let i = 0; i < data.length; i += 4) {
    sum += data[i] + data[i + 1] + data[i + 2];
    colours.add(data[i] << 16 | data[i + 1] << 8 | data[i + 2]);
  }
  return { mean: sum / (side * side * 3), colours: colours.size };
})()`;

async function lookAtAll(browser) {
  for (const layer of await browser.run("[...document.getElementById('layer').options].map((o) => o.value)")) {
    await browser.run(`(() => { const s = document.getElementById('layer'); s.value = '${layer}';
      s.dispatchEvent(new Event('change')); document.getElementById('fit').click(); })()`);
    await browser.picture(`layer-${layer}`);
  }
  await browser.run(`(() => { const s = document.getElementById('layer'); s.value = 'picture';
    s.dispatchEvent(new Event('change')); document.getElementById('swaths').click(); })()`);
  await browser.picture('swaths');
  await browser.run("document.getElementById('swaths').click()");

  await browser.send('Emulation.setEmulatedMedia',
    { features: [{ name: 'prefers-color-scheme', value: 'dark' }] });
  await browser.picture('sheet-dark');
  await browser.run('window.corvane.goTo(0)');
  await browser.picture('dots-dark');
  await browser.key('0', 'Digit0', '0');
  for (let i = 0; i < 5; ++i) await browser.key('+', 'Equal', '+');
  await browser.picture('middle-dark');

  const { data } = await browser.send('Page.printToPDF', { printBackground: false, preferCSSPageSize: true,
    paperWidth: 8.27, paperHeight: 11.69 });
  const pdf = Buffer.from(data, 'base64');
  fs.writeFileSync(path.join(pictures, 'printed.pdf'), pdf);
  const sheets = (pdf.toString('latin1').match(/\/Type \/Page\b/g) || []).length;
  check('on paper it takes two sheets', sheets === 2, sheets);
}

async function use(browser) {
  const areas = told.areas.length;
  check('the page has the numbers of the JSON', JSON.stringify(told) ===
    await browser.run('JSON.stringify(window.corvane.data.summary)'));
  for (let i = 0; i < areas; ++i) {
    const sums = await browser.run(SUMS(i));
    check(`drops of "${sums.name}" are those of its planes`,
      sums.planes.every((v, ink) => v === sums.told[ink]) &&
      (!sums.snapped || sums.cells.every((v, ink) => v === sums.told[ink])), sums);
  }

  await browser.picture('sheet-light');
  check('the sheet shows', (await browser.run(MIDDLE)).colours > 50);

  // Pointer: the table under it has the values of the cell.
  const [left, top, width, height] = told.areas[0].millimetres;
  await browser.run(`window.corvane.goTo(0)`);
  await browser.settle();
  const inks = await browser.run('window.corvane.data.inks.map((ink) => ink.name)');
  const [x, y] = [left + width / 2, top + height / 2];
  const box = await browser.run(`(() => { const b = document.getElementById('view').getBoundingClientRect();
    return [b.left + b.width / 2, b.top + b.height / 2]; })()`);
  await browser.send('Input.dispatchMouseEvent', { type: 'mouseMoved', x: box[0], y: box[1] });
  await browser.settle();
  const shown = await browser.run(`({
    at: document.getElementById('v-at').textContent,
    drops: ${JSON.stringify(inks)}.map((ink) => Number(document.getElementById('v-drops-' + ink).textContent)),
    lab: document.getElementById('v-lab').textContent.trim().split(' ').map(Number),
    dots: document.getElementById('v-dots').textContent })`);
  // The middle of an area may lie between cells, and a whole pixel of the screen in either.
  const at = shown.at.split(', ').map(parseFloat);
  const values = await browser.run(`window.corvane.valuesAt(${at})`);
  check('the mouse points where it is', near(at, [x, y], 0.05), shown.at);
  check('values under the pointer are those of the cell',
    near(shown.drops, values.prints[0].drops, 0) && near(shown.lab, values.prints[0].lab, 0.06),
    [shown, values.prints[0]]);
  check('dots under the pointer are told', shown.dots !== '\u2013', shown.dots);

  // The colour that the script makes of a place is the program's.
  for (const area of told.areas) {
    const lab = await browser.run(`(() => {
      const { data, labOfDrops } = window.corvane;
      const area = data.summary.areas.find((area) => area.name === ${JSON.stringify(area.name)});
      const [, , width, height] = area.millimetres.map((v) => v / 25.4);
      return labOfDrops(data.inks.map((ink) => area.drops[ink.name]), width * height);
    })()`);
    check(`Lab of "${area.name}"`, near(lab, area.lab, 0.01), [lab, area.lab]);
  }

  await browser.picture('dots-light');
  const dots = await browser.run(MIDDLE);
  check('single drops show', dots.colours > 3, dots);

  // Inks off: the place gets lighter, all off leave the paper.
  for (const ink of inks) await browser.run(`document.getElementById('ink-${ink}').click()`);
  await browser.settle();
  const bare = await browser.run(MIDDLE);
  check('without inks there is paper', bare.mean > dots.mean && bare.colours < 30, [dots, bare]);
  for (const ink of inks) await browser.run(`document.getElementById('ink-${ink}').click()`);

  // Keys: zoom out to the sheet, in again.
  await browser.run("document.getElementById('view').focus()");
  await browser.key('0', 'Digit0', '0');
  await browser.settle();
  const fitted = await browser.run('window.corvane.view.scale');
  for (let i = 0; i < 5; ++i) await browser.key('+', 'Equal', '+');
  await browser.settle();
  check('keys zoom', Math.abs(await browser.run('window.corvane.view.scale') / fitted - 1.5 ** 5) < 0.01);
  const before = await browser.run("document.getElementById('v-at').textContent");
  await browser.key('ArrowRight', 'ArrowRight');
  check('arrows move the pointer', before !== await browser.run("document.getElementById('v-at').textContent"));
  await browser.picture('middle-light');

  if (pictures) await lookAtAll(browser);

  const unnamed = await browser.run(`[...document.querySelectorAll('button, input, select, canvas')]
    .filter((e) => !(e.getAttribute('aria-label') || e.textContent.trim() || (e.labels && e.labels.length)))
    .map((e) => e.outerHTML)`);
  check('every control has a name', unnamed.length === 0, unnamed);
  const outside = browser.requests.filter((url) => !/^(file|data|blob):/.test(url));
  check('nothing is fetched', outside.length === 0, outside);
  check('no complaint in the console', browser.complaints.length === 0, browser.complaints);
}

(async () => {
  if (pictures) fs.mkdirSync(pictures, { recursive: true });
  const browser = new Browser();
  try {
    await browser.open(`file://${path.resolve(page)}`);
    await use(browser);
  } finally {
    await browser.close();
  }
  faults.forEach((fault) => console.error(fault));
  process.exitCode = faults.length ? 1 : 0;
})();
