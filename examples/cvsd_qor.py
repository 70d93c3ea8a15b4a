#!/usr/bin/env python3
"""libcvsd_qor in Python: the codec and the concealment on sequences of samples, with the standard library alone.

As a program it loses frames of a WAV file by a trace and conceals them:

    cvsd_qor.py IN.wav TRACE OUT.wav

IN.wav is mono, 16 bits, 8000 or 16000 Hz. TRACE holds a 0 for every frame that arrives and a 1 for every lost one;
white space does not count, and a short trace is begun again. OUT.wav is lined up with IN.wav.

The shared library is looked for where the loader looks; the environment variable CVSD_QOR_LIBRARY names another file.
"""
import array
import ctypes
import itertools
import os
import sys
import wave

_library = ctypes.CDLL(os.environ.get("CVSD_QOR_LIBRARY", "libcvsd_qor.so"))

FRAME = {8000: 30, 16000: 120}  # samples
DELAY = {8000: 30, 16000: 60}  # samples


class _Codec:
    """One direction of one stream. What does not fill a byte is kept for the next call."""

    def __init__(self, direction, taken, given):
        self._process = getattr(_library, f"CVSD_{direction}_Process")
        self._state = (ctypes.c_int32 * 3)()
        getattr(_library, f"CVSD_{direction}_Init")(self._state)
        self._taken, self._given, self._left = taken, given, array.array(taken)

    def _run(self, values, capacity):
        values = self._left + array.array(self._taken, values)
        output = array.array(self._given, bytes(capacity(len(values))))
        left, made = ctypes.c_int32(len(values)), ctypes.c_int32(len(output))
        self._process(self._state, _pointer(values), ctypes.byref(left), _pointer(output), ctypes.byref(made))
        self._left = values[len(values) - left.value:]
        return output[:made.value]


class Encoder(_Codec):
    """
    >>> encoder = Encoder()
    >>> encoder.encode([0] * 20).hex()  # 4 samples are left over
    'aaaa'
    >>> encoder.encode([0] * 4).hex()
    'aa'
    """

    def __init__(self):
        super().__init__("ENC", "h", "B")

    def encode(self, samples):
        return self._run(samples, lambda count: count // 8).tobytes()


class Decoder(_Codec):
    """
    >>> decoder = Decoder()
    >>> list(decoder.decode(b"\\xff")), list(decoder.decode(b"\\xff"))
    ([0, -9, -19, -37, -65, -102, -147, -201], [-262, -332, -408, -492, -584, -682, -786, -897])
    """

    def __init__(self):
        super().__init__("DEC", "B", "h")

    def decode(self, bits):
        return self._run(bits, lambda count: 2 * 8 * count)


class Concealment:
    """One stream. Frame after frame, good() or lost() returns one frame of output, DELAY[rate] samples late.

    >>> stream = Concealment(8000)
    >>> list(stream.good(range(30))) == [0] * 30, list(stream.good([7] * 30)) == list(range(30))
    (True, True)
    >>> Concealment(44100)
    Traceback (most recent call last):
    ValueError: the sample rate is 8000 or 16000 Hz, not 44100
    """

    def __init__(self, rate):
        self._block = (ctypes.c_int64 * (_library.g711plc_GetMemorySize_v2() // 8))()  # aligned, and stays where it is
        if _library.g711plc_construct_v2(self._block, rate) != 0:
            raise ValueError(f"the sample rate is 8000 or 16000 Hz, not {rate}")
        self.frame_len, self.delay = FRAME[rate], DELAY[rate]

    def good(self, frame):
        frame = array.array("h", frame)
        if len(frame) != self.frame_len:
            raise ValueError(f"a frame is {self.frame_len} samples, not {len(frame)}")
        _library.g711plc_addtohistory_v2(self._block, _pointer(frame))
        return frame

    def lost(self):
        frame = array.array("h", bytes(2 * self.frame_len))
        _library.g711plc_dofe_v2(self._block, _pointer(frame))
        return frame


def conceal(samples, rate, lost):
    """A whole signal with the frames concealed for which `lost` is true, lined up with the input.

    >>> tone = [400 * abs(i % 40 - 20) - 4000 for i in range(600)]
    >>> heard = conceal(tone, 8000, [False] * 14 + [True])
    >>> len(heard), max(abs(a - b) for a, b in zip(heard, tone))
    (600, 2)
    """
    stream = Concealment(rate)
    padded = array.array("h", samples) + array.array("h", bytes(2 * (stream.delay + stream.frame_len)))
    output = array.array("h")
    for start, is_lost in zip(range(0, len(padded) - stream.frame_len + 1, stream.frame_len),
                              itertools.chain(lost, itertools.repeat(False))):
        output += stream.lost() if is_lost else stream.good(padded[start:start + stream.frame_len])
    return output[stream.delay:stream.delay + len(samples)]


def _pointer(values):
    return ctypes.c_void_p(values.buffer_info()[0])


def main(arguments):
    if len(arguments) != 3:
        sys.exit(__doc__)
    source, trace, target = arguments
    with wave.open(source) as file:
        rate = file.getframerate()
        if (file.getnchannels(), file.getsampwidth()) != (1, 2) or rate not in FRAME:
            sys.exit(f"{source}: not mono, 16 bits, 8000 or 16000 Hz")
        samples = array.array("h", file.readframes(file.getnframes()))
    with open(trace, encoding="ascii") as file:
        marks = [mark == "1" for mark in file.read() if not mark.isspace()]
    heard = conceal(samples, rate, itertools.islice(itertools.cycle(marks), len(samples) // FRAME[rate] + 1))
    with wave.open(target, "wb") as file:
        file.setparams((1, 2, rate, 0, "NONE", None))
        file.writeframes(heard.tobytes())


if __name__ == "__main__":
    main(sys.argv[1:])
