// Shows what /status.json tells, once a second. All that it knows is in the answers: the program
// keeps the last minutes, so that a page opened later has its past.
'use strict';

const period = 1000;
const kept = 600; // samples, and events
const shown = { least: 60, most: 300 }; // seconds in the charts
const colours = 4;

const one = (selector) => document.querySelector(selector);
const style = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
const colour = (client) => style(`--series-${client % colours}`);
const time = (seconds) => new Date(seconds * 1000).toLocaleTimeString([], { hourCycle: 'h23' });
const bitRate = (bits) =>
  bits >= 1e6 ? `${(bits / 1e6).toFixed(2)} Mbit/s` : `${(bits / 1e3).toFixed(0)} kbit/s`;

function duration(seconds) {
  const two = (number) => String(Math.floor(number)).padStart(2, '0');
  return `${Math.floor(seconds / 3600)}:${two((seconds / 60) % 60)}:${two(seconds % 60)}`;
}

// An element with text and class.
function made(tag, text = '', name = '') {
  const element = document.createElement(tag);
  element.textContent = text;
  element.className = name;
  return element;
}

// The colour that a client has everywhere.
function key(client) {
  const square = made('span', '', 'key');
  square.style.background = colour(client);
  return square;
}

// What is drawn of each client, from a sample and the one before.
const charts = [
  { title: 'Bit rate', unit: 'Mbit/s', value: (now, before, s) => ((now.acknowledged - before.acknowledged) * 8) / s / 1e6 },
  { title: 'Lag', unit: 's', value: (now) => now.lag / 1e3 },
  { title: 'Frames/s', unit: '', value: (now, before, s) => (now.video - before.video) / s },
  { title: 'Quality', unit: '1 while pictures are missing', value: (now) => now.quality, range: [0, 1.15], ticks: [0, 1] },
];

let status = { start: null, next: 0, clients: [], samples: [], events: [] };

function columns(chart) {
  const { samples, clients } = status;
  const values = [samples.slice(1).map((sample) => sample.time)];
  clients.forEach((_, client) => {
    values.push(samples.slice(1).map((sample, i) =>
      chart.value(sample.clients[client], samples[i].clients[client], sample.time - samples[i].time)));
  });
  return values;
}

function drawChart(chart) {
  const width = chart.place.clientWidth;
  const quiet = style('--quiet');
  const grid = { stroke: style('--line'), width: 1 };
  const font = `12px ${getComputedStyle(document.body).fontFamily}`;
  const axis = { stroke: quiet, grid, ticks: grid, font };
  chart.plot?.destroy();
  chart.plot = new uPlot({
    width, height: 190, legend: { show: false }, cursor: { drag: { x: false, y: false } },
    scales: {
      x: { range: () => {
        const now = status.samples.at(-1)?.time ?? Date.now() / 1000;
        const past = now - (status.samples[0]?.time ?? now);
        return [now - Math.min(Math.max(past, shown.least), shown.most), now];
      } },
      y: { range: (_, low, high) => chart.range ?? [0, Math.max(1, (high ?? 0) * 1.15)] },
    },
    axes: [{ ...axis, size: 32, space: 80, values: (_, ticks) => ticks.map(time) }, { ...axis, size: 44, splits: chart.ticks && (() => chart.ticks) }],
    series: [{}, ...status.clients.map((_, client) => ({
      stroke: colour(client), width: 1.75, points: { show: false },
      fill: status.clients.length === 1 ? `${colour(client)}22` : undefined,
    }))],
  }, columns(chart), chart.place);
}

function makeCharts() {
  one('#charts').replaceChildren(...charts.map((chart) => {
    const panel = made('div');
    const title = made('h2', `${chart.title} `);
    title.append(made('span', chart.unit));
    chart.place = made('div');
    panel.append(title, chart.place);
    return panel;
  }));
  charts.forEach(drawChart);
}

