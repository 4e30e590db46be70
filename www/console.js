// The appliance console: every panel of the page, fed by one gateway connection.
//
// Each panel has a load() that asks the gateway for its data and event handlers that keep it
// current. A failed request shows its result text in the panel it belongs to.
import { MediaClient } from './zolo-media.js';

// Requests by what the page needs; each is a library call of the same name without "zm_".
const api = {
  state: 'get_state',
  start: 'start_stream', pause: 'pause_stream', resume: 'resume_stream', stop: 'stop_stream',
  streams: 'get_stream_by_pattern', streamStatus: 'get_streaming_status',
  enableStream: 'enable_stream', suspendStream: 'suspend_stream',
  channels: 'get_channel', channelSnapshot: 'make_channel_preview_snapshot',
  layouts: 'get_layout', layoutOnAir: 'get_video_layout', setLayout: 'set_video_layout',
  themes: 'get_theme', setTheme: 'set_video_theme',
  backgrounds: 'get_background', setBackground: 'set_video_background',
  audioInputs: 'get_audio_input', setAudioInput: 'set_audio_input',
  recordings: 'get_recording', recordingCount: 'get_recording_count',
  bookmarks: 'load_recording_bookmark', addBookmark: 'add_bookmark',
};
const MIXER_MAIN = 1;  // the program mixer
const PAGE_SIZE = 100;
const STATE = { 1: 'idle', 3: 'recording', 4: 'paused' };
const $ = (selector, root = document) => root.querySelector(selector);

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
  for (const child of children) if (child !== null && child !== undefined) node.append(child);
  return node;
}

