'use strict';
// The page: what is played, drawn and saved, and the controls.

const LONGEST = 600;        // seconds of speech that are used of a file
const LONGEST_TAKE = 300;   // seconds that are recorded of the microphone
const CLOSEST = 0.005;      // seconds across the pictures
const AT_A_TIME = 12;       // milliseconds of work before the page may do other things
const STARTED_AFTER = 3;    // seconds after which a start of the audio is late
const ADDRESS_AFTER = 0.2;  // seconds after a change; browsers refuse an address that changes many times a second

const $ = (id) => document.getElementById(id);
const rows = [...document.querySelectorAll('.row')];

const settings = {
  rate: 16000,
  loss: 10,
  burst: 3,
  seed: 1,
  hear: 'concealed'
};
const page = {
  instance: null,  // of the WebAssembly module
  asked: null,     // the source that was asked for last
  source: null,    // name; read(), which resolves to the bytes of a sound file
  rate: null,      // of the speech; the settings' rate may still be on its way
  speech: null,
  lost: null,  // a byte for each frame of the speech
  take: null,  // what is heard: signals, outlines, states
  view: {first: 0, last: 1},
  position: 0,  // samples
  seek: 0,      // number of the last jump of the position
  playing: false,
  audio: null,    // context and player; while the microphone is on, its stream and its input to the player
  asking: false,  // for the microphone
  writing: null,  // timer of the address
  formats: null,  // what is constant of a link, by rate
};

// ---- Settings, and the address that holds them

const LIMITS = {
  loss: [0, 50],
  burst: [1, 10],
  seed: [0, 2 ** 32 - 1]
};

function readAddress() {
  const given = new URLSearchParams(location.hash.slice(1));
  const number = (key) => {
    const value = parseFloat(given.get(key));
    return Number.isFinite(value) ? Math.min(Math.max(value, LIMITS[key][0]), LIMITS[key][1]) : settings[key];
  };
  return {
    rate: ['8000', '16000'].includes(given.get('rate')) ? Number(given.get('rate')) : settings.rate,
    loss: number('loss'),
    burst: number('burst'),
    seed: Math.floor(number('seed')),
    hear: TREATMENTS.includes(given.get('hear')) ? given.get('hear') : settings.hear,
  };
}

function change(changes) {
  const old = {...settings};
  Object.assign(settings, changes);
  showSettings();
  const {rate, loss, burst, seed, hear} = settings;
  clearTimeout(page.writing);
  page.writing = setTimeout(
      () => history.replaceState(null, '', `#rate=${rate}&loss=${loss}&burst=${burst}&seed=${seed}&hear=${hear}`),
      1000 * ADDRESS_AFTER);
  if (hear !== old.hear) tell({hear: TREATMENTS.indexOf(hear)});
  if (rate !== old.rate) {
    if (recording())
      stop();
    else
      load(page.asked);
  } else if (loss !== old.loss || burst !== old.burst || seed !== old.seed) {
    changeLosses();
  }
}

function showSettings() {
  const {rate, loss, burst, seed, hear} = settings;
  $('loss').value = loss;
  $('loss-text').textContent = `${loss} %`;
  $('burst').value = burst;
  $('burst-text').textContent = burst === 1 ? '1 frame' : `${burst} frames`;
  for (const id of ['loss', 'burst']) $(id).setAttribute('aria-valuetext', $(`${id}-text`).textContent);
  $('seed').value = seed;
  for (const radio of document.querySelectorAll('input[name=rate]')) radio.checked = Number(radio.value) === rate;
  $('agrees').textContent = rate === 16000 && hear !== 'sent' ?
      'this writes what is heard, where the speech is a 16-bit WAV file at 16000 Hz' :
      'this has the same losses';
  const flag = {received: ' --conceal mute', repeated: ' --conceal off'}[hear] ?? '';
  $('command').textContent =
      `voice_link link speech.wav heard.wav --rate ${rate} --loss ${loss} --burst ${burst} --seed ${seed}${flag}`;
  for (const row of rows) {
    const chosen = row.dataset.treatment === hear;
    row.classList.toggle('chosen', chosen);
    row.querySelector('input').checked = chosen;
  }
}

