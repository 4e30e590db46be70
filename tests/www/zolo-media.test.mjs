// The console's client module against a fake socket: handshake, requests, batches, timeouts,
// authentication and reconnection, driven by hand-cranked timers.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { MediaClient, RequestError, TIMEOUT, DISCONNECTED, authenticationAnswer, sha256 }
  from '../../www/zolo-media.js';

class FakeSocket {
  static all = [];
  constructor(url) { this.url = url; this.sent = []; this.closed = false; FakeSocket.all.push(this); }
  send(text) { this.sent.push(JSON.parse(text)); }
  close() { this.closed = true; }
  serverSends(op, d) { this.onmessage({ data: JSON.stringify({ op, d }) }); }
  serverCloses(code, reason = '') { this.onclose({ code, reason }); }
  last() { return this.sent[this.sent.length - 1]; }
}

// Timers that run only when the test says so.
function manualTimers() {
  const timers = new Map();
  let next = 1;
  return {
    setTimeout: (f, ms) => { timers.set(next, { f, ms }); return next++; },
    clearTimeout: (id) => timers.delete(id),
    delays: () => [...timers.values()].map((t) => t.ms),
    fire: () => { const all = [...timers.values()]; timers.clear(); all.forEach((t) => t.f()); },
  };
}

const tick = () => new Promise((resolve) => setImmediate(resolve));
// Waits until `socket` has sent something (the client hashes on another thread first).
async function sentBy(socket) {
  for (let i = 0; i < 200 && socket.sent.length === 0; i++) await new Promise((r) => setTimeout(r, 5));
  return socket.last();
}
const base64Sha = (text) => createHash('sha256').update(text).digest('base64');

function connected(options = {}) {
  FakeSocket.all = [];
  const timers = manualTimers();
  const client = new MediaClient({ url: 'ws://test/ws', WebSocket: FakeSocket, ...timers, ...options });
  client.connect();
  return { client, timers, socket: FakeSocket.all[0] };
}

// The gateway's side of a handshake without a password: Hello, then Identified.
async function handshake(socket) {
  socket.serverSends(0, { protocolVersion: 1 });
  await tick();
  socket.serverSends(2, { negotiatedProtocolVersion: 1 });
  return socket;
}

async function ready(options) {
  const c = connected(options);
  await handshake(c.socket);
  return c;
}

// Lets the reconnection timer fire and completes the handshake of the new socket.
async function reconnected(timers) {
  timers.fire();
  return handshake(FakeSocket.all[FakeSocket.all.length - 1]);
}

test('the fallback SHA-256 and the answer match node crypto', async () => {
  for (const text of ['', 'abc', 'x'.repeat(55), 'y'.repeat(64), 'ünïcödé'.repeat(40)]) {
    const bytes = new TextEncoder().encode(text);
    assert.equal(Buffer.from(sha256(bytes)).toString('base64'), base64Sha(bytes));
  }
  const secret = base64Sha('pw' + 'salt');
  assert.equal(await authenticationAnswer('pw', 'salt', 'chal'), base64Sha(secret + 'chal'));
});

test('identifies with subscriptions, then answers requests by id', async () => {
  const subscriptions = { events: ['audio_level'], rates: { audio_level: 30 } };
  const { client, socket } = await ready({ subscriptions });
  assert.deepEqual(socket.sent[0], { op: 1, d: { protocolVersion: 1, subscriptions } });
  assert.equal(client.state, 'ready');

  const first = client.request('get_state');
  const second = client.request('get_channel', { id: 9 });
  const [a, b] = socket.sent.slice(1).map((m) => m.d);
  assert.deepEqual(b.requestData, { id: 9 });
  // Answers in the other order still reach their own caller.
  socket.serverSends(7, { requestId: b.requestId, requestStatus: { result: false, code: -5, comment: 'not found' } });
  socket.serverSends(7, { requestId: a.requestId, requestStatus: { result: true, code: 1, comment: 'success' },
    responseData: { state: 1 } });
  assert.deepEqual(await first, { code: 1, comment: 'success', data: { state: 1 } });
  await assert.rejects(second, (e) => e instanceof RequestError && e.code === -5 && e.comment === 'not found');
});

test('a batch resolves with one result per request, in order', async () => {
  const { client, socket } = await ready();
  const answer = client.batch([['get_state'], ['start', { persist: false }]], { haltOnFailure: true });
  const d = socket.last().d;
  assert.equal(socket.last().op, 8);
  assert.equal(d.haltOnFailure, true);
  assert.deepEqual(d.requests.map((r) => r.requestType), ['get_state', 'start']);
  socket.serverSends(9, { requestId: d.requestId, results: [
    { requestStatus: { result: true, code: 1, comment: 'success' }, responseData: { state: 1 } },
    { requestStatus: { result: false, code: -105, comment: 'not run' } }] });
  const results = await answer;
  assert.deepEqual(results.map((r) => [r.ok, r.code]), [[true, 1], [false, -105]]);
});

