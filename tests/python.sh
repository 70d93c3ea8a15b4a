#!/bin/sh
# Checks the Python example: the examples in its docstrings, its program against voice_link if that is built, arrays,
# and its messages.
# usage: python.sh EXAMPLES_DIRECTORY LIBRARY [VOICE_LINK]
set -eu
examples=$1
export CVSD_QOR_LIBRARY="$2"
voice_link=${3:-}
command -v python3 >/dev/null || { echo "skipped: python3 is not installed"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$examples"
program=$examples/cvsd_qor.py
speech=$examples/clips/speech_16k.wav
cd "$work"

python3 -m doctest "$program"
printf '# two of\n0,0,0,0,0 11000\t00001 00000 00011 11111#1' >trace
python3 "$program" "$speech" trace heard.wav
if [ -n "$voice_link" ]; then
    "$voice_link" link "$speech" linked.wav --rate 16000 --pattern trace
    cmp heard.wav linked.wav
fi

# Arrays of the standard library and of numpy are taken without a copy to a list, and the result has the type of the
# input. Debian's numpy works with Debian's interpreter only.
with_numpy=
for python in /usr/bin/python3 python3; do
    if "$python" -c "import numpy" 2>/dev/null; then with_numpy=$python; fi
done
[ -n "$with_numpy" ] || echo "numpy is not tested: neither python3 nor /usr/bin/python3 has it"
"${with_numpy:-python3}" - "$with_numpy" <<END
import array, ctypes, sys, tracemalloc
import cvsd_qor

def there_and_back(samples):
    tracemalloc.start()
    bits = cvsd_qor.Encoder().encode(samples)
    speech = cvsd_qor.Decoder().decode(bits)
    heard = cvsd_qor.conceal(samples, 16000, [1, 0])
    assert type(speech) == type(heard) == type(samples), (type(speech), type(heard))
    assert len(bits) == len(samples) // 8 and len(speech) == len(heard) == len(samples)
    assert list(heard[1000:1010]) == list(samples[1000:1010]), heard[1000:1010]
    peak = tracemalloc.get_traced_memory()[1] / len(samples) # a list of numbers takes more than 30
    tracemalloc.stop()
    assert peak < 20, f"{peak} bytes a sample at once"

# A buffer that cannot be iterated over.
class Whole(ctypes.c_int16 * 600):
    __iter__ = None

assert len(cvsd_qor.conceal(Whole(), 8000, [])) == 600
there_and_back(array.array("h", range(1000, 11000)) * 10)
if sys.argv[1]:
    import numpy
    there_and_back(numpy.tile(numpy.arange(1000, 11000, dtype="int16"), 10))
    cvsd_qor.conceal(numpy.zeros(600, "int16")[::2], numpy.int64(8000), numpy.array([True, False]))
    try:
        cvsd_qor.Encoder().encode(numpy.zeros(8))
    except TypeError as error:
        assert str(error) == "samples are 16-bit integers, not an array of type 'd'", error

assert cvsd_qor.conceal([1, 2], 8000, []) == [1, 2]
for error, arguments in [
    (TypeError, (b"1234", 8000, [])), (TypeError, ([1.5], 8000, [])), (ValueError, ([40000], 8000, [])),
    (TypeError, ([1], 8000.0, [])), (TypeError, ([1], 8000, "0000")), (ValueError, ([1], 8000, ["0"])),
]:
    try:
        cvsd_qor.conceal(*arguments)
    except error:
        continue
    raise AssertionError(f"{arguments} are taken")
END

# The program with these arguments ends with an error, a single line that ends in TEXT, and writes no file.
refused() { # TEXT ARGUMENT...
    text=$1
    shift
    if python3 "$program" "$@" 2>stderr; then
        echo "taken: $*"
        exit 1
    fi
    if ! grep -q -e "$text\$" stderr || [ "$(wc -l <stderr)" -ne 1 ] || [ -e out.wav ]; then
        cat stderr
        exit 1
    fi
}
: >empty
printf '0,0\n0,lost' >wrong
printf '# 01' >comment
refused "wrong: line 2, column 3 is neither 0 nor 1" "$speech" wrong out.wav
refused "comment: it holds neither 0 nor 1" "$speech" comment out.wav
refused "empty: it holds neither 0 nor 1" "$speech" empty out.wav
refused "nowhere: No such file or directory" "$speech" nowhere out.wav
refused "empty: is empty" empty trace out.wav
head -c 45 "$speech" >header
refused "header: holds no sound" header trace out.wav
head -c 2001 "$speech" >truncated
python3 "$program" truncated trace short.wav 2>stderr
grep -qx "cvsd_qor.py: warning: truncated: shorter than its header says" stderr
[ "$(wc -c <short.wav)" -eq 2000 ]
refused "nowhere/out.wav: No such file or directory" "$speech" trace nowhere/out.wav
for CVSD_QOR_LIBRARY in /nowhere/libcvsd_qor.so libc.so.6; do # no library, and one without the functions
    refused "cvsd_qor.py: the library: .*; CVSD_QOR_LIBRARY can name the library's file" "$speech" trace out.wav
done
python3 "$program" --help | grep -q TRACE
