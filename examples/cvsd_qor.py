#!/usr/bin/env python3
"""libcvsd_qor in Python: the codec and the concealment on sequences of samples, only with Python's standard library.

As a program it drops frames of a WAV file as a trace says, and conceals them: cvsd_qor.py --help

Samples are 16-bit integers: a list or any other iterable of numbers, or an array of int16 (array.array("h"), numpy),
which is passed as a whole. Results have the type of the input if that is a list, a tuple or a numpy array; otherwise
they are array.array("h"). Bits are bytes, or a numpy array (uint8) if the input of the same call is a numpy array.

The loader searches for the shared library; the environment variable CVSD_QOR_LIBRARY can name another file.
"""
import argparse
import array
import contextlib
import ctypes
import functools
import io
import itertools
import operator
import os
import re
import sys
import wave

FRAME = {8000: 30, 16000: 120}  # samples
DELAY = {8000: 30, 16000: 60}  # samples


@functools.lru_cache(maxsize=None)
def _function(name, result=None):
    try:
        function = getattr(ctypes.CDLL(os.environ.get("CVSD_QOR_LIBRARY", "libcvsd_qor.so")), name)
    except (AttributeError, OSError) as error:  # a library of another kind, or none
        raise OSError(f"{error}; CVSD_QOR_LIBRARY can name the library's file") from None
    function.restype = result
    return function


def _is_numpy(values):
    return type(values).__module__ == "numpy"


def _packed(values, code, what):
    """The values as bytes, with the array code 'h' or 'B' for each."""
    if isinstance(values, str) or (code == "h" and isinstance(values, (bytes, bytearray))):
        raise TypeError(f"{what}, not {type(values).__name__}")
    try:
        view = memoryview(values)
    except TypeError:
        try:
            return array.array(code, values).tobytes()
        except TypeError as error:
            raise TypeError(f"{what}: {error}") from None
        except OverflowError as error:
            raise ValueError(f"{what}: {error}") from None
    if view.format.lstrip("@=" + "<>"[sys.byteorder == "big"]) != code:
        raise TypeError(f"{what}, not an array of type {view.format!r}")
    if view.ndim != 1:
        raise ValueError(f"{what} in one dimension, not {view.ndim}")
    return view.tobytes()


_packed_samples = functools.partial(_packed, code="h", what="samples are 16-bit integers")
_packed_bits = functools.partial(_packed, code="B", what="bits are bytes")


def _like(values, result):
    """The result, an array.array, in the type of the input."""
    if _is_numpy(values):
        return sys.modules["numpy"].frombuffer(result, "int16" if result.typecode == "h" else "uint8")
    if result.typecode == "B":
        return result.tobytes()
    return type(values)(result) if type(values) in (list, tuple) else result


class _Codec:
    """One direction of one stream. Samples that do not fill a byte are kept for the next call."""

    def __init__(self, direction, taken, given):
        self._process = _function(f"CVSD_{direction}_Process")
        self._state = (ctypes.c_int32 * 3)()
        _function(f"CVSD_{direction}_Init")(self._state)
        self._taken, self._given, self._left = array.array(taken).itemsize, given, b""

    def _run(self, packed, capacity):
        packed = self._left + packed
        count = len(packed) // self._taken
        output = array.array(self._given, bytes(capacity(count)))
        left, made = ctypes.c_int32(count), ctypes.c_int32(len(output))
        self._process(self._state, packed, ctypes.byref(left), _pointer(output), ctypes.byref(made))
        self._left = packed[len(packed) - left.value * self._taken:]
        return output


