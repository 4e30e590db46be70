// The appliance console: every panel of the page, fed by one gateway connection.
//
// Each panel has a load() that asks the gateway for its data and event handlers that keep it
// current. A failed request shows, in the panel it belongs to, what failed in an operator's
// words, with the call and its result code below. Nothing a person asked for is sent again by
// itself after the connection drops: on reconnect each panel reads its own state again only.
import { MediaClient, TIMEOUT, DISCONNECTED } from './zolo-media.js';

// Requests by what the page needs; each is a library call of the same name without "zm_".
const api = {
  state: 'get_state', streamingStatus: 'get_streaming_status',
  start: 'start_stream', pause: 'pause_stream', resume: 'resume_stream', stop: 'stop_stream',
  streams: 'get_stream_by_pattern',
  enableStream: 'enable_stream', suspendStream: 'suspend_stream',
  channels: 'get_channel', channelSnapshot: 'make_channel_preview_snapshot',
  inputParam: 'get_channel_input_param', userSource: 'get_user_source',
  layouts: 'get_layout', layoutOnAir: 'get_video_layout', setLayout: 'set_video_layout',
  themes: 'get_theme', themeOnAir: 'get_video_theme', setTheme: 'set_video_theme',
  backgrounds: 'get_background', backgroundOnAir: 'get_video_background',
  setBackground: 'set_video_background',
  audioInputs: 'get_audio_input', audioOutputs: 'get_audio_output',
  setAudioInput: 'set_audio_input', setAudioOutput: 'set_audio_output',
  recordings: 'get_recording', recordingCount: 'get_recording_count',
  bookmarks: 'load_recording_bookmark', addBookmark: 'add_bookmark',
  watchLive: 'watch_live_pictures',
};
const MIXER_MAIN = 1;  // the program mixer
const PROGRAM_MIX = 'Audio-Mix';  // the channel whose level is the program's sound
const PAGE_SIZE = 100;
const STATE = { 1: 'idle', 3: 'recording', 4: 'paused' };
const $ = (selector, root = document) => root.querySelector(selector);
const $$ = (selector, root = document) => [...root.querySelectorAll(selector)];

// The first array among a response's members: each listing answers with one.
function list(data) {
  for (const value of Object.values(data || {})) if (Array.isArray(value)) return value;
  return [];
}

function element(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attributes)) {
    if (key === 'class') node.className = value;
    else if (key.startsWith('on')) node.addEventListener(key.slice(2), value);
    else if (value !== false && value !== undefined && value !== null) node.setAttribute(key, value === true ? '' : value);
  }
  for (const child of children) if (child !== null && child !== undefined && child !== false) node.append(child);
  return node;
}

const plural = (n, one, many = `${one}s`) => `${n.toLocaleString('en-US')} ${n === 1 ? one : many}`;
const pad = (n, width = 2) => String(n).padStart(width, '0');
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// A duration as h:mm:ss.
function clock(seconds) {
  const s = Math.max(0, Math.floor(seconds));
  return `${pad(Math.floor(s / 3600))}:${pad(Math.floor(s / 60) % 60)}:${pad(s % 60)}`;
}

// --- Times: one clock for the whole page, the appliance's zone, 24-hour -----------------

// The gateway names the appliance's zone in Hello; without it the page says UTC.
const zone = { name: 'UTC', offset: 0, format: null };
// A zone without a name that browsers know is shown by its offset now ("UTC+05:30").
function offsetName(seconds) {
  if (!seconds) return 'UTC';
  const minutes = Math.abs(Math.round(seconds / 60));
  return `UTC${seconds < 0 ? '−' : '+'}${pad(Math.floor(minutes / 60))}:${pad(minutes % 60)}`;
}
function setZone(timeZone) {
  const known = timeZone && typeof timeZone === 'object';
  zone.offset = known && Number.isFinite(timeZone.offsetSeconds) ? timeZone.offsetSeconds : 0;
  zone.name = (known && typeof timeZone.name === 'string' && timeZone.name) || offsetName(zone.offset);
  zone.format = null;
  if (known && timeZone.name) {
    try {
      zone.format = new Intl.DateTimeFormat('en-GB', { timeZone: zone.name, hourCycle: 'h23',
        year: 'numeric', month: '2-digit', day: '2-digit', hour: '2-digit', minute: '2-digit', second: '2-digit' });
    } catch (error) {  // a name this browser does not know: the offset stands in
      zone.name = offsetName(zone.offset);
    }
  }
  for (const node of $$('.zone-name')) node.textContent = zone.name;
  $('#rec-when').textContent = `Recorded (${zone.name})`;
}
function timeParts(seconds) {
  const date = new Date(seconds * 1000);
  if (zone.format) {
    const parts = {};
    for (const p of zone.format.formatToParts(date)) parts[p.type] = p.value;
    return parts;
  }
  const shifted = new Date((seconds + zone.offset) * 1000);
  return { year: shifted.getUTCFullYear(), month: pad(shifted.getUTCMonth() + 1), day: pad(shifted.getUTCDate()),
    hour: pad(shifted.getUTCHours()), minute: pad(shifted.getUTCMinutes()), second: pad(shifted.getUTCSeconds()) };
}
const dateOf = (seconds) => { const p = timeParts(seconds); return `${p.year}-${p.month}-${p.day}`; };
const timeOf = (seconds, withSeconds = false) => {
  const p = timeParts(seconds);
  return `${p.hour}:${p.minute}${withSeconds ? `:${p.second}` : ''}`;
};
const dateTime = (seconds) => (seconds ? `${dateOf(seconds)} ${timeOf(seconds)}` : '–');

// --- Failures in an operator's words ------------------------------------------------------

