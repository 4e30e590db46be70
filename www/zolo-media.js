// zolo-media.js: a client of the media gateway's WebSocket protocol (version 1), for any
// front end: the console page, a control panel, a script in a browser or in node.
//
//   import { MediaClient } from './zolo-media.js';
//   const client = new MediaClient({
//     url: 'ws://127.0.0.1:4480/ws',          // default: /ws of the page's own host
//     password: async () => prompt('Password'), // asked only when the gateway wants one
//     subscriptions: { events: ['streams', 'audio_level'], rates: { audio_level: 30 } },
//   });
//   client.addEventListener('state', () => console.log(client.state));
//   client.on('video_layout', (data) => ...);        // one event type
//   client.addEventListener('event', (e) => ...);    // every event: e.detail = {type, data}
//   client.connect();
//   const { data } = await client.request('get_channel', { id: 0 });
//   const results = await client.batch([['get_state'], ['get_layout', { id: 0 }]]);
//
// request() resolves with {code, comment, data} when the library call succeeded and rejects
// with a RequestError (code, comment: the library's result text) when it failed, when the
// gateway refused it, or when no answer came within the timeout (code TIMEOUT).
//
// `state` is one of: 'offline', 'connecting', 'authenticating', 'ready', 'auth-failed'.
// `engine` is 'answering' or 'lost': lost on the gateway's engine_lost event until its
// engine_restored, or on a request that timed out until the next answer. After the connection
// closes the client reconnects by itself with backoff (0.5 s doubling to 10 s), and sends the
// subscriptions again, until close() is called. Requests cut off by a closed connection fail
// with DISCONNECTED and are never sent again: repeating one is the caller's decision.
// `hello` is the gateway's last Hello (its versions and, when it tells it, `timeZone`).

export const PROTOCOL_VERSION = 1;
export const TIMEOUT = -1000;  // code of a request that got no answer in time
export const DISCONNECTED = -1001;  // code of a request cut off by a closed connection

const OP = {
  HELLO: 0, IDENTIFY: 1, IDENTIFIED: 2, REIDENTIFY: 3, EVENT: 5,
  REQUEST: 6, RESPONSE: 7, BATCH: 8, BATCH_RESPONSE: 9,
};
const CLOSE_AUTH_FAILED = 4008;
const CLOSE_LOCKED_OUT = 4014;

export class RequestError extends Error {
  constructor(requestType, code, comment) {
    super(`${requestType}: ${comment} (${code})`);
    this.requestType = requestType;
    this.code = code;
    this.comment = comment;
  }
}

// SHA-256 of `bytes` (Uint8Array) as base64. WebCrypto where the page may use it (https or
// the loopback address); elsewhere (plain http on the network) browsers hide crypto.subtle,
// so a small implementation stands in.
export async function sha256Base64(bytes) {
  const subtle = globalThis.crypto && globalThis.crypto.subtle;
  const digest = subtle ? new Uint8Array(await subtle.digest('SHA-256', bytes)) : sha256(bytes);
  let text = '';
  for (const b of digest) text += String.fromCharCode(b);
  return btoa(text);
}

// The Identify answer: base64(sha256(base64(sha256(password + salt)) + challenge)).
export async function authenticationAnswer(password, salt, challenge) {
  const utf8 = (text) => new TextEncoder().encode(text);
  const secret = await sha256Base64(utf8(password + salt));
  return sha256Base64(utf8(secret + challenge));
}

export class MediaClient extends EventTarget {
  constructor(options = {}) {
    super();
    this.url = options.url || defaultUrl();
    this.passwordProvider = options.password || null;
    this.subscriptions = options.subscriptions || null;
    this.requestTimeout = options.requestTimeout || 8000;
    this.WebSocket = options.WebSocket || globalThis.WebSocket;
    this.setTimer = options.setTimeout || ((f, ms) => setTimeout(f, ms));
    this.clearTimer = options.clearTimeout || ((t) => clearTimeout(t));
    this.state = 'offline';
    this.engine = 'answering';
    this.engineLostBy = null;  // 'gateway' (its event) or 'timeout' (a request without answer)
    this.hello = null;
    this.socket = null;
    this.pending = new Map();  // requestId -> {resolve, reject, timer, type}
    this.nextId = 1;
    this.backoff = 500;
    this.stopped = true;
    this.reconnectTimer = null;
    this.password = null;  // the last password that was accepted, kept for reconnects
  }

  // Opens the connection (and keeps it open until close()).
  connect() {
    this.stopped = false;
    this.open();
  }

