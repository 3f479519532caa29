// SPDX-License-Identifier: MIT
// Pictures: one frame for each view, filled with the slice at the point.

// The place in the volume that all views show, as numbers of stored slices by axis.
const point = [0, 0, 0];
const viewsAlong = [];

const sliceOf = (view) => view.slices[view.along < 0 ? 0 : point[view.along]];
const sizeOf = (view) => [view.region.width * view.spacing[0], view.region.height * view.spacing[1]];

function makeStage(view, kind) {
  const [width, height] = sizeOf(view);
  const stage = make('div', {class: 'stage'});
  const pictures = kind === 'compare' ? ['before', 'after'] : ['removed'];
  for (const name of pictures) stage.append(make('img', {class: name, draggable: 'false'}));
  if (kind === 'compare') {
    stage.append(make('span', {class: 'tag of-before', 'aria-hidden': 'true'}, 'before'),
                 make('span', {class: 'tag of-after', 'aria-hidden': 'true'}, 'after'),
                 make('div', {class: 'line'}, make('span', {class: 'handle', 'aria-hidden': 'true'}, '◂▸')));
  }
  if (isVolume) stage.append(make('div', {class: 'cross upright'}), make('div', {class: 'cross level'}));
  ['left', 'right', 'top', 'bottom'].forEach((side, i) => {
    if (view.sides[i]) stage.append(make('span', {class: `side ${side}`, 'aria-hidden': 'true'}, view.sides[i]));
  });
  stage.style.setProperty('--ratio', `${width} / ${height}`);
  return stage;
}

function makeView(view, kind) {
  const stage = makeStage(view, kind);
  const caption = make('figcaption');
  const figure = make('figure', {class: 'view'}, make('div', {class: 'frame'}, stage), caption);
  if (isVolume) figure.classList.add('movable');
  if (kind === 'compare') figure.classList.add('divided');
  const [width, height] = sizeOf(view);
  // Small pictures are enlarged, but not beyond what the eye can do with.
  const pixels = Math.ceil(view.region.width / view.reduction);
  const largest = isVolume ? '100%' : `${6 * pixels}px`;
  stage.style.setProperty('--fit', `min(${largest}, ${(78 * width) / height}vh)`);
  const shown = {figure, stage, caption, view, kind, pixels};
  new ResizeObserver(() => {
    figure.classList.toggle('coarse', stage.clientWidth * devicePixelRatio >= 2 * pixels);
  }).observe(stage);
  return shown;
}

function captionOf(view, slice) {
  if (!isVolume) return '';
  return `${view.name}, slice ${slice.index} of 0 to ${view.depth - 1}`;
}

// Where the point stands in the view, from 0 to 1 along a side.
function placeOf(axis, start, length, extent, turned) {
  const index = viewsAlong[axis].slices[point[axis]].index;
  return ((turned ? extent - 1 - index : index) + 0.5 - start) / length;
}

function showSlice(shown) {
  const {view, stage, caption} = shown;
  const slice = sliceOf(view);
  const where = isVolume ? captionOf(view, slice) : view.name;
  const words = {before: 'Before filtering', after: 'After filtering', removed: 'What was removed'};
  for (const image of stage.querySelectorAll('img')) {
    const source = slice[image.className];
    if (image.src !== source) image.src = source;
    image.alt = `${words[image.className]}: ${where}`;
  }
  caption.textContent = captionOf(view, slice);
  if (!isVolume) return;
  const {region} = view;
  const x = placeOf(view.across, region.left, region.width, view.extents[0], view.mirrored);
  const y = placeOf(view.down, region.top, region.height, view.extents[1], view.upsideDown);
  stage.style.setProperty('--x', `${100 * x}%`);
  stage.style.setProperty('--y', `${100 * y}%`);
}

const compared = data.views.map((view) => makeView(view, 'compare'));
const removed = data.views.map((view) => makeView(view, 'removed'));
const showAll = () => [...compared, ...removed].forEach(showSlice);

function setDivider(percentage) {
  const divider = byId('divider');
  divider.value = percentage;
  divider.setAttribute('aria-valuetext', `before up to ${divider.value} %, after from there`);
  byId('compare').style.setProperty('--cut', `${divider.value}%`);
  for (const {stage} of compared) {
    stage.querySelector('.of-before').hidden = divider.value < 12;
    stage.querySelector('.of-after').hidden = divider.value > 88;
  }
}

// The stored slice that is nearest to a place from 0 to 1 along a side of a view.
function nearestSlice(axis, place, start, length, extent, turned) {
  const wanted = start + place * length - 0.5;
  const distance = ({index}) => Math.abs((turned ? extent - 1 - index : index) - wanted);
  const {slices} = viewsAlong[axis];
  return slices.reduce((best, slice, i) => (distance(slice) < distance(slices[best]) ? i : best), 0);
}

function movePoint(axis, number) {
  const last = viewsAlong[axis].slices.length - 1;
  point[axis] = Math.min(last, Math.max(0, number));
  const dial = byId(`point-${axisNames[axis]}`);
  const {index} = viewsAlong[axis].slices[point[axis]];
  dial.value = point[axis];
  dial.setAttribute('aria-valuetext', `slice ${index}`);
  dial.nextElementSibling.value = index;
}

