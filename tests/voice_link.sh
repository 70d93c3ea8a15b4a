#!/bin/sh
# Checks voice_link as a user sees it: its results on speech, its messages and exit codes, pipes, and the files that it
# leaves. Every failure is printed; the exit status is 1 if there is one.
# usage: voice_link.sh PROGRAM CLIPS_DIRECTORY
#
# The lines of the program's reports that are read are such as these:
#   aimed at 10 % in bursts of 2, lost 11.4 %: 343 frames in 161 bursts, 2.13 frames in the mean
#     concealed             4.60 dB
#     last frame repeated   7.66 dB
#     silence               6.09 dB
#   signal-to-noise ratio of the decoded speech against the input: 16.68 dB
set -u
program=$1
speech=$2/speech_8k.wav
wide=$2/speech_16k.wav
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0
fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# Runs the program with the arguments: it ends with the status and prints TEXT on standard error, as a single line if
# the status is 1. $search, if set, is its PATH.
expect() { # STATUS TEXT ARGUMENT...
    status=$1
    text=$2
    shift 2
    PATH=${search:-$PATH} "$program" "$@" >stdout 2>stderr </dev/null
    got=$?
    [ $got -eq "$status" ] || fail "voice_link $*: status $got, not $status"
    grep -qF -e "$text" stderr || fail "voice_link $*: says '$(cat stderr)', not '$text'"
    [ "$status" -ne 1 ] || [ "$(wc -l <stderr)" -eq 1 ] || fail "voice_link $*: more than one line of error"
}

# The decibels at the end of the report's line with the word.
decibels() { # REPORT WORD
    sed -n "s/.*$2.* \([0-9.]*\) dB$/\1/p" "$1"
}

# Both numbers are there and the first is less than the second.
less() { # NUMBER NUMBER
    awk -v a="$1" -v b="$2" 'BEGIN { exit !(a != "" && b != "" && a + 0 < b + 0) }'
}

# Encoding and decoding: one byte for each sample, the last packet filled up, decoded speech in step with the input.
samples=$((($(wc -c <"$speech") - 44) / 2))
samples=$(((samples + 29) / 30 * 30))
"$program" encode "$speech" a.cvsd >encoded || fail "encode"
[ "$(wc -c <a.cvsd)" -eq $samples ] || fail "the bit stream is not $samples bytes long"
"$program" decode a.cvsd run_0.5 >report || fail "a number in a name is taken for a suffix"
"$program" decode a.cvsd a.wav --original "$speech" >decoded || fail "decode"
[ "$(wc -c <a.wav)" -eq $((44 + 2 * samples)) ] || fail "the decoded speech is not $samples samples long"
less 15 "$(decibels decoded ratio)" || fail "decoded speech: $(cat decoded)"

# The wideband clip is the same speech: resampled to 8000 Hz it has the same quality.
"$program" encode "$wide" wide.cvsd >encoded || fail "encode at 16000 Hz"
less 15 "$(decibels encoded ratio)" || fail "wideband clip: $(cat encoded)"

# Pipes give the same files as names, also if the data comes in pieces of any length.
"$program" encode - - <"$speech" 2>/dev/null | cmp -s - a.cvsd || fail "encode from and to a pipe"
(head -c 7 a.cvsd && sleep 0.2 && tail -c +8 a.cvsd) | "$program" decode - - 2>/dev/null | cmp -s - a.wav ||
    fail "decode in pieces"

# The link, at both rates: the output is as long as the input, the same seed gives the same output, and the concealed
# speech is closer to the loss-free output than silence or the last frame repeated.
for rate in 8000 16000; do
    clip=$2/speech_$((rate / 1000))k.wav
    "$program" link "$clip" $rate.wav --rate $rate --loss 10 --burst 2 >report || fail "link at $rate Hz"
    [ "$(wc -c <$rate.wav)" -eq "$(wc -c <"$clip")" ] || fail "link at $rate Hz changes the length"
    "$program" link "$clip" - --rate $rate --loss 10 --burst 2 2>/dev/null | cmp -s - $rate.wav ||
        fail "link at $rate Hz does not repeat itself"
    for other in silence repeated; do
        less "$(decibels report concealed)" "$(decibels report $other)" || fail "$rate Hz: $other: $(cat report)"
    done
    # For these losses, calculated over the same windows with another transform. They depend on the concealment's fade.
    case $rate in
    8000) known=4.60 ;;
    16000) known=5.38 ;;
    esac
    awk "BEGIN { d = $(decibels report concealed) - $known; exit !(d * d < 0.001) }" || fail "$rate Hz: $(cat report)"
