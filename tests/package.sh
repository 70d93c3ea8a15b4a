#!/bin/sh
# Packs the release build as a .deb, installs it on this machine, builds and runs programs with it, and removes it.
# Needs root. usage: package.sh
set -eu
cd "$(dirname "$0")/.."
build=build/release

cmake --preset release
cmake --build --preset release
rm -f $build/*.deb
cpack --config $build/CPackConfig.cmake -B $build
echo "Installing the package on this machine; it is removed again at the end"
dpkg --install $build/libcvsd-qor_*.deb
trap 'dpkg --purge libcvsd-qor' EXIT
files=$(dpkg --listfiles libcvsd-qor | grep cvsd_qor)
CC=cc CXX=c++ tests/consumer/run.sh /usr $build/package-consumer -G Ninja
trap - EXIT
dpkg --purge libcvsd-qor
for file in $files; do
    if [ -e "$file" ]; then
        echo "left behind: $file"
        exit 1
    fi
done
