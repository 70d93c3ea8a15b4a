#!/bin/sh
# Every link of the pages, and every fenced block by its language:
#   c        compiled; if it is a program, run. A block `text` behind it is what it prints
#   cmake    put into a project that has the sources in cvsd_qor/ or finds the installed tree; its program is run
#   python   run, likewise
#   sh       run in a copy of the tree; scripts of the tree must be among those that CI runs, and are not run again here
# What says "not run in CI", a line of sh or a block of anything else, is passed over. Blocks without a language are
# drawings.
# usage: docs.sh TREE PREFIX    PREFIX: the installed tree; CC, CXX and CMAKE_GENERATOR in the environment
set -eu
tree=$1
prefix=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PYTHONDONTWRITEBYTECODE=1 HOME="$work" PKG_CONFIG_PATH="$prefix/lib/pkgconfig" LD_LIBRARY_PATH="$prefix/lib"
export CMAKE_PREFIX_PATH="$prefix" CVSD_QOR_LIBRARY="$prefix/lib/libcvsd_qor.so" PYTHONPATH="$tree/examples"
unset DESTDIR

mkdir "$work/cvsd_qor"
tar -C "$tree" --exclude='./build*' --exclude=./.git --exclude=./out -cf - . | tar -C "$work/cvsd_qor" -xf -

c() { # BLOCK
    set -- "$1" -std=c99 -Wall -Wextra -pedantic -Werror -I"$prefix/include" "$1.c"
    block=$1
    shift
    if grep -q 'int main(' "$block.c"; then
        "${CC:-cc}" "$@" -o "$block" -L"$prefix/lib" -lcvsd_qor && "$block"
    else
        "${CC:-cc}" "$@" -c -o "$block.o"
    fi
}

cmake_project() { # BLOCK
    mkdir "$1.project"
    ln -s "$work/cvsd_qor" "$1.project/cvsd_qor"
    cp "$tree/examples/minimal.c" "$1.project/app.c"
    {
        printf 'cmake_minimum_required(VERSION 3.25)\nproject(app LANGUAGES C CXX)\nadd_executable(app app.c)\n'
        cat "$1.cmake"
    } >"$1.project/CMakeLists.txt"
    cmake -S "$1.project" -B "$1.build" >/dev/null && cmake --build "$1.build" >/dev/null && "$1.build/app"
}

shell() { # BLOCK
    sed '/not run in CI/d' "$1.sh" >"$1.run"
    grep -oE '^(scripts|tests)/[a-z./_-]+' "$1.run" | while read -r script; do
        grep -qF "step $script" "$tree/.ci/run" || { echo "CI does not run $script"; exit 1; }
    done || return 1
    sed -i -E '/^(scripts|tests)\//d' "$1.run"
    (cd "$work/cvsd_qor" && sh -eux "$1.run")
}

run() { # BLOCK LANGUAGE
    case $2 in
    c) c "$1" ;;
    cmake) cmake_project "$1" ;;
    python) if command -v python3; then python3 "$1.python"; else echo "skipped: python3 is not installed"; fi ;;
    sh) shell "$1" ;;
    *) echo "a block of '$2' that is not marked as not run in CI" && return 1 ;;
    esac
}

count=0
for page in README.md CONTRIBUTING.md "$tree"/docs/*.md; do
    page=${page#"$tree/"}
    blocks=$work/$(basename "$page" .md)
    mkdir "$blocks"
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
        inside { print substr($0, indent) > file }' "$tree/$page"
    # Links within the tree; those to headings are not looked at.
    grep -oE '\]\([^)#:]+' "$tree/$page" | cut -c3- | while read -r link; do
        [ -e "$tree/$(dirname "$page")/$link" ] || { echo "$page links to $link, which is not there"; exit 1; }
    done
    previous=
    for file in "$blocks"/[0-9][0-9][0-9].*; do
        [ -e "$file" ] || continue
        block=${file%.*}
        language=${file##*.}
        where="$page:$(basename "$block")"
        if [ "$language" = text ]; then
            diff -u "$previous.out" "$file" || { echo "$where is not what the block before it prints"; exit 1; }
        elif [ "$language" = sh ] || ! grep -q 'not run in CI' "$file"; then
            run "$block" "$language" >"$block.out" 2>"$block.log" ||
                { cat "$block.out" "$block.log"; echo "$where failed"; exit 1; }
            count=$((count + 1))
        fi
        previous=$block
    done
done
echo "$count blocks run"
[ $count -gt 0 ]
