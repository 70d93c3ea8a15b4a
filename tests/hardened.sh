#!/bin/sh
# What distributions harden their builds with, and the checking modes of C++'s libraries, change nothing of what the
# library needs: the shared one is as binary.sh wants it, and a C program links the static one without C++'s run-time.
# By each compiler that is there.
# usage: hardened.sh TREE READELF OBJDUMP
set -eu
tree=$1
readelf=$2
objdump=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

hardened() { # COMPILER FLAG...
    cc=$1
    cxx=${cc%cc}++
    shift
    echo "$cxx $*"
    if ! echo '#include <cstdint>' | "$cxx" "$@" -x c++ -fsyntax-only - 2>error; then
        echo "skipped: $(head -n 1 error)"
        return
    fi
    rm -rf build
    cmake -S "$tree" -B build -D CMAKE_BUILD_TYPE=Release -D CMAKE_C_COMPILER="$cc" -D CMAKE_CXX_COMPILER="$cxx" \
        -D CMAKE_CXX_FLAGS="$*" -D CMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY -D CVSD_QOR_STATIC=ON >log
    cmake --build build --target cvsd_qor --target cvsd_qor_static >log 2>&1 || { cat log; return 1; }
    "$tree"/tests/binary.sh "$readelf" "$objdump" build/libcvsd_qor.so "$tree/include/cvsd_qor.h" \
        "$tree/cmake/exports.map" || return 1
    "$cc" -I"$tree/include" "$tree/examples/minimal.c" build/libcvsd_qor.a -o minimal
}

for cc in gcc clang; do
    hardened "$cc" -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fstack-clash-protection -D_GLIBCXX_ASSERTIONS
    hardened "$cc" -D_GLIBCXX_DEBUG
done
hardened clang -stdlib=libc++ -D_LIBCPP_DEBUG=0             # up to libc++ 14
hardened clang -stdlib=libc++ -D_LIBCPP_ENABLE_ASSERTIONS=1 # 15 to 17
