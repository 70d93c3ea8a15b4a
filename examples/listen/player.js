'use strict';
// The audio worklet: runs the link frame by frame as it plays. All treatments are made at the same time and in step, so
// that a switch from one to another changes nothing but the treatment.

const FADE = 0.01;     // seconds of the cross-fade when the treatment changes, and of the fade when playing stops
const PRE_ROLL = 0.8;  // seconds of speech run through the link before the place at which playing begins

class Player extends AudioWorkletProcessor {
  constructor({processorOptions: {wasm, rate, hear, playing, ...start}}) {
    super();
    this.instance = new WebAssembly.Instance(new WebAssembly.Module(wasm));
    this.instance.exports._initialize();
    this.rate = rate;
    this.hear = hear;
    this.playing = playing;
    this.weights = TREATMENTS.map((_, k) => k === hear ? 1 : 0);  // of the treatments in what is heard
    this.loudness = playing && start.position === 0 ? 1 : 0;      // fades in where it starts within the speech
    this.next = null;                                             // what begin() gets when the sound has faded
    this.begin(start);
    this.port.onmessage = ({data}) => this.take(data);
  }

  // What the page sets: hear, playing, lost; position in samples, with the number of the seek that set it; speech, null
  // for the microphone, with its lost and position.
  take({hear = this.hear, playing = this.playing, ...place}) {
    this.hear = hear;
    this.playing = playing;
    if (this.next || 'position' in place)
      this.next = {...this.next, ...place};
    else
      Object.assign(this, place);
  }

  // Starts a stream so that the sample at the position is heard next.
  begin(place) {
    Object.assign(this, place);
    this.link?.delete();
    this.link = new Link(this.instance, this.rate);
    if (!this.speech) return this.beginMicrophone();
    const {frame, delay} = this.link;
    this.index =
        Math.max(Math.floor((this.position - PRE_ROLL * this.rate) / frame), 0);  // of the frame that enters next
    let behind = this.position + delay - this.index * frame;
    for (this.run(); behind >= frame; behind -= frame) this.run();
    this.used = behind;
  }

  run() {
    const {frame} = this.link;
    const from = this.index * frame;
    this.link.pass(this.speech.subarray(from, from + frame), this.lost[this.index++]);
    this.used = 0;
  }

  process([input], [[output]]) {
    if (this.next && this.loudness === 0) {
      this.begin(this.next);
      this.next = null;
    }
    if (!this.speech) {
      this.microphone(input[0] ?? new Float32Array(output.length), output);
    } else if (this.playing || this.loudness > 0) {
      for (let i = 0; i < output.length; ++i) output[i] = this.sample();
      if (!this.next) this.port.postMessage({position: this.position, seek: this.seek});
    }
    return true;
  }

  // The next sample of the speech, which begins again at its end.
  sample() {
    if (this.position >= this.speech.length) this.begin({position: 0});
    if (this.used === this.link.frame) this.run();
    const heard = this.mix(this.link.heard, this.used++);
    ++this.position;
    return heard;
  }

  // What is heard of the treatments at this place, with the fades.
  mix(signals, i) {
    const step = 1 / (FADE * this.rate);
    const goal = this.playing && !this.next;
    this.loudness = Math.min(Math.max(this.loudness + (goal ? step : -step), 0), 1);
    let sum = 0;
    for (let k = 0; k < signals.length; ++k) {
      const toward = k === this.hear ? step : -step;
      this.weights[k] = Math.min(Math.max(this.weights[k] + toward, 0), 1);
      sum += this.weights[k] * signals[k][i];
    }
    return this.loudness * sum / 32768;
  }

  beginMicrophone() {
    this.index = 0;
    this.inbox = new Int16Array(512);  // what is not a frame yet
    this.inboxSize = 0;
    this.outbox = TREATMENTS.map(() => new Int16Array(512));
    this.outboxSize = this.link.frame;  // silence, so that there is always enough to play
  }

  // Passes on what has come in by whole frames, and tells the page what became of each.
  microphone(input, output) {
    const {link, inbox, outbox} = this;
    for (const x of input) inbox[this.inboxSize++] = toSample(x);
    while (this.inboxSize >= link.frame) {
      link.pass(inbox.subarray(0, link.frame), this.lost[this.index++ % this.lost.length]);
      inbox.copyWithin(0, link.frame, this.inboxSize);
      this.inboxSize -= link.frame;
      outbox.forEach((samples, k) => samples.set(link.heard[k], this.outboxSize));
      this.outboxSize += link.frame;
      this.port.postMessage({heard: link.heard.map((samples) => samples.slice()), state: link.state.slice()});
    }
    for (let i = 0; i < output.length; ++i) output[i] = this.mix(outbox, i);
    for (const samples of outbox) samples.copyWithin(0, output.length, this.outboxSize);
    this.outboxSize -= output.length;
  }
}

registerProcessor('player', Player);