function problem(text) {
  $('problem').textContent = text;
  $('problem').hidden = !text;
  if (text) $('problem').scrollIntoView({block: 'nearest'});
}

// ---- Speech

// Makes a source the speech, at the rate of the settings. The newest call wins.
async function load(source) {
  const {rate} = settings;
  page.asked = source;
  showSource();
  const most = LONGEST * rate;
  const bytes = await source.read().catch(() => null);
  const speech = bytes && await decode(bytes, rate, most + 1).catch(() => null);
  if (source !== page.asked || rate !== settings.rate) return;  // a newer call goes on
  const wrong = !bytes ? 'cannot be read' :
      !speech          ? 'is not a sound that this browser can decode' :
      !speech.length   ? 'holds no sound' :
                         '';
  if (wrong) {
    problem(`${source.name} ${wrong}.`);
    page.asked = page.source;
    showSource();
    if (page.rate) change({rate: page.rate});
    return;
  }
  problem(speech.length > most ? `Only the first ${LONGEST / 60} minutes of ${source.name} are used.` : '');
  closeMicrophone();
  setSpeech(source, rate, speech.subarray(0, most));
}

// If only the rate changes, position and view stay.
function setSpeech(source, rate, speech) {
  const scale = source === page.source ? rate / page.rate : 0;
  const {first, last} = scale ? page.view : {first: 0, last: Infinity};
  const position = Math.min(Math.round(page.position * scale), speech.length - 1);
  if (rate !== page.rate) closeAudio();
  Object.assign(page, {source, rate, speech, take: null});
  page.lost = losses(page.instance, Math.ceil(speech.length / format().frame), settings);
  look(first * scale, (last - first) * (scale || 1));
  jump(position, {speech, lost: page.lost});
  $('play').disabled = false;
  showSource();
  showPlaying();
  if (page.playing) play();
  render();
}

function showSource() {
  const {asked, source, clip} = page;
  $('source').textContent = asked !== source ? `${asked.name}, opening…` : recording() ? 'the microphone' : source.name;
  $('clip').hidden = source === clip;
}

function changeLosses() {
  if (!page.speech) return;
  page.lost = losses(page.instance, page.lost.length, settings);
  tell({lost: page.lost});
  if (!recording()) render();
}

// Frame, delay and what else is constant of a link at this rate.
function format() {
  page.formats ??= new Map([8000, 16000].map((rate) => [rate, new Link(page.instance, rate)]));
  return page.formats.get(page.rate);
}

// All that can be heard of the speech, lined up with it. Newer losses end an older call.
async function render() {
  const {rate, speech, lost} = page;
  showSave();
  const link = new Link(page.instance, rate);
  const signals = TREATMENTS.map(() => new Int16Array(speech.length));
  const states = [];
  const calls = lost.length + Math.ceil(link.delay / link.frame);
  for (let n = 0, begun = performance.now(); n < calls; ++n) {
    if (performance.now() - begun > AT_A_TIME) {
      await new Promise((go) => setTimeout(go));
      begun = performance.now();
    }
    if (page.lost !== lost) return link.delete();
    const from = n * link.frame;
    link.pass(speech.subarray(from, from + link.frame), n < lost.length ? lost[n] : 0);
    if (n >= link.ahead) states.push([...link.state]);
    put(signals, link, from - link.delay);
  }
  link.delete();
  page.take = {signals, outlines: signals.map((signal) => new Outline(signal)), states, lost};
  showSave();
  showCounts();
  draw();
}

// A saved file agrees with the settings: nothing is saved while new signals are computed or while recording.
function showSave() {
  $('save').disabled = page.take?.lost !== page.lost;
}

// Puts a frame of what is heard into its place, which may lie partly before or behind the signals.
function put(signals, link, at) {
  signals.forEach((signal, k) => {
    const first = Math.max(-at, 0);
    const last = Math.min(link.frame, signal.length - at);
    if (first < last) signal.set(link.heard[k].subarray(first, last), at + first);
  });
}

// ---- Playing

function tell(message) {
  page.audio?.player?.port.postMessage(message);
}

