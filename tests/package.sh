#!/bin/sh
# Packs the release build, installs the package on this machine, builds and runs programs against it, removes it again.
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
    ! [ -e "$file" ] || { echo "left behind: $file"; exit 1; }
done