function pressed({stage, view, kind}, event) {
  const box = stage.getBoundingClientRect();
  const x = Math.min(1, Math.max(0, (event.clientX - box.left) / box.width));
  const y = Math.min(1, Math.max(0, (event.clientY - box.top) / box.height));
  if (isVolume) {
    const {region} = view;
    movePoint(view.across, nearestSlice(view.across, x, region.left, region.width, view.extents[0], view.mirrored));
    movePoint(view.down, nearestSlice(view.down, y, region.top, region.height, view.extents[1], view.upsideDown));
    showAll();
  } else if (kind === 'compare') {
    setDivider(Math.round(100 * x));
  }
}

// Follows the mouse, a pen or a finger while it is down. A finger that pans an enlarged picture
// leaves the divider alone.
function followPointer(shown) {
  const {stage, figure} = shown;
  const isOurs = (event) => event.pointerType !== 'touch' || !figure.classList.contains('zoomed');
  stage.addEventListener('pointerdown', (event) => {
    if (event.button !== 0 || !isOurs(event)) return;
    stage.setPointerCapture(event.pointerId);
    pressed(shown, event);
  });
  stage.addEventListener('pointermove', (event) => {
    if (stage.hasPointerCapture(event.pointerId)) pressed(shown, event);
  });
}

// Choices of which one holds, as buttons beside each other.
function makeChoice(name, label, choices, choose) {
  const set = make('fieldset', {'aria-label': label});
  choices.forEach((choice, i) => {
    const input = make('input', {type: 'radio', name, value: i});
    input.checked = i === 0;
    input.addEventListener('change', () => choose(i));
    set.append(make('label', {}, input, make('span', {}, choice)));
  });
  return set;
}

function chooseView(number) {
  for (const set of [compared, removed]) {
    set.forEach(({figure}, i) => { figure.hidden = i !== number; });
  }
  byId('compare-note').textContent = sizeNote(data.views[number]);
}

function zoom(factor) {
  for (const {figure, stage, pixels} of compared) {
    figure.classList.toggle('zoomed', factor > 0);
    stage.style.setProperty('--zoomed', `${factor * pixels}px`);
  }
}

function sizeNote(view) {
  const {region, reduction} = view;
  if (!isVolume && reduction > 1) {
    return `Shown at 1 : ${reduction}, each pixel the mean of ${reduction} × ${reduction} samples, which hides noise; ` +
           'of what was removed, one of them. The part shows every sample.';
  }
  if (!isVolume && region.width * region.height < data.extents[0] * data.extents[1]) {
    return `${region.width} × ${region.height} samples from column ${region.left}, row ${region.top} on, one pixel each.`;
  }
  return isVolume ? '' : 'Every sample is a pixel.';
}

function greysNote() {
  const [black, white] = data.greys;
  const stored = isVolume ? data.views.map((view) => `${view.slices.length} of ${view.depth}`).join(', ') : '';
  const {reduction} = data.views[0];
  const picked = reduction > 1 ? ` Of every plane, each ${reduction === 2 ? 'second' : `${reduction}th`} sample of each such row is shown.` : '';
  return isVolume
    ? `Black is ${digits(black)}, white ${digits(white)}. The page holds ${stored} slices, in true proportions.${picked} ` +
      'Press a place in a view to see the slices through it.'
    : `Black is ${digits(black)}, white ${digits(white)}.`;
}

function addDials() {
  for (const view of [...data.views].sort((a, b) => a.along - b.along)) {
    const letter = axisNames[view.along];
    const dial = make('input', {type: 'range', id: `point-${letter}`, min: 0, max: view.slices.length - 1,
                                'aria-label': `${view.name} slice, along ${letter}`});
    dial.addEventListener('input', () => {
      movePoint(view.along, Number(dial.value));
      showAll();
    });
    byId('dials').append(make('label', {class: 'dial'}, make('span', {}, `${view.name}`), dial, make('output')));
    movePoint(view.along, Math.floor(view.slices.length / 2));
  }
}

function showPictures() {
  for (const [id, set] of [['compare', compared], ['removed', removed]]) {
    byId(id).append(...set.map(({figure}) => figure));
    set.forEach(followPointer);
  }
  byId('divider').addEventListener('input', (event) => setDivider(event.target.value));
  setDivider(50);
  if (isVolume) {
    for (const view of data.views) viewsAlong[view.along] = view;
    const columns = data.views.map((view) => `minmax(0, ${sizeOf(view)[0]}fr)`).join(' ');
    for (const id of ['compare', 'removed']) {
      byId(id).classList.add('volume');
      byId(id).style.gridTemplateColumns = columns;
    }
    document.querySelector('.beside').classList.add('stacked');
    addDials();
  } else {
    if (data.views.length > 1) {
      byId('choices').append(makeChoice('view', 'Picture shown', data.views.map(({name}) => name), chooseView));
    }
    byId('choices').append(makeChoice('zoom', 'Size', ['Fit', '1 : 1', '2 : 1', '4 : 1'],
                                      (i) => zoom([0, 1, 2, 4][i])));
    chooseView(0);
  }
  byId('compare-note').textContent += ` ${greysNote()}`;
  showAll();
}
