// The elements, texts, tables and charts that the page of a report (page.js) is made of. Texts of the data
// become text nodes and attributes alone.
'use strict';

// The parts for this document: its times and its kind give the axes of time.
function reportParts(data) {
  const svgSpace = 'http://www.w3.org/2000/svg';

  // ---- Elements and texts. ----

  function fill(element, attributes, children) {
    for (const [name, value] of Object.entries(attributes || {})) {
      if (value !== undefined && value !== null) element.setAttribute(name, value);
    }
    for (const child of children) {
      if (child !== undefined && child !== null) element.append(child);
    }
    return element;
  }
  const make = (tag, attributes, ...children) => fill(document.createElement(tag), attributes, children);
  const draw = (tag, attributes, ...children) =>
    fill(document.createElementNS(svgSpace, tag), attributes, children);

  const whole = new Intl.NumberFormat('en-US');
  const digits = new Intl.NumberFormat('en-US', { maximumSignificantDigits: 4 });
  const count = (n) => (Number.isInteger(n) ? whole.format(n) : digits.format(n));
  const plural = (n, noun) => `${count(n)} ${noun}${n === 1 ? '' : 's'}`;

  function duration(seconds) {
    if (seconds === 0) return '0 s';
    if (seconds < 0.00099995) return `${digits.format(seconds * 1e6)} \u00b5s`;
    if (seconds < 0.99995) return `${digits.format(seconds * 1e3)} ms`;
    return `${digits.format(seconds)} s`;
  }
  // A point of time: by the clock for a live agent, and otherwise in seconds of the run.
  function point(time) {
    if (data.epoch === undefined) return `${time.toFixed(6).replace(/\.?0+$/, '')} s`;
    return new Date((data.epoch + time) * 1000).toISOString().replace('T', ' ').replace('Z', ' UTC');
  }

  // ---- Tables and charts. ----

  const isNumber = (column) => column.startsWith('#');
  const heading = (column) => column.replace('#', '');

  // The name of a column of numbers begins with '#'.
  function table(caption, columns, rows) {
    const head = make('tr', {}, ...columns.map((column) =>
      make('th', { scope: 'col', class: isNumber(column) ? 'number' : null }, heading(column))));
    const body = rows.map((row) => make('tr', {}, ...row.map((cell, i) =>
      make('td', { class: isNumber(columns[i]) ? 'number' : null }, cell))));
    return make('div', { class: 'scroll', tabindex: 0, role: 'group', 'aria-label': caption },
      make('table', {}, make('caption', {}, caption), make('thead', {}, head), make('tbody', {}, ...body)));
  }
  // A table that is made when somebody opens it.
  function lazyTable(caption, columns, rows) {
    const details = make('details', {}, make('summary', {}, `Data: ${caption}`));
    details.addEventListener('toggle', () => {
      if (details.open && details.children.length === 1) details.append(table(caption, columns, rows()));
    });
    return details;
  }

  // Ends of ticks from 0 to at least `top`.
  function ticks(top) {
    if (top <= 0) return [0, 1];
    const rough = top / 4;
    const power = 10 ** Math.floor(Math.log10(rough));
    const step = power * [1, 2, 2.5, 5, 10].find((factor) => factor * power >= rough);
    const out = [];
    for (let i = 0; i === 0 || out[i - 1] < top; ++i) out.push(i * step);
    return out;
  }

  const width = 640, height = 210, left = 56, right = 12, top = 12, bottom = 34;
  let charts = 0;

  function frame(title, description, children) {
    const id = `chart-${++charts}`;
    return draw('svg', { viewBox: `0 0 ${width} ${height}`, role: 'img', 'aria-labelledby': `${id}-t ${id}-d` },
      draw('title', { id: `${id}-t` }, title), draw('desc', { id: `${id}-d` }, description), ...children);
  }
  function valueAxis(marks, unit, yOf) {
    const parts = [];
    for (const mark of marks) {
      parts.push(draw('path', { class: 'axis', d: `M${left} ${yOf(mark)}H${width - right}` }));
      parts.push(draw('text', { x: left - 6, y: yOf(mark) + 4, 'text-anchor': 'end' }, unit(mark)));
    }
    return parts;
  }

  // One chart of series over time. A series is {name, times, values}; `size` is the limit of a table.
  function lineChart(title, series, size) {
    const shown = series.filter((one) => one.values.length > 0);
    const end = Math.max(data.endedAt, ...shown.map((one) => one.times[one.times.length - 1]), 1e-6);
    const begin = data.kind === 'live' ? Math.min(...shown.map((one) => one.times[0])) : 0;
    const peak = Math.max(0, ...shown.map((one) => one.values.reduce((a, b) => Math.max(a, b), 0)));
    const near = size !== undefined && peak * 8 >= size;
    const marks = ticks(near ? Math.max(size, peak) : peak);
    const y = (value) => height - bottom - (value / marks[marks.length - 1]) * (height - top - bottom);
    const x = (time) => left + ((time - begin) / Math.max(end - begin, 1e-9)) * (width - left - right);
    const parts = valueAxis(marks, count, y);
    for (const mark of [0, 0.25, 0.5, 0.75, 1]) {
      const time = begin + mark * (end - begin);
      parts.push(draw('text', { x: x(time), y: height - 16, 'text-anchor': mark === 1 ? 'end' : mark ? 'middle' : 'start' },
        duration(time - begin)));
    }
    parts.push(draw('text', { x: width - right, y: height - 3, 'text-anchor': 'end' },
      data.kind === 'live' ? 'time since the start of the record' : 'time of the run'));
    if (size !== undefined) {
      const at = near ? y(size) : top;
      parts.push(draw('path', { class: 'limit', d: `M${left} ${at}H${width - right}` }));
      parts.push(draw('text', { class: 'limit-text', x: width - right, y: at + (at < top + 8 ? 12 : -4), 'text-anchor': 'end' },
        near ? `size ${count(size)}` : `size ${count(size)}, far above the scale`));
    }
    shown.forEach((one, i) => {
      let path = '';
      one.times.forEach((time, j) => {
        const to = `${x(time).toFixed(1)}`, level = y(one.values[j]).toFixed(1);
        path += j === 0 ? `M${to} ${level}` : `H${to}V${level}`;
      });
      parts.push(draw('path', { class: `line s${i + 1}`, d: `${path}H${x(end).toFixed(1)}` }));
    });
    const latest = shown.map((one) => `${one.name}: ${count(one.values[one.values.length - 1])} at the end, ` +
      `${count(one.values.reduce((a, b) => Math.max(a, b), 0))} at most`).join('; ');
    const description = latest + (size === undefined ? '' : `; size of the table: ${count(size)}`);
    const legend = make('ul', { class: 'legend', 'aria-hidden': 'true' }, ...shown.map((one, i) => make('li', {},
      draw('svg', { viewBox: '0 0 26 8' }, draw('path', { class: `line s${i + 1}`, d: 'M0 4H26' })), one.name)));
    return make('figure', {}, make('h3', {}, title), make('p', {}, description), legend,
      frame(title, description, parts),
      lazyTable(title, ['#Time (s)', 'Series', '#Value'], () => shown.flatMap((one) =>
        one.times.map((time, j) => [time.toFixed(6), one.name, count(one.values[j])]))));
  }

  // One chart of bars: {name, value, open}, which are at most 60 of more.
  function barChart(title, description, bars, unit) {
    const shown = bars.slice(0, 60);
    const marks = ticks(Math.max(0, ...shown.map((bar) => bar.value)));
    const y = (value) => height - bottom - (value / marks[marks.length - 1]) * (height - top - bottom);
    const step = Math.min(90, (width - left - right) / Math.max(shown.length, 1));
    const parts = valueAxis(marks, unit, y);
    shown.forEach((bar, i) => {
      const at = left + i * step;
      parts.push(draw('rect', { class: bar.open ? 'bar open' : 'bar', x: at + step * 0.12, y: y(bar.value),
        width: step * 0.76, height: height - bottom - y(bar.value) },
        draw('title', {}, `${bar.name}: ${unit(bar.value)}`)));
      if (shown.length <= 14) {
        const text = bar.name.length > 12 ? `${bar.name.slice(0, 11)}\u2026` : bar.name;
        parts.push(draw('text', { x: at + step / 2, y: height - 16, 'text-anchor': 'middle' }, text));
      }
    });
    return make('figure', {}, make('h3', {}, title), make('p', {}, description),
      frame(title, description, parts));
  }

  return { make, count, plural, duration, point, table, lazyTable, lineChart, barChart };
}
