#!/bin/sh
# Walks pages as a reader does: pastes every fenced block, in the order of the page, into one shell that starts at the
# root of the tree with nothing in its environment but PATH and HOME. By language:
#   sh      runs as it stands
#   c       with a first line /* NAME.c */ is saved under that name; otherwise compiled, and run if it is a program
#   cmake   goes into a project that has the tree in cvsd_qor/; its program is built and run
#   python  runs
#   text    is what the block before it prints
# Passed over: what says "not run in CI", a line of sh or a block of anything else; a block that says "as root", for
# other users. Blocks without a language are drawings.
#
# usage: docs.sh [--copy LIBRARIES] PAGE...
#   --copy   in a copy of the tree with a HOME of its own, where build/release holds the libraries of that directory;
#            blocks "as root" and lines that call the tree's own scripts are passed over
# Without --copy the blocks do to this tree and this machine all that they say: they build, install and download.
set -eu

# In the clean shell. The block's own commands must not stop at an unset variable of theirs.
paste() { # BLOCK...
    set +u
    exec 3>&1
    trap '[ -z "$block" ] || { cat "$block.out" "$block.log"; echo "FAILED: ${block#*/blocks/}"; } >&3' EXIT
    for block in "$@"; do
        case $block in
        *.sh)
            # shellcheck disable=SC1090 # the page's
            . "$block"
            ;;
        *.c) c_block ;;
        *.cmake) cmake_block ;;
        *.python) python3 "$block" ;;
        *.text) diff -u "$previous.out" "$block" ;;
        *) echo "no language that this test knows" && false ;;
        esac >"$block.out" 2>"$block.log" </dev/null
        previous=$block
    done
    block=
}

c_block() {
    name=$(sed -n '1s,^/\* \([a-z_]*\.c\) \*/$,\1,p' "$block")
    set -- -std=c99 -Wall -Wextra -pedantic -Werror -Iinclude "$block"
    if [ -n "$name" ]; then
        cp "$block" "$name"
    elif grep -q 'int main(' "$block"; then
        cc "$@" -o "$block.program" build/release/libcvsd_qor.a
        LD_LIBRARY_PATH=$PWD/build/release "$block.program"
    else
        cc "$@" -c -o "$block.o"
    fi
}

cmake_block() {
    mkdir "$block.app"
    ln -s "$PWD" "$block.app/cvsd_qor"
    {
        echo 'cmake_minimum_required(VERSION 3.25)'
        echo 'project(app LANGUAGES C CXX)'
        echo 'add_executable(app cvsd_qor/examples/minimal.c)'
        cat "$block"
    } >"$block.app/CMakeLists.txt"
    cmake -S "$block.app" -B "$block.app/build"
    cmake --build "$block.app/build"
    "$block.app/build/app"
}

if [ "$1" = --paste ]; then
    shift
    paste "$@"
    exit
fi

copy=
if [ "$1" = --copy ]; then
    copy=$2
    shift 2
fi
cd "$(dirname "$0")/.."
docs_sh=$PWD/tests/docs.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
home=$HOME
root=$([ "$(id -u)" = 0 ] && echo yes || echo no)
pass_over='not run in CI'
if [ -n "$copy" ]; then
    home=$work/home
    mkdir -p "$home" "$work/cvsd_qor/build/release"
    tar --exclude='./build*' --exclude=./.git --exclude=./out -cf - . | tar -C "$work/cvsd_qor" -xf -
    cp "$copy"/libcvsd_qor* "$work/cvsd_qor/build/release/"
    cd "$work/cvsd_qor"
    root=no
    pass_over="$pass_over|^scripts\\/"
fi

for page in "$@"; do
    blocks=$work/blocks/$page
    mkdir -p "$blocks"
    # A block in a list is indented, and so is what is in it.
    awk -v blocks="$blocks" '
        /^ *```/ && !inside {
            inside = 1
            indent = index($0, "`")
            file = sprintf("%s/%03d.%s", blocks, NR, substr($0, indent + 3))
            if (file ~ /[.]$/) file = "/dev/null"
            next
        }
        /^ *```/ { inside = 0; close(file); next }
        inside { print substr($0, indent) > file }' "$page"
    # Links within the tree; those to headings are not looked at.
    grep -oE '\]\([^)#:]+' "$page" | cut -c3- | while read -r link; do
        [ -e "$(dirname "$page")/$link" ] || { echo "$page links to $link, which is not there"; exit 1; }
    done
    for block in "$blocks"/*; do
        [ -e "$block" ] || continue
        [ "${block%.sh}" = "$block" ] || sed -i -E "/$pass_over/d" "$block"
        if grep -q 'not run in CI' "$block" || { [ "$root" = no ] && grep -q 'as root' "$block"; }; then
            rm "$block"
        fi
    done
    set -- "$blocks"/*
    [ -e "$1" ] || continue
    env -i PATH="$PATH" HOME="$home" sh -e "$docs_sh" --paste "$@"
    echo "$page: $# blocks"
done