const ACTIONS = {
  start_stream: 'Start recording', pause_stream: 'Pause', resume_stream: 'Resume', stop_stream: 'Stop',
  add_bookmark: 'Bookmark', enable_stream: 'Switching the output', suspend_stream: 'Suspending the output',
  make_channel_preview_snapshot: 'Snapshot', set_video_layout: 'Putting the layout on air',
  set_video_theme: 'Changing the theme', set_video_background: 'Changing the background',
  set_audio_input: 'Changing the input volume', set_audio_output: 'Changing the output volume',
  get_recording: 'Reading the recordings', get_recording_count: 'Counting the recordings',
  load_recording_bookmark: 'Reading the bookmarks', get_state: 'Reading the engine state',
  get_stream_by_pattern: 'Reading the outputs', get_channel: 'Reading the inputs',
  get_layout: 'Reading the layouts', get_audio_input: 'Reading the audio ports',
  watch_live_pictures: 'Live pictures',
};
const REASONS = {
  [-1]: 'the appliance reported a failure',
  [-2]: 'the appliance refused it',
  [-3]: 'a value was not accepted',
  [-4]: 'the engine is not in a state that allows it',
  [-5]: 'it was not found',
  [-6]: 'the engine did not answer in time',
  [-107]: 'too many results to send at once: ask for a page',
  [TIMEOUT]: 'no answer in time: the engine is not answering',
  [DISCONNECTED]: 'the connection to the appliance was lost',
};
// Reasons that only make sense for one call.
const SPECIFIC = {
  'make_channel_preview_snapshot:-5': 'this input has no picture source',
  'start_stream:-4': 'the engine is not idle',
  'pause_stream:-4': 'the engine is not recording',
  'resume_stream:-4': 'the engine is not paused',
  'stop_stream:-4': 'nothing is being recorded',
  'add_bookmark:-4': 'nothing is being recorded',
  'get_recording:-107': 'too many matches to send at once: search for something more specific',
};
function describe(error, action) {
  const type = error && error.requestType;
  const code = error && error.code;
  if (code === undefined) return { text: `${action || 'It'} failed: ${String((error && error.message) || error)}`, detail: '' };
  const reason = SPECIFIC[`${type}:${code}`] || REASONS[code]
    || (code <= -100 ? 'the gateway did not accept the request' : 'the engine refused it');
  return { text: `${action || ACTIONS[type] || 'The request'} failed: ${reason}`,
    detail: `${type} → ${code}${error.comment ? ` (${error.comment})` : ''}` };
}

// Shows `error` in `panel`'s error line (or clears it).
function showError(panel, error, action) {
  const line = $(':scope > .error', panel);
  if (!line) return;
  line.hidden = !error;
  if (!error) { line.replaceChildren(); return; }
  const { text, detail } = describe(error, action);
  line.replaceChildren(element('span', {}, text), detail ? element('span', { class: 'detail-code' }, detail) : null);
}

// Runs `work` (a promise-returning function) for `panel`, showing a failure where it happened.
async function guarded(panel, work, action) {
  try {
    const result = await work();
    showError(panel, null);
    return result;
  } catch (error) {
    showError(panel, error, action);
    return undefined;
  }
}

const client = new MediaClient({
  password: (why) => login.ask(why),
  subscriptions: {
    // Every group, and the high-volume signals the page shows (coalesced below).
    events: ['streams', 'recordings', 'audio', 'mixer', 'sources', 'system',
      'audio_level', 'streaming_duration', 'status'],
    rates: { audio_level: 30, streaming_duration: 2 },
  },
});
window.mediaClient = client;  // for the browser tests and the curious developer

// --- Sign-in ---------------------------------------------------------------------------

// The password dialog stays until the gateway accepts a password: it cannot be dismissed,
// it says when the gateway slows attempts down after failures, and it stays open while an
// attempt is checked.
const login = {
  dialog: $('#login'),
  waiter: null,
  failures: 0,   // wrong passwords in a row
  slowTimer: 0,
  ask(why) {
    if (why === 'wrong-password') this.failures += 1;
    const error = $('#login-error');
    error.hidden = !why;
    error.textContent = why === 'locked-out'
      ? 'Too many failed attempts: the gateway refuses sign-ins from here for a while. The page tries again by itself.'
      : why ? 'Wrong password.' : '';
    this.status(this.failures >= 3
      ? 'After repeated failures the gateway waits before it checks each attempt (up to a few seconds).' : '');
    this.open();
    $('#login-submit').disabled = false;
    $('#login-password').disabled = false;
    $('#login-password').value = '';
    $('#login-password').focus();
    return new Promise((resolve) => { this.waiter = resolve; });
  },
  open() {
    document.body.classList.add('signed-out');
    if (!this.dialog.open) this.dialog.showModal();
    availability();
  },
  status(text) { $('#login-status').textContent = text; },
  submit() {
    const resolve = this.waiter;
    if (!resolve) return;
    this.waiter = null;
    $('#login-submit').disabled = true;
    $('#login-password').disabled = true;
    this.status('Checking the password…');
    // The gateway holds the answer back after repeated failures: say so while waiting.
    clearTimeout(this.slowTimer);
    this.slowTimer = setTimeout(() => {
      if (client.state === 'authenticating') {
        this.status('Attempts are slowed down after failed sign-ins: waiting for the gateway to check this one…');
      }
    }, 600);
    resolve($('#login-password').value);
  },
  accepted() {
    clearTimeout(this.slowTimer);
    this.failures = 0;
    this.waiter = null;
    document.body.classList.remove('signed-out');
    if (!this.dialog.open) return;
    this.dialog.close();
    // Keyboard users start again from the top: the title, then the skip links.
    $('#title').focus({ preventScroll: true });
  },
};
$('#login-form').addEventListener('submit', (e) => { e.preventDefault(); login.submit(); });
// Esc must not leave an empty page behind: the dialog refuses, and comes back if closed anyway.
login.dialog.addEventListener('cancel', (e) => e.preventDefault());
login.dialog.addEventListener('close', () => {
  if (document.body.classList.contains('signed-out')) setTimeout(() => login.open(), 0);
});
client.addEventListener('authfailed', (e) => {
  if (e.detail.code === 4014) login.ask('locked-out');
});

// --- What works now: the gateway, the engine ---------------------------------------------

let everReady = false;
function availability() {
  const ready = client.state === 'ready';
  const signedOut = document.body.classList.contains('signed-out');
  const gatewayDown = !ready && everReady && !signedOut;
  const engineDown = ready && (client.engine === 'lost' || header.state === 0 || header.state === 2);
  document.body.classList.toggle('gateway-down', gatewayDown);
  document.body.classList.toggle('engine-down', engineDown);
  for (const set of $$('fieldset.needs-gateway')) set.disabled = !ready;
  for (const set of $$('fieldset.needs-engine')) set.disabled = !ready || client.engine === 'lost';
  $('#event-filter').disabled = signedOut;

  // Without the gateway or the engine, the engine's state is not known: say so, and let
  // the meters fall silent rather than freeze at their last level.
  if (!ready || client.engine === 'lost') {
    audio.silence();
    $('#engine-state').textContent = 'unknown';
    $('#engine-state').className = 'pill';
  } else if (header.state !== undefined && $('#engine-state').textContent === 'unknown') {
    header.show(header.state);
    return;
  }
  if (signedOut && login.dialog.open && client.state === 'offline') login.status('The gateway cannot be reached: trying again…');
  const pill = $('#conn-state');
  const lost = ready && client.engine === 'lost';
  pill.textContent = lost ? 'engine not answering' : {
    ready: 'connected', connecting: 'connecting…', authenticating: 'signing in…',
    offline: 'gateway unreachable', 'auth-failed': 'password refused',
  }[client.state] || client.state;
  pill.className = `pill conn ${ready && !lost ? 'ok' : 'bad'}`;
  const alert = $('#conn-alert');
  const text = gatewayDown
    ? 'The appliance’s gateway cannot be reached: the page keeps trying and comes back by itself. Controls are off until then.'
    : lost ? 'The media engine is not answering: engine controls are off until it answers again. Recordings can still be browsed.'
      : '';
  alert.hidden = !text;
  if (alert.textContent !== text) alert.textContent = text;
}

