'use strict';
// The page: what is played, drawn and saved, and the controls.

const LONGEST = 600;       // seconds of speech that are used of a file
const LONGEST_TAKE = 300;  // seconds that are recorded of the microphone
const CLOSEST = 0.005;     // seconds across the pictures
const AT_A_TIME = 12;      // milliseconds of work before the page may do other things

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
  source: null,    // name, bytes of a sound file
  speech: null,    // at the link's rate
  lost: null,      // a byte for each frame of the speech
  take: null,      // what is heard: signals, outlines, states
  view: {first: 0, last: 1},
  position: 0,  // samples
  playing: false,
  audio: null,  // context and player; while the microphone is on, its stream and its input to the player
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

async function change(changes) {
  const old = {...settings};
  Object.assign(settings, changes);
  showSettings();
  const {rate, loss, burst, seed, hear} = settings;
  history.replaceState(null, '', `#rate=${rate}&loss=${loss}&burst=${burst}&seed=${seed}&hear=${hear}`);
  if (hear !== old.hear) tell({hear: TREATMENTS.indexOf(hear)});
  if (rate !== old.rate)
    await changeRate(old.rate);
  else if (loss !== old.loss || burst !== old.burst || seed !== old.seed)
    await changeLosses();
}

function showSettings() {
  const {rate, loss, burst, seed, hear} = settings;
  $('loss').value = loss;
  $('loss-text').textContent = `${loss} %`;
  $('burst').value = burst;
  $('burst-text').textContent = burst === 1 ? '1 frame' : `${burst} frames`;
  for (const id of ['loss', 'burst']) $(id).setAttribute('aria-valuetext', $(`${id}-text`).textContent);
  if (document.activeElement !== $('seed')) $('seed').value = seed;
  for (const radio of document.querySelectorAll('input[name=rate]')) radio.checked = Number(radio.value) === rate;
  $('agrees').textContent = rate === 16000 ? 'this writes what is heard' : 'this has the same losses';
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
}

// ---- Speech

async function setSource(source) {
  let speech;
  try {
    speech = (await decode(source.bytes, settings.rate)).slice(0, LONGEST * settings.rate);
  } catch {
    return problem(`${source.name} is not a sound that this browser can decode.`);
  }
  if (speech.length === 0) return problem(`${source.name} holds no sound.`);
  closeMicrophone();
  problem(
      speech.length === LONGEST * settings.rate ? `Only the first ${LONGEST / 60} minutes of ${source.name} are used.` :
                                                  '');
  page.source = source;
  $('source').textContent = source.name;
  $('clip').hidden = source === page.clip;
  await setSpeech(speech, 0);
}

async function setSpeech(speech, position) {
  page.speech = speech;
  page.position = position;
  page.view = {first: 0, last: speech.length};
  page.lost = losses(page.instance, Math.ceil(speech.length / format().frame), settings);
  tell({speech, lost: page.lost, position});
  await render();
}

async function changeLosses() {
  page.lost = losses(page.instance, page.lost.length, settings);
  tell({lost: page.lost});
  if (!recording()) await render();
}

async function changeRate(oldRate) {
  const seconds = page.position / oldRate;
  const playing = page.playing && !recording();
  if (recording()) await keepRecording();
  await closeAudio();
  const speech = await decode(page.source.bytes, settings.rate);
  await setSpeech(
      speech.slice(0, LONGEST * settings.rate), Math.min(Math.round(seconds * settings.rate), speech.length - 1));
  if (playing) await play();
}

// Frame, delay and what else is constant of a link at this rate.
function format() {
  page.formats ??= new Map([8000, 16000].map((rate) => [rate, new Link(page.instance, rate)]));
  return page.formats.get(settings.rate);
}