  // Closes the connection for good: no reconnect, pending requests fail.
  close() {
    this.stopped = true;
    if (this.reconnectTimer) this.clearTimer(this.reconnectTimer);
    this.reconnectTimer = null;
    if (this.socket) this.socket.close(1000, 'bye');
    this.socket = null;
    this.failPending('connection closed');
    this.setState('offline');
  }

  // Listens to one event type; returns a function that stops listening.
  on(eventType, callback) {
    const listener = (e) => { if (e.detail.type === eventType) callback(e.detail.data, e.detail.type); };
    this.addEventListener('event', listener);
    return () => this.removeEventListener('event', listener);
  }

  // One library call by name (without "zm_"); see the comment at the top for the answer.
  request(requestType, requestData, { timeout } = {}) {
    const requestId = String(this.nextId++);
    const d = { requestType, requestId };
    if (requestData !== undefined) d.requestData = requestData;
    return this.send(OP.REQUEST, d, requestId, requestType, timeout).then((answer) => {
      const status = answer.requestStatus || {};
      if (!status.result) throw new RequestError(requestType, status.code, status.comment);
      return { code: status.code, comment: status.comment, data: answer.responseData || {} };
    });
  }

  // Several calls run one after another: `requests` holds [requestType, requestData?]
  // pairs. Resolves with one {ok, code, comment, data} per request, in order.
  batch(requests, { haltOnFailure = false, timeout } = {}) {
    const requestId = String(this.nextId++);
    const d = {
      requestId, haltOnFailure,
      requests: requests.map(([requestType, requestData], i) =>
        (requestData === undefined ? { requestType, requestId: String(i) }
          : { requestType, requestId: String(i), requestData })),
    };
    const wait = timeout || this.requestTimeout * Math.max(1, requests.length);
    return this.send(OP.BATCH, d, requestId, 'batch', wait).then((answer) =>
      (answer.results || []).map((r) => ({
        ok: !!(r.requestStatus && r.requestStatus.result),
        code: r.requestStatus ? r.requestStatus.code : undefined,
        comment: r.requestStatus ? r.requestStatus.comment : '',
        data: r.responseData || {},
      })));
  }

  // Replaces the event subscriptions (kept for reconnects).
  subscribe(subscriptions) {
    this.subscriptions = subscriptions;
    if (this.state === 'ready') this.sendRaw(OP.REIDENTIFY, { subscriptions });
  }

  // --- internals ---

  open() {
    if (this.stopped) return;
    this.setState('connecting');
    let socket;
    try {
      socket = new this.WebSocket(this.url);
    } catch (error) {
      this.scheduleReconnect();
      return;
    }
    this.socket = socket;
    socket.onmessage = (m) => { if (this.socket === socket) this.receive(m.data); };
    socket.onclose = (c) => { if (this.socket === socket) this.closed(c.code, c.reason); };
    socket.onerror = () => {};
  }

  closed(code, reason) {
    this.socket = null;
    this.failPending(reason || 'connection closed');
    if (code === CLOSE_AUTH_FAILED || code === CLOSE_LOCKED_OUT) {
      this.password = null;
      this.authFailure = code === CLOSE_LOCKED_OUT ? 'locked-out' : 'wrong-password';
      this.setState('auth-failed');
      this.dispatch('authfailed', { code, reason });
      // Ask again (the provider decides when to answer) unless the address is locked out.
      if (code === CLOSE_LOCKED_OUT) this.scheduleReconnect(30000);
      else this.scheduleReconnect(0);
      return;
    }
    this.setState('offline');
    this.scheduleReconnect();
  }

  scheduleReconnect(delay) {
    if (this.stopped || this.reconnectTimer) return;
    const wait = delay === undefined ? this.backoff : delay;
    if (delay === undefined) this.backoff = Math.min(this.backoff * 2, 10000);
    this.reconnectTimer = this.setTimer(() => {
      this.reconnectTimer = null;
      this.open();
    }, wait);
  }

  async receive(text) {
    let message;
    try {
      message = JSON.parse(text);
    } catch (error) {
      return;
    }
    const d = message.d || {};
    switch (message.op) {
      case OP.HELLO: return this.identify(d);
      case OP.IDENTIFIED:
        this.backoff = 500;
        // A new connection starts with the gateway's own view: it says engine_lost if need be.
        if (this.state !== 'ready') this.setEngine('answering');
        this.setState('ready');
        return undefined;
      case OP.EVENT: return this.event(d.eventType, d.eventData || {});
      case OP.RESPONSE:
      case OP.BATCH_RESPONSE: return this.answer(d.requestId, d);
      default: return undefined;
    }
  }