// --- Header: engine state, recording time, transport and bookmark ------------------------

const header = {
  panel: $('#header'),
  state: undefined,
  startedAt: 0,  // local clock when recording time was last known
  recorded: 0,   // seconds recorded then
  async load() {
    const [state, status] = await client.batch([[api.state], [api.streamingStatus]]);
    if (!state.ok) throw Object.assign(new Error(state.comment), { requestType: api.state, code: state.code, comment: state.comment });
    const streams = status.ok ? list(status.data) : [];
    // A recording already running when the page opened: its time so far, from the engine.
    if (state.data.state === 3 || state.data.state === 4) {
      const seconds = Math.max(0, ...streams.map((s) => Number(s.duration) || 0));
      if (seconds > this.recorded || state.data.state !== this.state) this.recorded = seconds;
      this.startedAt = 0;
    }
    this.show(state.data.state);
    outputs.running(streams, state.data.state);
  },
  show(state) {
    this.state = state;
    const pill = $('#engine-state');
    pill.textContent = STATE[state] || (state === undefined ? 'unknown' : 'not ready');
    pill.className = `pill ${state === 3 ? 'rec' : state === 4 ? 'warn' : state === 1 ? 'ok' : 'bad'}`;
    $('#btn-start').disabled = state !== 1;
    $('#btn-pause').disabled = state !== 3;
    $('#btn-resume').disabled = state !== 4;
    $('#btn-stop').disabled = state !== 3 && state !== 4;
    $('#bookmark-add').disabled = state !== 3;
    $('#rec-time').hidden = state !== 3 && state !== 4;
    if (state === 1) this.recorded = 0;
    if (state === 3 && !this.startedAt) this.startedAt = performance.now() / 1000 - this.recorded;
    if (state !== 3 && this.startedAt) this.recorded = performance.now() / 1000 - this.startedAt;
    if (state !== 3) this.startedAt = 0;
    this.tick();
    availability();
  },
  seconds() { return this.startedAt ? performance.now() / 1000 - this.startedAt : this.recorded; },
  tick() { $('#rec-time').textContent = clock(this.seconds()); },
  duration(seconds) {
    this.recorded = seconds;
    if (this.state === 3) this.startedAt = performance.now() / 1000 - seconds;
    this.tick();
  },
  async command(name) {
    await guarded(this.panel, () => client.request(api[name], { persist: false }));
    await guarded(this.panel, () => this.load());
  },
  async bookmark() {
    const at = clock(this.seconds());
    const done = await guarded(this.panel, () => client.request(api.addBookmark, { text: `Bookmark ${at}`, counter: false }));
    if (done) notice(`Bookmark added at ${at} of the recording.`);
  },
};
for (const name of ['start', 'pause', 'resume', 'stop'])
  $(`#btn-${name}`).addEventListener('click', () => header.command(name));
$('#bookmark-add').addEventListener('click', () => header.bookmark());
setInterval(() => header.tick(), 500);

let noticeTimer = 0;
function notice(text) {
  const line = $('#header-notice');
  line.textContent = text;
  line.hidden = false;
  clearTimeout(noticeTimer);
  noticeTimer = setTimeout(() => { line.hidden = true; }, 6000);
}

// --- Outputs ---------------------------------------------------------------------------

const outputs = {
  panel: $('#outputs'),
  rows: new Map(),  // stream name -> {row, stream, live}
  async load() {
    const { data } = await client.request(api.streams, { pattern: '%' });
    const body = $('tbody', this.panel);
    body.replaceChildren();
    this.rows.clear();
    // Audio ports have their own panel.
    for (const s of list(data).filter((stream) => stream.type !== 'audio')) {
      const enable = element('input', { type: 'checkbox', 'aria-label': `${s.name} on`, checked: !!s.enable,
        onchange: (e) => this.change(s.name, api.enableStream, { name: s.name, enable: e.target.checked ? 1 : 0 }) });
      const suspend = element('input', { type: 'checkbox', 'aria-label': `Suspend ${s.name}`, checked: !!s.suspend,
        onchange: (e) => this.change(s.name, api.suspendStream, { pattern: s.name, suspend: e.target.checked ? 1 : 0 }) });
      const row = element('tr', { 'data-stream': s.name },
        element('td', {}, element('span', { class: 'stream-name' }, s.name), ' ', element('span', { class: 'muted' }, s.type),
          element('span', { class: 'dest', title: s.destination }, s.destination)),
        element('td', {}, element('span', { class: 'status-text' })), element('td', {}, enable), element('td', {}, suspend));
      this.rows.set(s.name, { row, stream: s, live: '' });
      this.paint(s.name);
      body.append(row);
    }
  },
  // What the row says: the engine's live word when it gave one, else the stored flags.
  paint(name) {
    const entry = this.rows.get(name);
    if (!entry) return;
    const s = entry.stream;
    const text = s.suspend ? 'suspended' : !s.enable ? 'off' : entry.live || 'idle';
    const cell = $('.status-text', entry.row);
    cell.textContent = text;
    cell.className = `status-text ${s.suspend ? 'warn' : entry.live && entry.live !== 'stopped' ? 'live' : 'muted'}`;
    $('td:nth-child(3) input', entry.row).checked = !!s.enable;
    $('td:nth-child(4) input', entry.row).checked = !!s.suspend;
  },
  // A change, then the stream as stored afterwards (the engine may refuse part of it).
  async change(name, requestType, data) {
    await guarded(this.panel, () => client.request(requestType, data));
    await guarded(this.panel, () => this.reread(name));
  },
  async reread(name) {
    const { data } = await client.request(api.streams, { pattern: name });
    const fresh = list(data).find((s) => s.name === name);
    const entry = this.rows.get(name);
    if (fresh && entry) { entry.stream = fresh; this.paint(name); }
  },
  // The engine's running streams (get_streaming_status) while it records or pauses.
  running(streams, state) {
    const word = state === 3 ? 'recording' : state === 4 ? 'paused' : '';
    const names = new Set(streams.map((s) => s.name));
    for (const [name, entry] of this.rows) {
      entry.live = names.has(name) && word ? (entry.stream.type === 'file' ? word : 'streaming') : '';
      this.paint(name);
    }
  },
  status(name, text) {
    const entry = this.rows.get(name);
    if (!entry) return;
    entry.live = text;
    this.paint(name);
  },
};

// --- Live pictures ---------------------------------------------------------------------

