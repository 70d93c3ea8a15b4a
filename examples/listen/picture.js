'use strict';
// Waveforms and spectrograms on canvases.

const STRIDE = 128;  // samples that one entry of an outline covers

// The lowest and the highest sample of each stretch of a signal, so that long signals are drawn as fast as short ones.
class Outline {
  constructor(samples) {
    this.samples = samples;
  }

  range(first, last) {
    if (last - first < 4 * STRIDE) return extremes(this.samples, this.samples, Math.floor(first), Math.ceil(last));
    if (!this.low) this.build();
    return extremes(this.low, this.high, Math.floor(first / STRIDE), Math.ceil(last / STRIDE));
  }

  build() {
    const size = Math.ceil(this.samples.length / STRIDE);
    this.low = new Int16Array(size);
    this.high = new Int16Array(size);
    for (let i = 0; i < size; ++i) {
      [this.low[i], this.high[i]] = extremes(this.samples, this.samples, i * STRIDE, (i + 1) * STRIDE);
    }
  }
}

function extremes(low, high, first, last) {
  let least = 32767;
  let most = -32768;
  for (let i = first; i < Math.min(last, low.length); ++i) {
    if (low[i] < least) least = low[i];
    if (high[i] > most) most = high[i];
  }
  return [least, most];
}

// The canvas at the screen's resolution.
function prepare(canvas) {
  const scale = window.devicePixelRatio || 1;
  const width = Math.max(Math.round(canvas.clientWidth * scale), 1);
  const height = Math.max(Math.round(canvas.clientHeight * scale), 1);
  if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, {width, height});
  const pen = canvas.getContext('2d');
  pen.clearRect(0, 0, width, height);
  return {pen, width, height, scale};
}

// Shades the lost frames in the view, a stretch of samples.
function shade({pen, width, height}, lost, frame, view, colour) {
  pen.fillStyle = colour;
  const x = (sample) => (sample - view.first) / (view.last - view.first) * width;
  for (let i = Math.max(Math.floor(view.first / frame), 0); i * frame < view.last && i < lost.length; ++i) {
    if (!lost[i]) continue;
    let end = i + 1;
    while (end < lost.length && lost[end]) ++end;
    pen.fillRect(x(i * frame), 0, Math.max(x(end * frame) - x(i * frame), 1), height);
    i = end;
  }
}

function drawWaveform({pen, width, height, scale}, outline, view, colour) {
  pen.fillStyle = pen.strokeStyle = colour;
  pen.lineWidth = 1.25 * scale;
  const y = (sample) => height / 2 - sample / 32768 * height / 2 * 0.96;
  const perPixel = (view.last - view.first) / width;
  if (perPixel < 1) {
    pen.beginPath();
    const last = Math.min(Math.ceil(view.last) + 1, outline.samples.length);
    for (let i = Math.max(Math.floor(view.first), 0); i < last; ++i) {
      pen.lineTo((i - view.first) / perPixel, y(outline.samples[i]));
    }
    pen.stroke();
    return;
  }
  for (let x = 0; x < width; ++x) {
    const first = view.first + x * perPixel;
    if (first >= outline.samples.length) break;
    const [low, high] = outline.range(first, first + perPixel);
    pen.fillRect(x, y(high), 1, Math.max(y(low) - y(high), scale));
  }
}

// Fourier transforms in place by radix 2, of one size.
class Fourier {
  constructor(size) {
    const turn = (i) => 2 * Math.PI * i / size;
    this.cos = Float32Array.from({length: size / 2}, (_, i) => Math.cos(turn(i)));
    this.sin = Float32Array.from({length: size / 2}, (_, i) => -Math.sin(turn(i)));
  }

  transform(re, im) {
    const n = re.length;
    for (let i = 1, j = 0; i < n; ++i) {
      let bit = n >> 1;
      for (; j & bit; bit >>= 1) j ^= bit;
      j ^= bit;
      if (i < j) {
        const [a, b] = [re[i], im[i]];
        re[i] = re[j];
        im[i] = im[j];
        re[j] = a;
        im[j] = b;
      }
    }
    for (let size = 2; size <= n; size *= 2) {
      for (let k = 0; k < size / 2; ++k) {
        const c = this.cos[k * n / size];
        const s = this.sin[k * n / size];
        for (let i = k; i < n; i += size) {
          const j = i + size / 2;
          const a = re[j] * c - im[j] * s;
          const b = re[j] * s + im[j] * c;
          re[j] = re[i] - a;
          im[j] = im[i] - b;
          re[i] += a;
          im[i] += b;
        }
      }
    }
  }
}

// Windows of 16 ms, Hann, not closer than 0.5 ms; 80 dB from the first to the last colour of the scale, up to half the
// rate.
function drawSpectrogram({pen, width, height, scale}, samples, view, rate, colours) {
  const size = rate / 62.5;  // a power of 2
  const fourier = new Fourier(size);
  const re = new Float32Array(size);
  const im = new Float32Array(size);
  const image = pen.createImageData(width, height);
  const pixels = new Uint32Array(image.data.buffer);
  const window =
      Float32Array.from({length: size}, (_, i) => (0.5 - 0.5 * Math.cos(2 * Math.PI * (i + 0.5) / size)) / 32768);
  const column = new Uint32Array(size / 2);
  const bins = Uint16Array.from({length: height}, (_, y) => (height - 1 - y) / height * column.length);
  const perPixel = (view.last - view.first) / width;
  const step = Math.max(Math.round(scale), Math.floor(rate / 2000 / perPixel));  // pixels of one column
  for (let x = 0; x < width; x += step) {
    const middle = Math.round(view.first + (x + step / 2) * perPixel);
    if (middle >= samples.length) break;
    im.fill(0);
    for (let i = 0; i < size; ++i) re[i] = (samples[middle - size / 2 + i] ?? 0) * window[i];
    fourier.transform(re, im);
    for (let k = 0; k < column.length; ++k) {
      const level = 10 * Math.log10((re[k] ** 2 + im[k] ** 2) / (size / 4) ** 2 + 1e-12);
      column[k] = colours[Math.min(Math.max(Math.round((level + 90) / 80 * 255), 0), 255)];
    }
    const end = Math.min(x + step, width);
    for (let y = 0, row = 0; y < height; ++y, row += width) {
      const colour = column[bins[y]];
      for (let i = x; i < end; ++i) pixels[row + i] = colour;
    }
  }
  pen.putImageData(image, 0, 0);
}

// 256 colours from the background over blue and orange to the foreground, as pixels.
function colourScale(dark) {
  const stops = dark ? [[15, 18, 24], [45, 60, 140], [200, 70, 90], [250, 170, 60], [255, 250, 210]] :
                       [[250, 250, 252], [150, 175, 230], [200, 80, 110], [140, 30, 60], [30, 5, 20]];
  return Uint32Array.from({length: 256}, (_, i) => {
    const at = i / 256 * (stops.length - 1);
    const [a, b] = [stops[Math.floor(at)], stops[Math.floor(at) + 1]];
    const [red, green, blue] = a.map((v, c) => Math.round(v + (b[c] - v) * (at % 1)));
    return (255 << 24 | blue << 16 | green << 8 | red) >>> 0;
  });
}