// Opens the audio at the rate of the speech, once. Safari asks that resume() is called within the visitor's click.
async function openAudio() {
  const audio = page.audio ??= {context: new AudioContext({sampleRate: page.rate})};
  const late = setTimeout(() => problem('The browser has not started its sound output yet.'), 1000 * STARTED_AFTER);
  try {
    await Promise.all([audio.context.resume(), audio.ready ??= addPlayer(audio)]);
  } catch (error) {
    if (audio !== page.audio) return;  // closed in the meantime
    closeAudio();
    throw error;
  } finally {
    clearTimeout(late);
  }
}

async function addPlayer(audio) {
  if (audio.context.sampleRate !== page.rate) throw new Error('it chooses the rate itself');
  audio.player = await makePlayer(audio.context);
  audio.player.connect(audio.context.destination);
  audio.player.onprocessorerror = () => problem('The player does not run in the audio thread of this browser.');
  audio.player.port.onmessage = ({data}) => hear(data);
}

// A player of the page's speech, at its position.
async function makePlayer(context) {
  const text = $('shared').textContent + $('player').textContent;
  // A page from the disk may not load what URL.createObjectURL names.
  await context.audioWorklet.addModule(`data:text/javascript,${encodeURIComponent(text)}`);
  const {rate, speech, lost, position, seek, playing} = page;
  return new AudioWorkletNode(context, 'player', {
    outputChannelCount: [1],
    channelCount: 1,
    channelCountMode: 'explicit',
    processorOptions:
        {wasm: page.wasm, rate, speech, lost, position, seek, playing, hear: TREATMENTS.indexOf(settings.hear)},
  });
}

function closeAudio() {
  page.audio?.context.close();
  page.audio = null;
}

async function play() {
  page.playing = true;
  showPlaying();
  try {
    tell({playing: true});
    await openAudio();
  } catch (error) {
    page.playing = false;
    showPlaying();
    problem(`This browser cannot play at ${page.rate} Hz: ${error.message}`);
  }
}

function stop() {
  page.playing = false;
  tell({playing: false});
  showPlaying();
  if (recording()) keepRecording();
  // Saves the battery, once the sound has faded.
  setTimeout(() => page.playing || page.asking || page.audio?.context.suspend(), 500);
}

function seek(position) {
  if (recording()) return;
  jump(Math.min(Math.max(Math.round(position), 0), page.speech.length - 1));
  if (position < page.view.first || position >= page.view.last) turn();
}

// Moves the player to a position. Positions that it reported before that are ignored.
function jump(position, more) {
  page.position = position;
  tell({...more, position, seek: ++page.seek});
  refresh();
}

// What the player reports: its position, or a frame that came from the microphone.
function hear(message) {
  if (message.heard) return record(message);
  if (!page.playing || recording() || message.seek !== page.seek) return;
  const {first, last} = page.view;
  const seen = page.position >= first && page.position <= last;
  page.position = message.position;
  if (seen && (page.position < first || page.position > last)) turn();
  refresh();
}

function showPlaying() {
  $('play').textContent = !page.playing ? 'Play' : recording() ? 'Stop' : 'Pause';
  $('microphone').setAttribute('aria-pressed', recording());
}

// ---- Microphone: what it brings is heard and recorded, and becomes the speech when it stops

async function startMicrophone() {
  if (page.asking) return;
  page.asking = true;
  problem('');
  let stream;
  try {
    stream = await navigator.mediaDevices.getUserMedia(
        {audio: {echoCancellation: false, noiseSuppression: false, autoGainControl: false, channelCount: 1}});
    await openAudio();
    page.audio.input = page.audio.context.createMediaStreamSource(stream);
  } catch (error) {
    stream?.getTracks().forEach((track) => track.stop());
    return problem(`The microphone cannot be used: ${error.message}`);
  } finally {
    page.asking = false;
  }
  page.audio.stream = stream;
  stream.getTracks().forEach((track) => track.onended = () => recording() && stop());  // unplugged
  const room = LONGEST_TAKE * page.rate;
  const signals = TREATMENTS.map(() => new Int16Array(room));
  page.take = {signals, outlines: signals.map((signal) => new Outline(signal)), states: [], lost: [], calls: 0};
  page.lost = losses(page.instance, Math.ceil(room / format().frame), settings);
  page.playing = true;
  tell({playing: true});
  jump(0, {speech: null, lost: page.lost});
  page.audio.input.connect(page.audio.player);
  showSource();
  $('counts').textContent = 'Recording.';
  showSave();
  showPlaying();
}

