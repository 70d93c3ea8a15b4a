#!/bin/sh
# Runs the code blocks of the README and of docs/ on a machine that has nothing but Debian 12 and git: installs such a
# Debian into a temporary directory and runs tests/docs.sh there, first as root, then as an ordinary user.
# Needs root, and the network for Debian's packages. usage: bare.sh
set -eu
cd "$(dirname "$0")/.."
[ "$(id -u)" = 0 ] || { echo "bare.sh: only root can make a machine in a directory" >&2; exit 1; }
scripts/install-packages --for "making a bare Debian in a directory" debootstrap
bare=$(mktemp -d)
trap 'rm -rf "$bare" "$bare.log"' EXIT
trap 'exit 1' INT TERM HUP
chmod 755 "$bare" # so that the ordinary user can enter

# From the package source of this machine, with its settings.
# shellcheck disable=SC2016 # a format of apt-get, not a shell command
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' 'Codename: bookworm' | head -n 1)
echo "Downloading a bare Debian 12 with git into $bare, for this test alone"
if ! debootstrap --variant=minbase --include=git bookworm "$bare" ${mirror:+"$mirror"} >"$bare.log"; then
    cat "$bare.log"
    exit 1
fi
rm "$bare.log"
cp -a /etc/apt/apt.conf.d "$bare/etc/apt/"

# Runs the blocks in a copy of the tree in the user's home.
walk() { # USER HOME
    mkdir "$bare$2/cvsd_qor"
    tar --exclude='./build*' --exclude=./.git --exclude=./out -cf - . | tar -C "$bare$2/cvsd_qor" -xf -
    chroot "$bare" chown -R "$1" "$2/cvsd_qor"
    echo "--- as $1"
    start=$(date +%s)
    chroot --userspec="$1" "$bare" env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME="$2" \
        sh -c 'cd ~/cvsd_qor && tests/docs.sh README.md docs/*.md'
    echo "--- as $1: $(($(date +%s) - start)) s"
}
chroot "$bare" useradd --create-home stranger
walk root /root
walk stranger /home/stranger