done

# Patterns: with commas and comments, repeated or cut, and written so that a run can be repeated.
printf '# every fourth\n0,0 0\t1,\n# that is all' >pattern
"$program" link "$speech" lossy.wav --pattern pattern --conceal mute >report || fail "link with a pattern"
grep -q 'lost 25.0 %: 754 frames in 754 bursts' report || fail "every fourth frame: $(cat report)"
grep -q 'pattern: 4 frames, begun again to fill 3016' report || fail "a short pattern: $(cat report)"
"$program" link "$speech" some.wav --loss 30 --gaps gaps.wav --write-pattern some >report || fail "--write-pattern"
cat some some >twice
"$program" link "$speech" again.wav --pattern twice >report || fail "link with a written pattern"
grep -q 'pattern: 6032 frames, only the first 3016' report || fail "a long pattern: $(cat report)"
cmp some.wav again.wav || fail "a written pattern does not repeat the run"
head -c 10000 some | "$program" link "$speech" piped.wav --pattern - >report || fail "a pattern from a pipe"
cmp some.wav piped.wav || fail "a pattern from a pipe is another one"
"$program" link "$speech" mute.wav --pattern some --conceal mute >report
cmp mute.wav gaps.wav || fail "--gaps"
"$program" link "$speech" idle.wav --pattern some --while-lost idle >report
! cmp -s some.wav idle.wav || fail "--while-lost changes nothing"
echo 0 >pattern
"$program" link "$wide" on.wav --rate 16000 --pattern pattern >report
cmp -s on.wav "$wide" || fail "without loss, the output at 16000 Hz is not the input"
"$program" link "$speech" on.wav --pattern pattern >report
"$program" link "$speech" off.wav --pattern pattern --conceal off >report
cmp -s on.wav off.wav || fail "without loss, concealment changes the speech at 8000 Hz"

# Random losses: share and length of bursts are as asked for, over many seeds, or with --exact in each file.
"$program" link "$speech" seeds/ --seeds 40 --jobs 2 --loss 40 --burst 3 --report csv >seeds.csv || fail "40 seeds"
[ "$(find seeds -name 'speech_8k.seed*.wav' | wc -l)" -eq 40 ] || fail "40 seeds give other files: $(ls seeds)"
awk -F, 'NR > 1 { lost += $16; frames += $7; bursts += $18 } END {
    share = lost / frames
    burst = lost / bursts
    exit !(0.39 <= share && share <= 0.41 && 2.9 <= burst && burst <= 3.1) }' seeds.csv ||
    fail "40 % in bursts of 3 over 40 seeds: $(cat seeds.csv)"
"$program" link "$speech" x.wav --loss 40 --burst 3 --seed 40 >report
cmp x.wav seeds/speech_8k.seed40.wav || fail "a seed among several and alone"
"$program" link "$speech" x.wav --exact --burst 3 >report
grep -q 'aimed at 10 % in bursts of 3, lost 10.0 %: 302 frames in 101 bursts' report || fail "--exact: $(cat report)"
"$program" link "$speech" x.wav --loss 99 >report
grep -q 'aimed at 99 % in bursts of 99, lost 9[0-9].' report || fail "--loss 99: $(cat report)"
"$program" link "$speech" x.wav --loss 100 >report
grep -q 'lost 100.0 %' report || fail "--loss 100: $(cat report)"
"$program" link "$speech" x.wav --loss 100 --report csv >report
! grep -q null report || fail "--loss 100 --report csv: $(cat report)"

# Several files give the same results as each alone. One that cannot be read does not stop the others.
"$program" encode "$speech" empty.wav "$wide" many --jobs 3 --report json >report 2>stderr &&
    fail "a missing input is not seen"
grep -q 'empty.wav: cannot read' stderr || fail "a missing input among several: $(cat stderr)"
{ cmp many/speech_8k.cvsd a.cvsd && cmp many/speech_16k.cvsd wide.cvsd; } || fail "several files"
[ "$(grep -c '"duration_s": 11.31' report)" -eq 2 ] || fail "encode --report json: $(cat report)"
"$program" link "$speech" x.wav --report json >report
{ grep -q '"seed": 1,' report && grep -q '"version": "[0-9.]*"' report; } || fail "link --report json: $(cat report)"