test('a request without an answer times out and marks the engine lost until one comes', async () => {
  const { client, socket, timers } = await ready({ requestTimeout: 100 });
  const engine = [];
  client.addEventListener('engine', (e) => engine.push(e.detail.engine));
  const late = client.request('get_state');
  timers.fire();
  await assert.rejects(late, (e) => e.code === TIMEOUT);
  assert.equal(client.engine, 'lost');
  const next = client.request('get_state');
  socket.serverSends(7, { requestId: socket.last().d.requestId, requestStatus: { result: true, code: 1 } });
  await next;
  socket.serverSends(5, { eventType: 'engine_lost', eventData: {} });
  socket.serverSends(5, { eventType: 'engine_restored', eventData: {} });
  assert.deepEqual(engine, ['lost', 'answering', 'lost', 'answering']);
});

test('events reach listeners of their type and of all events', async () => {
  const { client, socket } = await ready();
  const layouts = [];
  const all = [];
  const stop = client.on('video_layout', (data) => layouts.push(data.id));
  client.addEventListener('event', (e) => all.push(e.detail.type));
  socket.serverSends(5, { eventType: 'video_layout', eventData: { id: 3 } });
  socket.serverSends(5, { eventType: 'audio_level', eventData: { name: 'x' } });
  stop();
  socket.serverSends(5, { eventType: 'video_layout', eventData: { id: 4 } });
  assert.deepEqual(layouts, [3]);
  assert.deepEqual(all, ['video_layout', 'audio_level', 'video_layout']);
});

test('a closed connection fails pending requests and reconnects with growing backoff', async () => {
  const { client, socket, timers } = await ready();
  const pending = client.request('get_state');
  socket.serverCloses(1006);
  await assert.rejects(pending, (e) => e.code === DISCONNECTED);
  assert.equal(client.state, 'offline');
  await assert.rejects(client.request('get_state'), (e) => e.code === DISCONNECTED);
  const delays = [];
  for (let i = 0; i < 6; i++) {
    delays.push(...timers.delays());
    timers.fire();
    FakeSocket.all[FakeSocket.all.length - 1].serverCloses(1006);
  }
  assert.deepEqual(delays, [500, 1000, 2000, 4000, 8000, 10000]);
  const again = await reconnected(timers);
  assert.equal(client.state, 'ready');
  client.subscribe({ events: ['recordings'] });
  assert.deepEqual(again.last(), { op: 3, d: { subscriptions: { events: ['recordings'] } } });
  client.close();
  assert.equal(timers.delays().length, 0);
});

test('a wrong password is asked again; the right one is kept for reconnects', async () => {
  const asked = [];
  const answers = ['wrong', 'right'];
  const { client, socket, timers } = connected({
    password: async (why) => { asked.push(why); return answers.shift(); } });
  const hello = { protocolVersion: 1, authentication: { challenge: 'c1', salt: 's' } };
  socket.serverSends(0, hello);
  assert.equal((await sentBy(socket)).d.authentication, await authenticationAnswer('wrong', 's', 'c1'));
  socket.serverCloses(4008, 'authentication failed');
  assert.equal(client.state, 'auth-failed');
  timers.fire();
  const second = FakeSocket.all[1];
  second.serverSends(0, { ...hello, authentication: { challenge: 'c2', salt: 's' } });
  assert.equal((await sentBy(second)).d.authentication, await authenticationAnswer('right', 's', 'c2'));
  second.serverSends(2, {});
  second.serverCloses(1001);
  timers.fire();
  FakeSocket.all[2].serverSends(0, { ...hello, authentication: { challenge: 'c3', salt: 's' } });
  assert.equal((await sentBy(FakeSocket.all[2])).d.authentication, await authenticationAnswer('right', 's', 'c3'));
  assert.deepEqual(asked, [undefined, 'wrong-password']);
});

test('the gateway\'s engine_lost holds until engine_restored, whatever else answers', async () => {
  const { client, socket } = await ready();
  socket.serverSends(5, { eventType: 'engine_lost', eventData: {} });
  // Requests that need no engine (recordings, settings) still get answers meanwhile.
  const listing = client.request('get_recording_count');
  socket.serverSends(7, { requestId: socket.last().d.requestId, requestStatus: { result: true, code: 0 } });
  await listing;
  assert.equal(client.engine, 'lost');
  socket.serverSends(5, { eventType: 'engine_restored', eventData: {} });
  assert.equal(client.engine, 'answering');
});

test('requests cut off by a closed connection are not sent again after reconnecting', async () => {
  const { client, socket, timers } = await ready();
  const search = client.request('get_recording', { name: 'generated', page: 0, count: 100 });
  socket.serverSends(5, { eventType: 'engine_lost', eventData: {} });
  socket.serverCloses(1006);
  await assert.rejects(search, (e) => e.code === DISCONNECTED);
  const again = await reconnected(timers);
  assert.equal(client.state, 'ready');
  assert.equal(client.engine, 'answering', 'a new connection starts from the gateway\'s view');
  assert.deepEqual(again.sent.map((m) => m.op), [1], 'only Identify on the new connection');
});