const recording = () => page.audio?.input !== undefined;

function record(message) {
  if (!recording()) return;
  const {take} = page;
  const {frame, delay, ahead} = format();
  put(take.signals, {heard: message.heard, frame}, take.calls * frame - delay);
  if (take.calls++ >= ahead) {
    take.states.push(message.state);
    take.lost.push(message.state[0] > 0 ? 1 : 0);
  }
  page.position = Math.max(take.calls * frame - delay, 0);
  page.view = {first: Math.max(page.position - 4 * page.rate, 0), last: Math.max(page.position, 4 * page.rate)};
  draw();
  if (page.position >= take.signals[0].length - frame) stop();
}

function closeMicrophone() {
  if (!recording()) return;
  page.audio.input.disconnect();
  page.audio.stream.getTracks().forEach((track) => track.stop());
  delete page.audio.input;
}

function keepRecording() {
  const speech = page.take.signals[0].slice(0, page.position);
  closeMicrophone();
  const wav = writeWav(speech, page.rate);
  load(speech.length > 0 ? {name: 'your recording', read: async () => wav.slice(0)} : page.source);
}

// ---- Pictures

let due = false;
let stale = false;  // the pictures

// Shows the position at the next frame of the screen.
function refresh() {
  if (due) return;
  due = true;
  requestAnimationFrame(() => {
    due = false;
    if (!page.speech) return;
    if (stale && page.take) drawPictures();
    stale = false;
    showPosition();
  });
}

function draw() {
  stale = true;
  refresh();
}

function drawPictures() {
  const {take: {signals, outlines, lost}, view, rate} = page;
  const style = getComputedStyle(document.documentElement);
  const colour = (name) => style.getPropertyValue(name);
  const colours = colourScale(matchMedia('(prefers-color-scheme: dark)').matches);
  rows.forEach((row, k) => {
    const surface = prepare(row.querySelector('canvas'));
    if ($('spectrogram').checked) drawSpectrogram(surface, signals[k], view, rate, colours);
    if (k > 0) shade(surface, lost, format().frame, view, colour('--lost'));
    if (!$('spectrogram').checked) drawWaveform(surface, outlines[k], view, colour(k === 3 ? '--accent' : '--wave'));
  });
}

// Turns the view's page to the position.
function turn() {
  const length = page.view.last - page.view.first;
  look(page.position - 0.05 * length, length);
  draw();
}

// Sets the view, within the speech.
function look(first, length) {
  const size = Math.min(Math.max(length, CLOSEST * page.rate), page.speech.length);
  const start = Math.min(Math.max(first, 0), page.speech.length - size);
  page.view = {first: start, last: start + size};
}

// Zooms by a factor so that this sample comes to this part of the view.
function zoom(factor, sample, part) {
  if (!page.speech || recording()) return;
  const length =
      Math.min(Math.max((page.view.last - page.view.first) * factor, CLOSEST * page.rate), page.speech.length);
  look(sample - part * length, length);
  draw();
}

// The sample at a part of the view, 0 to 1, and back.
const sampleAt = (part) => page.view.first + part * (page.view.last - page.view.first);
const partOf = (sample) => (sample - page.view.first) / (page.view.last - page.view.first);

// About the position where it is in sight, else about the middle.
function zoomByKey(factor) {
  const part = partOf(page.position);
  const about = part >= 0 && part <= 1 ? part : 0.5;
  zoom(factor, sampleAt(about), about);
}

function showPosition() {
  const {position, take, rate} = page;
  const part = partOf(position);
  for (const head of document.querySelectorAll('.head')) {
    head.hidden = part < 0 || part > 1;
    head.style.left = `${100 * part}%`;
  }
  $('time').textContent = `${(position / rate).toFixed(1)} s`;
  const n = Math.min(Math.floor(position / format().frame), (take?.states.length ?? 0) - 1);
  if (n >= 0) $('state').textContent = describe(n, take.states[n]);
}

