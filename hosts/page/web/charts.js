// SPDX-License-Identifier: MIT
// The two histograms.

// Round numbers, about so many.
function ticksBetween(lowest, highest, count) {
  const rough = (highest - lowest) / count;
  const unit = 10 ** Math.floor(Math.log10(rough));
  const step = [1, 2, 5, 10].map((times) => times * unit).find((size) => size >= rough);
  const ticks = [];
  for (let i = Math.ceil(lowest / step); i * step <= highest; ++i) ticks.push(i * step);
  return ticks;
}

// `shape` draws into a group, given the plot's size and functions that place values in it.
function drawChart(figure, {label, lowest, highest, unit, heights, caption, shape}) {
  const plot = make('div');
  figure.append(plot, make('figcaption', {}, ...caption));
  const draw = () => {
    const width = Math.max(260, figure.clientWidth);
    const [left, right, top, bottom] = [46, 12, 22, 44];
    const height = Math.round(Math.min(300, 150 + width / 5));
    const [wide, high] = [width - left - right, height - top - bottom];
    const x = (value) => ((value - lowest) / (highest - lowest)) * wide;
    const y = (share) => high * (1 - heights.place(share));
    const group = make('g', {transform: `translate(${left} ${top})`});
    for (const share of heights.ticks) {
      group.append(make('line', {class: 'axis', x1: 0, x2: wide, y1: y(share), y2: y(share)}),
                   make('text', {x: -8, y: y(share) + 4, 'text-anchor': 'end'}, percent(share)));
    }
    for (const tick of ticksBetween(lowest, highest, wide / 90)) {
      group.append(make('text', {x: x(tick), y: high + 18, 'text-anchor': 'middle'}, digits(tick, 3)));
    }
    group.append(make('text', {x: wide / 2, y: high + 37, 'text-anchor': 'middle'}, unit));
    shape(group, {x, y, wide, high});
    plot.replaceChildren(make('svg', {viewBox: `0 0 ${width} ${height}`, role: 'img', 'aria-label': label}, group));
  };
  new ResizeObserver(draw).observe(figure);
}

const binEdge = ({lowest, highest, shares}, i) => lowest + ((highest - lowest) * i) / shares.length;

function drawBars(group, histogram, {x, y, high}) {
  const path = histogram.shares.map((share, i) => {
    const [from, to] = [x(binEdge(histogram, i)), x(binEdge(histogram, i + 1))];
    return `M${from} ${high}V${Math.min(high, y(share))}H${to - 0.5}V${high}Z`;
  });
  group.append(make('path', {class: 'bars', d: path.join('')}));
}

function drawCurve(group, points) {
  const path = points.map(([left, top], i) => `${i ? 'L' : 'M'}${left.toFixed(1)} ${top.toFixed(1)}`);
  group.append(make('path', {class: 'curve', d: path.join('')}));
}

// Shares on a logarithmic scale from 0.01 % to the highest.
function logarithmicHeights(highest) {
  const [low, top] = [-4, Math.ceil(Math.log10(Math.max(highest, 1e-3)) * 2) / 2];
  const place = (share) => (share > 0 ? Math.max(0, (Math.log10(share) - low) / (top - low)) : 0);
  return {place, ticks: [1e-4, 1e-3, 1e-2, 1e-1, 1].filter((share) => Math.log10(share) <= top)};
}

function linearHeights(highest) {
  const unit = 10 ** Math.floor(Math.log10(highest));
  const step = [0.2, 0.5, 1, 2, 5].map((s) => s * unit).find((s) => highest / s <= 4);
  const top = step * Math.ceil(highest / step);
  const ticks = [];
  for (let i = 0; i * step <= top * 1.001; ++i) ticks.push(i * step);
  return {place: (share) => share / top, ticks};
}

const key = (words, isCurve) => [make('i', {class: isCurve ? 'key of-curve' : 'key'}), make('span', {}, words)];

