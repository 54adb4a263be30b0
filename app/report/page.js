'use strict';
// SPDX-License-Identifier: MIT
(async () => {
  const data = JSON.parse(document.getElementById('data').textContent);
  const find = (id) => document.getElementById(id);
  const canvas = find('view');
  const context = canvas.getContext('2d');
  const MM = 25.4;
  const DYES = 4;

  // ------------------------------------------------------------------------------------------
  // What is packed in the page.

  async function bytesOf(text) {
    const zipped = Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
    const stream = new Blob([zipped]).stream().pipeThrough(new DecompressionStream('deflate'));
    return new Uint8Array(await new Response(stream).arrayBuffer());
  }

  // Numbers in rows: each is what it has more than the mean of the two left of it and above it.
  async function numbersOf(text, columns) {
    const bytes = await bytesOf(text);
    const count = columns * grid.rows;
    const width = bytes.length / count;
    const numbers = width > 2 ? new Uint32Array(count) : new Uint16Array(count);
    for (let i = 0; i < count; ++i) {
      let folded = 0;
      for (let byte = 0; byte < width; ++byte) folded |= bytes[byte * count + i] << 8 * byte;
      const difference = folded & 1 ? -(folded >>> 1) - 1 : folded >>> 1;
      const left = i % columns ? numbers[i - 1] : 0;
      const above = i >= columns ? numbers[i - columns] : 0;
      numbers[i] = difference + (left + above >>> 1);
    }
    return numbers;
  }

  const grid = data.grid;
  const prints = [];
  for (const packed of data.prints) {
    const print = { levels: packed.levels, drops: [], areas: [] };
    for (const text of packed.drops) print.drops.push(await numbersOf(text, grid.columns));
    for (const area of packed.areas) {
      const planes = [];
      for (const plane of area.planes) planes.push({ ...plane, bits: await bytesOf(plane.bits) });
      print.areas.push({ ...area, planes });
    }
    prints.push(print);
  }
  for (const ink of data.inks) {
    ink.densities = new Float32Array((await bytesOf(ink.densities)).buffer);
    ink.shown = true;
  }
  let wanted = null;
  if (data.wanted) {
    wanted = {
      srgb: await Promise.all(data.wanted.srgb.map((text) => numbersOf(text, grid.columns))),
      difference: await numbersOf(data.wanted.difference, grid.columns),
      verdicts: await numbersOf(data.wanted.verdicts, grid.columns),
    };
  }

  // ------------------------------------------------------------------------------------------
  // Colours: the ink model of the program, with its tables.

  const times = (matrix, v) => matrix.map((row) => row[0] * v[0] + row[1] * v[1] + row[2] * v[2]);
  const clamp = (value, low, high) => Math.min(Math.max(value, low), high);
  const encoded = (v) => {
    const x = clamp(v, 0, 1);
    return 255 * (x <= 0.0031308 ? 12.92 * x : 1.055 * x ** (1 / 2.4) - 0.055);
  };
  const light = (v) => (v / 255 <= 0.04045 ? v / 255 / 12.92 : ((v / 255 + 0.055) / 1.055) ** 2.4);

  function overprint(amounts, density) {
    const { solids, terms, mostDye } = data.model;
    const dyes = new Array(DYES).fill(0);
    data.inks.forEach((ink, i) => { dyes[ink.dye] += amounts[i] * ink.strength; });
    for (let dye = 0; dye < DYES; ++dye) dyes[dye] = clamp(dyes[dye], 0, mostDye);
    const [c, m, y] = dyes;
    for (let band = 0; band < 3; ++band) {
      density[band] += c * m * solids[0][band] + c * y * solids[1][band] + m * y * solids[2][band] +
        c * m * y * solids[3][band];
    }
    for (const term of terms) {
      let product = 1;
      for (let dye = 0; dye < DYES; ++dye) product *= dyes[dye] ** term.dyes[dye];
      term.inks.forEach((power, place) => {
        if (power === 0) return;
        const i = data.inks.findIndex((ink) => ink.place === place);
        product *= (i < 0 ? 0 : amounts[i]) ** power;
      });
      for (let band = 0; band < 3; ++band) density[band] += product * term.density[band];
    }
  }

  // Reflectances against the paper; `amounts` has one for each ink.
  function bandsOf(amounts) {
    const density = [0, 0, 0];
    let blank = true;
    for (let i = 0; i < amounts.length; ++i) {
      if (amounts[i] <= 0) continue;
      blank = false;
      const table = data.inks[i].densities;
      const last = table.length / 3 - 1;
      const position = Math.min(amounts[i] * data.model.steps, last);
      const step = Math.min(Math.floor(position), last - 1);
      for (let band = 0; band < 3; ++band) {
        const low = table[3 * step + band];
        density[band] += low + (position - step) * (table[3 * step + 3 + band] - low);
      }
    }
    if (blank) return [1, 1, 1];
    overprint(amounts, density);
    return density.map((d) => 10 ** -d);
  }

  function labOf(bands) {
    const [x, y, z] = times(data.matrices.xyzOfBands, bands);
    const white = times(data.matrices.xyzOfBands, [1, 1, 1]);
    const root = (t) => (t > 216 / 24389 ? Math.cbrt(t) : (24389 / 27 * t + 16) / 116);
    const [fx, fy, fz] = [root(x / white[0]), root(y / white[1]), root(z / white[2])];
    return [116 * fy - 16, 500 * (fx - fy), 200 * (fy - fz)];
  }

  const onPaper = (bands) => bands.map((band, i) => band * data.model.paper[i]);
  const rgbOf = (bands) => times(data.matrices.srgbOfBands, onPaper(bands)).map(encoded);
  const css = (rgb) => `rgb(${rgb.map((v) => Math.round(v)).join(' ')})`;

  // ------------------------------------------------------------------------------------------
  // Cells.

  const pageInches = [data.widthMm / MM, data.heightMm / MM];
  const areaOf = (column, row) =>
    Math.min(1 / grid.perInch, pageInches[0] - column / grid.perInch) *
    Math.min(1 / grid.perInch, pageInches[1] - row / grid.perInch);

  function amountsAt(print, column, row, all) {
    const area = areaOf(column, row);
    const cell = row * grid.columns + column;
    return data.inks.map((ink, i) =>
      (all || ink.shown ? print.drops[i][cell] * ink.fullArea / area : 0));
  }

  function cellAt(x, y) {
    const column = Math.floor(x / MM * grid.perInch);
    const row = Math.floor(y / MM * grid.perInch);
    if (column < 0 || row < 0 || column >= grid.columns || row >= grid.rows) return null;
    return { column, row, cell: row * grid.columns + column };
  }

  // A picture of the grid, a pixel for each cell.
  function drawCells(colourOf) {
    const picture = document.createElement('canvas');
    picture.width = grid.columns;
    picture.height = grid.rows;
    const into = picture.getContext('2d');
    const image = into.createImageData(grid.columns, grid.rows);
    for (let row = 0, at = 0; row < grid.rows; ++row) {
      for (let column = 0; column < grid.columns; ++column, at += 4) {
        const rgb = colourOf(column, row, at / 4);
        image.data[at] = rgb[0];
        image.data[at + 1] = rgb[1];
        image.data[at + 2] = rgb[2];
        image.data[at + 3] = 255;
      }
    }
    into.putImageData(image, 0, 0);
    return picture;
  }

  const STOPS = [[255, 255, 255], [120, 170, 235], [40, 120, 190], [60, 170, 90], [250, 220, 60]];
  const UNEVENNESS = 1.15;
  function ramp(part) {
    const position = clamp(part, 0, 1) * (STOPS.length - 1);
    const stop = Math.min(Math.floor(position), STOPS.length - 2);
    return STOPS[stop].map((v, i) => v + (position - stop) * (STOPS[stop + 1][i] - v));
  }

  const painters = {
    picture: (print) => (column, row) => rgbOf(bandsOf(amountsAt(print, column, row, false))),
    ink: (print) => (column, row) => {
      const part = amountsAt(print, column, row, false).reduce((a, b) => a + b, 0) / data.limit;
      // Above the limit: red with a dark check, so that it shows without its colour.
      return part > UNEVENNESS ? ((column + row) % 2 ? [220, 30, 40] : [40, 0, 0]) : ramp(part);
    },
    difference: () => (column, row, cell) => {
      const verdict = wanted.verdicts[cell];
      // Clipped: blue stripes. Faults: red checks. Edges: dotted. Else grey, darker where it is further off.
      if (verdict === 1) return (column + row) % 4 < 2 ? [40, 80, 200] : [190, 205, 250];
      if (verdict === 3) return (column + row) % 3 ? [245, 240, 215] : [215, 208, 170];
      if (verdict === 2) return (column + row) % 2 ? [215, 30, 40] : [70, 0, 0];
      const grey = 255 - 110 * clamp(wanted.difference[cell] / 100 / data.wanted.apart, 0, 1);
      return [grey, grey, grey];
    },
  };
  const LEGENDS = {
    picture: 'Colours of even tints of the drops in each cell; in the framed places each drop.',
    ink: `Ink from white over blue and green to yellow at ${Math.round(data.limit * 100)} %, ` +
      'the limit of the medium; a red and black check is clearly above it.',
    difference: 'Grey: close to what is wanted. Blue stripes: colours that the inks do not have. ' +
      'Red and black check: off though the inks have them. Dotted yellow: edges, which are not judged.',
  };
  const cellPictures = new Map();
  function cellPicture(print, layer) {
    const key = `${prints.indexOf(print)} ${layer} ${data.inks.map((ink) => +ink.shown).join('')}`;
    if (!cellPictures.has(key)) {
      if (cellPictures.size > 8) cellPictures.clear();
      cellPictures.set(key, drawCells(painters[layer](print)));
    }
    return cellPictures.get(key);
  }

  // ------------------------------------------------------------------------------------------
  // The view: millimetres at the middle, and pixels per millimetre.

  const view = { x: data.widthMm / 2, y: data.heightMm / 2, scale: 1, fitted: true };
  const pointer = { x: data.widthMm / 2, y: data.heightMm / 2 };
  let layer = 'picture';
  const size = () => [canvas.width, canvas.height];
  const toX = (mm) => (mm - view.x) * view.scale + canvas.width / 2;
  const toY = (mm) => (mm - view.y) * view.scale + canvas.height / 2;
  const fitScale = () =>
    0.96 * Math.min(canvas.width / data.widthMm, canvas.height / data.heightMm);
  const finestDpi = Math.max(data.verticalDpi, ...data.planes.map((plane) => plane.dpi));
  const mostScale = () => 40 * finestDpi / MM;

  function clampView() {
    view.scale = clamp(view.scale, fitScale(), mostScale());
    view.x = clamp(view.x, 0, data.widthMm);
    view.y = clamp(view.y, 0, data.heightMm);
  }

  function fit() {
    Object.assign(view, { x: data.widthMm / 2, y: data.heightMm / 2, scale: fitScale(), fitted: true });
    draw();
  }

  // About a point of the page, which stays where it is.
  function zoom(factor, x, y) {
    const before = view.scale;
    view.scale = clamp(before * factor, fitScale(), mostScale());
    view.x = x + (view.x - x) * before / view.scale;
    view.y = y + (view.y - y) * before / view.scale;
    view.fitted = false;
    clampView();
    draw();
  }

  const tiles = new Map();
  function tileOf(print, level, index) {
    const key = `${prints.indexOf(print)} ${level} ${index}`;
    if (!tiles.has(key)) {
      const image = new Image();
      image.onload = draw;
      image.src = `data:image/webp;base64,${print.levels[level].tiles[index]}`;
      tiles.set(key, image);
    }
    return tiles.get(key);
  }

  function drawTiles(print) {
    let level = 0;
    while (level + 1 < print.levels.length &&
           print.levels[level + 1].perInch >= view.scale * MM) ++level;
    const { perInch, width, height } = print.levels[level];
    const side = data.tileSide;
    const mm = MM / perInch;
    const across = Math.ceil(width / side);
    context.imageSmoothingEnabled = view.scale * MM < 4 * perInch;
    for (let top = 0; top < height; top += side) {
      for (let left = 0; left < width; left += side) {
        const x = toX(left * mm), y = toY(top * mm);
        const w = Math.min(side, width - left) * mm * view.scale;
        const h = Math.min(side, height - top) * mm * view.scale;
        if (x > canvas.width || y > canvas.height || x + w < 0 || y + h < 0) continue;
        const image = tileOf(print, level, top / side * across + left / side);
        if (image.complete && image.naturalWidth) context.drawImage(image, x, y, w, h);
      }
    }
  }

  function drawGrid(picture) {
    const mm = MM / grid.perInch;
    context.imageSmoothingEnabled = false;
    context.drawImage(picture, toX(0), toY(0), grid.columns * mm * view.scale,
      grid.rows * mm * view.scale);
  }

  const inkOf = (plane) => data.inks.find((ink) => ink.name === plane.ink);

  // The drops of a place, each a round spot that dims what lies below it.
  function drawDrops(print, index) {
    const area = print.areas[index];
    const [left, top, width, height] = data.summary.areas[index].millimetres;
    context.save();
    context.beginPath();
    context.rect(toX(left), toY(top), width * view.scale, height * view.scale);
    context.clip();
    context.fillStyle = css(rgbOf([1, 1, 1]));
    context.fillRect(toX(left), toY(top), width * view.scale, height * view.scale);
    context.globalCompositeOperation = 'multiply';
    area.planes.forEach((plane, i) => {
      const shape = data.planes[i];
      const ink = inkOf(shape);
      if (!ink.shown) return;
      const radius = shape.radius * view.scale;
      const white = rgbOf([1, 1, 1]);
      const layers = rgbOf(ink.layer.map((density) => 10 ** (-density * shape.drops)));
      const colour = css(layers.map((v, band) => 255 * v / white[band]));
      const stamp = document.createElement('canvas');
      stamp.width = stamp.height = Math.ceil(2 * radius) + 2;
      const into = stamp.getContext('2d');
      into.fillStyle = colour;
      into.beginPath();
      into.arc(stamp.width / 2, stamp.width / 2, Math.max(radius, 0.5), 0, 2 * Math.PI);
      into.fill();
      const stride = Math.ceil(plane.pixels / 8);
      const stepX = MM / shape.dpi * view.scale;
      const stepY = MM / data.verticalDpi * view.scale;
      const firstX = toX((plane.first + 0.5) * MM / shape.dpi) - stamp.width / 2;
      const firstY = toY((area.firstRow + 0.5) * MM / data.verticalDpi) - stamp.width / 2;
      const from = Math.max(0, Math.floor(-(firstY + stamp.width) / stepY));
      const to = Math.min(area.rows, Math.ceil((canvas.height - firstY) / stepY));
      for (let row = from; row < to; ++row) {
        for (let byte = 0; byte < stride; ++byte) {
          const bits = plane.bits[row * stride + byte];
          for (let bit = 0; bits && bit < 8; ++bit) {
            if (!(bits & 0x80 >> bit)) continue;
            const x = firstX + (8 * byte + bit) * stepX;
            if (x > -stamp.width && x < canvas.width) {
              context.drawImage(stamp, x, firstY + row * stepY);
            }
          }
        }
      }
    });
    context.restore();
  }

  const dotsShow = () => view.scale * MM / data.verticalDpi >= 2;

  function drawPrint(print) {
    const allShown = data.inks.every((ink) => ink.shown);
    if (layer === 'picture' && allShown) {
      drawTiles(print);
    } else {
      drawGrid(cellPicture(print, layer));
    }
    if (layer !== 'picture' || !dotsShow()) return;
    print.areas.forEach((area, i) => {
      const [left, top, width, height] = data.summary.areas[i].millimetres;
      if (toX(left) < canvas.width && toX(left + width) > 0 && toY(top) < canvas.height &&
          toY(top + height) > 0) drawDrops(print, i);
    });
  }

  function frame(x, y, w, h, dash) {
    context.setLineDash(dash);
    context.lineWidth = 3;
    context.strokeStyle = '#fff';
    context.strokeRect(x, y, w, h);
    context.lineWidth = 1.5;
    context.strokeStyle = '#0a3c96';
    context.strokeRect(x, y, w, h);
    context.setLineDash([]);
  }

  function label(text, x, y) {
    context.font = `${Math.round(12 * devicePixelRatio)}px sans-serif`;
    context.lineWidth = 4;
    context.strokeStyle = '#fff';
    context.strokeText(text, x, y);
    context.fillStyle = '#0a3c96';
    context.fillText(text, x, y);
  }

  function drawPlaces() {
    data.summary.areas.forEach((area, i) => {
      const [left, top, width, height] = area.millimetres;
      const w = Math.max(width * view.scale, 7), h = Math.max(height * view.scale, 7);
      frame(toX(left), toY(top), w, h, []);
      label(String(i + 1), toX(left) + w + 3, toY(top) + 10 * devicePixelRatio);
    });
  }

  // Bands of the sheet, one beside the other, for regions share rows.
  function drawSwaths() {
    const feed = data.summary.feed;
    (feed.regions || []).forEach((region, i) => {
      if (region.lastRow < region.firstRow) return;
      const perRow = MM / data.feedDpi * view.scale;
      const x = toX(0) + 4 + 14 * i, y = toY(0) + region.firstRow * perRow;
      const h = Math.max((region.lastRow - region.firstRow + 1) * perRow, 3);
      frame(x, y, 9, h, i % 2 ? [6, 3] : []);
      label(region.region, x + 14, y + 12 * devicePixelRatio * (1 + i));
    });
  }

  function drawPointer() {
    const x = toX(pointer.x), y = toY(pointer.y);
    for (const [width, colour] of [[3, '#fff'], [1, '#000']]) {
      context.lineWidth = width;
      context.strokeStyle = colour;
      context.beginPath();
      context.moveTo(x - 12, y);
      context.lineTo(x + 12, y);
      context.moveTo(x, y - 12);
      context.lineTo(x, y + 12);
      context.stroke();
    }
  }

  let waiting = false;
  function draw() {
    if (waiting) return;
    waiting = true;
    requestAnimationFrame(() => {
      waiting = false;
      const [width, height] = size();
      context.setTransform(1, 0, 0, 1, 0, 0);
      context.clearRect(0, 0, width, height);
      context.save();
      context.beginPath();
      context.rect(toX(0), toY(0), data.widthMm * view.scale, data.heightMm * view.scale);
      context.clip();
      context.fillStyle = css(rgbOf([1, 1, 1]));
      context.fillRect(0, 0, width, height);
      drawPrint(prints[0]);
      if (prints.length > 1) {
        const border = width * find('split').value / 100;
        context.beginPath();
        context.rect(border, 0, width, height);
        context.clip();
        context.fillRect(border, 0, width, height);
        drawPrint(prints[1]);
        context.restore();
        context.save();
        frame(border, -5, 0, height + 10, []);
      }
      context.restore();
      if (find('places').checked) drawPlaces();
      if (find('swaths').checked) drawSwaths();
      drawPointer();
      const dots = view.scale * MM / finestDpi;
      find('scale').textContent = `${(view.scale / devicePixelRatio * MM / 96 * 100).toFixed(0)} %` +
        (dots >= 1 ? `, ${dots.toFixed(1)} pixels a dot` : '');
      document.body.dataset.drawn = String(Number(document.body.dataset.drawn || 0) + 1);
    });
  }

  // ------------------------------------------------------------------------------------------
  // Values under the pointer.

  const fixed = (values, digits) => values.map((v) => v.toFixed(digits)).join(' ');

  function valuesAt(x, y) {
    const at = cellAt(x, y);
    if (!at) return null;
    const values = { ...at, prints: [] };
    for (const print of prints) {
      const amounts = amountsAt(print, at.column, at.row, true);
      values.prints.push({
        drops: print.drops.map((drops) => drops[at.cell]),
        ink: amounts.reduce((a, b) => a + b, 0),
        lab: labOf(bandsOf(amounts)),
        rgb: rgbOf(bandsOf(amounts)),
      });
    }
    if (wanted) {
      const rgb = wanted.srgb.map((channel) => channel[at.cell]);
      values.wanted = {
        rgb,
        lab: labOf(times(data.matrices.bandsOfSrgb, rgb.map(light))),
        difference: wanted.difference[at.cell] / 100,
        verdict: ['close', 'clipped', 'fault', 'edge, not judged'][wanted.verdicts[at.cell]],
      };
    }
    values.dots = dotsAt(x, y);
    return values;
  }

  // The drops of the pixels that hold a point, by plane; null outside the places.
  function dotsAt(x, y) {
    return prints.map((print) => {
      for (const area of print.areas) {
        const row = Math.floor(y / MM * data.verticalDpi) - area.firstRow;
        if (row < 0 || row >= area.rows) continue;
        const found = [];
        let inside = true;
        area.planes.forEach((plane, i) => {
          const pixel = Math.floor(x / MM * data.planes[i].dpi) - plane.first;
          inside = inside && pixel >= 0 && pixel < plane.pixels;
          if (!inside) return;
          const byte = plane.bits[row * Math.ceil(plane.pixels / 8) + (pixel >> 3)];
          if (byte & 0x80 >> pixel % 8) found.push(data.planes[i].name);
        });
        if (inside) return found;
      }
      return null;
    });
  }

  function tableRow(name, cells, id) {
    const row = document.createElement('tr');
    const head = document.createElement('th');
    head.scope = 'row';
    head.textContent = name;
    row.append(head);
    cells.forEach((content, i) => {
      const cell = document.createElement('td');
      if (id) cell.id = `v-${id}${i ? `-${i + 1}` : ''}`;
      if (content && content.swatch) {
        const swatch = document.createElement('span');
        swatch.className = 'swatch';
        swatch.style.background = css(content.swatch);
        cell.append(swatch, ` ${content.text}`);
      } else {
        cell.textContent = content;
      }
      row.append(cell);
    });
    return row;
  }

  let speaking = 0;
  function showValues() {
    const values = valuesAt(pointer.x, pointer.y);
    const table = find('values');
    table.replaceChildren();
    if (!values) {
      table.append(tableRow('outside the page', []));
      return;
    }
    table.append(tableRow('at', [`${pointer.x.toFixed(2)}, ${pointer.y.toFixed(2)} mm`], 'at'));
    data.inks.forEach((ink, i) => {
      table.append(tableRow(`${ink.name} drops`, values.prints.map((p) => p.drops[i]),
        `drops-${ink.name}`));
    });
    table.append(tableRow('ink', values.prints.map((p) => `${(100 * p.ink).toFixed(0)} %`), 'ink'));
    table.append(tableRow('modelled Lab',
      values.prints.map((p) => ({ swatch: p.rgb, text: fixed(p.lab, 1) })), 'lab'));
    if (values.wanted) {
      table.append(tableRow('wanted Lab',
        [{ swatch: values.wanted.rgb, text: fixed(values.wanted.lab, 1) }], 'wanted'));
      table.append(tableRow('\u0394E, 3 by 3 cells',
        [`${values.wanted.difference.toFixed(2)}, ${values.wanted.verdict}`], 'difference'));
    }
    table.append(tableRow('dots here',
      values.dots.map((dots) => (dots ? dots.join(', ') || 'none' : '\u2013')), 'dots'));
    clearTimeout(speaking);
    speaking = setTimeout(() => {
      find('spoken').textContent = [...table.rows].map((row) => row.textContent).join('; ');
    }, 600);
  }

  function point(x, y) {
    pointer.x = clamp(x, 0, data.widthMm - 1e-6);
    pointer.y = clamp(y, 0, data.heightMm - 1e-6);
    showValues();
    draw();
  }

  // ------------------------------------------------------------------------------------------
  // What is pressed.

  const at = (event) => {
    const box = canvas.getBoundingClientRect();
    return [
      (( event.clientX - box.left) * devicePixelRatio - canvas.width / 2) / view.scale + view.x,
      ((event.clientY - box.top) * devicePixelRatio - canvas.height / 2) / view.scale + view.y,
    ];
  };
  let drag = null;
  canvas.addEventListener('pointerdown', (event) => {
    canvas.setPointerCapture(event.pointerId);
    drag = { clientX: event.clientX, clientY: event.clientY, x: view.x, y: view.y, moved: false };
  });
  canvas.addEventListener('pointermove', (event) => {
    if (drag) {
      const dx = event.clientX - drag.clientX, dy = event.clientY - drag.clientY;
      drag.moved = drag.moved || Math.hypot(dx, dy) > 4;
      if (drag.moved) {
        view.x = drag.x - dx * devicePixelRatio / view.scale;
        view.y = drag.y - dy * devicePixelRatio / view.scale;
        view.fitted = false;
        clampView();
      }
    }
    point(...at(event));
  });
  canvas.addEventListener('pointerup', () => { drag = null; });
  canvas.addEventListener('pointercancel', () => { drag = null; });
  canvas.addEventListener('dblclick', (event) => zoom(3, ...at(event)));
  canvas.addEventListener('wheel', (event) => {
    event.preventDefault();
    zoom(1.0018 ** -event.deltaY, ...at(event));
  }, { passive: false });

  function goTo(index) {
    const [left, top, width, height] = data.summary.areas[index].millimetres;
    Object.assign(view, {
      x: left + width / 2, y: top + height / 2, fitted: false,
      scale: Math.max(0.9 * Math.min(canvas.width / width, canvas.height / height),
        2.2 * data.verticalDpi / MM),
    });
    clampView();
    point(view.x, view.y);
  }

  // To the place nearest to the pointer.
  function goToDots() {
    let best = 0, least = Infinity;
    data.summary.areas.forEach((area, i) => {
      const [left, top, width, height] = area.millimetres;
      const distance = Math.hypot(left + width / 2 - pointer.x, top + height / 2 - pointer.y);
      if (distance < least) [best, least] = [i, distance];
    });
    if (data.summary.areas.length) goTo(best);
  }

  const KEYS = {
    '+': () => zoom(1.5, pointer.x, pointer.y),
    '=': () => zoom(1.5, pointer.x, pointer.y),
    '-': () => zoom(1 / 1.5, pointer.x, pointer.y),
    '0': fit,
  };
  const ARROWS = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
  canvas.addEventListener('keydown', (event) => {
    if (KEYS[event.key]) {
      KEYS[event.key]();
    } else if (ARROWS[event.key]) {
      const [dx, dy] = ARROWS[event.key];
      const step = Math.max(12 / view.scale, MM / finestDpi) * (event.shiftKey ? 8 : 1);
      point(pointer.x + dx * step, pointer.y + dy * step);
      const [width, height] = size();
      if (toX(pointer.x) < 20 || toX(pointer.x) > width - 20 || toY(pointer.y) < 20 ||
          toY(pointer.y) > height - 20) {
        view.x += dx * step;
        view.y += dy * step;
        clampView();
      }
    } else {
      return;
    }
    event.preventDefault();
  });

  find('in').onclick = () => zoom(1.5, view.x, view.y);
  find('out').onclick = () => zoom(1 / 1.5, view.x, view.y);
  find('fit').onclick = fit;
  find('dots').onclick = goToDots;
  find('places').onchange = draw;
  find('swaths').onchange = draw;
  find('split').oninput = draw;
  find('split-label').hidden = prints.length < 2;
  find('layer').onchange = (event) => {
    layer = event.target.value;
    find('legend').textContent = LEGENDS[layer];
    draw();
  };
  if (wanted) find('layer').append(new Option('difference to what is wanted', 'difference'));

  for (const ink of data.inks) {
    const text = document.createElement('label');
    const box = document.createElement('input');
    box.type = 'checkbox';
    box.checked = true;
    box.id = `ink-${ink.name}`;
    box.onchange = () => {
      ink.shown = box.checked;
      draw();
    };
    const swatch = document.createElement('span');
    swatch.className = 'swatch';
    swatch.style.background = ink.colour;
    text.append(box, ' ', swatch, ` ${ink.name}`);
    find('inks').append(text);
  }
  data.summary.areas.forEach((area, i) => {
    const item = document.createElement('li');
    const button = document.createElement('button');
    button.type = 'button';
    button.textContent = `${i + 1} ${area.name}`;
    button.onclick = () => goTo(i);
    item.append(button);
    find('list').append(item);
  });

  function resize() {
    canvas.width = Math.max(1, Math.round(canvas.clientWidth * devicePixelRatio));
    canvas.height = Math.max(1, Math.round(canvas.clientHeight * devicePixelRatio));
    if (view.fitted) fit();
    draw();
  }
  new ResizeObserver(resize).observe(canvas);
  addEventListener('beforeprint', () => { resize(); fit(); });
  find('legend').textContent = LEGENDS.picture;
  resize();
  showValues();
  // For those who test the page, and for the browser's console.
  const labOfDrops = (drops, area) =>
    labOf(bandsOf(data.inks.map((ink, i) => drops[i] * ink.fullArea / area)));
  window.corvane = { data, prints, view, valuesAt, labOfDrops, goTo };
  document.body.dataset.ready = 'yes';
})();
