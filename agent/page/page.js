// The script of a report: it draws the data of the page (docs/schemas/report.schema.json), and assembles
// the explanation of a route from its facts. Texts of the data become text nodes and attributes alone.
'use strict';

(() => {
  const data = JSON.parse(document.getElementById('data').textContent);
  const { make, count, plural, duration, point, table, lazyTable, lineChart, barChart } = reportParts(data);
  const byId = (id) => document.getElementById(id);

  const string = (i) => (i < 0 ? '' : data.strings[i]);
  const interfaceName = (i) => (i < 0 ? '' : data.interfaces[i].name);
  const groups = new Map(data.groups.map((group) => [group.number, group]));

  // Shows a section with these parts.
  function section(id, ...parts) {
    const element = byId(id);
    element.hidden = false;
    element.querySelector('.body').append(...parts.filter((part) => part));
  }

  // ---- Routes. ----

  const routes = data.routes;
  const total = routes.dst.length;
  const flagAnyInput = 1, flagBridged = 2;

  const name = (i) => `(${string(routes.src[i])}, ${routes.dst[i]})`;
  const stateOf = (i) => string(routes.state[i]);
  const setOf = (i) => (routes.set[i] < 0 ? { oifs: [], cpu: false } : data.sets[routes.set[i]]);
  const setText = new Array(data.sets.length);
  function outputsText(i) {
    const number = routes.set[i];
    if (routes.flags[i] & flagBridged) return 'bridged in its vlan';
    if (number < 0) return '';
    if (setText[number] === undefined) {
      const set = data.sets[number];
      setText[number] = set.oifs.map(interfaceName).concat(set.cpu ? ['cpu'] : []).join(' ');
    }
    return setText[number];
  }
  const stateText = (i) => (routes.waitsFor[i] < 0 ? stateOf(i) : `${stateOf(i)}: ${string(routes.waitsFor[i])}`);

  // The numbers of the routes by the number of their replication group.
  const sharers = new Map();
  for (let i = 0; i < total; ++i) {
    const group = routes.group[i];
    if (group < 0) continue;
    const known = sharers.get(group);
    if (known) known.push(i); else sharers.set(group, [i]);
  }

  function routeButton(i) {
    const button = make('button', { type: 'button' }, name(i));
    button.addEventListener('click', () => {
      setSearch(`src:${string(routes.src[i])} group:${routes.dst[i]} vrf:${string(routes.vrf[i])}`);
      const row = found.indexOf(i);
      if (row >= 0) activate(row, true);
      byId('list').focus();
    });
    return button;
  }
  function searchButton(text, query) {
    const button = make('button', { type: 'button' }, text);
    button.addEventListener('click', () => {
      setSearch(query);
      byId('search').focus();
    });
    return button;
  }

  // ---- Search. ----

  const fields = ['src', 'group', 'iif', 'oif', 'vrf', 'state', 'waits', 'reason', 'shared'];

  // For each string, interface or set: whether it matches.
  const matching = (list, test) => Uint8Array.from(list, (item) => (test(item) ? 1 : 0));

  // The test of one word, on the number of a route. Lists of texts are searched once for all routes.
  function wordTest(word) {
    const colon = word.indexOf(':');
    const field = colon > 0 && fields.includes(word.slice(0, colon)) ? word.slice(0, colon) : '';
    const text = field ? word.slice(colon + 1) : word;
    const has = (value) => String(value).toLowerCase().includes(text);
    const strings = matching(data.strings, has);
    const interfaces = matching(data.interfaces, (one) => has(one.name));
    const sets = matching(data.sets, (set) => set.oifs.some((oif) => interfaces[oif]) || (set.cpu && has('cpu')));
    const ofString = (column) => (i) => routes[column][i] >= 0 && strings[routes[column][i]] === 1;
    const tests = {
      src: ofString('src'),
      group: (i) => has(routes.dst[i]),
      iif: (i) => routes.iif[i] >= 0 && interfaces[routes.iif[i]] === 1,
      oif: (i) => routes.set[i] >= 0 && sets[routes.set[i]] === 1,
      vrf: ofString('vrf'),
      state: ofString('state'),
      waits: ofString('waitsFor'),
      reason: ofString('reason'),
      shared: (i) => String(routes.group[i]) === text,
    };
    if (field === 'src' || field === 'group' || field === 'vrf') {
      // A whole address or name matches itself alone.
      const exact = field === 'group' ? new Set(routes.dst) : new Set(data.strings);
      if ([...exact].some((one) => one.toLowerCase() === text)) {
        return field === 'group' ? (i) => routes.dst[i].toLowerCase() === text
          : (i) => string(routes[field][i]).toLowerCase() === text;
      }
    }
    if (field) return tests[field];
    const any = ['src', 'group', 'iif', 'oif', 'vrf', 'state', 'waits', 'reason'].map((one) => tests[one]);
    return (i) => any.some((test) => test(i));
  }

  const all = Uint32Array.from({ length: total }, (_, i) => i);
  let found = all;

  function search(query) {
    const words = query.toLowerCase().split(/\s+/).filter((word) => word);
    let left = all;
    for (const word of words) left = left.filter(wordTest(word));
    return left;
  }

  // ---- The list. ----

  const list = byId('list'), rows = byId('rows');
  const made = new Map();  // the rows in the document, by their place in the list
  let active = -1;
  let rowHeight = 28;

  function rowOf(place) {
    const i = found[place];
    const row = make('div', { role: 'row', class: place === active ? 'row active' : 'row', id: `row-${place}`,
      'aria-rowindex': place + 2, 'aria-selected': String(place === active) },
      ...[string(routes.vrf[i]), string(routes.src[i]), routes.dst[i],
        routes.flags[i] & flagAnyInput ? 'any' : interfaceName(routes.iif[i]), outputsText(i), stateText(i)]
        .map((text) => make('span', { role: 'gridcell', title: text }, text)));
    row.lastChild.classList.add({ offloaded: 'good', pending: 'warn', waiting: 'warn', failed: 'bad' }[stateOf(i)] || 'help');
    row.style.top = `${place * rowHeight}px`;
    row.addEventListener('click', () => {
      activate(place, true);
      list.focus();
    });
    return row;
  }
  // Makes the rows that are in view, and removes the others.
  function render() {
    rowHeight = parseFloat(getComputedStyle(document.documentElement).getPropertyValue('--row')) || 28;
    rows.style.height = `${found.length * rowHeight}px`;
    const first = Math.max(0, Math.floor(list.scrollTop / rowHeight) - 8);
    const last = Math.min(found.length, Math.ceil((list.scrollTop + list.clientHeight) / rowHeight) + 8);
    for (const [place, row] of made) {
      if (place >= first && place < last) continue;
      row.remove();
      made.delete(place);
    }
    for (let place = first; place < last; ++place) {
      if (made.has(place)) continue;
      const row = rowOf(place);
      made.set(place, row);
      rows.append(row);
    }
    if (made.has(active)) list.setAttribute('aria-activedescendant', `row-${active}`);
    else list.removeAttribute('aria-activedescendant');
  }
  function redraw() {
    for (const row of made.values()) row.remove();
    made.clear();
    render();
  }
  function activate(place, explains) {
    if (found.length === 0) return;
    const before = made.get(active);
    active = Math.max(0, Math.min(found.length - 1, place));
    const at = active * rowHeight;
    const visible = list.clientHeight - 2 * rowHeight;
    if (at < list.scrollTop) list.scrollTop = at;
    else if (at > list.scrollTop + visible) list.scrollTop = at - visible;
    if (before) {
      before.classList.remove('active');
      before.setAttribute('aria-selected', 'false');
    }
    render();
    const row = made.get(active);
    if (row) {
      row.classList.add('active');
      row.setAttribute('aria-selected', 'true');
    }
    if (explains) explain(found[active]);
  }
  function setSearch(query) {
    byId('search').value = query;
    found = search(query);
    active = -1;
    list.scrollTop = 0;
    list.setAttribute('aria-rowcount', found.length + 1);
    byId('search-count').textContent = found.length === total ? plural(total, 'route')
      : `${count(found.length)} of ${plural(total, 'route')}`;
    redraw();
  }

  list.addEventListener('scroll', () => requestAnimationFrame(render));
  addEventListener('resize', redraw);
  list.addEventListener('keydown', (event) => {
    if (event.altKey || event.ctrlKey || event.metaKey) return;
    const page = Math.max(1, Math.floor(list.clientHeight / rowHeight) - 2);
    const moves = { ArrowDown: active + 1, ArrowUp: active - 1, PageDown: active + page, PageUp: active - page,
      Home: 0, End: found.length - 1 };
    if (event.key in moves) {
      activate(moves[event.key], false);
    } else if (event.key === 'Enter' || event.key === ' ') {
      activate(Math.max(active, 0), true);
    } else if (event.key === 'Escape') {
      byId('search').focus();
    } else {
      return;
    }
    event.preventDefault();
  });
  byId('search').addEventListener('input', () => setSearch(byId('search').value));
  byId('search').addEventListener('keydown', (event) => {
    if (event.key !== 'ArrowDown' && event.key !== 'Enter') return;
    event.preventDefault();
    list.focus();
    activate(Math.max(active, 0), event.key === 'Enter');
  });
  byId('search-form').addEventListener('submit', (event) => event.preventDefault());
  document.addEventListener('keydown', (event) => {
    if (event.key !== '/' || event.altKey || event.ctrlKey || event.metaKey) return;
    if (event.target.closest('input, textarea')) return;
    event.preventDefault();
    byId('search').focus();
    byId('search').select();
  });

  // ---- The explanation of a route. ----

  const memberText = (member, i) => `${interfaceName(member[0])} (vlan ${member[1]})` +
    (i >= 0 && member[0] === routes.iif[i] ? ', the input of the route' : '');

  // The group by which packets of the route leave.
  const entryGroup = (i) => groups.get(routes.entryGroup[i]) || groups.get(routes.group[i]);
  const names = (list) => list.map(interfaceName).sort().join(' ');
  function sendsByBackup(i) {
    const set = setOf(i), group = entryGroup(i);
    return set.backup && group && group.members && names(group.members.map((member) => member[0])) === names(set.backup);
  }

  const furtherCauses = new Map(data.causes.map((one) => [one.route, one.texts.map(string)]));
  const changes = new Map();
  for (const change of data.history ? data.history.rows : []) {
    if (changes.has(change.route)) changes.get(change.route).push(change);
    else changes.set(change.route, [change]);
  }

  // The worst cause of a route, or the way of its packets.
  function verdict(i) {
    const state = stateOf(i);
    if (routes.headline[i] >= 0) {
      const bad = state === 'offloaded' || state === 'failed';
      return { level: routes.well[i] ? 'good' : bad ? 'bad' : 'warn', text: string(routes.headline[i]) };
    }
    const reason = string(routes.reason[i]) || 'no reason is known';
    return { level: 'warn', text: state === 'trapped' ? `stays with the CPU: ${reason}` : `not in hardware, ${stateText(i)}: ${reason}` };
  }

  function explain(i) {
    const facts = [];
    const add = (term, ...parts) => facts.push(make('dt', {}, term), make('dd', {}, ...parts));
    const items = (texts) => make('ul', {}, ...texts.map((text) => make('li', {}, text)));
    const result = verdict(i), rest = furtherCauses.get(i) || [];
    const set = setOf(i), group = entryGroup(i);
    if (rest.length > 0) add('Also', items(rest));
    add('VRF', string(routes.vrf[i]) || 'none');
    add('State', `${stateText(i)}, since ${point(routes.since[i])}`);
    if (routes.flags[i] & flagAnyInput) add('Input', 'any interface');
    else if (routes.iif[i] < 0) add('Input', 'none');
    else {
      const input = data.interfaces[routes.iif[i]];
      const link = input.up === undefined ? 'link not known' : input.up ? 'link up' : 'link down';
      add('Input', `${input.name}${input.vlan === undefined ? '' : ` (vlan ${input.vlan})`}, ${link}; packets from other interfaces do not match`);
    }
    add('Entry', routes.handle[i] < 0 ? 'none: the packets do not match an entry of this route'
      : `handle ${routes.handle[i]}, ${name(i)}`);
    if (group) {
      add('Replication group', `${group.name}${group.dirty ? ', rewritten by a reroute' : ''}${group.rewriteWaits ? ', waits for its reroute' : ''}` +
        `${group.members ? '' : ', not on the chip'}`);
    } else {
      add('Replication group', 'none');
    }
    if (routes.flags[i] & flagBridged) {
      add('Outputs', 'the vlan in which a packet arrives');
    } else if (group && group.members) {
      const outputs = group.members.map((member) => {
        const up = data.interfaces[member[0]].up;
        return `${memberText(member, i)}: ${up === undefined ? 'link not known' : up ? 'link up, a copy leaves' : 'link down, no copy leaves'}`;
      });
      if (group.cpu) outputs.push('the CPU gets a copy');
      add('Outputs of the group', outputs.length > 0 ? items(outputs) : 'none: packets are dropped');
    }
    const wanted = outputsText(i);
    add('Wanted outputs', wanted || 'none');
    if (set.backup) {
      add('Reroute', `to ${set.backup.map(interfaceName).join(', ')} when ${interfaceName(set.protects)} fails; ` +
        `${sendsByBackup(i) ? 'in force' : group && group.rewriteWaits ? 'waits' : 'ready'}`);
    }
    const shared = routes.group[i] < 0 ? [] : sharers.get(routes.group[i]).filter((other) => other !== i);
    if (shared.length === 0) add('Shares its group with', 'no other route');
    else {
      add('Shares its group with', `${plural(shared.length, 'other route')} `, searchButton('list them', `shared:${routes.group[i]}`));
    }
    if (routes.packets[i] >= 0) {
      add('Counted', `${plural(routes.packets[i], 'packet')}${routes.bytes[i] < 0 ? '' : `, ${plural(routes.bytes[i], 'byte')}`}`);
    }
    add('Last packet', routes.lastHit[i] < 0 ? 'none is known' : `${point(routes.lastHit[i])}, as of the activity poll`);
    if (data.readAt !== undefined) add('Tables read', point(data.readAt));
    if (changes.has(i)) {
      add('Latest changes', make('ol', {}, ...changes.get(i).map((change) => make('li', {}, `${point(change.at)}: ${change.text}${change.doneAt === undefined ? '' : `, complete at ${point(change.doneAt)}`}`))));
    } else if (data.history) {
      add('Latest changes', `not kept: the page has the latest changes of ${plural(changes.size, 'route')}`);
    }
    byId('explanation').replaceChildren(make('h3', {}, name(i)),
      make('p', { class: `verdict ${result.level}` }, result.text), make('dl', { class: 'facts' }, ...facts));
    byId('explanation').scrollTop = 0;
    byId('explanation').dataset.route = name(i);
  }

  // ---- The sections. ----

  function head() {
    byId('title').textContent = data.title || { capture: 'Replay of captures', scenario: 'Scenario', live: 'Live agent' }[data.kind];
    document.title = `${byId('title').textContent} - velmroute report`;
    const words = { passed: ['good', 'Passed'], failed: ['bad', 'Failed'], interrupted: ['warn', 'Interrupted before the end of the input'], running: ['good', 'Running'] };
    const [level, text] = words[data.result];
    const notes = data.notes.length + data.droppedNotes;
    byId('result').className = level;
    byId('result').textContent = text + (notes > 0 ? `, with ${plural(notes, 'finding')}` : '');
    byId('notes').append(...data.notes.map((note) => make('li', {}, note)));
    if (data.droppedNotes > 0) byId('notes').append(make('li', {}, `and ${count(data.droppedNotes)} more`));
    const facts = byId('facts');
    const add = (term, value) => facts.append(make('dt', {}, term), make('dd', {}, value));
    add('Kind', { capture: 'captures, replayed on a simulated switch', scenario: 'scenario, played in virtual time', live: 'live agent' }[data.kind]);
    if (data.inputs.length > 0) add(data.kind === 'live' ? 'Switch' : 'Input', data.inputs.join(', '));
    add('Time span', data.epoch === undefined ? `0 s to ${point(data.endedAt)}` : `${point(0)} to ${point(data.endedAt)}`);
    const check = data.summary && data.summary.check;
    if (check) {
      add('Check', check.leftOut ? `left out: ${check.leftOut}`
        : `${plural(check.routes, 'route')} compared with the input, ${plural(check.differences.length, 'difference')}`);
    }
    const scenario = data.summary && data.summary.scenario;
    if (scenario) add('Expectations', `${plural(scenario.expectations, 'line')}, ${plural(scenario.failures.length, 'failure')}`);
    byId('made').textContent = `velmroute report, made at ${point(data.endedAt)}${data.epoch === undefined ? ' of the run' : ''}. The page fetches nothing.`;
  }

  const byState = new Map();
  for (let i = 0; i < total; ++i) byState.set(stateOf(i), (byState.get(stateOf(i)) || 0) + 1);

  const latest = (series) => (series && series.values.length > 0 ? series.values[series.values.length - 1] : 0);

  function overview() {
    const tile = (value, label) => byId('tiles').append(make('li', {}, make('b', {}, count(value)), make('span', {}, label)));
    tile(total + data.routesLeftOut, 'routes');
    for (const state of ['offloaded', 'pending', 'waiting', 'failed', 'trapped']) {
      if (byState.has(state)) tile(byState.get(state), state);
    }
    tile(sharers.size, 'groups in use');
    if (sharers.size > 0) {
      let sharing = 0;
      for (const list of sharers.values()) sharing += list.length;
      tile(Math.round((sharing / sharers.size) * 100) / 100, 'routes per group');
    }
    if (data.series) {
      tile(latest(data.series.zombies), 'zombies at the end');
      tile(latest(data.series.resurrections), 'resurrections');
    }
    if (data.reroutes) tile(data.reroutes.rows.length + data.reroutes.dropped, 'reroutes');
    if (data.outages && data.outages.packets > 0) tile(data.outages.packets, 'packets sent');
    if (data.routesLeftOut > 0) {
      byId('overview').append(make('p', { class: 'warn' }, `${plural(data.routesLeftOut, 'route')} did not fit into the page.`));
    }
  }

  function problems() {
    const kinds = new Map();
    for (let i = 0; i < total; ++i) {
      if (stateOf(i) === 'offloaded') continue;
      const key = `${stateText(i)}\n${string(routes.reason[i])}`;
      const kind = kinds.get(key);
      if (!kind) kinds.set(key, { state: stateText(i), reason: string(routes.reason[i]), count: 1, first: [i] });
      else if (++kind.count <= 5) kind.first.push(i);
    }
    if (kinds.size === 0) return;
    const sorted = [...kinds.values()].sort((a, b) => b.count - a.count);
    const shown = sorted.slice(0, 40);
    const rowsOf = shown.map((kind) => [kind.state, count(kind.count), kind.reason || '-',
      make('span', {}, ...kind.first.flatMap((i) => [routeButton(i), ' ']), kind.count > 5 ? `and ${count(kind.count - 5)} more` : '')]);
    section('problems', table('Routes by state and reason', ['State', '#Routes', 'Reason', 'First routes'], rowsOf),
      sorted.length > shown.length ? make('p', {}, `and ${plural(sorted.length - shown.length, 'further reason')}`) : null);
  }

  function tables() {
    const series = data.series;
    if (!series) return;
    const named = (title, one) => ({ name: title, times: one.times, values: one.values });
    section('tables',
      lineChart('Replication groups', [named('groups on the chip', series.groups), named('zombies', series.zombies)], series.groups.size),
      lineChart('Route entries', [named('entries on the chip', series.entries), named('wanted routes', series.routes)], series.entries.size),
      lineChart('Waiting', [named('routes that wait for room', series.waiting), named('sets that wait for a reroute', series.rerouting)]),
      series.boundaries.values.some((value) => value > 0)
        ? lineChart('Boundary entries', [named('boundaries on the chip', series.boundaries)], series.boundaries.size) : null);
  }

  function sharing() {
    if (sharers.size === 0) return;
    const bins = [];
    for (const members of sharers.values()) {
      const bin = Math.ceil(Math.log2(members.length));
      bins[bin] = (bins[bin] || 0) + 1;
    }
    const bars = Array.from(bins, (value, bin) => {
      const low = bin === 0 ? 1 : 2 ** (bin - 1) + 1, high = 2 ** bin;
      return { name: low === high ? `${low}` : `${count(low)}-${count(high)}`, value: value || 0 };
    });
    const most = [...sharers].sort((a, b) => b[1].length - a[1].length || a[0] - b[0]).slice(0, 10);
    section('sharing',
      make('div', {}, barChart('Groups by routes per group', `${plural(sharers.size, 'group')} in use; the bars count groups`, bars, count),
        lazyTable('Groups by routes per group', ['Routes per group', '#Groups'], () => bars.map((bar) => [bar.name, count(bar.value)]))),
      table('The most shared groups', ['#Group', '#Routes', 'Outputs', ''], most.map(([group, members]) =>
        [groups.has(group) ? groups.get(group).name : String(group), count(members.length), outputsText(members[0]) || 'none',
          searchButton('list', `shared:${group}`)])));
  }

  function zombies() {
    if (!data.series) return;
    const series = data.series, ended = Object.entries(data.zombies.ended);
    if (data.zombies.begun === 0 && latest(series.resurrections) === 0) return;
    const named = (title, one) => ({ name: title, times: one.times, values: one.values });
    section('zombies',
      lineChart('Zombies and their ends', [named('zombies', series.zombies), named('resurrections so far', series.resurrections),
        named('purged for room so far', series.purges)]),
      table(`${plural(data.zombies.begun, 'zombie')}, by outcome`, ['Outcome', '#Zombies'],
        ended.map(([outcome, number]) => [outcome, count(number)])));
  }

  function reroutes() {
    if (!data.reroutes || data.reroutes.rows.length === 0) return;
    const rowsOf = data.reroutes.rows;
    const recent = rowsOf.filter((row) => row.seconds !== undefined).slice(-60);
    const until = data.reroutes.until === 'hardware' ? 'its last group has the backup on the chip'
      : 'the last group is passed to the switch';
    section('reroutes',
      barChart('Durations of reroutes', `From the event until ${until}`,
        recent.map((row) => ({ name: row.cause, value: row.seconds })), duration),
      table(`${plural(rowsOf.length, 'reroute')}${data.reroutes.dropped ? `, ${count(data.reroutes.dropped)} earlier ones are not kept` : ''}`,
        ['#At', 'Event', '#Sets', '#Duration'], rowsOf.map((row) => [point(row.at), row.cause, count(row.sets),
          row.seconds === undefined ? `not complete: ${count(row.open)} left` : duration(row.seconds)])));
  }

  function outages() {
    const all = data.outages;
    if (!all || all.packets === 0) return;
    const bars = all.receivers.filter((one) => one.outages > 0).sort((a, b) => b.longestSeconds - a.longestSeconds).slice(0, 30)
      .map((one) => ({ name: one.oif, value: one.longestSeconds, open: one.open }));
    const extra = (all.unwanted ? ` ${plural(all.unwanted, 'packet')} had no route.` : '') +
      (all.untracked ? ` ${plural(all.untracked, 'packet')} of further streams are not measured.` : '');
    section('outages',
      bars.length > 0 ? barChart('Longest outage of each receiver', 'From the first lost packet of a stream to its next packet', bars, duration) : null,
      make('div', {},
        table(`Receivers of ${plural(all.packets, 'packet')}.${extra}`, ['Receiver', '#Packets', '#Lost', '#Outages', '#Longest', '#Sum of all streams'],
          all.receivers.map((one) => [one.oif, count(one.packets), count(one.lost), count(one.outages),
            one.outages ? `${duration(one.longestSeconds)}${one.open ? ', open' : ''}` : '-', one.outages ? duration(one.totalSeconds) : '-'])),
        all.longest.length > 0 ? lazyTable('The longest outages', ['Stream', 'VRF', 'Receiver', '#At', '#Duration', '#Lost packets'],
          () => all.longest.map((one) => [one.route, one.vrf, one.oif, point(one.at), `${duration(one.seconds)}${one.open ? ', open' : ''}`, count(one.lost)])) : null));
  }

  function events() {
    if (!data.events || data.events.rows.length === 0) return;
    section('events', data.events.dropped > 0 ? make('p', {}, `${plural(data.events.dropped, 'earlier event')} are not kept.`) : null,
      table('Links, BFD sessions, faults, restarts and marks', ['#At', 'Event'], data.events.rows.map((row) => [point(row.at), row.text])));
  }

  head();
  overview();
  problems();
  tables();
  sharing();
  zombies();
  reroutes();
  outages();
  events();
  for (const one of document.querySelectorAll('main > section:not([hidden])')) {
    byId('sections').append(make('li', {}, make('a', { href: `#${one.id}` }, one.querySelector('h2').textContent)));
  }
  setSearch('');
  document.documentElement.dataset.ready = 'true';
})();