class Encoder(_Codec):
    """
    >>> encoder = Encoder()
    >>> encoder.encode([0] * 20).hex()  # 4 samples are left over
    'aaaa'
    >>> encoder.encode([0] * 4).hex()
    'aa'
    >>> encoder.encode(b"1234")
    Traceback (most recent call last):
    TypeError: samples are 16-bit integers, not bytes
    """

    def __init__(self):
        super().__init__("ENC", "h", "B")

    def encode(self, samples):
        return _like(samples, self._run(_packed_samples(samples), lambda count: count // 8))


class Decoder(_Codec):
    """
    >>> decoder = Decoder()
    >>> list(decoder.decode(b"\\xff")), list(decoder.decode(b"\\xff"))
    ([0, -9, -19, -37, -65, -102, -147, -201], [-262, -332, -408, -492, -584, -682, -786, -897])
    """

    def __init__(self):
        super().__init__("DEC", "B", "h")

    def decode(self, bits):
        return _like(bits, self._run(_packed_bits(bits), lambda count: 2 * 8 * count))


class Concealment:
    """One stream. Frame after frame, good() or lost() returns one frame of output, DELAY[rate] samples late.

    >>> stream = Concealment(8000)
    >>> stream.good(range(30)).tolist() == [0] * 30, stream.good([7] * 30) == list(range(30))
    (True, True)
    >>> Concealment(44100)
    Traceback (most recent call last):
    ValueError: the sample rate is 8000 or 16000 Hz, not 44100
    >>> Concealment("8000")
    Traceback (most recent call last):
    TypeError: the sample rate is an integer, not str
    """

    def __init__(self, rate):
        try:
            rate = operator.index(rate)
        except TypeError:
            raise TypeError(f"the sample rate is an integer, not {type(rate).__name__}") from None
        if rate not in FRAME:
            raise ValueError(f"the sample rate is 8000 or 16000 Hz, not {rate}")
        size = _function("g711plc_GetMemorySize_v2", ctypes.c_int32)()
        self._block = (ctypes.c_int64 * (size // 8))()  # aligned, and does not move
        _function("g711plc_construct_v2")(self._block, rate)
        self._calls = [_function("g711plc_addtohistory_v2"), _function("g711plc_dofe_v2")]
        self._latest = None
        self.frame_len, self.delay = FRAME[rate], DELAY[rate]

    def good(self, frame):
        output = array.array("h", _packed_samples(frame))
        if len(output) != self.frame_len:
            raise ValueError(f"a frame is {self.frame_len} samples, not {len(output)}")
        self._latest = frame
        self._frames(output, [False])
        return _like(frame, output)

    def lost(self):
        """In the type of the latest good frame."""
        output = array.array("h", bytes(2 * self.frame_len))
        self._frames(output, [True])
        return _like(self._latest, output)

    def _frames(self, samples, lost):
        block = ctypes.c_void_p(ctypes.addressof(self._block))
        addresses = itertools.count(samples.buffer_info()[0], 2 * self.frame_len)
        for is_lost, address in zip(lost, addresses):
            self._calls[is_lost](block, ctypes.c_void_p(address))


def conceal(samples, rate, lost):
    """A whole signal, aligned with the input, in which the frames are concealed for which `lost` has True or 1. If
    `lost` is shorter than the signal, all further frames arrive.

    >>> tone = [400 * abs(i % 40 - 20) - 4000 for i in range(600)]
    >>> heard = conceal(tone, 8000, [False] * 14 + [True])
    >>> len(heard), max(abs(a - b) for a, b in zip(heard, tone))
    (600, 2)
    """
    stream = Concealment(rate)
    packed = _packed_samples(samples)
    length = len(packed) // 2
    frames = (length + stream.delay + stream.frame_len - 1) // stream.frame_len
    marks = _marks(lost, frames)
    output = array.array("h", packed + bytes(2 * (frames * stream.frame_len - length)))
    stream._frames(output, marks)
    return _like(samples, output[stream.delay:stream.delay + length])


def parse_trace(text):
    """
    >>> parse_trace("0, 0 1  # the third is lost")
    [False, False, True]
    >>> parse_trace("00\\n0 lost")
    Traceback (most recent call last):
    ValueError: line 2, column 3 is neither 0 nor 1
    """
    marks = re.sub("#[^\\n]*", lambda comment: " " * len(comment[0]), text)
    wrong = re.search("[^01, \\t\\n\\r\\v\\f]", marks)
    if wrong:
        before = marks[:wrong.start()]
        raise ValueError(f"line {before.count(chr(10)) + 1}, column {len(before) - before.rfind(chr(10))} "
                         "is neither 0 nor 1")
    marks = [mark == "1" for mark in marks if mark in "01"]
    if not marks:
        raise ValueError("it holds neither 0 nor 1")
    return marks


def _marks(lost, frames):
    if isinstance(lost, (str, bytes)):
        raise TypeError(f"lost is a sequence of True and False, not {type(lost).__name__}; "
                        "parse_trace() makes one of text")
    marks = list(itertools.islice(lost, frames))
    for mark in marks:
        if mark not in (0, 1):
            raise ValueError(f"lost is a sequence of True and False, or 1 and 0; it holds {mark!r}")
    return [bool(mark) for mark in marks] + [False] * (frames - len(marks))


def _pointer(values):
    return ctypes.c_void_p(values.buffer_info()[0])


def _read_wav(path):
    with open(path, "rb") as raw:
        content = raw.read()
    if not content:
        raise ValueError("is empty")
    # Chunks begin at even bytes: a file of odd length ends within a sample.
    with wave.open(io.BytesIO(content[:len(content) // 2 * 2])) as file:
        rate = file.getframerate()
        if (file.getnchannels(), file.getsampwidth()) != (1, 2) or rate not in FRAME:
            raise ValueError("not mono, 16 bits, 8000 or 16000 Hz")
        samples = array.array("h", file.readframes(file.getnframes()))
        if not samples:
            raise ValueError("holds no sound")
        if len(samples) < file.getnframes():
            print(f"cvsd_qor.py: warning: {path}: shorter than its header says", file=sys.stderr)
        return samples, rate


def _read_trace(path):
    with open(path, encoding="latin-1", newline="") as file:
        return parse_trace(file.read())


def _write_wav(path, samples, rate):
    part = f"{path}.{os.getpid()}.part" if os.path.isfile(path) or not os.path.exists(path) else path
    try:
        with open(part, "wb") as raw, wave.open(raw, "wb") as file:
            file.setparams((1, 2, rate, 0, "NONE", None))
            file.writeframes(samples.tobytes())
        if part != path:
            os.replace(part, path)
    finally:
        if part != path:
            with contextlib.suppress(FileNotFoundError):
                os.remove(part)


def main():
    parser = argparse.ArgumentParser(description="Drops frames of a WAV file as a trace says, and conceals them.")
    parser.add_argument("input", metavar="IN.wav", help="mono, 16 bits, 8000 or 16000 Hz")
    parser.add_argument("trace", metavar="TRACE", help="a 0 for every frame that arrives, a 1 for every lost one; white "
                        "space and commas between them, comments from # to the line's end; a short trace is repeated")
    parser.add_argument("output", metavar="OUT.wav", help="aligned with the input")
    names = parser.parse_args()
    name = names.input
    try:
        samples, rate = _read_wav(name)
        name = names.trace
        marks = itertools.cycle(_read_trace(name))
        name = "the library"
        heard = conceal(samples, rate, itertools.islice(marks, -(-len(samples) // FRAME[rate])))
        name = names.output
        _write_wav(name, heard, rate)
    except (EOFError, OSError, ValueError, wave.Error) as error:
        sys.exit(f"cvsd_qor.py: {name}: {getattr(error, 'strerror', None) or str(error) or 'ends too early'}")


if __name__ == "__main__":
    main()
