#!/bin/sh
# The options that distributions use to harden their builds, and the checking modes of the C++ libraries, do not change
# what the library needs: with each of them the shared library passes binary.sh, and a C program links the static one
# without the C++ run-time library.
# usage: hardened.sh TREE READELF OBJDUMP
set -eu
tree=$1
readelf=$2
objdump=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# Builds with these flags and checks the result. A compiler that is not installed is skipped.
hardened() { # C_COMPILER FLAGS
    cc=$1
    cxx=${cc%cc}++
    echo "$cxx $2"
    # shellcheck disable=SC2086 # a list
    if ! echo '#include <cstdint>' | "$cxx" $2 -x c++ -fsyntax-only - 2>error; then
        echo "skipped: $(head -n 1 error)"
        return
    fi
    rm -rf build
    cmake -S "$tree" -B build -D CMAKE_BUILD_TYPE=Release -D CMAKE_C_COMPILER="$cc" -D CMAKE_CXX_COMPILER="$cxx" \
        -D CMAKE_CXX_FLAGS="$2" -D CMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY -D CVSD_QOR_STATIC=ON >log
    if ! cmake --build build --target cvsd_qor --target cvsd_qor_static >log 2>&1; then
        cat log
        exit 1
    fi
    "$tree"/tests/binary.sh "$readelf" "$objdump" build/libcvsd_qor.so "$tree/include/cvsd_qor.h" \
        "$tree/cmake/exports.map"
    "$cc" -I"$tree/include" "$tree/examples/minimal.c" build/libcvsd_qor.a -o minimal
}

distribution="-D_FORTIFY_SOURCE=3 -fstack-protector-strong -fstack-clash-protection"
hardened gcc "$distribution -D_GLIBCXX_ASSERTIONS"
hardened gcc "-D_GLIBCXX_DEBUG"
hardened clang "$distribution -stdlib=libc++ -D_LIBCPP_DEBUG=0" # the checks of libc++ 14