// While the page is visible and connected it watches the live pictures: the gateway takes
// a small picture of every input and of the program about twice a second, and the page
// fetches each with the watch's token. A picture shows its age once it is not fresh; one
// that cannot be had says why instead, never a broken image or an old picture as live.
const LIVE_FRESH_MS = 2000;
const LIVE_REASONS = {
  [-1]: 'the engine gave none',
  [-2]: 'not available for this input',
  [-5]: 'the engine does not know this input',
  [-6]: 'the engine did not answer in time',
};
function age(ms) {
  const s = Math.floor(ms / 1000);
  return s < 60 ? `${s} s old` : s < 3600 ? `${Math.floor(s / 60)} min old` : 'over an hour old';
}
const live = {
  views: new Map(),  // 'program' or channel id -> view
  token: '',
  inflight: new Set(),  // picture requests not answered yet
  interval: 500,
  timer: 0,
  starting: null,
  failure: '',       // why watching failed, in words
  // A picture box for `key`, fetched from `path`; `label` names it for screen readers.
  view(key, path, label, className = 'thumb') {
    const img = element('img', { alt: `Live picture of ${label}`, hidden: true });
    const note = element('span', { class: 'live-note' }, 'waiting for a picture…');
    const badge = element('span', { class: 'live-badge', hidden: true });
    const node = element('div', { class: `${className} live-view`, 'data-live': key }, img, note, badge);
    const view = { key, path, node, img, note, badge, takenAt: 0, reason: '', fetching: false, url: '' };
    // A picture that cannot be shown is dropped, never left as a broken image.
    img.addEventListener('error', () => { this.drop(view, 'the picture could not be shown'); });
    this.drop(this.views.get(key));
    this.views.set(key, view);
    this.paint(view);
    return node;
  },
  // Forgets the views `keep` refuses (the inputs list was read again).
  prune(keep) {
    for (const [key, view] of this.views) if (!keep(key)) { this.drop(view); this.views.delete(key); }
  },
  drop(view, reason = '') {
    if (!view) return;
    if (view.url) URL.revokeObjectURL(view.url);
    view.url = '';
    view.takenAt = 0;
    view.reason = reason;
    view.img.removeAttribute('src');
    this.paint(view);
  },
  wanted() { return client.state === 'ready' && document.visibilityState === 'visible'; },
  // Follows the connection and the page's visibility: watch while both allow it.
  update() {
    if (this.wanted()) {
      if (!this.token) this.watch();
    } else {
      clearInterval(this.timer);
      this.timer = 0;
      // Hidden but connected: the gateway stops as soon as nobody watches. A lost
      // connection ended the watch already.
      // Pictures already asked for are let finish first: their token ends with the watch.
      if (this.token && client.state === 'ready') {
        Promise.allSettled([...this.inflight]).then(() => {
          if (!this.token && client.state === 'ready') client.request(api.watchLive, { on: false }).catch(() => {});
        });
      }
      this.token = '';
    }
    this.paintAll();
  },
  watch() {
    if (this.starting) return;
    this.starting = client.request(api.watchLive, { on: true }).then(({ data }) => {
      this.failure = '';
      if (!this.wanted()) {  // hidden or gone meanwhile
        client.request(api.watchLive, { on: false }).catch(() => {});
        return;
      }
      this.token = data.token;
      this.interval = Math.max(200, Number(data.intervalMs) || 500);
      clearInterval(this.timer);
      this.timer = setInterval(() => this.refresh(), this.interval);
      this.refresh();
    }, (error) => {
      this.failure = describe(error).text;
    }).finally(() => {
      this.starting = null;
      this.paintAll();
    });
  },
  refresh() {
    if (!this.wanted() || !this.token) return;
    for (const view of this.views.values()) if (view.path && !view.fetching) this.fetch(view);
  },
  fetch(view) {
    const done = this.fetchOne(view);
    this.inflight.add(done);
    done.finally(() => this.inflight.delete(done));
    return done;
  },
  async fetchOne(view) {
    view.fetching = true;
    const token = this.token;
    try {
      const response = await fetch(view.path, { headers: { Authorization: `Bearer ${token}` }, cache: 'no-store' });
      const code = Number(response.headers.get('X-Live-Code')) || 0;
      if (response.status === 401) {
        // The watch ended on the gateway's side (a restart): start it again.
        if (token === this.token) { this.token = ''; this.update(); }
      } else if (response.status === 200) {
        const taken = performance.now() - (Number(response.headers.get('X-Picture-Age-Ms')) || 0);
        const blob = await response.blob();
        view.reason = code < 0 ? (LIVE_REASONS[code] || 'the engine gave none') : '';
        if (this.views.get(view.key) === view && taken > view.takenAt + 1) await this.show(view, blob, taken);
      } else if (response.status === 204) {
        // No picture yet in this watch; a code says why.
        if (code < 0) this.drop(view, LIVE_REASONS[code] || 'the engine gave none');
      } else {
        this.drop(view, 'the appliance has no picture of it');
      }
    } catch (error) {
      view.reason = 'the appliance cannot be reached';
    } finally {
      view.fetching = false;
      this.paint(view);
    }
  },
  async show(view, blob, taken) {
    const url = URL.createObjectURL(blob);
    const old = view.url;
    view.url = url;
    view.img.src = url;
    try {
      await view.img.decode();
      view.takenAt = taken;
    } catch (error) {
      if (view.url === url) this.drop(view, 'the picture could not be shown');
    }
    if (old) URL.revokeObjectURL(old);
  },
  paint(view) {
    if (!view) return;
    const shown = view.takenAt > 0;
    view.img.hidden = !shown;
    view.note.hidden = shown;
    view.badge.hidden = !shown;
    view.node.classList.toggle('no-picture', !shown);
    if (shown) {
      const old = performance.now() - view.takenAt;
      const fresh = old < LIVE_FRESH_MS && this.token && this.wanted();
      view.badge.textContent = fresh ? 'live' : age(old);
      view.badge.className = `live-badge ${fresh ? 'fresh' : 'stale'}`;
      return;
    }
    view.note.textContent = view.reason ? `No picture: ${view.reason}`
      : this.failure ? this.failure
        : client.state !== 'ready' ? 'No picture: not connected'
          : document.visibilityState !== 'visible' ? 'paused while the page is hidden'
            : 'waiting for a picture…';
  },
  paintAll() { for (const view of this.views.values()) this.paint(view); },
};
document.addEventListener('visibilitychange', () => live.update());
setInterval(() => live.paintAll(), 1000);
window.livePictures = live;  // for the browser tests

// --- Inputs ----------------------------------------------------------------------------

