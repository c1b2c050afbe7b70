// Publishes to a server of its own and looks at the monitor's page in headless Chromium.
//   node PageTest.js NODE-MODULES NIMBO-HOST SCREENSHOT-FOLDER CHROMIUM
// The environment variable SAMPLES says how many seconds the screenshot shall show.
'use strict';

const assert = require('node:assert');
const { execFileSync, spawn, spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const readline = require('node:readline');

const [modules, host, screenshots, executablePath] = process.argv.slice(2);
const { chromium } = require(path.join(modules, 'playwright-core'));
const root = path.join(__dirname, '../../..');
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'monitor-'));
const samples = Number(process.env.SAMPLES ?? 15);
const children = [];

function start(program, ...options) {
  const child = spawn(program, options, { stdio: ['ignore', 'pipe', 'pipe'] });
  children.push(child);
  child.ended = new Promise((resolve) => child.on('exit', resolve));
  child.told = '';
  child.stderr.on('data', (text) => { child.told += text; });
  return child;
}

async function startServer() {
  const server = start(`${root}/tools/ingest-server`, path.join(folder, 'server'), '--hls', '--no-record');
  const lines = [];
  for await (const line of readline.createInterface({ input: server.stdout })) lines.push(line);
  assert.equal(lines.length, 2, `the server said: ${server.told}`);
  return lines;
}

const killServer = () =>
  process.kill(Number(fs.readFileSync(path.join(folder, 'server/nginx.pid'), 'utf8')), 'SIGKILL');

// Pictures are shown and time goes on, from where both are now.
async function waitForPicture(page) {
  const look = () => page.evaluate(() => {
    const video = document.querySelector('video');
    return { time: video.currentTime, frames: video.getVideoPlaybackQuality().totalVideoFrames };
  });
  const { time, frames } = await look();
  await page.waitForFunction(([since, shown]) => {
    const video = document.querySelector('video');
    return video.currentTime > since + 1 && video.getVideoPlaybackQuality().totalVideoFrames > shown + 15;
  }, [time, frames]);
}

// An event may say more behind the name of its message, as the count of an outage.
const waitForEvent = (page, message) => page.waitForFunction((name) =>
  [...document.querySelectorAll('#events .message')].some((line) => line.textContent.split(' ')[0] === name), message);

function checkPort(address) {
  const port = new URL(address).port;
  const second = spawnSync(host, ['publish', 'test:', 'rtmp://127.0.0.1:1/a/b', '--monitor', port], { encoding: 'utf8' });
  assert.equal(second.status, 1);
  assert.match(second.stderr, new RegExp(`^[^\n]*127.0.0.1:${port}: Address already in use[^\n]*\n$`));
}

async function checkMetrics(address) {
  const answer = await fetch(`${address}metrics`);
  const text = await answer.text();
  assert.equal(answer.headers.get('content-type'), 'text/plain; version=0.0.4; charset=utf-8');
  const line = /^(# (HELP|TYPE) \w+ .+|\w+(\{(\w+="([^"\\\n]|\\["\\n])*",?)+\})? [\d.]+)$/;
  for (const told of text.trimEnd().split('\n')) assert.match(told, line);
  assert.match(text, /^nimbo_publish_reconnections_total\{.*live\/camera"\} 1$/m);
}

// What other subcommands show, for the documents.
async function takeOthers(page) {
  await page.setViewportSize({ width: 1800, height: 600 });
  const drawing = path.join(folder, 'graph.svg');
  execFileSync(host, ['graph', '-o', drawing,
    'shm-source:connect={pv:h264-0}+RingSink+rtmp-client:link=all,url=rtmp://server/live/s'], { stdio: 'ignore' });
  const said = `$ nimbo-host inspect rtmp-client\n${execFileSync(host, ['inspect', 'rtmp-client'], { encoding: 'utf8' })}`;
  const shown = { inspect: '<pre></pre>', graph: fs.readFileSync(drawing, 'utf8').replace(/^[^]*?(?=<svg)/, '') };
  for (const [name, content] of Object.entries(shown)) {
    await page.setContent(`<!DOCTYPE html><style>pre { width: max-content; margin: 0; padding: 1.2rem 1.6rem; font: 15px/1.45 monospace; color: #dfe4ea; background: #1b2027 }</style>${content}`);
    await page.evaluate((text) => document.querySelector('pre')?.append(text), said);
    await page.locator('pre, svg').screenshot({ path: path.join(screenshots, `${name}.png`) });
  }
}

async function test() {
  const [address, playlists] = await startServer();
  const publisher = start(host, 'publish', 'test:', `${address}/camera?token=secret`, '--monitor', '0',
    '--picture', `${playlists}/camera.m3u8`);
  const monitor = await new Promise((resolve, reject) => {
    publisher.stderr.on('data', () => {
      const found = publisher.told.match(/^monitor: (\S+)$/m);
      if (found) resolve(found[1]);
    });
    publisher.ended.then(() => reject(new Error(publisher.told)));
  });
  publisher.stdout.resume();

  const browser = await chromium.launchPersistentContext(path.join(folder, 'browser'), {
    executablePath, headless: true, viewport: { width: 1200, height: 860 },
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync'] });
  children.push({ kill: () => browser.close() });
  const page = browser.pages()[0];
  const faults = [];
  page.on('pageerror', (fault) => faults.push(fault));
  page.setDefaultTimeout((60 + samples) * 1000);
  await page.goto(monitor);
  await waitForPicture(page);
  // What the charts draw: more and more, and not nothing.
  await page.waitForFunction((count) => charts.every((chart) => chart.plot.data[0].length >= count), samples);
  const [rates, lags, frames] = await page.evaluate(() => charts.map((chart) => chart.plot.data[1]));
  const drawn = `${rates} | ${lags} | ${frames}`;
  assert(rates.every((rate) => rate > 0) && lags.every((lag) => lag >= 0) && frames.every((rate) => rate > 0), drawn);

  killServer();
  await waitForEvent(page, 'rtmp_reconnect_fail');
  await startServer();
  await waitForEvent(page, 'rtmp_reconnect_success');
  await waitForPicture(page);
  const messages = (await page.locator('#events .message').allTextContents()).map((text) => text.split(' ')[0]);
  const course = messages.slice(messages.indexOf('rtmp_send_data_fail'), messages.indexOf('rtmp_reconnect_success') + 1);
  assert.deepEqual([...new Set(course)], ['rtmp_send_data_fail', 'rtmp_reconnect_fail', 'rtmp_reconnect_success']);
  const length = await page.evaluate(() => status.samples.length);
  await page.waitForFunction((count) => status.samples.length > count, length + samples / 2);

  fs.mkdirSync(screenshots, { recursive: true });
  await page.screenshot({ path: path.join(screenshots, 'monitor.png'), fullPage: true });
  assert(!(await page.content()).includes('secret'));
  checkPort(monitor);
  await checkMetrics(monitor);
  assert.deepEqual(faults, []);
  await takeOthers(await browser.newPage());
  publisher.kill();
  await publisher.ended;
}

test().catch((fault) => {
  console.error(fault);
  process.exitCode = 1;
}).finally(async () => {
  for (const child of children.reverse()) await child.kill();
  await Promise.all(children.map((child) => child.ended));
  fs.rmSync(folder, { recursive: true, force: true });
});
