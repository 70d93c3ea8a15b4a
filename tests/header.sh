#!/bin/sh
# Compiles the public header under every language standard that it names, and runs the receiver's loop that it shows.
# usage: header.sh HEADER_DIRECTORY LIBRARY    (CC, CXX and EMULATOR in the environment)
set -eu
headers=$1
library=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
warnings="-Wall -Wextra -pedantic -Wshadow -Werror"

printf '#include "cvsd_qor.h"\n' >alone.c
# A program that uses the names of the tables for its own variables, before the header and after it.
cat >names.c <<'END'
static int before(void) { int x = 1, x2 = x; return x2; }
#define CVSD_QOR_NO_TABLES
#include "cvsd_qor.h"
static int invk = 2;
int behind(void);
int behind(void) { int x = before(), bdf = x, MPTH = bdf; return MPTH + invk; }
END
for source in alone names; do
    cp $source.c $source.cpp
    # shellcheck disable=SC2086 # a list
    for standard in c89 c99 c11 c17; do
        "${CC:-cc}" -std=$standard $warnings -I"$headers" -fsyntax-only $source.c
    done
    # shellcheck disable=SC2086
    for standard in c++11 c++14 c++17 c++20; do
        "${CXX:-c++}" -std=$standard $warnings -I"$headers" -fsyntax-only $source.cpp
    done
done

# 20 frames in which each sample is 1000; the tenth is lost. Concealed and one frame late, the samples are still 1000.
# The loop stands in the header's first comment, from the declaration of the block to the closing brace:
#  *     PlcBlock block;
#  *     ...
#  *     }
{
    cat <<'END'
#include "cvsd_qor.h"
#include <stdio.h>
#include <stdlib.h>
static int frames, played;
static int next_frame(int16_t *frame, int *arrived) {
    int i;
    *arrived = ++frames != 10;
    for (i = 0; *arrived && i < 30; ++i) frame[i] = 1000;
    return frames <= 20;
}
static void play(const int16_t *frame, int n) {
    int i;
    for (i = 0; i < n; ++i, ++played) {
        if (abs(frame[i] - (played < 30 ? 0 : 1000)) > 2) {
            printf("sample %d is %d\n", played, frame[i]);
            exit(1);
        }
    }
}
int main(void) {
    int arrived;
END
    sed -n '/^ \*     PlcBlock block;/,/^ \*     }/s/^ \*//p' "$headers/cvsd_qor.h"
    printf '    return played != 600;\n}\n'
} >loop.c
# shellcheck disable=SC2086
"${CC:-cc}" -std=c89 $warnings -I"$headers" loop.c -o loop "$library" -Wl,-rpath,"$(dirname "$library")"
${EMULATOR:-} ./loop