# --channel takes one of two channels. The file with two channels is the wideband clip with another header, so that its
# samples belong to the channels in turn; without the first sample, the channels change places.
{
    head -c 22 "$wide" && printf '\2' # channels
    tail -c +24 "$wide" | head -c 9 && printf '\4' # bytes for a sample of all channels
    tail -c +34 "$wide"
} >stereo.wav
{ head -c 44 stereo.wav && tail -c +47 stereo.wav; } >swapped.wav
"$program" encode stereo.wav 2.cvsd --channel 2 >report || fail "--channel 2"
"$program" encode swapped.wav 1.cvsd --channel 1 >report || fail "--channel 1"
"$program" encode swapped.wav 12.cvsd >report || fail "two channels"
cmp -n 80000 1.cvsd 2.cvsd || fail "--channel 2 is not the second channel"
! cmp -s -n 80000 1.cvsd 12.cvsd || fail "--channel 1 is a mixture"

# A fault in a file that does not prevent the work is reported in one line.
head -c 100000 "$speech" >short.wav
expect 0 "warning: short.wav: shorter than its header says: 6.2 of 11.3 s are there" encode short.wav x.cvsd
"$program" encode "$speech" x.cvsd >report 2>stderr
[ ! -s stderr ] || fail "standard error, which is no terminal, holds $(cat stderr)"

# Twenty minutes in little memory, with a progress bar on a terminal. Sanitizers need memory of their own.
{ head -c 40 "$speech" && printf '\0\370\044\1' && head -c 19200000 /dev/zero; } >long.wav
if ! grep -q __asan_init "$program"; then
    prlimit --as=150000000 "$program" encode long.wav x.cvsd >report || fail "memory: $(cat report)"
    prlimit --as=150000000 "$program" link long.wav x.wav >report || fail "memory: $(cat report)"
fi
if script -qec true /dev/null </dev/null >/dev/null 2>&1; then
    script -qec "'$program' encode long.wav x.cvsd" /dev/null </dev/null >screen || fail "encode on a terminal"
    grep -q '\[#* *\.*\] *[0-9]* %' screen || fail "no bar on a terminal: $(cat screen)"
    script -qec "cat x.cvsd | '$program' decode - y.wav" /dev/null </dev/null >screen || fail "decode on a terminal"
    ! grep -q ' left ' screen || fail "a bar for a pipe, whose length is unknown: $(cat screen)"
    rm y.wav
else
    echo "no pseudo-terminal here: the bar is not tested"
fi
rm -r long.wav seeds many

