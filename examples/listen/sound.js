'use strict';
// Sound files in and out.

// 16 bits of a number in -1..1, a tie to the even neighbour, as the tools on the command line round.
function toSample(x) {
  const scaled = Math.min(Math.max(x * 32768, -32768), 32767) || 0;
  const down = Math.floor(scaled);
  const rest = scaled - down;
  return rest > 0.5 || (rest === 0.5 && down % 2 !== 0) ? down + 1 : down;
}

// The samples of a 16-bit WAV file at this rate, exact, or null for anything else: browsers scale what they decode in
// their own ways.
function readWav(bytes, rate, most) {
  const view = new DataView(bytes);
  const mark = (at) => at + 8 <= view.byteLength ? view.getUint32(at) : 0;  // four letters
  if (mark(0) !== 0x52494646 || mark(8) !== 0x57415645) return null;        // RIFF, WAVE
  let channels = 0;
  for (let at = 12; mark(at) !== 0;) {
    const size = Math.min(view.getUint32(at + 4, true), view.byteLength - at - 8);
    if (mark(at) === 0x666d7420 && size >= 16) {  // "fmt "
      const plain = view.getUint16(at + 8, true) === 1 && view.getUint16(at + 22, true) === 16;
      if (!plain || view.getUint32(at + 12, true) !== rate) return null;
      channels = view.getUint16(at + 10, true);
    } else if (mark(at) === 0x64617461 && channels > 0) {  // "data"
      const samples = new Int16Array(Math.min(Math.floor(size / 2 / channels), most));
      for (let i = 0, from = at + 8; i < samples.length; ++i) {
        let sum = 0;
        for (let c = 0; c < channels; ++c, from += 2) sum += view.getInt16(from, true);
        samples[i] = toSample(Math.fround(sum / channels / 32768));
      }
      return samples;
    }
    at += 8 + size + size % 2;
  }
  return null;
}

// A mono 16-bit WAV file.
function writeWav(samples, rate) {
  const view = new DataView(new ArrayBuffer(44 + 2 * samples.length));
  const letters = (at, text) => [...text].forEach((c, i) => view.setUint8(at + i, c.charCodeAt(0)));
  letters(0, 'RIFF');
  view.setUint32(4, 36 + 2 * samples.length, true);
  letters(8, 'WAVEfmt ');
  view.setUint32(16, 16, true);
  view.setUint16(20, 1, true);  // PCM
  view.setUint16(22, 1, true);  // channel
  view.setUint32(24, rate, true);
  view.setUint32(28, 2 * rate, true);
  view.setUint16(32, 2, true);
  view.setUint16(34, 16, true);
  letters(36, 'data');
  view.setUint32(40, 2 * samples.length, true);
  samples.forEach((sample, i) => view.setInt16(44 + 2 * i, sample, true));
  return view.buffer;
}

// The speech in a sound file, mono at the rate, of at most `most` samples. The bytes are detached. Throws what the
// browser throws for a file that is no sound.
async function decode(bytes, rate, most) {
  const exact = readWav(bytes, rate, most);
  if (exact !== null) return exact;
  const context = new OfflineAudioContext(1, 1, rate);  // decodes to its own rate
  const sound = await context.decodeAudioData(bytes);
  const channels = Array.from({length: sound.numberOfChannels}, (_, c) => sound.getChannelData(c));
  const samples = new Int16Array(Math.min(sound.length, most));
  for (let i = 0; i < samples.length; ++i) {
    let sum = 0;
    for (const channel of channels) sum += channel[i];
    samples[i] = toSample(sum / channels.length);
  }
  return samples;
}
