#!/usr/bin/env bash
# Builds the SQLite amalgamation (sqlite3.c, sqlite3.h) that the library
# compiles in, from Debian's own source package of the version pinned in
# cmake/sqlite_version.txt, Debian's patches applied. Writes it to
# third_party/sqlite/ (or the directory given), which no commit ever holds.
# Does nothing when the amalgamation there is already of the pinned version.
#
#   scripts/fetch_sqlite.sh [directory]
#
# Needs Debian's package archive: it adds a deb-src entry for the archive the
# machine already uses, and dpkg-dev and tclsh, when they are missing.
set -euo pipefail
cd "$(dirname "$0")/.."
version=$(tr -d '[:space:]' < cmake/sqlite_version.txt)
target="${1:-third_party/sqlite}"
stamp="$target/debian-version"

if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$version" ] &&
   [ -f "$target/sqlite3.c" ] && [ -f "$target/sqlite3.h" ]; then
  exit 0
fi

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

# apt-get source needs a deb-src entry for the archive the binary packages come
# from: one is made from the machine's own deb entries, once.
if ! apt-get source --print-uris "sqlite3=$version" >/dev/null 2>&1; then
  sources=/etc/apt/sources.list.d/database-interface-src.sources
  if [ -f /etc/apt/sources.list.d/debian.sources ]; then
    sed 's/^Types: deb$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources |
      $sudo tee "$sources" >/dev/null
  else
    grep -h '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' |
      $sudo tee "${sources%.sources}.list" >/dev/null
  fi
  $sudo apt-get update >/dev/null
fi
scripts/install_deps.sh dpkg-dev tcl gcc make

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "Fetching Debian's sqlite3 $version source package..."
(cd "$work" && apt-get source --only-source "sqlite3=$version" >/dev/null 2>&1) || {
  echo "apt-get source sqlite3=$version failed: is $version still in the archive?" \
       "cmake/sqlite_version.txt pins it." >&2
  exit 1
}
source_dir=$(find "$work" -mindepth 1 -maxdepth 1 -type d -name 'sqlite3-*' | head -n1)
echo "Building the amalgamation..."
mkdir "$work/build"
(cd "$work/build" && "$source_dir/configure" >/dev/null && make sqlite3.c >/dev/null)

mkdir -p "$target"
cp "$work/build/sqlite3.c" "$work/build/sqlite3.h" "$target/"
echo "$version" > "$stamp"
echo "SQLite amalgamation $version in $target"