function showClients() {
  const samples = status.samples;
  const now = samples.at(-1);
  // Over some seconds, as the program's own status line does.
  const before = samples.at(-4) ?? samples[0];
  const seconds = now ? now.time - before.time : 0;
  const rate = (client, name) => seconds > 0 ?
    (now.clients[client][name] - before.clients[client][name]) / seconds : 0;
  one('#clients tbody').replaceChildren(...status.clients.map((url, client) => {
    const row = made('tr');
    const name = made('td', url);
    name.prepend(key(client));
    const figures = now?.clients[client];
    const state = made('td', figures?.connected ? 'connected' : 'not connected',
      figures?.connected ? 'good' : 'bad');
    row.append(name, state, ...(figures ? [
      bitRate(rate(client, 'acknowledged') * 8), `${(figures.lag / 1e3).toFixed(1)} s`, rate(client, 'video').toFixed(1),
      figures.video, figures.audio, figures.quality, figures.reconnections] : [])
      .map((value) => made('td', String(value))));
    return row;
  }));
}

function showEvents(events) {
  const list = one('#events ol');
  const atEnd = list.scrollHeight - list.scrollTop - list.clientHeight < 30;
  for (const event of events) {
    const line = made('li');
    const kind = /fail|disconnected/.test(event.message) ? 'bad' : 'good';
    const url = status.clients[event.client];
    const client = made('span', url.replace(/^\w+:\/\/[^/]*\//, ''), 'client');
    client.title = url;
    client.prepend(key(event.client));
    line.append(made('time', time(event.time)), made('span', event.message, `message ${kind}`), client);
    list.append(line);
  }
  while (list.children.length > kept) list.firstChild.remove();
  if (atEnd) list.scrollTop = list.scrollHeight;
}

function showState() {
  const now = status.samples.at(-1);
  const connected = now ? now.clients.filter((client) => client.connected).length : 0;
  const state = one('#state');
  const all = connected === status.clients.length;
  state.textContent = !now ? 'starting' : all ? 'publishing' :
    `${connected} of ${status.clients.length} connected`;
  state.className = `badge ${!now ? '' : all ? 'good' : 'bad'}`;
  one('#running').textContent = now ? `for ${duration(now.time - status.start)}` : '';
}

// Plays the playlist as soon as there is one, and again when it has come back.
function play(url) {
  const video = one('video');
  one('#picture').hidden = false;
  const start = () => {
    const hls = new Hls({ enableWorker: false, liveSyncDurationCount: 2 });
    hls.on(Hls.Events.ERROR, (_, error) => {
      if (!error.fatal) return;
      hls.destroy();
      setTimeout(start, period);
    });
    hls.on(Hls.Events.LEVEL_UPDATED, () => {
      one('#delay').textContent = hls.latency ? `${hls.latency.toFixed(0)} s ago` : '';
    });
    hls.loadSource(url);
    hls.attachMedia(video);
  };
  start();
}

function take(answer) {
  const fresh = answer.start !== status.start;
  if (fresh && status.start !== null) {
    location.reload(); // another program has taken the place of the first
    return;
  }
  status = { ...answer, samples: [...status.samples, ...answer.samples].slice(-kept) };
  if (fresh) {
    makeCharts();
    if (answer.picture) play(answer.picture);
  }
  for (const chart of charts) chart.plot.setData(columns(chart));
  showClients();
  showEvents(answer.events);
  showState();
}

async function poll() {
  try {
    const answer = await fetch(`/status.json?since=${status.next}`);
    take(await answer.json());
  } catch (error) {
    if (!(error instanceof TypeError)) throw error; // fetch's own: nobody answers
    one('#state').textContent = 'the program has ended';
    one('#state').className = 'badge bad';
  } finally {
    setTimeout(poll, period);
  }
}

const redraw = () => status.start !== null && (charts.forEach(drawChart), showClients());
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', redraw);
addEventListener('resize', redraw);
poll();
