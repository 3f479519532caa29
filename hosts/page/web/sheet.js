// SPDX-License-Identifier: MIT
// The sheet, and one of its pictures enlarged.

const {sheet} = data;
const sheetRatio = (sheet.region.width * sheet.spacing[0]) / (sheet.region.height * sheet.spacing[1]);
const cellTitle = (cell) => `Threshold ${digits(cell.threshold)}, ${stepsText(cell.steps)}`;
let enlargedNumber = 0;

function showSheet() {
  const where = sheet.plane ? `the plane ${sheet.plane.toLowerCase()}, slice ${sheet.index}` : 'the picture';
  const {region} = sheet;
  byId('sheet-lead').textContent =
    `The middle of ${where}, ${region.width} × ${region.height} samples at full size, filtered anew with each pair. ` +
    'Press one to see all of it and to copy its command line. “Removed” is the root mean square of what it takes away' +
    (data.noiseSigma > 0 ? `; the noise is estimated at ${digits(data.noiseSigma, 3)}.` : '.');
  const thresholds = sheet.cells.slice(0, sheet.columns);
  const head = make('tr', {}, make('th', {scope: 'col'}, 'K'),
                    ...thresholds.map(({threshold}) => make('th', {scope: 'col'}, digits(threshold))));
  const table = make('table', {}, make('thead', {}, head));
  const body = make('tbody');
  for (let first = 0; first < sheet.cells.length; first += sheet.columns) {
    const row = sheet.cells.slice(first, first + sheet.columns);
    body.append(make('tr', {}, make('th', {scope: 'row'}, stepsText(row[0].steps)),
                     ...row.map((cell, i) => make('td', {}, makeCell(cell, first + i)))));
  }
  table.append(body);
  byId('sheet').style.setProperty('--ratio', sheetRatio);
  byId('sheet').append(table);
  // On a narrow screen the chosen one comes first into sight.
  const chosen = table.querySelector('[aria-current]').closest('td');
  byId('sheet').scrollLeft = chosen.offsetLeft + (chosen.offsetWidth - byId('sheet').clientWidth) / 2;
}

function makeCell(cell, number) {
  const image = make('img', {src: cell.picture, alt: ''});
  // Sample by sample, so that noise shows, where the picture fills the cell.
  const isSquare = sheet.spacing[0] === sheet.spacing[1];
  if (isSquare && Math.min(sheet.region.width, sheet.region.height) > 240) image.className = 'middle';
  const words = `removed ${digits(cell.removed, 3)}`;
  const button = make('button', {type: 'button', class: 'cell', 'data-number': number,
                                 'aria-label': `Enlarge ${cellTitle(cell).toLowerCase()}, ${words}${cell.isChosen ? ', as chosen' : ''}`},
                      image, make('small', {}, cell.isChosen ? `${words} · chosen` : words));
  if (cell.isChosen) button.setAttribute('aria-current', 'true');
  button.addEventListener('click', () => {
    enlarge(number);
    byId('enlarged').showModal();
  });
  return button;
}

function showPicture(isBefore) {
  const cell = sheet.cells[enlargedNumber];
  const image = byId('enlarged-image');
  image.src = isBefore ? sheet.before : cell.picture;
  image.alt = isBefore ? 'The part before filtering' : `The part after ${stepsText(cell.steps)} with threshold ${digits(cell.threshold)}`;
  byId('show-before').setAttribute('aria-pressed', String(isBefore));
}

async function copy(code) {
  try {
    await navigator.clipboard.writeText(code.textContent);
    say('Copied.');
    return true;
  } catch {
    getSelection().selectAllChildren(code);
    say('Selected; press the keys that copy.');
    return false;
  }
}

function makeCommand({purpose, line}) {
  const code = make('code', {}, line);
  const button = make('button', {type: 'button', 'aria-label': `Copy the command line for ${purpose}`}, 'Copy');
  button.addEventListener('click', async () => {
    button.textContent = (await copy(code)) ? 'Copied' : 'Selected';
    setTimeout(() => { button.textContent = 'Copy'; }, 1500);
  });
  return make('div', {class: 'command'}, make('span', {}, `For ${purpose}`), code, button);
}

function enlarge(number) {
  enlargedNumber = number;
  const cell = sheet.cells[number];
  byId('enlarged-title').textContent = cellTitle(cell);
  byId('enlarged-note').textContent = `Removed: ${digits(cell.removed, 3)} as root mean square. Keys: arrows choose another, b shows before.`;
  byId('commands').replaceChildren(...cell.commands.map(makeCommand));
  const image = byId('enlarged-image');
  image.style.setProperty('--ratio', sheetRatio);
  image.style.setProperty('--fit', `min(${3 * sheet.region.width}px, ${58 * sheetRatio}vh)`);
  image.style.imageRendering = sheet.region.width < 300 ? 'pixelated' : 'auto';
  showPicture(false);
  for (const button of document.querySelectorAll('[data-move]')) {
    button.disabled = neighbourOf(number, button.dataset.move.split(',').map(Number)) === null;
  }
}

// The number of the cell so many columns and rows away; null where the sheet ends.
function neighbourOf(number, [columns, rows]) {
  const column = (number % sheet.columns) + columns;
  const next = number + columns + rows * sheet.columns;
  const isInside = column >= 0 && column < sheet.columns && next >= 0 && next < sheet.cells.length;
  return isInside ? next : null;
}

function moveEnlarged(way) {
  const next = neighbourOf(enlargedNumber, way);
  if (next === null) return;
  enlarge(next);
  say(cellTitle(sheet.cells[next]));
}

function listenToDialog() {
  const dialog = byId('enlarged');
  const ways = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]};
  const isBefore = () => byId('show-before').getAttribute('aria-pressed') === 'true';
  byId('close').addEventListener('click', () => dialog.close());
  byId('show-before').addEventListener('click', () => showPicture(!isBefore()));
  for (const button of document.querySelectorAll('[data-move]')) {
    button.addEventListener('click', () => moveEnlarged(button.dataset.move.split(',').map(Number)));
  }
  dialog.addEventListener('click', (event) => { if (event.target === dialog) dialog.close(); });
  dialog.addEventListener('close', () => document.querySelector(`[data-number="${enlargedNumber}"]`).focus());
  dialog.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (ways[event.key]) {
      event.preventDefault();
      moveEnlarged(ways[event.key]);
    } else if (event.key === 'b') {
      showPicture(!isBefore());
    }
  });
}