// All that can be heard of the speech, lined up with it. Newer losses end an older call.
async function render() {
  const {speech, lost} = page;
  const link = new Link(page.instance, settings.rate);
  const signals = TREATMENTS.map(() => new Int16Array(speech.length));
  const states = [];
  const calls = lost.length + Math.ceil(link.delay / link.frame);
  for (let n = 0, begun = performance.now(); n < calls; ++n) {
    if (performance.now() - begun > AT_A_TIME) {
      await new Promise((go) => setTimeout(go));
      begun = performance.now();
    }
    if (page.lost !== lost || page.speech !== speech) return link.delete();
    const from = n * link.frame;
    link.pass(speech.subarray(from, from + link.frame), n < lost.length ? lost[n] : 0);
    if (n >= link.ahead) states.push([...link.state]);
    put(signals, link, from - link.delay);
  }
  link.delete();
  page.take = {signals, outlines: signals.map((signal) => new Outline(signal)), states, lost};
  $('save').disabled = $('play').disabled = false;
  showCounts();
  draw();
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
  page.audio?.player.port.postMessage(message);
}

async function openAudio() {
  const context = new AudioContext({sampleRate: settings.rate});
  page.audio = {context, player: await makePlayer(context)};
  page.audio.player.connect(context.destination);
  page.audio.player.port.onmessage = ({data}) => hear(data);
}

// A player of the page's speech, at its position, playing.
async function makePlayer(context) {
  const text = $('shared').textContent + $('player').textContent;
  // A page from the disk may not load what URL.createObjectURL names.
  await context.audioWorklet.addModule(`data:text/javascript,${encodeURIComponent(text)}`);
  const {speech, lost, position} = page;
  return new AudioWorkletNode(context, 'player', {
    outputChannelCount: [1],
    channelCount: 1,
    channelCountMode: 'explicit',
    processorOptions: {
      wasm: page.wasm,
      rate: settings.rate,
      speech,
      lost,
      position,
      playing: true,
      hear: TREATMENTS.indexOf(settings.hear)
    },
  });
}

async function closeAudio() {
  const audio = page.audio;
  page.audio = null;
  await audio?.context.close();
}

async function play() {
  page.playing = true;
  showPlaying();
  try {
    if (!page.audio)
      await openAudio();
    else
      tell({playing: true});
    await page.audio.context.resume();
  } catch (error) {
    page.playing = false;
    showPlaying();
    problem(`This browser cannot play at ${settings.rate} Hz: ${error.message}`);
  }
}

function stop() {
  page.playing = false;
  tell({playing: false});
  showPlaying();
  if (recording()) keepRecording();
}

function seek(position) {
  if (recording()) return;
  page.position = Math.min(Math.max(Math.round(position), 0), page.speech.length - 1);
  tell({position: page.position});
  follow();
  showPosition();
}

// What the player reports: its position, or a frame that came from the microphone.
function hear(message) {
  if (message.heard) return record(message);
  if (!page.playing || recording()) return;
  page.position = message.position;
  follow();
  showPosition();
}

function showPlaying() {
  $('play').textContent = page.playing ? 'Stop' : 'Play';
  $('microphone').setAttribute('aria-pressed', recording());
}

// ---- Microphone: what it brings is heard and recorded, and becomes the speech when it stops

async function startMicrophone() {
  problem('');
  let stream;
  try {
    stream = await navigator.mediaDevices.getUserMedia(
        {audio: {echoCancellation: false, noiseSuppression: false, autoGainControl: false, channelCount: 1}});
    if (page.audio === null) await openAudio();
    await page.audio.context.resume();
    page.audio.input = page.audio.context.createMediaStreamSource(stream);
  } catch (error) {
    stream?.getTracks().forEach((track) => track.stop());
    return problem(`No microphone at ${settings.rate} Hz: ${error.message}`);
  }
  page.audio.stream = stream;
  const room = LONGEST_TAKE * settings.rate;
  const signals = TREATMENTS.map(() => new Int16Array(room));
  page.take = {signals, outlines: signals.map((signal) => new Outline(signal)), states: [], lost: [], calls: 0};
  page.lost = losses(page.instance, Math.ceil(room / format().frame), settings);
  page.playing = true;
  tell({speech: null, lost: page.lost, playing: true});
  page.audio.input.connect(page.audio.player);
  $('source').textContent = 'microphone; use headphones';
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
  page.view = {first: Math.max(page.position - 4 * settings.rate, 0), last: Math.max(page.position, 4 * settings.rate)};
  showPosition();
  showCounts();
  draw();
  if (page.position >= take.signals[0].length - frame) stop();
}

