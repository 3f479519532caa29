// SPDX-License-Identifier: MIT
// The words at both ends of the page; then everything is shown.

function showWords() {
  document.title = `${data.title}: before and after`;
  byId('title').textContent = data.title;
  byId('summary').textContent =
    `${data.extents.join(' × ')} samples${data.inColour ? ' in colour' : ''}, ${stepsText(data.steps)}, threshold ${digits(data.threshold)}`;
  byId('remarks').append(...data.remarks.map((text) => make('p', {class: 'remark'}, text)));
  const facts = [...data.facts, ['Pipeline', data.pipeline]];
  for (const [name, value] of facts) byId('facts').append(make('dt', {}, name), make('dd', {}, value));
}

showWords();
showPictures();
showRemoved();
showGradients();
showSheet();
listenToDialog();