// An image the gateway serves from a "file://" path in one of its image folders.
function imageUrl(kind, fileUrl) {
  if (!fileUrl) return '';
  const name = fileUrl.replace(/^file:\/\//, '').split('/').pop();
  return `/images/${kind}/${encodeURIComponent(name)}`;
}

const pad = (n) => String(n).padStart(2, '0');
function clock(seconds) {
  const s = Math.max(0, Math.floor(seconds));
  return `${pad(Math.floor(s / 3600))}:${pad(Math.floor(s / 60) % 60)}:${pad(s % 60)}`;
}
function localTime(seconds) {
  if (!seconds) return '–';
  const d = new Date(seconds * 1000);
  return `${d.getFullYear()}-${pad(d.getMonth() + 1)}-${pad(d.getDate())} ${pad(d.getHours())}:${pad(d.getMinutes())}`;
}

// Shows `error`'s text in `panel`'s error line (or clears it).
function showError(panel, error) {
  const line = $('.error', panel);
  if (!line) return;
  line.hidden = !error;
  line.textContent = error ? (error.comment ? `${error.requestType}: ${error.comment}` : String(error.message || error)) : '';
}

// Runs `work` (a promise-returning function) for `panel`, showing a failure where it happened.
async function guarded(panel, work) {
  try {
    const result = await work();
    showError(panel, null);
    return result;
  } catch (error) {
    showError(panel, error);
    return undefined;
  }
}

const client = new MediaClient({
  password: (why) => askPassword(why),
  subscriptions: {
    events: ['streaming_state', 'streaming_duration', 'status', 'stream_status', 'video_layout',
      'video_background', 'channel_status', 'audio_level', 'audio_volume', 'recording_created',
      'recording_ready', 'bookmark_added', 'bookmark_removed', 'media_data_changed',
      'stream_error', 'storage_status', 'hardware_error', 'media_crashed'],
    rates: { audio_level: 30, streaming_duration: 2 },
  },
});
window.mediaClient = client;  // for the browser tests and the curious developer

// --- Login ---------------------------------------------------------------------------

let passwordWaiter = null;
function askPassword(why) {
  const dialog = $('#login');
  const error = $('#login-error');
  error.hidden = !why;
  error.textContent = why === 'locked-out' ? 'Too many attempts: try again later.'
    : why ? 'Wrong password.' : '';
  if (!dialog.open) dialog.showModal();
  $('#login-password').value = '';
  $('#login-password').focus();
  return new Promise((resolve) => { passwordWaiter = resolve; });
}
$('#login-form').addEventListener('submit', () => {
  const resolve = passwordWaiter;
  passwordWaiter = null;
  if (resolve) resolve($('#login-password').value);
});
$('#login').addEventListener('cancel', (e) => e.preventDefault());  // the page needs it

// --- Header ----------------------------------------------------------------------------

const header = {
  state: 0,
  startedAt: 0,  // local clock when recording time was last known
  recorded: 0,   // seconds recorded then
  async load() {
    const { data } = await client.request(api.state);
    this.show(data.state);
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
    $('#rec-time').hidden = state !== 3 && state !== 4;
    $('#bookmark-add').disabled = state !== 3;
    if (state === 1) this.recorded = 0;
    if (state === 3 && !this.startedAt) this.startedAt = performance.now() / 1000 - this.recorded;
    if (state !== 3) this.startedAt = 0;
    this.tick();
  },
  tick() {
    const seconds = this.startedAt ? performance.now() / 1000 - this.startedAt : this.recorded;
    $('#rec-time').textContent = clock(seconds);
  },
  duration(seconds) {
    this.recorded = seconds;
    if (this.state === 3) this.startedAt = performance.now() / 1000 - seconds;
    this.tick();
  },
  async command(name) {
    const panel = $('#header');
    await guarded(panel, () => client.request(api[name], { persist: false }));
    await guarded(panel, () => this.load());
    if (name === 'stop') recordings.load();
  },
};
for (const name of ['start', 'pause', 'resume', 'stop'])
  $(`#btn-${name}`).addEventListener('click', () => header.command(name));
setInterval(() => header.tick(), 500);

function showConnection() {
  const pill = $('#conn-state');
  const lost = client.state === 'ready' && client.engine === 'lost';
  const text = {
    ready: 'connected', connecting: 'connecting…', authenticating: 'signing in…',
    offline: 'gateway offline, reconnecting…', 'auth-failed': 'password refused',
  }[client.state] || client.state;
  pill.textContent = lost ? 'engine not answering' : text;
  pill.className = `pill conn ${lost || client.state !== 'ready' ? 'bad' : 'ok'}`;
  document.body.classList.toggle('engine-lost', lost);
}

// --- Outputs ---------------------------------------------------------------------------

const outputs = {
  panel: $('#outputs'),
  rows: new Map(),  // stream name -> row
  async load() {
    const { data } = await client.request(api.streams, { pattern: '%' });
    const body = $('tbody', this.panel);
    body.replaceChildren();
    this.rows.clear();
    for (const s of list(data)) {
      const status = element('span', { class: 'status-text muted' }, s.suspend ? 'suspended' : 'idle');
      const enable = element('input', { type: 'checkbox', 'aria-label': `Enable ${s.name}`, checked: !!s.enable,
        onchange: (e) => guarded(this.panel, () => client.request(api.enableStream,
          { name: s.name, enable: e.target.checked ? 1 : 0 })) });
      const suspend = element('input', { type: 'checkbox', 'aria-label': `Suspend ${s.name}`, checked: !!s.suspend,
        onchange: (e) => guarded(this.panel, () => client.request(api.suspendStream,
          { pattern: s.name, suspend: e.target.checked ? 1 : 0 })) });
      const row = element('tr', { 'data-stream': s.name },
        element('td', {}, element('strong', {}, s.name), ' ', element('span', { class: 'muted' }, s.type),
          element('span', { class: 'dest', title: s.destination }, s.destination)),
        element('td', {}, status), element('td', {}, enable), element('td', {}, suspend));
      this.rows.set(s.name, row);
      body.append(row);
    }
  },
  status(name, text, live) {
    const row = this.rows.get(name);
    if (!row) return;
    const cell = $('.status-text', row);
    cell.textContent = text;
    cell.className = `status-text ${live ? 'live' : 'muted'}`;
  },
};

// --- Inputs ----------------------------------------------------------------------------

const inputs = {
  panel: $('#inputs'),
  items: new Map(),  // channel id -> list item
  async load() {
    const { data } = await client.request(api.channels, { id: 0 });
    const listNode = $('.inputs', this.panel);
    listNode.replaceChildren();
    this.items.clear();
    for (const c of list(data)) {
      const sources = [c.video_source_name, c.audio_source_name, c.video_user_source_name,
        c.audio_user_source_name].filter(Boolean);
      const thumb = element('img', { class: 'thumb', alt: `${c.name} snapshot`, hidden: true });
      const button = element('button', { type: 'button', onclick: () => this.snapshot(c, thumb) }, 'Snapshot');
      const item = element('li', { 'data-channel': c.id },
        thumb.hidden ? element('div', { class: 'thumb' }) : thumb,
        element('div', {},
          element('div', { class: 'name' }, element('span', { class: 'state-dot', title: 'not seen yet' }), c.name),
          element('div', { class: 'sources' }, sources.join(' · ') || 'no source')),
        button);
      item.thumbImage = thumb;
      this.items.set(c.id, item);
      listNode.append(item);
    }
  },
  async snapshot(channel, thumb) {
    const item = this.items.get(channel.id);
    await guarded(this.panel, async () => {
      // The engine writes the still of the channel's video user source in the background.
      await client.request(api.channelSnapshot, { channel: channel.id, width: 320, height: 180 });
      const name = `snapshot_${String(channel.video_user_source_id).padStart(3, '0')}.jpg`;
      for (let attempt = 0; attempt < 10; attempt++) {
        await new Promise((resolve) => setTimeout(resolve, 300));
        const url = `/images/channels/${name}?t=${Date.now()}`;
        if ((await fetch(url, { method: 'HEAD' })).ok) {
          thumb.src = url;
          thumb.hidden = false;
          item.firstChild.replaceWith(thumb);
          return;
        }
      }
      throw new Error('the snapshot did not appear');
    });
  },
  status(record) {
    const item = this.items.get(record.id);
    if (!item) return;
    const dot = $('.state-dot', item);
    const on = record.status > 0;
    dot.className = `state-dot ${on ? 'on' : 'off'}`;
    dot.title = on ? 'connected' : 'not connected';
  },
};

// --- Mixer -----------------------------------------------------------------------------

const mixer = {
  panel: $('#mixer'),
  tiles: new Map(),  // layout id -> tile
  onAir: 0,
  async load() {
    const [layouts, onAir, themes, backgrounds] = await client.batch([
      [api.layouts, { id: 0 }], [api.layoutOnAir, { mixer: MIXER_MAIN }],
      [api.themes, { id: 0 }], [api.backgrounds, { id: 0 }]]);
    if (!layouts.ok) throw { requestType: api.layouts, comment: layouts.comment };
    const groups = new Map();
    for (const l of list(layouts.data)) {
      if (!groups.has(l.group)) groups.set(l.group, []);
      groups.get(l.group).push(l);
    }
    const grid = $('.layouts', this.panel);
    grid.replaceChildren();
    this.tiles.clear();
    for (const [group, members] of groups) {
      const row = element('div', { class: 'tiles' });
      for (const l of members) {
        const tile = element('button', { type: 'button', class: 'tile', 'data-layout': l.id,
          title: `${l.name} (${l.id})`, onclick: () => this.put(l.id) },
          this.picture(l), element('span', {}, l.name));
        this.tiles.set(l.id, tile);
        row.append(tile);
      }
      grid.append(element('div', { class: 'group' }, element('h3', {}, group || 'Other'), row));
    }
    if (onAir.ok) this.highlight(onAir.code > 0 ? onAir.code : onAir.data.id);
    this.fill('#theme-select', themes, (t) => t.name);
    this.fill('#background-select', backgrounds, (b) => b.name);
  },
  // The rendered preview; where there is none (or it is not there yet), the layout's windows
  // drawn by the page.
  picture(layout) {
    const drawn = () => element('div', { class: 'drawn', 'aria-hidden': 'true' },
      ...(layout.video_layouts || []).map((w) => element('i', {
        style: `left:${w.x * 100}%;top:${w.y * 100}%;width:${w.w * 100}%;height:${w.h * 100}%;` +
          `z-index:${w.z};background:hsl(${(w.id * 67) % 360} 45% 38%)` }, String(w.id))));
    if (!layout.image) return drawn();
    const img = element('img', { src: imageUrl('layouts', layout.image), alt: '', loading: 'lazy' });
    img.addEventListener('error', () => img.replaceWith(drawn()), { once: true });
    return img;
  },
  fill(selector, answer, label) {
    const select = $(selector, this.panel);
    select.replaceChildren(element('option', { value: '' }, '—'));
    if (answer.ok) for (const item of list(answer.data)) select.append(element('option', { value: item.id }, label(item)));
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
      tile.classList.toggle('on-air', layout === id);
      tile.setAttribute('aria-pressed', layout === id ? 'true' : 'false');
    }
  },
};
$('#theme-select').addEventListener('change', (e) => e.target.value && guarded(mixer.panel,
  () => client.request(api.setTheme, { id: Number(e.target.value), mixer: MIXER_MAIN })));