function closeMicrophone() {
  if (!recording()) return;
  page.audio.input.disconnect();
  page.audio.stream.getTracks().forEach((track) => track.stop());
  delete page.audio.input;
}

async function keepRecording() {
  const speech = page.take.signals[0].slice(0, page.position);
  closeMicrophone();
  await setSource(speech.length > 0 ? {name: 'your recording', bytes: writeWav(speech, settings.rate)} : page.source);
}

// ---- Pictures

let drawing = false;

function draw() {
  if (drawing) return;
  drawing = true;
  requestAnimationFrame(() => {
    drawing = false;
    if (!page.take) return;
    const style = getComputedStyle(document.documentElement);
    const colour = (name) => style.getPropertyValue(name);
    const colours = colourScale(matchMedia('(prefers-color-scheme: dark)').matches);
    rows.forEach((row, k) => {
      const surface = prepare(row.querySelector('canvas'));
      const {take: {signals, outlines, lost}, view} = page;
      if ($('spectrogram').checked) drawSpectrogram(surface, signals[k], view, settings.rate, colours);
      if (k > 0) shade(surface, lost, format().frame, view, colour('--lost'));
      if (!$('spectrogram').checked) drawWaveform(surface, outlines[k], view, colour(k === 3 ? '--accent' : '--wave'));
    });
    showPosition();
  });
}

// Turns the view's page when the position leaves it.
function follow() {
  const {first, last} = page.view;
  const length = last - first;
  if (page.position >= first && page.position < last) return;
  look(page.position - 0.05 * length, length);
  draw();
}

// Sets the view, within the speech.
function look(first, length) {
  const size = Math.min(Math.max(length, CLOSEST * settings.rate), page.speech.length);
  const start = Math.min(Math.max(first, 0), page.speech.length - size);
  page.view = {first: start, last: start + size};
}

// Zooms by a factor about a sample that stays in its place.
function zoom(factor, about) {
  if (!page.speech || recording()) return;
  const {first, last} = page.view;
  const length = Math.min(Math.max((last - first) * factor, CLOSEST * settings.rate), page.speech.length);
  look(about - (about - first) * length / (last - first), length);
  draw();
}

// About the position where it is in sight.
function zoomByKey(factor) {
  const {first, last} = page.view;
  zoom(factor, page.position >= first && page.position <= last ? page.position : (first + last) / 2);
}

function showPosition() {
  const {view, position, take} = page;
  const part = (position - view.first) / (view.last - view.first);
  for (const head of document.querySelectorAll('.head')) {
    head.hidden = part < 0 || part > 1;
    head.style.left = `${100 * part}%`;
  }
  $('time').textContent = `${(position / settings.rate).toFixed(1)} s`;
  const n = Math.min(Math.floor(position / format().frame), (take?.states.length ?? 0) - 1);
  if (n >= 0) $('state').textContent = describe(n, take.states[n]);
}

function describe(n, [number, gain, pitch]) {
  const period = pitch > 0 ?
      `pitch ${(1000 * pitch / settings.rate).toFixed(1)} ms (${Math.round(settings.rate / pitch)} Hz)` :
      '';
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
  const text = `${lost.length} frames of ${1000 * frame / settings.rate} ms. ` +
      (count === 0 ?
           'None is lost.' :
           `With this seed ${count} are lost (${share} %), ${mean} in a row on average, ${longest} at most, in ` +
               `${bursts} ${bursts === 1 ? 'burst' : 'bursts'}.`);
  if ($('counts').textContent !== text) $('counts').textContent = text;
}

// ---- Controls

function sampleAt(view, x) {
  const box = view.getBoundingClientRect();
  return page.view.first + (x - box.left) / box.width * (page.view.last - page.view.first);
}

