'use strict';
// The link, compiled to WebAssembly. The page runs it to draw and to save, the audio worklet to play.

const TREATMENTS = ['sent', 'received', 'repeated', 'concealed'];

// One stream through the link, frame by frame.
class Link {
  constructor(instance, rate) {
    this.wasm = instance.exports;
    this.address = this.wasm.link_new(rate);
    this.frame = this.wasm.link_frame(this.address);  // samples
    this.delay = this.wasm.link_delay(this.address);  // of all that is heard, samples
    this.ahead = this.wasm.link_ahead(this.address);  // frames by which the speech enters before its state is known
  }

  // Takes a frame of the speech and the fate of its packet. Silence stands behind speech that is too short.
  pass(speech, lost) {
    this.look();
    this.speech.fill(0);
    this.speech.set(speech);
    this.wasm.link_pass(this.address, lost);
  }

  // Views of the module's memory: `heard`, a frame for each treatment; `state`, of that frame: number of the lost
  // frame in its burst, gain in Q15, pitch period in samples. They are made again when the memory has grown.
  look() {
    const memory = this.wasm.memory.buffer;
    if (this.memory === memory) return;
    this.memory = memory;
    this.speech = new Int16Array(memory, this.wasm.link_speech(this.address), this.frame);
    this.heard = TREATMENTS.map((_, k) => new Int16Array(memory, this.wasm.link_heard(this.address, k), this.frame));
    this.state = new Int32Array(memory, this.wasm.link_state(this.address), 3);
  }

  delete() {
    this.wasm.link_delete(this.address);
  }
}

// A byte for each frame, 1 where it is lost: the same losses as those of `voice_link link` with these options.
function losses(instance, frames, {loss, burst, seed}) {
  const address = instance.exports.losses(frames, loss, burst, seed);
  return new Uint8Array(instance.exports.memory.buffer, address, frames).slice();
}
