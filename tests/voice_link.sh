#!/bin/sh
# voice_link as a user meets it: its results on speech, its messages and exit codes, pipes, and what it leaves behind.
# Usage: voice_link.sh PROGRAM CLIPS_DIR
set -u
program=$1
speech=$2/speech_8k.wav
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0
fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# expect STATUS TEXT ARGUMENT...: the exit status, and TEXT on standard error, in one line if the status is 1.
expect() {
    status=$1
    text=$2
    shift 2
    PATH=${search:-$PATH} "$program" "$@" >stdout 2>stderr </dev/null
    got=$?
    [ $got -eq "$status" ] || fail "voice_link $*: status $got, not $status"
    grep -qF -e "$text" stderr || fail "voice_link $*: says '$(cat stderr)', not '$text'"
    [ "$status" -ne 1 ] || [ "$(wc -l <stderr)" -eq 1 ] || fail "voice_link $*: more than one line of error"
}

# The decibels in the line of a report that has the word.
decibels() { sed -n "s/.*$2.* \([0-9.]*\) dB$/\1/p" "$1"; }
less() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a != "" && b != "" && a + 0 < b + 0) }'; }

# There and back: one byte for each sample, the last packet filled up, decoded speech in step with the input.
samples=$((($(wc -c <"$speech") - 44) / 2))
samples=$(((samples + 29) / 30 * 30))
"$program" encode "$speech" a.cvsd >encoded || fail "encode"
[ "$(wc -c <a.cvsd)" -eq $samples ] || fail "the bit stream is not $samples bytes long"
"$program" decode a.cvsd a.wav --original "$speech" >decoded || fail "decode"
[ "$(wc -c <a.wav)" -eq $((44 + 2 * samples)) ] || fail "the decoded speech is not $samples samples long"
less 15 "$(decibels decoded ratio)" || fail "decoded speech: $(cat decoded)"

# The wideband clip is the same speech: brought to 8000 Hz it decodes as well.
"$program" encode "$2/speech_16k.wav" wide.cvsd >encoded || fail "encode at 16000 Hz"
less 15 "$(decibels encoded ratio)" || fail "wideband clip: $(cat encoded)"

# Pipes, with pieces that end anywhere, give the same files.
"$program" encode - - <"$speech" 2>/dev/null | cmp -s - a.cvsd || fail "encode from and to a pipe"
(head -c 7 a.cvsd && sleep 0.2 && tail -c +8 a.cvsd) | "$program" decode - - 2>/dev/null | cmp -s - a.wav || fail "decode in pieces"

# The link: as long as the input at both rates, the same again with the same seed, concealed nearer than the rest.
for rate in 8000 16000; do
    clip=$2/speech_$((rate / 1000))k.wav
    "$program" link "$clip" $rate.wav --rate $rate --loss 10 --burst 2 >report || fail "link at $rate Hz"
    [ "$(wc -c <$rate.wav)" -eq "$(wc -c <"$clip")" ] || fail "link at $rate Hz changes the length"
    "$program" link "$clip" - --rate $rate --loss 10 --burst 2 2>/dev/null | cmp -s - $rate.wav ||
        fail "link at $rate Hz does not repeat itself"
    for other in silence repeated; do
        less "$(decibels report concealed)" "$(decibels report $other)" || fail "$rate Hz: $other: $(cat report)"
    done
done
echo 00010 >pattern
"$program" link "$speech" lossy.wav --pattern pattern --conceal mute >report || fail "link with a pattern"
grep -q '(20.0 %).*: [0-9]* of 1$' report || fail "pattern 00010: $(cat report)"
echo 0 >pattern
"$program" link "$2/speech_16k.wav" on.wav --rate 16000 --pattern pattern >report
cmp -s on.wav "$2/speech_16k.wav" || fail "without loss, the output at 16000 Hz is not the input"
"$program" link "$speech" on.wav --pattern pattern >report
"$program" link "$speech" off.wav --pattern pattern --conceal off >report
cmp -s on.wav off.wav || fail "without loss, concealment changes the speech at 8000 Hz"
if command -v gnuplot >/dev/null; then
    { "$program" link "$speech" p.wav --plot "it's.svg" >report && grep -q '<svg' "it's.svg"; } || fail "no SVG picture"
    { "$program" link "$speech" p.wav --plot "it's.png" >report && grep -q 'PNG' "it's.png"; } || fail "no PNG picture"
fi

# What cannot be done is said in one line and leaves no file.
: >empty
before=$(echo ./*)
expect 1 "nowhere.wav: cannot read" encode nowhere.wav x.cvsd
expect 1 "empty: is empty" encode empty x.cvsd
expect 1 "empty: is empty" decode empty x.wav
expect 1 "standard input: is empty" decode - x.wav
expect 1 "a.cvsd: not a sound file" encode a.cvsd x.cvsd
expect 1 "a.cvsd: not a loss pattern" link "$speech" x.wav --pattern a.cvsd
expect 1 "nowhere/x.cvsd: cannot write" encode "$speech" nowhere/x.cvsd
expect 1 "/dev/full: cannot write" encode "$speech" /dev/full
expect 1 "cannot write: it is a directory" decode a.cvsd "$work"
search=/nonexistent
expect 1 "gnuplot is not installed" link "$speech" x.wav --plot x.svg
search=
expect 2 "Usage:"
expect 2 "Usage:" decode a.cvsd
expect 2 "must end in .svg or .png" link "$speech" x.wav --plot x.gif
expect 2 "--burst: must be 9" link "$speech" x.wav --loss 90 --burst 2
expect 2 "--rate" link "$speech" x.wav --rate 44100
rm stdout stderr
[ "$(echo ./*)" = "$before" ] || fail "files left behind: $(echo ./*), before $before"
for command in encode decode link; do
    "$program" $command --help | grep -q "Example: voice_link $command" || fail "$command --help has no example"
done
exit $((failures > 0))