// A click goes there, a drag with one finger or the mouse moves the view, two fingers zoom.
function handlePointers(view) {
  const fingers = new Map();
  let moved = 0;
  const span = () => {
    const [a, b] = [...fingers.values()];
    return {middle: (a + b) / 2, width: Math.max(Math.abs(a - b), 10)};
  };
  view.addEventListener('pointerdown', (event) => {
    if (fingers.size === 0) moved = 0;
    fingers.set(event.pointerId, event.clientX);
    view.setPointerCapture(event.pointerId);
  });
  view.addEventListener('pointermove', (event) => {
    if (!fingers.has(event.pointerId) || !page.speech || recording()) return;
    const before = fingers.size === 2 ? span() : null;
    const step = event.clientX - fingers.get(event.pointerId);
    fingers.set(event.pointerId, event.clientX);
    moved += Math.abs(step);
    if (before) {
      zoom(before.width / span().width, sampleAt(view, span().middle));
    } else if (moved > 4) {
      const {first, last} = page.view;
      look(first - step / view.clientWidth * (last - first), last - first);
      draw();
    }
  });
  const up = (event) => {
    const only = fingers.size === 1 && fingers.delete(event.pointerId);
    fingers.delete(event.pointerId);
    if (event.type === 'pointerup' && only && moved <= 4 && page.speech) seek(sampleAt(view, event.clientX));
    if (fingers.size > 0) moved = Infinity;  // the end of a pinch is no click
  };
  view.addEventListener('pointerup', up);
  view.addEventListener('pointercancel', up);
  view.addEventListener('wheel', (event) => {
    event.preventDefault();
    const {first, last} = page.view;
    if (Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
      if (!page.speech || recording()) return;
      look(first + event.deltaX / view.clientWidth * (last - first), last - first);
      draw();
    } else {
      zoom(2 ** (event.deltaY / 300), sampleAt(view, event.clientX));
    }
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
    ...(button ? {} : {' ': toggle}),
    ...(slider ? {} : {
      ArrowLeft: () => seek(page.position - settings.rate),
      ArrowRight: () => seek(page.position + settings.rate)
    }),
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

async function openFile(file) {
  if (file) await setSource({name: file.name, bytes: await file.arrayBuffer()});
}

function handleControls() {
  $('play').onclick = toggle;
  $('open').onclick = () => $('file').click();
  $('file').onchange = () => openFile($('file').files[0]).finally(() => $('file').value = '');
  $('clip').onclick = () => setSource(page.clip);
  $('microphone').onclick = () => recording() ? stop() : startMicrophone();
  $('loss').oninput = () => change({loss: Number($('loss').value)});
  $('burst').oninput = () => change({burst: Number($('burst').value)});
  $('seed').onchange = () =>
      change({seed: Math.min(Math.max(Math.floor(Number($('seed').value)) || 0, 0), LIMITS.seed[1])});
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
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', draw);
}

// ---- Start

// What the page brings along: gzip in base64.
async function unpack(id) {
  const bytes = Uint8Array.from(atob($(id).textContent.trim()), (c) => c.charCodeAt(0));
  return new Response(new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip'))).arrayBuffer();
}

async function start() {
  const needs = ['WebAssembly', 'DecompressionStream', 'AudioContext', 'AudioWorkletNode', 'OfflineAudioContext'];
  const missing = needs.filter((name) => !(name in window));
  if (missing.length > 0) return problem(`This browser lacks what the page needs: ${missing.join(', ')}.`);
  $('microphone').hidden = !navigator.mediaDevices?.getUserMedia;

  const vectors = await unpack('wasm-vectors');
  page.wasm = WebAssembly.validate(vectors) ? vectors : await unpack('wasm-plain');
  page.instance = (await WebAssembly.instantiate(page.wasm)).instance;
  page.instance.exports._initialize();
  page.clip = {name: 'the clip', bytes: await unpack('speech')};

  Object.assign(settings, readAddress());
  showSettings();
  handleControls();
  await setSource(page.clip);
}

start();