# A signal that comes while the output is written ends the program by that signal and leaves no file.
mkfifo held
exec 3<>held
before=$(echo ./*)
for signal in INT TERM HUP; do
    env --default-signal="$signal" "$program" decode held x.part.wav 2>/dev/null &
    while kill -0 $! && ! ls x.part.wav.*.part >/dev/null 2>&1; do sleep 0.05; done
    kill -s "$signal" $!
    wait $! 2>/dev/null
    [ $? -gt 128 ] || fail "SIG$signal is not seen in the exit status"
    [ "$(echo ./*)" = "$before" ] || fail "SIG$signal leaves files behind: $(echo ./*)"
done
exec 3<&-
rm held

if command -v gnuplot >/dev/null; then
    { "$program" link "$speech" p.wav --plot "it's.svg" >report && grep -q '</svg' "it's.svg"; } ||
        fail "no SVG picture"
    { "$program" link "$speech" p.wav --plot "it's.png" >report && grep -q 'IEND' "it's.png"; } ||
        fail "no PNG picture"
    "$program" sweep "$speech" "$wide" curve.svg --loss 0,5,20 --burst 1,4 --seeds 2 --while-lost hold,idle --jobs 2 \
        >report || fail "sweep"
    grep -q '</svg' curve.svg || fail "no picture of a sweep"
    [ "$(wc -l <curve.csv)" -eq 49 ] || fail "not 48 runs: $(cat curve.csv)"
    [ "$(grep -c '^| \(hold\|idle\) | [0-9]* % | [14] | [0-9.]* dB' report)" -eq 8 ] ||
        fail "a table not of 8 rows: $(cat report)"
    "$program" sweep "$speech" curve.svg --loss 60,100 --seeds 1 >report || fail "sweep of many losses"
    [ "$(grep -c '^| \(60\|100\) % | \(1.5\|2\|5\) | [0-9.]* dB' report)" -eq 6 ] || fail "not raised: $(cat report)"
    ! "$program" sweep "$speech" curve.svg --loss 5 --burst 1 --seeds 1 >/dev/full 2>stderr ||
        fail "a table on a full disk"
    ln -s /dev/full full.svg
    rm -f x.wav
    expect 1 "full.svg: cannot write" link "$speech" x.wav --plot full.svg
    expect 1 "full.svg: cannot write" sweep "$speech" full.svg --seeds 1 --loss 5 --burst 1
fi

# A temporary file that a killed process has left does not block a later process with the same number.
sh -c ': >left.$$.0.part; exec "$0" encode "$1" left' "$program" short.wav >report 2>&1 ||
    fail "left behind: $(cat report)"

# If standard error is closed, no output file gets its descriptor.
"$program" encode short.wav closed.cvsd 2>&- >report || fail "encode without standard error"
[ "$(wc -c <closed.cvsd)" -eq 49980 ] || fail "messages in the output: $(wc -c <closed.cvsd) bytes"

# An error is reported in one line and leaves no file.
: >empty
tail -c +45 "$wide" >headerless.pcm
printf '0001\n01x0\n' >wrong
rm -f stdout stderr x.wav
cp "$speech" speech.wav
before=$(echo ./*)
expect 1 "nowhere.wav: cannot read" encode nowhere.wav x.cvsd
expect 1 "empty: is empty" encode empty x.cvsd
expect 1 "empty: is empty" decode empty x.wav
expect 1 "standard input: is empty" decode - x.wav
expect 1 "a.cvsd: not a sound file" encode a.cvsd x.cvsd
expect 1 "headerless.pcm: not a sound file: it has no header" encode headerless.pcm x.cvsd
expect 1 "not a bit stream, but a sound file" decode "$speech" x.wav
expect 1 "has no channel 2, only 1" encode "$speech" x.cvsd --channel 2
expect 1 "x.flac: cannot write: what comes out is WAV, not flac" decode a.cvsd x.flac
expect 1 "x.flac: cannot write: what comes out is WAV, not flac" link "$speech" x.flac
expect 1 "x.wav: cannot write: what comes out is a bit stream, not wav" encode "$speech" x.wav
expect 1 "wrong: not a loss pattern: line 2, column 3 is neither 0 nor 1" link "$speech" x.wav --pattern wrong
expect 1 "nowhere/x.wav: cannot write" link empty nowhere/x.wav
expect 1 "nowhere/x.cvsd: cannot write" encode "$speech" nowhere/x.cvsd
expect 1 "/dev/full: cannot write" encode "$speech" /dev/full
expect 1 "/dev/full: cannot write" decode a.cvsd /dev/full
expect 1 "/dev/full: cannot write" link "$speech" x.wav --write-pattern /dev/full # so little that only the end fails
expect 1 "pattern: cannot write: several outputs need a folder" encode "$speech" "$wide" pattern
search=/nonexistent
expect 1 "gnuplot is not installed" link empty x.wav --plot x.svg # before any work
expect 1 "gnuplot is not installed" sweep empty x.svg
search=
expect 2 "Usage:"
expect 2 "Usage:" decode a.cvsd
expect 2 "must end in .svg or .png" link "$speech" x.wav --plot x.gif
expect 2 "--burst: must be 9 or more to lose 90 %" link "$speech" x.wav --loss 90 --burst 2
expect 2 "nan is not in the range [0 - 100]" link "$speech" x.wav --loss nan
expect 2 "inf is not in the range [0 - 1000000]" link "$speech" x.wav --plot x.svg --plot-from inf
expect 2 "nan is not in the range [1 - 1000000]" sweep "$speech" x.svg --burst 1,nan
expect 2 "--rate" link "$speech" x.wav --rate 44100
expect 2 "is an input and would be overwritten" link short.wav stereo.wav .
expect 2 "speech.wav is an input and would be overwritten" link speech.wav speech.wav
expect 2 "speech.wav is an input and would be overwritten" link speech.wav x.wav --gaps ./speech.wav
expect 2 "two outputs would be written to x.wav" link speech.wav x.wav --gaps ./x.wav
expect 2 "are for one input and one seed" link speech.wav new/ --seeds 2 --gaps gaps.wav
expect 2 "two outputs would be written to" encode "$speech" ./"$speech" .
rm stdout stderr
[ "$(echo ./*)" = "$before" ] || fail "files left behind: $(echo ./*), before $before"
for command in encode decode link sweep; do
    "$program" $command --help | grep -q "Example: voice_link $command" || fail "$command --help has no example"
done
"$program" --version | grep -qx 'voice_link [0-9]*\.[0-9]*\.[0-9]*' || fail "--version"
exit $((failures > 0))
