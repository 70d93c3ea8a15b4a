#!/bin/sh
# The Python example: what its descriptions show, and its program against voice_link, where that is built.
# usage: python.sh EXAMPLES_DIRECTORY LIBRARY [VOICE_LINK]
set -eu
examples=$1
export CVSD_QOR_LIBRARY="$2"
voice_link=${3:-}
command -v python3 >/dev/null || { echo "skipped: python3 is not installed"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PYTHONDONTWRITEBYTECODE=1

python3 -m doctest "$examples/cvsd_qor.py"
echo 00000 11000 00001 00000 00011 11111 >"$work/trace"
python3 "$examples/cvsd_qor.py" "$examples/clips/speech_16k.wav" "$work/trace" "$work/heard.wav"
if [ -n "$voice_link" ]; then
    "$voice_link" link "$examples/clips/speech_16k.wav" "$work/linked.wav" --rate 16000 --pattern "$work/trace"
    cmp "$work/heard.wav" "$work/linked.wav"
fi