const inputs = {
  panel: $('#inputs'),
  items: new Map(),  // channel id -> {item, channel}
  async load() {
    const { data } = await client.request(api.channels, { id: 0 });
    const listNode = $('.inputs', this.panel);
    listNode.replaceChildren();
    this.items.clear();
    const channels = list(data);
    live.prune((key) => key === 'program');
    for (const c of channels) {
      const sources = [c.video_source_name, c.audio_source_name, c.video_user_source_name,
        c.audio_user_source_name].filter(Boolean);
      // Inputs with a video source show their live picture; the others have none to show.
      const thumb = c.video_source_id > 0
        ? live.view(c.id, `/live/channels/${c.id}.jpg`, c.name)
        : element('div', { class: 'thumb no-picture' }, 'no video');
      const item = element('li', { 'data-channel': c.id },
        thumb,
        element('div', {},
          element('div', { class: 'name' }, element('span', { class: 'state-dot', 'aria-hidden': 'true' }), c.name),
          element('div', { class: 'signal muted' }, 'signal not reported yet'),
          element('div', { class: 'sources' }, sources.join(' · ') || 'no source'),
          element('div', { class: 'snapshot-line', hidden: true })),
        element('button', { type: 'button', 'aria-label': `Snapshot of ${c.name}`, onclick: () => this.snapshot(c) }, 'Snapshot'));
      this.items.set(c.id, { item, channel: c });
      listNode.append(item);
    }
    // Asking each input's live adjustment also has the engine report its signal
    // ("channel_status"); the answers themselves are not needed here.
    client.batch(channels.map((c) => [api.inputParam, { channel: c.id }])).catch(() => {});
  },
  async snapshot(channel) {
    const entry = this.items.get(channel.id);
    const button = $('button', entry.item);
    button.disabled = true;
    await guarded(this.panel, async () => {
      const id = channel.video_user_source_id;
      const url = `/images/channels/snapshot_${pad(id, 3)}.jpg`;
      // The engine writes the picture in the background, to the same file every time: note the
      // version there now (only once the engine has made one, so nothing asks for a missing file).
      const made = async () => {
        if (!id) return false;
        const answer = await client.request(api.userSource, { id });
        return !!(list(answer.data)[0] || {}).preview_dest;
      };
      const version = async () => {
        const response = await fetch(url, { method: 'HEAD', cache: 'no-store' });
        return response.ok ? (response.headers.get('ETag') || response.headers.get('Last-Modified') || 'some') : null;
      };
      const before = (await made().catch(() => false)) ? await version() : null;
      await client.request(api.channelSnapshot, { channel: channel.id, width: 320, height: 180 });
      for (let attempt = 0; attempt < 20; attempt++) {
        await sleep(250);
        if (!before && !(await made())) continue;
        const now = await version();
        if (now && now !== before) {
          // The stored snapshot, beside the live picture: small, with the time it was made.
          const img = element('img', { class: 'snapshot', src: `${url}?v=${encodeURIComponent(now)}`, alt: `Snapshot of ${channel.name}` });
          const line = $('.snapshot-line', entry.item);
          line.replaceChildren(img, element('span', { class: 'muted' }, `Snapshot ${timeOf(Date.now() / 1000, true)}`));
          line.hidden = false;
          return;
        }
      }
      throw new Error('the engine made no picture in time');
    }, 'Snapshot');
    button.disabled = false;
  },
  status(record) {
    const entry = this.items.get(record.id);
    if (!entry) return;
    const on = record.status > 0;
    $('.state-dot', entry.item).className = `state-dot ${on ? 'on' : 'off'}`;
    const line = $('.signal', entry.item);
    line.textContent = on ? 'signal' : 'no signal';
    line.className = `signal ${on ? 'status-text live' : 'error'}`;
  },
};

// --- Mixer -----------------------------------------------------------------------------