function describe(n, [number, gain, pitch]) {
  const period =
      pitch > 0 ? `pitch ${(1000 * pitch / page.rate).toFixed(1)} ms (${Math.round(page.rate / pitch)} Hz)` : '';
  if (number === 0) return `Frame ${n}: arrived${period && `; ${period}`}`;
  return `Frame ${n}: lost, number ${number} of its burst; gain at its end ${(gain / 32767).toFixed(2)}${
      period && `; ${period}`}`;
}

function showCounts() {
  const {take: {lost}} = page;
  const {frame} = format();
  let count = 0;
  let bursts = 0;
  let longest = 0;
  for (let i = 0, run = 0; i < lost.length; ++i) {
    run = lost[i] ? run + 1 : 0;
    count += lost[i];
    if (run === 1) ++bursts;
    longest = Math.max(longest, run);
  }
  const share = (100 * count / lost.length).toFixed(1);
  const mean = (count / bursts).toFixed(1);
  const text = `${lost.length} frames of ${1000 * frame / page.rate} ms. ` +
      (count === 0 ?
           'None is lost.' :
           `With this seed ${count} are lost (${share} %), ${mean} in a row on average, ${longest} at most, in ` +
               `${bursts} ${bursts === 1 ? 'burst' : 'bursts'}.`);
  if ($('counts').textContent !== text) $('counts').textContent = text;
}

// ---- Controls

// The fingers on all pictures, or the mouse: a pinch may cover two pictures.
const fingers = new Map();
let moved = 0;

function grip() {
  const [a, b = a] = [...fingers.values()];
  return {middle: (a.x + b.x) / 2, width: Math.max(Math.hypot(a.x - b.x, a.y - b.y), 10)};
}

// A click goes there, a drag moves the view, two fingers zoom.
function handlePointers(view) {
  const partAt = (x) => (x - view.getBoundingClientRect().left) / view.clientWidth;
  view.addEventListener('pointerdown', (event) => {
    if (event.button !== 0) return;
    moved = fingers.size === 0 ? 0 : Infinity;  // a pinch is no click
    fingers.set(event.pointerId, {x: event.clientX, y: event.clientY});
    view.setPointerCapture(event.pointerId);
  });
  view.addEventListener('pointermove', (event) => {
    const finger = fingers.get(event.pointerId);
    if (!finger) return;
    const before = grip();
    moved += Math.abs(event.clientX - finger.x);
    fingers.set(event.pointerId, {x: event.clientX, y: event.clientY});
    const after = grip();
    if (moved > 4) zoom(before.width / after.width, sampleAt(partAt(before.middle)), partAt(after.middle));
  });
  view.addEventListener('pointerup', (event) => {
    if (fingers.delete(event.pointerId) && moved <= 4 && page.speech) seek(sampleAt(partAt(event.clientX)));
  });
  view.addEventListener('pointercancel', (event) => fingers.delete(event.pointerId));
  view.addEventListener('wheel', (event) => {
    event.preventDefault();
    const {ctrlKey, deltaX, deltaY} = event;
    const part = partAt(event.clientX);
    if (Math.abs(deltaX) > Math.abs(deltaY))
      zoom(1, sampleAt(deltaX / view.clientWidth), 0);
    else
      zoom(2 ** (deltaY / (ctrlKey ? 50 : 300)), sampleAt(part), part);  // ctrl: two fingers on a touchpad
  }, {passive: false});
}

function handleKeys(event) {
  if (event.ctrlKey || event.metaKey || event.altKey || event.target.type === 'number') return;
  const slider = event.target.matches('input[type=range], input[type=radio]');
  const button = event.target.matches('button, input[type=checkbox]');
  const keys = {
    '1': () => change({hear: TREATMENTS[0]}),
    '2': () => change({hear: TREATMENTS[1]}),
    '3': () => change({hear: TREATMENTS[2]}),
    '4': () => change({hear: TREATMENTS[3]}),
    '+': () => zoomByKey(0.5),
    '=': () => zoomByKey(0.5),
    '-': () => zoomByKey(2),
    ...(button ? {} : {' ': () => event.repeat || toggle()}),
    ...(slider ? {} :
                 {ArrowLeft: () => seek(page.position - page.rate), ArrowRight: () => seek(page.position + page.rate)}),
  };
  if (!keys[event.key] || !page.speech) return;
  event.preventDefault();
  keys[event.key]();
}

