#!/bin/sh
# Runs the code blocks of pages as a reader would: all blocks of a page, in order, in one shell. That shell starts at
# the root of the tree, and its environment holds PATH and HOME alone. What is done with a block depends on its
# language:
#   sh      is run as it stands; it ends at the first command that fails, but not within a line such as a && b
#   c       with a first line /* NAME.c */ is saved under that name; otherwise compiled, and run if it has a main
#   cmake   becomes a part of a project that has the tree in cvsd_qor/; the project's program is built and run
#   python  is run
#   text    must be what the block before it has printed
# A block without a language is a drawing. Left out are lines of sh with the words "not run in CI", blocks of the other
# languages with these words, and, unless root runs this, blocks with the words "as root".
# The pages' links to files are checked too.
#
# usage: docs.sh [--copy LIBRARIES] PAGE...
#   --copy   works in a copy of the tree with a HOME of its own, in which build/release holds the libraries of the
#            directory LIBRARIES. Blocks "as root" and lines that begin with scripts/ are left out.
# Without --copy the blocks do to this tree and this machine all that they say: they build, install and download.
#
# Relies on nothing but a POSIX shell and what every Debian has: awk, sed, grep, tar, diff. A page is Markdown whose
# fences are lines of three backticks, behind spaces if the block is in a list, and the language if there is one.
set -eu

# --- In the clean shell: run_blocks and what it calls ---

# Runs each block. A command that fails ends this shell, as it runs with -e; the trap then prints what the block has
# printed, and which block it was. At that moment standard output is a file of the block, so descriptor 3 keeps the
# original one.
run_blocks() { # BLOCK...
    set +u # the commands of a page may use variables that are not set
    exec 3>&1
    block=
    trap 'report_failure >&3' EXIT
    for block in "$@"; do
        run_block >"$block.out" 2>"$block.log" </dev/null
        previous=$block
    done
    block=
}

report_failure() {
    if [ -n "$block" ]; then
        cat "$block.out" "$block.log"
        echo "FAILED: ${block#*/blocks/} (PAGE/LINE.LANGUAGE)"
    fi
}

run_block() {
    case $block in
    *.sh)
        # shellcheck disable=SC1090 # a block of the page
        . "$block"
        ;;
    *.c) run_c_block ;;
    *.cmake) run_cmake_block ;;
    *.python) python3 "$block" ;;
    *.text) diff -u "$previous.out" "$block" ;;
    *)
        echo "no language that this test knows"
        false
        ;;
    esac
}

run_c_block() {
    name=$(sed -n '1s,^/\* \([a-z_]*\.c\) \*/$,\1,p' "$block")
    set -- -std=c99 -Wall -Wextra -pedantic -Werror -Iinclude "$block"
    if [ -n "$name" ]; then
        cp "$block" "$name"
    elif grep -q 'int main(' "$block"; then
        cc "$@" -o "$block.program" build/release/libcvsd_qor.a
        LD_LIBRARY_PATH=$PWD/build/release "$block.program" # some load the shared library at run time
    else
        cc "$@" -c -o "$block.o"
    fi
}

run_cmake_block() {
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

# --- Outside of it: what prepares the blocks ---

# Writes each block with a language to the file DIRECTORY/LINE.LANGUAGE. LINE is where the block begins, in four digits,
# so that the files sort in the order of the page.
extract_blocks() { # PAGE DIRECTORY
    awk -v directory="$2" '
        /^ *```/ && !inside {
            inside = 1
            indent = index($0, "`") # of a block in a list, and of all its lines
            language = substr($0, indent + 3)
            file = language == "" ? "/dev/null" : sprintf("%s/%04d.%s", directory, NR, language)
            next
        }
        /^ *```/ {
            inside = 0
            close(file)
            next
        }
        inside { print substr($0, indent) > file }' "$1"
}

# Removes from a block the lines that must not be run here, or removes the whole block.
leave_out() { # BLOCK
    case $1 in
    *.sh)
        sed -i '/not run in CI/d' "$1"
        [ -z "$copy" ] || sed -i '/^scripts\//d' "$1"
        ;;
    *)
        if grep -q 'not run in CI' "$1"; then
            rm "$1"
            return
        fi
        ;;
    esac
    if [ "$may_be_root" = no ] && grep -q 'as root' "$1"; then
        rm "$1"
    fi
}

# Every link leads to a file of the tree; what stands behind # is not checked. Of
#     [in a project of your own](integrating.md#installing)
# this reads integrating.md. The pages have no links to other sites.
check_links() { # PAGE
    links=$(grep -oE '\]\([^)#:]+' "$1" | sed 's/^](//')
    for link in $links; do
        if ! [ -e "$(dirname "$1")/$link" ]; then
            echo "$1 links to $link, which is not there"
            exit 1
        fi
    done
}

walk_page() { # PAGE
    page=$1
    blocks=$work/blocks/$page
    mkdir -p "$blocks"
    check_links "$page"
    extract_blocks "$page" "$blocks"
    for block in "$blocks"/*; do
        [ ! -e "$block" ] || leave_out "$block"
    done
    set -- "$blocks"/*
    if [ -e "$1" ]; then
        env -i PATH="$PATH" HOME="$home" sh -e "$docs_sh" --clean-shell "$@"
        echo "$page: $# blocks"
    fi
}

# A copy of the tree, without what has been built in it but with the given libraries, becomes the working directory.
enter_copy() { # LIBRARIES
    mkdir -p "$work/cvsd_qor/build/release"
    tar --exclude='./build*' --exclude=./.git --exclude=./out -cf - . | tar -C "$work/cvsd_qor" -xf -
    cp "$1"/libcvsd_qor* "$work/cvsd_qor/build/release/"
    cd "$work/cvsd_qor"
}

# --- The start ---

if [ "$1" = --clean-shell ]; then # this script's own call, see walk_page
    shift
    run_blocks "$@"
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
may_be_root=no
[ "$(id -u)" != 0 ] || may_be_root=yes
if [ -n "$copy" ]; then
    home=$work/home
    mkdir "$home"
    may_be_root=no
    enter_copy "$copy"
fi
for page in "$@"; do
    walk_page "$page"
done