const mixer = {
  panel: $('#mixer'),
  tiles: new Map(),  // layout id -> tile
  onAir: 0,
  async load() {
    const [layouts, onAir, themes, backgrounds, theme, background] = await client.batch([
      [api.layouts, { id: 0 }], [api.layoutOnAir, { mixer: MIXER_MAIN }],
      [api.themes, { id: 0 }], [api.backgrounds, { id: 0 }],
      [api.themeOnAir, { mixer: MIXER_MAIN }], [api.backgroundOnAir, { mixer: MIXER_MAIN }]]);
    if (!layouts.ok) throw Object.assign(new Error(layouts.comment), { requestType: api.layouts, code: layouts.code, comment: layouts.comment });
    // One grid for every group, kept in group order; each tile names its group.
    const byGroup = new Map();
    for (const l of list(layouts.data)) {
      if (!byGroup.has(l.group)) byGroup.set(l.group, []);
      byGroup.get(l.group).push(l);
    }
    const grid = $('.layouts', this.panel);
    grid.replaceChildren();
    this.tiles.clear();
    for (const [group, members] of byGroup) {
      for (const l of members) {
        const tile = element('button', { type: 'button', class: 'tile', 'data-layout': l.id, 'data-group': group || '',
          title: `${l.name} (${group || 'other'})`, 'aria-pressed': 'false', onclick: () => this.put(l.id) },
        this.picture(l), element('span', { class: 'label' }, l.name), element('span', { class: 'group' }, group || 'Other'));
        this.tiles.set(l.id, tile);
        grid.append(tile);
      }
    }
    if (onAir.ok) this.highlight(onAir.data.id ?? onAir.code);
    this.fill('#theme-select', themes, theme, 'theme', (t) => t.name);
    this.fill('#background-select', backgrounds, background, 'background', (b) => b.name.replace(/\.[a-z]+$/i, ''));
  },
  // The rendered preview; where there is none, the layout's windows drawn by the page.
  picture(layout) {
    const drawn = () => element('div', { class: 'drawn', 'aria-hidden': 'true' },
      ...(layout.video_layouts || []).map((w) => element('i', {
        style: `left:${w.x * 100}%;top:${w.y * 100}%;width:${w.w * 100}%;height:${w.h * 100}%;` +
          `z-index:${w.z};background:hsl(${(w.id * 67) % 360} 45% 32%)` }, String(w.id))));
    if (!layout.image) return drawn();
    const name = layout.image.replace(/^file:\/\//, '').split('/').pop();
    const img = element('img', { src: `/images/layouts/${encodeURIComponent(name)}`, alt: '', loading: 'lazy' });
    img.addEventListener('error', () => img.replaceWith(drawn()), { once: true });
    return img;
  },
  // The choices, with the one the mixer shows now selected.
  fill(selector, answer, current, member, label) {
    const select = $(selector, this.panel);
    const items = answer.ok ? list(answer.data) : [];
    const now = current.ok && current.data[member] ? current.data[member].id : 0;
    select.replaceChildren(...items.map((item) => element('option', { value: item.id, selected: item.id === now }, label(item))));
    if (!items.some((item) => item.id === now)) select.prepend(element('option', { value: '', selected: true }, 'none'));
    select.dataset.current = now || '';
  },
  async put(id) {
    const tile = this.tiles.get(id);
    if (tile) tile.classList.add('pending');
    await guarded(this.panel, () => client.request(api.setLayout,
      { id, mixer: MIXER_MAIN, persist: false, bookmark: false }));
    if (tile) tile.classList.remove('pending');
  },
  highlight(id) {
    this.onAir = id;
    for (const [layout, tile] of this.tiles) {
      const on = layout === id;
      tile.classList.toggle('on-air', on);
      tile.setAttribute('aria-pressed', on ? 'true' : 'false');
      const badge = $('.badge', tile);
      if (on && !badge) tile.append(element('span', { class: 'badge' }, 'ON AIR'));
      if (!on && badge) badge.remove();
    }
  },
  // A choice of theme or background; the selector then shows what the mixer really shows.
  async choose(select, requestType, readType, member) {
    const id = Number(select.value);
    if (!id) return;
    await guarded(this.panel, () => client.request(requestType, { id, mixer: MIXER_MAIN }));
    await guarded(this.panel, async () => {
      const { data } = await client.request(readType, { mixer: MIXER_MAIN });
      const now = data[member] ? data[member].id : 0;
      select.value = String(now);
      select.dataset.current = now || '';
    });
  },
};
$('#theme-select').addEventListener('change', (e) =>
  mixer.choose(e.target, api.setTheme, api.themeOnAir, 'theme'));
$('#background-select').addEventListener('change', (e) =>
  mixer.choose(e.target, api.setBackground, api.backgroundOnAir, 'background'));

// --- Audio -----------------------------------------------------------------------------

// Levels are dBFS, shown from -60 to 0. A meter holds its peak for 1.5 s. Volumes are linear
// in percent (100: unity), shown in dB.
const FLOOR = -60;
const TICKS = [-60, -50, -40, -30, -20, -10, 0];
const fraction = (db) => Math.min(1, Math.max(0, (db - FLOOR) / -FLOOR));
const volumeDb = (volume) => (volume <= 0 ? '−∞ dB' : `${(20 * Math.log10(volume / 100)).toFixed(1).replace('-', '−')} dB`);
const levelText = (db) => (db <= FLOOR ? '−∞' : String(Math.round(db)).replace('-', '−'));

const audio = {
  panel: $('#audio'),
  meters: new Map(),  // port name -> {bar, peak, box, text, level, peakLevel, peakAt, shown}
  dirty: false,
  async load() {
    const [ins, outs] = await client.batch([[api.audioInputs], [api.audioOutputs]]);
    if (!ins.ok) throw Object.assign(new Error(ins.comment), { requestType: api.audioInputs, code: ins.code, comment: ins.comment });
    const listNode = $('.meters', this.panel);
    this.meters.clear();
    const scale = element('li', { class: 'scale', 'aria-hidden': 'true' }, element('span', {}),
      element('div', { class: 'ticks' }, ...TICKS.map((db) => element('span', { style: `left:${fraction(db) * 100}%` }, String(db)))),
      element('span', { class: 'db' }, 'dB'));
    const rows = [scale];
    const ports = [...list(ins.data).map((p) => ({ ...p, kind: 'input' })),
      ...(outs.ok ? list(outs.data) : []).map((p) => ({ ...p, kind: 'output' }))];
    if (!ports.some((p) => p.name === PROGRAM_MIX)) rows.push(this.row({ name: PROGRAM_MIX, kind: 'program', level: FLOOR }));
    for (const port of ports) rows.push(this.row(port));
    listNode.replaceChildren(...rows);
    this.dirty = true;
  },
  row(port) {
    const label = port.kind === 'program' ? 'Program' : port.name;
    const bar = element('div', { class: 'level' });
    const peak = element('div', { class: 'peak' });
    const box = element('div', { class: 'meter', role: 'meter', 'aria-label': `${label} level`,
      'aria-valuemin': FLOOR, 'aria-valuemax': 0, 'aria-valuenow': FLOOR }, bar, peak);
    const text = element('span', { class: 'db' }, '−∞');
    const item = element('li', { 'data-port': port.name, 'data-kind': port.kind },
      element('span', { class: 'port' }, label, element('small', {}, port.kind)), box, text);
    if (port.kind !== 'program') {
      const vol = element('span', { class: 'vol' }, volumeDb(Math.max(0, port.volume)));
      const volume = element('input', { type: 'range', min: 0, max: 100, value: Math.max(0, port.volume),
        'aria-label': `${port.name} volume`, 'aria-valuetext': volumeDb(Math.max(0, port.volume)),
        oninput: (e) => { vol.textContent = volumeDb(Number(e.target.value)); e.target.setAttribute('aria-valuetext', vol.textContent); },
        onchange: (e) => this.set(port, Number(e.target.value), mute.checked ? 1 : 0) });
      const mute = element('input', { type: 'checkbox', checked: port.mute === 1, 'aria-label': `Mute ${port.name}`,
        onchange: (e) => this.set(port, Number(volume.value), e.target.checked ? 1 : 0) });
      item.append(element('div', { class: 'controls' }, element('label', { class: 'mute' }, mute, 'mute'), volume, vol));
    }
    const level = Math.max(port.level ?? FLOOR, port.left ?? FLOOR, port.right ?? FLOOR);
    this.meters.set(port.name, { bar, peak, box, text, level, peakLevel: level, peakAt: performance.now(), shown: null });
    return item;
  },
  silence() {
    for (const meter of this.meters.values()) meter.level = meter.peakLevel = FLOOR;
    this.dirty = true;
  },
  set(port, volume, mute) {
    return guarded(this.panel, () => client.request(port.kind === 'output' ? api.setAudioOutput : api.setAudioInput,
      { name: port.name, volume, mute }));
  },
  level(record) {
    const meter = this.meters.get(record.name);
    if (!meter) return;
    const level = Math.max(record.level, record.left ?? FLOOR, record.right ?? FLOOR);
    meter.level = level;
    if (level >= meter.peakLevel || performance.now() - meter.peakAt > 1500) {
      meter.peakLevel = level;
      meter.peakAt = performance.now();
    }
    this.dirty = true;
  },
  // One paint per animation frame, only when a level changed.
  paint() {
    if (this.dirty) {
      this.dirty = false;
      const now = performance.now();
      for (const m of this.meters.values()) {
        if (now - m.peakAt > 1500) m.peakLevel = m.level;
        m.bar.style.transform = `scaleX(${1 - fraction(m.level)})`;
        m.peak.style.left = `${fraction(m.peakLevel) * 100}%`;
        m.box.dataset.level = m.level;
        m.box.dataset.peak = m.peakLevel;
        if (m.shown !== m.level) {
          m.shown = m.level;
          m.text.textContent = levelText(m.level);
          m.box.setAttribute('aria-valuenow', Math.max(FLOOR, Math.min(0, Math.round(m.level))));
        }
      }
    }
    requestAnimationFrame(() => this.paint());
  },
};
requestAnimationFrame(() => audio.paint());
setInterval(() => { audio.dirty = true; }, 250);  // let held peaks fall back

// --- Recordings ------------------------------------------------------------------------

// A bookmark's still, or a labelled placeholder when it has none or it does not load.
const noStill = () => element('div', { class: 'nostill' }, 'no still');
function still(src) {
  const img = element('img', { src, alt: 'Bookmark still', loading: 'lazy' });
  img.addEventListener('error', () => img.replaceWith(noStill()), { once: true });
  return img;
}

// Pages count from 0 in the protocol (page 0: the newest); the page shows them from 1.
const recordings = {
  panel: $('#recordings'),
  page: 0,
  total: 0,
  query: '',
  rows: [],
  loaded: false,
  active: 0,  // index of the row that holds the table's one tab stop
  pages() { return Math.max(1, Math.ceil(this.total / PAGE_SIZE)); },
  async load() {
    this.note('');
    await guarded(this.panel, async () => {
      let rows;
      if (this.query) {
        // Names (and notes) containing the text, one page at a time with the number of matches.
        const { data } = await client.request(api.recordings, { pattern: this.query, page: this.page, count: PAGE_SIZE });
        rows = list(data);
        this.total = Number.isFinite(data.total) ? data.total : this.page * PAGE_SIZE + rows.length;
      } else {
        const [page, count] = await client.batch([
          [api.recordings, { id: 0, page: this.page, count: PAGE_SIZE }], [api.recordingCount]]);
        if (!page.ok) throw Object.assign(new Error(page.comment), { requestType: api.recordings, code: page.code, comment: page.comment });
        rows = list(page.data);
        this.total = count.ok ? (count.data.count ?? count.code) : rows.length;
      }
      this.loaded = true;
      this.render(rows.slice(0, PAGE_SIZE));
    }, this.query ? 'Search' : undefined);
  },
  go(page) {
    this.page = Math.min(Math.max(0, page), this.pages() - 1);
    this.active = 0;
    return this.load();
  },
  search(text) {
    this.query = text;
    this.page = 0;
    this.active = 0;
    $('#rec-clear').hidden = !text;
    return this.load();
  },
  // After a reconnect: the list is read again, a search is not (the person asks again).
  reconnected() {
    if (!this.query) return this.load();
    this.note('The connection was lost: the search was not repeated. Press Search to run it again.');
    return undefined;
  },
  note(text) {
    if (text) $('#rec-count').textContent = text;
  },
  render(rows) {
    this.rows = rows;
    const pages = this.pages();
    $('#rec-count').textContent = this.query
      ? `${plural(this.total, 'recording')} ${this.total === 1 ? 'matches' : 'match'} “${this.query}”`
      : plural(this.total, 'recording');
    for (const pager of $$('.pager', this.panel)) this.pager(pager, pages);
    const body = $('#rec-table tbody');
    if (!rows.length) {
      body.replaceChildren(element('tr', {}, element('td', { class: 'empty', colspan: 4 },
        this.query ? `No recording matches “${this.query}”.` : 'No recordings yet.')));
      return;
    }
    this.active = Math.min(this.active, rows.length - 1);
    const fragment = document.createDocumentFragment();
    rows.forEach((r, index) => {
      const length = clock((r.duration || 0) / 1000);
      const name = r.name || `Recording ${r.id}`;
      fragment.append(element('tr', { tabindex: index === this.active ? 0 : -1, 'data-recording': r.id,
        'aria-label': `${name}, recorded ${dateTime(r.recorded_at)} ${zone.name}, length ${length}, ${r.status}`,
        onclick: () => { this.focus(index); this.show(r); } },
      element('td', { class: 'name' }, name),
      element('td', { class: 'when' }, r.recorded_at ? element('span', {}, dateOf(r.recorded_at)) : '–',
        r.recorded_at ? ' ' : null, r.recorded_at ? element('span', {}, timeOf(r.recorded_at)) : null),
      element('td', {}, length), element('td', {}, r.status)));
    });
    body.replaceChildren(fragment);
  },
  pager(node, pages) {
    if (!node.firstChild) {
      const where = node.dataset.pager;
      const button = (label, name, go) => element('button', { type: 'button', 'aria-label': `${label} page`, 'data-go': name,
        onclick: () => this.go(go()) }, { first: '«', prev: '‹', next: '›', last: '»' }[name]);
      node.append(button('First', 'first', () => 0), button('Previous', 'prev', () => this.page - 1),
        element('label', {}, 'Page ', element('input', { type: 'number', min: 1, inputmode: 'numeric', class: 'page-input',
          'aria-label': `Page number (${where})`,
          onchange: (e) => e.target.value && this.go(Math.round(Number(e.target.value)) - 1),
          onkeydown: (e) => { if (e.key === 'Enter' && e.target.value) e.target.blur(); } })),
        element('span', { class: 'of' }),
        button('Next', 'next', () => this.page + 1), button('Last', 'last', () => this.pages() - 1));
    }
    $('.page-input', node).value = String(this.page + 1);
    $('.page-input', node).max = String(pages);
    $('.of', node).textContent = `of ${pages.toLocaleString('en-US')}`;
    $('[data-go=first]', node).disabled = this.page <= 0;
    $('[data-go=prev]', node).disabled = this.page <= 0;
    $('[data-go=next]', node).disabled = this.page >= pages - 1;
    $('[data-go=last]', node).disabled = this.page >= pages - 1;
  },
  // The table is one tab stop; the arrow keys move between its rows.
  focus(index) {
    const rows = $$('#rec-table tbody tr[data-recording]');
    if (!rows.length) return;
    this.active = Math.min(Math.max(0, index), rows.length - 1);
    rows.forEach((row, i) => row.setAttribute('tabindex', i === this.active ? '0' : '-1'));
    rows[this.active].focus();
  },
  key(event) {
    const row = event.target.closest('tr[data-recording]');
    if (!row) return;
    const step = { ArrowDown: 1, ArrowUp: -1, PageDown: 10, PageUp: -10 }[event.key];
    if (step) this.focus(this.active + step);
    else if (event.key === 'Home') this.focus(0);
    else if (event.key === 'End') this.focus(this.rows.length - 1);
    else if (event.key === 'Enter' || event.key === ' ') this.show(this.rows[this.active]);
    else return;
    event.preventDefault();
  },
  async show(recording) {
    if (!recording) return;
    for (const row of $$('#rec-table tbody tr'))
      row.classList.toggle('selected', row.dataset.recording === String(recording.id));
    const detail = $('#rec-detail');
    detail.hidden = false;
    detail.replaceChildren(element('h3', {}, recording.name || `Recording ${recording.id}`),
      element('p', { class: 'muted' }, 'Loading…'));
    let full;
    let marks;
    try {
      [full, marks] = await client.batch([[api.recordings, { id: recording.id }],
        [api.bookmarks, { path: `${recording.folder}/bookmark.json` }]]);
    } catch (error) {
      const { text, detail: code } = describe(error, 'Reading the recording');
      detail.replaceChildren(element('h3', {}, recording.name || `Recording ${recording.id}`),
        element('p', { class: 'error' }, text, element('span', { class: 'detail-code' }, code)));
      return;
    }
    const record = full.ok ? (list(full.data)[0] || recording) : recording;
    const videos = element('ul', { class: 'videos' }, ...(record.videos || []).map((v) =>
      element('li', {}, v.file_name, ' ', element('span', { class: 'muted' }, `${v.status} · ${clock((v.duration || 0) / 1000)}`))));
    const items = marks.ok ? (marks.data.bookmark?.items || list(marks.data)) : [];
    const bookmarks = element('div', { class: 'stills' }, ...items.map((b) => element('figure', {},
      b.snapshot ? still(`/images/bookmarks/${record.id}/${b.snapshot.split('/').map(encodeURIComponent).join('/')}`) : noStill(),
      element('figcaption', {}, `${clock(b.time / 1000)} ${b.text}`))));
    detail.replaceChildren(element('h3', {}, record.name || `Recording ${record.id}`),
      element('p', { class: 'muted' }, `${dateTime(record.recorded_at)} ${zone.name} · ${record.status}`),
      element('h4', {}, 'Videos'), (record.videos || []).length ? videos : element('p', { class: 'muted' }, 'No videos.'),
      element('h4', {}, 'Bookmarks'), items.length ? bookmarks : element('p', { class: 'muted' },
        marks.ok ? 'No bookmarks.' : describe({ requestType: api.bookmarks, code: marks.code, comment: marks.comment }).text));
  },
};
$('#rec-table').addEventListener('keydown', (e) => recordings.key(e));
$('#rec-search').addEventListener('submit', (e) => {
  e.preventDefault();
  recordings.search($('#rec-query').value.trim());
});
$('#rec-clear').addEventListener('click', () => {
  $('#rec-query').value = '';
  recordings.search('');
});

// --- Events ----------------------------------------------------------------------------

// A one-line summary of an event's record: its members as "name value", the longest cut.
function summary(type, data) {
  if (type === 'streaming_state' && data.state) return `engine ${data.state}`;
  if (type === 'recording_created' || type === 'recording_ready') return `${data.name || ''} (id ${data.id})`;
  if (type === 'channel_status') return `${data.name}: ${data.status > 0 ? 'signal' : 'no signal'}`;
  if (type === 'engine_lost' || type === 'engine_restored') return data.reason || '';
  return Object.entries(data || {}).map(([key, value]) =>
    `${key} ${typeof value === 'object' ? JSON.stringify(value) : value}`).join(' · ');
}

const events = {
  log: $('#event-log'),
  filter: '',
  max: 200,
  matches(item) { return !this.filter || item.dataset.text.includes(this.filter); },
  add(type, data) {
    const json = JSON.stringify(data, null, 1);
    const line = summary(type, data);
    const item = element('li', { 'data-type': type },
      element('details', {},
        element('summary', {}, element('time', {}, timeOf(Date.now() / 1000, true)),
          element('span', { class: 'type' }, type), element('span', { class: 'sum' }, line)),
        element('pre', {}, json)));
    item.dataset.text = `${type} ${line} ${json}`.toLowerCase();
    item.hidden = !this.matches(item);
    this.log.prepend(item);
    while (this.log.childElementCount > this.max) this.log.lastElementChild.remove();
    this.empty();
  },
  apply() {
    for (const item of this.log.children) item.hidden = !this.matches(item);
    this.empty();
  },
  empty() {
    const shown = [...this.log.children].some((item) => !item.hidden);
    const note = $('#event-empty');
    note.hidden = shown;
    note.textContent = this.log.childElementCount ? `No event matches “${this.filter}”.` : 'No events yet.';
  },
};
$('#event-filter').addEventListener('input', (e) => {
  events.filter = e.target.value.trim().toLowerCase();
  events.apply();
});

// --- Wiring ----------------------------------------------------------------------------

const QUIET = new Set(['audio_level', 'streaming_duration', 'status']);  // too many for the log
let dataChanged = 0;
client.addEventListener('event', (e) => {
  const { type, data } = e.detail;
  if (!QUIET.has(type)) events.add(type, data);
  switch (type) {
    case 'streaming_state': return guarded(header.panel, () => header.load());
    case 'streaming_duration': return header.duration(data.duration);
    case 'status': for (const s of data.streams || []) outputs.status(s.name, data.state); return undefined;
    case 'stream_status': return outputs.status(data.name, data.status === 'stopped' ? '' : data.status);
    case 'video_layout': return mixer.highlight(data.id);
    case 'video_background': return guarded(mixer.panel, () => mixer.load());
    case 'channel_status': return inputs.status(data);
    case 'audio_level': return audio.level(data);
    case 'recording_created': case 'recording_ready':
      // The newest come first: a new one shows at the top of the first page.
      return recordings.query ? undefined : recordings.load();
    case 'media_data_changed':
      clearTimeout(dataChanged);
      dataChanged = setTimeout(() => guarded(outputs.panel, () => outputs.load()), 300);
      return undefined;
    case 'engine_restored': return loadAll('engine');
    case 'engine_lost': return availability();
    default: return undefined;
  }
});
client.addEventListener('state', () => {
  if (client.hello) setZone(client.hello.timeZone);
  // A new connection is a new watch: the old token went with the old connection.
  if (client.state !== 'ready') live.token = '';
  live.update();
  if (client.state === 'ready') {
    login.accepted();
    const why = everReady ? 'reconnect' : 'first';
    everReady = true;
    availability();
    loadAll(why);
  } else {
    availability();
  }
});
client.addEventListener('engine', availability);

// Every panel at once; each shows its own failure. `why`: 'first' load, 'reconnect' (the
// recordings list is read again, a search the person ran is not repeated) or 'engine' back
// (the recordings come from the database and did not go away).
function loadAll(why) {
  return Promise.all([
    guarded(outputs.panel, () => outputs.load()).then(() => guarded(header.panel, () => header.load())),
    guarded(inputs.panel, () => inputs.load()),
    guarded(mixer.panel, () => mixer.load()),
    guarded(audio.panel, () => audio.load()),
    why === 'first' ? recordings.load() : why === 'reconnect' ? recordings.reconnected() : undefined,
  ]).then(() => { document.body.dataset.loaded = 'true'; });
}

setZone(null);
availability();
$('#program-view').replaceWith(live.view('program', '/live/program.jpg', 'the program', 'program-picture'));
client.connect();
