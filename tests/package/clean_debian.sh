#!/usr/bin/env bash
# clean_debian.sh: tests the Debian packages on a fresh Debian 12. Builds the packages, creates a system in a folder with
# debootstrap (from the mirror that this machine uses), installs the packages with apt, builds a C program against them,
# runs the tool, and removes them again. Needs root, a few minutes and 1 GB.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source=$(cd "$here/../.." && pwd)
build=${1:-$source/build/package}
suite=bookworm

die() {
  echo "clean_debian: $*" >&2
  exit 1
}
say() { echo "== $*"; }

[ "$(id -u)" -eq 0 ] || die "only root can set up a new system"
command -v debootstrap >/dev/null || die "debootstrap is needed"
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' "Codename: $suite" 'Label: Debian' | sort -u | head -n 1)
[ -n "$mirror" ] || die "no mirror of $suite in the package lists of this machine (run apt-get update)"

say "Packages"
(cd "$source" && cmake --preset package -B "$build" >/dev/null && cmake --build "$build" -j "$(nproc)" >/dev/null)
"$here/debian_packages.sh" "$build"

root=$(mktemp -d)
trap 'rm -rf --one-file-system "$root"' EXIT
chmod 755 "$root"
say "A fresh $suite"
debootstrap --variant=minbase "$suite" "$root" "$mirror" >"$root.log" 2>&1 || { tail -n 20 "$root.log"; die "debootstrap failed"; }
rm -f "$root.log"

mkdir "$root/trial"
cp "$build"/*.deb "$here/consumer/host.c" "$source/examples/algan_gan_hemt.xml" "$root/trial"
inside() { chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }
quietly() { "$@" >"$root/trial/log" 2>&1 || { tail -n 40 "$root/trial/log"; die "failed: $*"; }; }

say "Installing with apt"
quietly inside apt-get update
quietly inside sh -c 'apt-get install -y --no-install-recommends /trial/*.deb'
inside dpkg-query -W -f '${Package} ${Version} ${db:Status-Status}\n' 'libvorlensolver*' vorlen
quietly inside dpkg --audit
[ ! -s "$root/trial/log" ] || die "dpkg --audit: $(cat "$root/trial/log")"

say "Running the tool"
inside sh -c 'cd /trial && vorlen run algan_gan_hemt.xml -o tool.txt'

say "Building a C program"
quietly inside apt-get install -y --no-install-recommends gcc libc6-dev pkg-config
quietly inside sh -c 'cd /trial && gcc -std=c99 -Wall -Werror host.c $(pkg-config --cflags --libs vorlensolver) -o host'
inside sh -c 'cd /trial && ./host algan_gan_hemt.xml host.txt && cmp tool.txt host.txt'
"$build/tools/vorlen" run "$source/examples/algan_gan_hemt.xml" -o "$root/trial/here.txt" >/dev/null
cmp "$root/trial/tool.txt" "$root/trial/here.txt"

say "Removing"
quietly inside apt-get purge -y libvorlensolver1
left=$(cd "$root" && find usr etc var/lib -xdev \( -iname '*vorlen*' \) ! -path 'var/lib/apt/*')
[ -z "$left" ] || die "not removed: $left"
echo "installed, used and removed on a fresh $suite"