  async identify(hello) {
    this.hello = hello;
    const d = { protocolVersion: PROTOCOL_VERSION };
    if (this.subscriptions) d.subscriptions = this.subscriptions;
    const socket = this.socket;
    if (hello.authentication) {
      this.setState('authenticating');
      let password = this.password;
      if (password === null) {
        password = this.passwordProvider ? await this.passwordProvider(this.authFailure) : '';
        if (password === null || password === undefined) password = '';
      }
      if (this.socket !== socket) return;  // closed while the person was typing
      d.authentication = await authenticationAnswer(password, hello.authentication.salt,
        hello.authentication.challenge);
      this.password = password;
    }
    if (this.socket === socket) this.sendRaw(OP.IDENTIFY, d);
  }

  event(type, data) {
    if (type === 'engine_lost') this.setEngine('lost', 'gateway');
    else if (type === 'engine_restored') this.setEngine('answering');
    this.dispatch('event', { type, data });
  }

  answer(requestId, d) {
    const waiting = this.pending.get(requestId);
    if (!waiting) return;
    this.pending.delete(requestId);
    this.clearTimer(waiting.timer);
    // An answer ends a loss that a time-out suggested; the gateway's own word ends only by
    // engine_restored (it answers requests that need no engine meanwhile).
    if (this.engineLostBy === 'timeout' && waiting.type !== 'batch') this.setEngine('answering');
    waiting.resolve(d);
  }

  send(op, d, requestId, type, timeout) {
    return new Promise((resolve, reject) => {
      if (this.state !== 'ready') {
        reject(new RequestError(type, DISCONNECTED, 'not connected to the gateway'));
        return;
      }
      const timer = this.setTimer(() => {
        this.pending.delete(requestId);
        if (this.engine !== 'lost') this.setEngine('lost', 'timeout');
        reject(new RequestError(type, TIMEOUT, 'no answer in time: the engine is not answering'));
      }, timeout || this.requestTimeout);
      this.pending.set(requestId, { resolve, reject, timer, type });
      this.sendRaw(op, d);
    });
  }

  sendRaw(op, d) {
    if (this.socket) this.socket.send(JSON.stringify({ op, d }));
  }

  failPending(reason) {
    for (const [, waiting] of this.pending) {
      this.clearTimer(waiting.timer);
      waiting.reject(new RequestError(waiting.type, DISCONNECTED, reason));
    }
    this.pending.clear();
  }

  setState(state) {
    if (this.state === state) return;
    this.state = state;
    this.dispatch('state', { state });
  }

  setEngine(engine, by = null) {
    this.engineLostBy = engine === 'lost' ? by : null;
    if (this.engine === engine) return;
    this.engine = engine;
    this.dispatch('engine', { engine });
  }

  dispatch(name, detail) {
    this.dispatchEvent(new CustomEvent(name, { detail }));
  }
}

function defaultUrl() {
  const location = globalThis.location;
  if (!location) return 'ws://127.0.0.1:4480/ws';
  return `${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}/ws`;
}

// FIPS 180-4 SHA-256, for pages served over plain http where crypto.subtle is hidden.
const K = new Uint32Array([
  0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
  0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
  0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
  0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
  0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
  0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
  0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
  0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
]);

export function sha256(bytes) {
  const length = bytes.length;
  const padded = new Uint8Array(((length + 9 + 63) >> 6) << 6);
  padded.set(bytes);
  padded[length] = 0x80;
  const view = new DataView(padded.buffer);
  view.setUint32(padded.length - 8, Math.floor(length / 0x20000000));
  view.setUint32(padded.length - 4, (length << 3) >>> 0);
  const h = new Uint32Array([0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
    0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19]);
  const w = new Uint32Array(64);
  const rotr = (x, n) => (x >>> n) | (x << (32 - n));
  for (let block = 0; block < padded.length; block += 64) {
    for (let i = 0; i < 16; i++) w[i] = view.getUint32(block + i * 4);
    for (let i = 16; i < 64; i++) {
      const s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ (w[i - 15] >>> 3);
      const s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ (w[i - 2] >>> 10);
      w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    let [a, b, c, d, e, f, g, hh] = h;
    for (let i = 0; i < 64; i++) {
      const t1 = hh + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) + K[i] + w[i];
      const t2 = (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
      hh = g; g = f; f = e; e = (d + t1) >>> 0; d = c; c = b; b = a; a = (t1 + t2) >>> 0;
    }
    h[0] += a; h[1] += b; h[2] += c; h[3] += d; h[4] += e; h[5] += f; h[6] += g; h[7] += hh;
  }
  const out = new Uint8Array(32);
  const outView = new DataView(out.buffer);
  h.forEach((word, i) => outView.setUint32(i * 4, word));
  return out;
}