// The bell curve of the estimated noise, as shares of bins.
function noiseShare(value, binWidth) {
  const sigma = data.noiseSigma;
  return (binWidth / (sigma * Math.sqrt(2 * Math.PI))) * Math.exp(-0.5 * (value / sigma) ** 2);
}

function showRemoved() {
  const {rms, mean, lowest, highest, scale, colours, histogram} = data.removed;
  const noise = data.noiseSigma > 0 ? ` The noise is estimated at ${digits(data.noiseSigma, 3)}.` : '';
  const lead = rms > 0
    ? `Before less after: ${digits(rms, 3)} as root mean square, from ${digits(lowest, 3)} to ${digits(highest, 3)}.${noise} ` +
      'Where edges or shapes show here, the threshold is too high or the steps are too many.'
    : 'Nothing: before and after are the same.';
  byId('removed-lead').textContent = lead;
  const ends = [`−${digits(scale)}`, '0', `${digits(scale)}`];
  const ramp = data.inColour ? ['#000', '#808080', '#fff'] : colours;
  byId('removed-scale').append(
    make('div', {class: 'ramp', style: `background: linear-gradient(to right, ${ramp.join(', ')})`}),
    make('div', {class: 'ends'}, ...ends.map((text) => make('span', {}, text))));
  if (data.inColour) byId('removed-scale').append(make('p', {class: 'note'}, 'Red, green and blue each by itself; grey where nothing was removed.'));

  const binWidth = (histogram.highest - histogram.lowest) / histogram.shares.length;
  const hasNoise = data.noiseSigma > 0 && rms > 0;
  const outside = histogram.below + histogram.above;
  const caption = [...key('removed'), ...(hasNoise ? key('noise as estimated', true) : [])];
  if (outside > 0) caption.push(`${percent(outside)} lie outside.`);
  const highestShare = Math.max(...histogram.shares, hasNoise ? noiseShare(0, binWidth) : 0);
  drawChart(byId('removed-chart'), {
    label: `Histogram of what was removed: root mean square ${digits(rms, 3)}, mean ${digits(mean, 2)}`,
    ...histogram,
    unit: 'before less after, in the units of the samples', heights: linearHeights(highestShare), caption,
    shape: (group, places) => {
      drawBars(group, histogram, places);
      if (!hasNoise) return;
      drawCurve(group, histogram.shares.map((_, i) => {
        const value = binEdge(histogram, i + 0.5);
        return [places.x(value), places.y(noiseShare(value, binWidth))];
      }));
    },
  });
}

function shareBelow({lowest, highest, shares}, value) {
  const count = Math.round(((value - lowest) / (highest - lowest)) * shares.length);
  return shares.slice(0, count).reduce((sum, share) => sum + share, 0);
}

function showGradients() {
  const {before, after} = data.gradients;
  const K = data.threshold;
  const below = shareBelow(before, K);
  byId('gradients-lead').textContent =
    `A step smooths differences well below the threshold K = ${digits(K)} and keeps those well above it. ` +
    `${percent(below)} of the differences of neighbours are below K, ${percent(1 - shareBelow(before, 2 * K))} above 2 K.`;
  const rest = before.above > 0 ? [`${percent(before.above)} are above 4 K.`] : [];
  drawChart(byId('gradients-chart'), {
    label: `Histogram of the differences of neighbours: ${percent(below)} are below the threshold ${digits(K)}`,
    ...before, unit: 'difference, in the units of the samples',
    heights: logarithmicHeights(Math.max(...before.shares, ...after.shares)),
    caption: [...key('before'), ...key('after', true), ...rest],
    shape: (group, places) => {
      drawBars(group, before, places);
      drawCurve(group, after.shares.map((share, i) => [places.x(binEdge(after, i + 0.5)), places.y(share)]));
      const x = places.x(K);
      group.append(make('line', {class: 'mark', x1: x, x2: x, y1: -6, y2: places.high}),
                   make('text', {class: 'mark-text', x: x + 6, y: 2}, `K = ${digits(K)}`));
    },
  });
}
