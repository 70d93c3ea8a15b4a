#!/bin/sh
# Builds and runs a C11 and a C++17 program with an installed library: by CMake's find_package, with the shared library
# and, if it is installed, the static one; and by pkg-config, if the environment has CC and CXX. EMULATOR in the
# environment is the command that runs the programs.
# usage: run.sh PREFIX WORK_DIRECTORY [CMAKE_OPTION...]
set -eu
prefix=$1
work=$2
shift 2
here=$(dirname "$0")

rm -rf "$work"
cmake -S "$here" -B "$work" -D CMAKE_PREFIX_PATH="$prefix" "$@"
cmake --build "$work"

if [ -n "${CC:-}" ]; then
    export PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig"
    version=$(sed -n 's/^#define CVSD_QOR_VERSION_[A-Z]* //p' "$prefix/include/cvsd_qor.h" | paste -sd.)
    [ "$(pkg-config --modversion cvsd_qor)" = "$version" ]
    flags=$(pkg-config --cflags --libs cvsd_qor)
    # Outside of the loader's own directories the program must name the library's directory.
    [ "$prefix" = /usr ] || flags="$flags -Wl,-rpath,$prefix/lib"
    # shellcheck disable=SC2086 # flags are a list
    {
        $CC -std=c11 "$here/consumer.c" -o "$work/programs/pkg_config_c" $flags
        $CXX -std=c++17 "$here/consumer.cpp" -o "$work/programs/pkg_config_cpp" $flags
    }
fi

for program in "$work"/programs/*; do
    echo "$program"
    ${EMULATOR:-} "$program"
done