$('#background-select').addEventListener('change', (e) => e.target.value && guarded(mixer.panel,
  () => client.request(api.setBackground, { id: Number(e.target.value), mixer: MIXER_MAIN })));

// --- Audio -----------------------------------------------------------------------------

// Levels are dBFS (-60 … 0). A meter shows the level and holds its peak for 1.5 s.
const audio = {
  panel: $('#audio'),
  meters: new Map(),  // port name -> {bar, peak, level, peakLevel, peakAt}
  dirty: false,
  async load() {
    const { data } = await client.request(api.audioInputs);
    const listNode = $('.meters', this.panel);
    listNode.replaceChildren();
    this.meters.clear();
    for (const port of list(data)) {
      const bar = element('div', { class: 'level' });
      const peak = element('div', { class: 'peak' });
      const volume = element('input', { type: 'range', min: 0, max: 100, value: Math.max(0, port.volume),
        'aria-label': `${port.name} volume`,
        onchange: (e) => this.set(port.name, Number(e.target.value), mute.checked ? 1 : 0) });
      const mute = element('input', { type: 'checkbox', checked: port.mute === 1, 'aria-label': `Mute ${port.name}`,
        onchange: (e) => this.set(port.name, Number(volume.value), e.target.checked ? 1 : 0) });
      listNode.append(element('li', { 'data-port': port.name },
        element('span', { class: 'port' }, port.name),
        element('div', { class: 'meter', role: 'meter', 'aria-label': `${port.name} level` }, bar, peak),
        element('label', { class: 'mute' }, mute, 'mute'), volume));
      this.meters.set(port.name, { bar, peak, level: -60, peakLevel: -60, peakAt: 0 });
    }
  },
  set(name, volume, mute) {
    return guarded(this.panel, () => client.request(api.setAudioInput, { name, volume, mute }));
  },
  level(record) {
    const meter = this.meters.get(record.name);
    if (!meter) return;
    const level = Math.max(record.level, record.left ?? -60, record.right ?? -60);
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
        const fraction = (db) => Math.min(1, Math.max(0, (db + 60) / 60));
        m.bar.style.transform = `scaleX(${fraction(m.level)})`;
        m.peak.style.left = `${fraction(m.peakLevel) * 100}%`;
        m.bar.parentNode.dataset.level = m.level;
        m.bar.parentNode.dataset.peak = m.peakLevel;
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
  const img = element('img', { src, alt: '', loading: 'lazy' });
  img.addEventListener('error', () => img.replaceWith(noStill()), { once: true });
  return img;
}

const recordings = {
  panel: $('#recordings'),
  page: 1,
  total: 0,
  query: '',
  selected: null,
  async load() {
    await guarded(this.panel, async () => {
      let rows;
      if (this.query) {
        rows = list((await client.request(api.recordings, { pattern: this.query })).data);
        this.total = rows.length;
      } else {
        const [page, count] = await client.batch([
          [api.recordings, { id: 0, page: this.page, count: PAGE_SIZE }], [api.recordingCount]]);
        if (!page.ok) throw { requestType: api.recordings, comment: page.comment };
        rows = list(page.data);
        this.total = count.ok ? (count.data.count ?? count.code) : rows.length;
      }
      this.render(rows);
    });
  },
  render(rows) {
    const pages = Math.max(1, Math.ceil(this.total / PAGE_SIZE));
    $('#rec-page').textContent = this.query ? `“${this.query}”` : `page ${this.page} of ${pages}`;
    $('#rec-count').textContent = `${this.total.toLocaleString()} recordings`;
    $('#rec-prev').disabled = !!this.query || this.page <= 1;
    $('#rec-next').disabled = !!this.query || this.page >= pages;
    const body = $('#rec-table tbody');
    const fragment = document.createDocumentFragment();
    for (const r of rows) {
      fragment.append(element('tr', { class: 'selectable', tabindex: 0, 'data-recording': r.id,
        onclick: () => this.show(r), onkeydown: (e) => e.key === 'Enter' && this.show(r) },
      element('td', { title: r.name }, r.name || `#${r.id}`), element('td', {}, localTime(r.recorded_at)),
      element('td', {}, clock((r.duration || 0) / 1000)), element('td', {}, r.status)));
    }
    body.replaceChildren(fragment);
  },
  async show(recording) {
    this.selected = recording;
    for (const row of $('#rec-table tbody').children)
      row.classList.toggle('selected', row.dataset.recording === String(recording.id));
    const detail = $('#rec-detail');
    detail.hidden = false;
    detail.replaceChildren(element('h3', {}, recording.name || `Recording ${recording.id}`),
      element('p', { class: 'muted' }, 'Loading…'));
    const [full, marks] = await client.batch([[api.recordings, { id: recording.id }],
      [api.bookmarks, { path: `${recording.folder}/bookmark.json` }]]);
    const record = full.ok ? (list(full.data)[0] || recording) : recording;
    const videos = element('ul', { class: 'videos' }, ...(record.videos || []).map((v) =>
      element('li', {}, v.file_name, ' ', element('span', { class: 'muted' }, `${v.status} · ${clock((v.duration || 0) / 1000)}`))));
    const items = marks.ok ? (marks.data.bookmark?.items || list(marks.data)) : [];
    const bookmarks = element('div', { class: 'stills' }, ...items.map((b) => element('figure', {},
      b.snapshot ? still(`/images/bookmarks/${record.id}/${b.snapshot.split('/').map(encodeURIComponent).join('/')}`) : noStill(),
      element('figcaption', {}, `${clock(b.time / 1000)} ${b.text}`))));
    detail.replaceChildren(element('h3', {}, record.name || `Recording ${record.id}`),
      element('p', { class: 'muted' }, `${localTime(record.recorded_at)} · ${record.status}`),
      element('h4', {}, 'Videos'), videos,
      element('h4', {}, 'Bookmarks'), items.length ? bookmarks : element('p', { class: 'muted' },
        marks.ok ? 'none' : marks.comment));
  },
};
$('#rec-prev').addEventListener('click', () => { recordings.page -= 1; recordings.load(); });
$('#rec-next').addEventListener('click', () => { recordings.page += 1; recordings.load(); });
$('#rec-search').addEventListener('submit', (e) => {
  e.preventDefault();
  recordings.query = $('#rec-query').value.trim();
  recordings.page = 1;
  recordings.load();
});
$('#bookmark-form').addEventListener('submit', (e) => {
  e.preventDefault();
  const text = $('#bookmark-text').value.trim() || 'bookmark';
  guarded(recordings.panel, async () => {
    await client.request(api.addBookmark, { text, counter: false });
    $('#bookmark-text').value = '';
  });
});

// --- Events ----------------------------------------------------------------------------

const events = {
  log: $('#event-log'),
  filter: '',
  max: 200,
  add(type, data) {
    const text = JSON.stringify(data);
    const time = new Date().toLocaleTimeString();
    const item = element('li', { 'data-type': type }, element('time', {}, time),
      element('span', { class: 'type' }, type), element('span', { class: 'data', title: text }, text));
    item.hidden = !!this.filter && !`${type} ${text}`.includes(this.filter);
    this.log.prepend(item);
    while (this.log.childElementCount > this.max) this.log.lastElementChild.remove();
  },
};
$('#event-filter').addEventListener('input', (e) => {
  events.filter = e.target.value.trim();
  for (const item of events.log.children)
    item.hidden = !!events.filter && !item.textContent.includes(events.filter);
});

// --- Wiring ----------------------------------------------------------------------------

const QUIET = new Set(['audio_level', 'streaming_duration']);  // too many for the log
client.addEventListener('event', (e) => {
  const { type, data } = e.detail;
  if (!QUIET.has(type)) events.add(type, data);
  switch (type) {
    case 'streaming_state': return guarded($('#header'), () => header.load());
    case 'streaming_duration': return header.duration(data.duration);
    case 'status': for (const s of data.streams || []) outputs.status(s.name, data.state, true); return undefined;
    case 'stream_status': return outputs.status(data.name, data.status, data.status !== 'stopped');
    case 'video_layout': return mixer.highlight(data.id);
    case 'channel_status': return inputs.status(data);
    case 'audio_level': return audio.level(data);
    case 'recording_created': case 'recording_ready': return recordings.load();
    case 'engine_restored': return loadAll();
    default: return undefined;
  }
});
client.addEventListener('state', () => {
  showConnection();
  if (client.state === 'ready') {
    const dialog = $('#login');
    if (dialog.open) dialog.close();
    loadAll();
  }
});
client.addEventListener('engine', showConnection);

// Every panel at once; each shows its own failure.
function loadAll() {
  return Promise.all([
    guarded($('#header'), () => header.load()),
    guarded(outputs.panel, () => outputs.load()),
    guarded(inputs.panel, () => inputs.load()),
    guarded(mixer.panel, () => mixer.load()),
    guarded(audio.panel, () => audio.load()),
    recordings.load(),
  ]).then(() => { document.body.dataset.loaded = 'true'; });
}

showConnection();
client.connect();
