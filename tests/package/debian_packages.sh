#!/usr/bin/env bash
# debian_packages.sh BUILD: creates the Debian packages of a build of the preset `package` and checks them without
# installing anything: lintian finds no errors, the dependencies are right, and their content works from an empty folder.
# tests/package/clean_debian.sh installs them.
set -euo pipefail

build=$(cd "$1" && pwd)
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source=$(cd "$here/../.." && pwd)
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

die() {
  echo "debian_packages: $*" >&2
  exit 1
}

rm -f "$build"/*.deb
(cd "$build" && cpack -G DEB >"$root/cpack.log" 2>&1) || { cat "$root/cpack.log"; die "cpack failed"; }
packages=("$build"/*.deb)
[ ${#packages[@]} -eq 3 ] || die "expected three packages, found: ${packages[*]}"

# field PACKAGE NAME: a line of the control file.
field() { dpkg-deb --field "$build/$1"_*.deb "$2"; }

# expect PACKAGE NAME PATTERN
expect() {
  local value
  value=$(field "$1" "$2")
  [[ $value =~ $3 ]] || die "$1: $2 is '$value', expected something like $3"
}

version=$(field vorlen Version)
expect libvorlensolver1 Depends 'libc6'
[[ $(field libvorlensolver1 Depends) != *tinyxml* ]] || die "the parser is not linked in"
expect libvorlensolver-dev Depends "libvorlensolver1 \(= $version\)"
expect vorlen Depends "libvorlensolver1 \(= $version\)"
for package in libvorlensolver1 libvorlensolver-dev vorlen; do
  expect $package Version "^[0-9.]+-[0-9]+$"
  expect $package Maintainer '<.+@.+>'
  expect $package Description 'III-nitride'
done
dpkg-deb --info "$build"/libvorlensolver1_*.deb shlibs | grep -q '^libVorlenSolver 1 libvorlensolver1' ||
  die "libvorlensolver1 does not say how hosts depend on it"

# Errors of lintian are failures; warnings are only shown.
lintian --allow-root --fail-on error --tag-display-limit 0 "${packages[@]}" || die "lintian found errors"

for package in "${packages[@]}"; do dpkg-deb --extract "$package" "$root"; done
for file in bin/vorlen share/man/man1/vorlen.1.gz share/bash-completion/completions/vorlen share/vorlen/recipe.rng \
  share/vorlen/live.html \
  lib/python3/dist-packages/vorlen/__init__.py lib/python3/dist-packages/vorlen/assets/plotly.min.js; do
  [ -f "$root/usr/$file" ] || die "the package vorlen lacks $file"
done
libraries=$(dirname "$(find "$root/usr/lib" -name libVorlenSolver.so.1)")
export LD_LIBRARY_PATH="$libraries"
export PKG_CONFIG_PATH="$libraries/pkgconfig"

"$root/usr/bin/vorlen" run "$source/examples/algan_gan_hemt.xml" -o "$root/tool.txt" >"$root/table.txt" ||
  die "the tool does not run"
grep -q 'GaN channel' "$root/table.txt" || die "the tool shows no table"
# shellcheck disable=SC2046  # a list of flags
cc "$here/consumer/host.c" $(pkg-config --cflags --libs vorlensolver) -o "$root/host"
"$root/host" "$source/examples/algan_gan_hemt.xml" "$root/host.txt" >/dev/null || die "the host in C does not run"
# shellcheck disable=SC2046  # a list of flags
c++ -std=c++17 "$here/radau_consumer/decay.cpp" $(pkg-config --cflags --libs vorlen_radau) -o "$root/decay"
"$root/decay" >/dev/null || die "the program with the integrator does not run"
cmp "$root/tool.txt" "$root/host.txt" || die "the results of the tool and of the host differ"
echo "three packages, version $version"
