#!/bin/bash
# Gets the source of TinyXML from Debian's source package, with Debian's patches: scripts/tinyxml_source.sh FOLDER
# For builds that can't link Debian's library, such as the one for WebAssembly. Writes FOLDER/tinyxml; if that exists,
# nothing is done and the network is not needed. Needs no root and leaves the system's lists of packages alone.
set -euo pipefail

if [ $# -ne 1 ]; then
  echo "usage: scripts/tinyxml_source.sh FOLDER" >&2
  exit 2
fi
folder=$1
[ -e "$folder/tinyxml/tinyxml.h" ] && exit 0

for command in apt-get dpkg-source; do
  command -v "$command" >/dev/null && continue
  echo "tinyxml_source: $command not found. Unpack the source of TinyXML 2.6.2, with TIXML_USE_STL, in $folder/tinyxml" >&2
  exit 1
done

mkdir -p "$folder"
folder=$(cd "$folder" && pwd)
work=$(mktemp -d "$folder/source.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/lists" "$work/cache"
release=$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")
cat >"$work/sources.list" <<LIST
deb-src http://deb.debian.org/debian $release main
deb-src http://deb.debian.org/debian-security $release-security main
LIST
apt=(apt-get -q
  -o "Dir::Etc::sourcelist=$work/sources.list" -o Dir::Etc::sourceparts=-
  -o "Dir::State::lists=$work/lists" -o "Dir::Cache=$work/cache"
  -o Debug::NoLocking=1 -o APT::Sandbox::User="$(id -un)")
if ! { "${apt[@]}" update && cd "$work" && "${apt[@]}" source tinyxml; } >"$work/log" 2>&1; then
  cat "$work/log" >&2
  echo "tinyxml_source: Debian's source package tinyxml can't be downloaded" >&2
  exit 1
fi
# Another build may have been faster.
mv -T "$work"/tinyxml-*/ "$folder/tinyxml" 2>/dev/null || [ -e "$folder/tinyxml/tinyxml.h" ]