const toggle = () => page.playing ? stop() : play();

function save() {
  const {rate, loss, burst, seed, hear} = settings;
  const wav = new Blob([writeWav(page.take.signals[TREATMENTS.indexOf(hear)], rate)], {type: 'audio/wav'});
  const link = document.createElement('a');
  link.href = URL.createObjectURL(wav);
  link.download = `${hear}_${rate}_loss${loss}_burst${burst}_seed${seed}.wav`;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

function openFile(file) {
  if (file) load({name: file.name, read: () => file.arrayBuffer()});
}

function handleControls() {
  document.querySelector('main').inert = false;
  $('play').onclick = toggle;
  $('open').onclick = () => $('file').click();
  $('file').onchange = () => {
    openFile($('file').files[0]);
    $('file').value = '';
  };
  $('clip').onclick = () => load(page.clip);
  $('microphone').onclick = () => recording() ? stop() : startMicrophone();
  $('loss').oninput = () => change({loss: Number($('loss').value)});
  $('burst').oninput = () => change({burst: Number($('burst').value)});
  $('seed').onchange = () => {
    const seed = Math.floor($('seed').valueAsNumber);
    change({seed: Number.isNaN(seed) ? settings.seed : Math.min(Math.max(seed, 0), LIMITS.seed[1])});
  };
  $('reseed').onclick = () => change({seed: (settings.seed + 1) % 2 ** 32});
  for (const radio of document.querySelectorAll('input[name=rate]'))
    radio.onchange = () => change({rate: Number(radio.value)});
  for (const row of rows) {
    row.querySelector('input').onchange = () => change({hear: row.dataset.treatment});
    handlePointers(row.querySelector('.view'));
  }
  $('closer').onclick = () => zoomByKey(0.5);
  $('wider').onclick = () => zoomByKey(2);
  $('spectrogram').onchange = draw;
  $('save').onclick = save;
  document.addEventListener('keydown', handleKeys);
  document.addEventListener('dragover', (event) => event.preventDefault());
  document.addEventListener('dragenter', () => document.body.classList.add('dropping'));
  document.addEventListener('dragleave', (event) => event.relatedTarget ?? document.body.classList.remove('dropping'));
  document.addEventListener('drop', (event) => {
    event.preventDefault();
    document.body.classList.remove('dropping');
    openFile(event.dataTransfer.files[0]);
  });
  window.addEventListener('hashchange', () => change(readAddress()));
  window.addEventListener('resize', draw);
  drawAtNewScale();
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', draw);
}

// A window that moves to another screen may change the scale of its pixels and nothing else.
function drawAtNewScale() {
  const again = () => {
    draw();
    drawAtNewScale();
  };
  matchMedia(`(resolution: ${window.devicePixelRatio}dppx)`).addEventListener('change', again, {once: true});
}

// ---- Start

// What the page brings along: gzip in base64.
async function unpack(id) {
  const bytes = Uint8Array.from(atob($(id).textContent.trim()), (c) => c.charCodeAt(0));
  return new Response(new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip'))).arrayBuffer();
}

async function start() {
  if (!window.isSecureContext)
    return problem('Browsers let this page play from the disk or over https only, not over http.');
  const needs = ['WebAssembly', 'DecompressionStream', 'AudioContext', 'AudioWorkletNode', 'OfflineAudioContext'];
  const missing = needs.filter((name) => !(name in window));
  if (missing.length > 0) return problem(`This browser lacks what the page needs: ${missing.join(', ')}.`);
  $('microphone').hidden = !navigator.mediaDevices?.getUserMedia;

  const vectors = await unpack('wasm-vectors');
  page.wasm = WebAssembly.validate(vectors) ? vectors : await unpack('wasm-plain');
  page.instance = (await WebAssembly.instantiate(page.wasm)).instance;
  page.instance.exports._initialize();
  const clip = await unpack('speech');
  page.clip = {name: 'the clip', read: async () => clip.slice(0)};

  Object.assign(settings, readAddress());
  showSettings();
  handleControls();
  await load(page.clip);
}

start().catch((error) => problem(`This browser cannot run the page: ${error.message}`));
