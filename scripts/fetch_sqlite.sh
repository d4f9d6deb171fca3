#!/usr/bin/env bash
# Builds the SQLite amalgamation (sqlite3.c, sqlite3.h) that the library
# compiles in, from Debian's own source package of a pinned version, Debian's
# patches applied, into a directory no commit ever holds. Does nothing when
# the amalgamation there is already of the pinned version.
#
#   scripts/fetch_sqlite.sh [directory]
#     the bundled SQLite: the version in cmake/sqlite_version.txt, from the
#     archive the machine uses, into third_party/sqlite/ (or the directory)
#   scripts/fetch_sqlite.sh newest [directory]
#     the newest SQLite the suite runs on: cmake/sqlite_newest_version.txt
#     names the version and the suite that has it (unstable), into
#     third_party/sqlite-newest/ (or the directory)
#
# Needs Debian's package archive: it adds a deb-src entry for the archive the
# machine already uses, and one for the newest's suite, and dpkg-dev and
# tclsh, when they are missing. Those entries are for source packages only, so
# apt never installs a binary package from another suite through them.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" = newest ]; then
  pin=cmake/sqlite_newest_version.txt
  target="${2:-third_party/sqlite-newest}"
else
  pin=cmake/sqlite_version.txt
  target="${1:-third_party/sqlite}"
fi
# A pin is a Debian version, and for a suite other than the machine's own
# (say unstable, which has the current SQLite release) the suite's name.
read -r version suite _ < "$pin" || true
suite="${suite:-}"
if [ -z "${version:-}" ]; then
  echo "$pin names no version" >&2
  exit 1
fi
stamp="$target/debian-version"

if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$version" ] &&
   [ -f "$target/sqlite3.c" ] && [ -f "$target/sqlite3.h" ]; then
  exit 0
fi

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

# apt-get source needs a deb-src entry for an archive that has the version:
# one is made once, from the machine's own deb entries, or for the pin's suite
# on the machine's Debian mirror.
if ! apt-get source --print-uris "sqlite3=$version" >/dev/null 2>&1; then
  if [ -z "$suite" ]; then
    sources=/etc/apt/sources.list.d/database-interface-src.sources
    if [ -f /etc/apt/sources.list.d/debian.sources ]; then
      sed 's/^Types: deb$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources |
        $sudo tee "$sources" >/dev/null
    else
      grep -h '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' |
        $sudo tee "${sources%.sources}.list" >/dev/null
    fi
  else
    # The mirror of the machine's main archive (not its security one).
    mirror=""
    if [ -f /etc/apt/sources.list.d/debian.sources ]; then
      mirror=$(sed -n 's/^URIs: *//p' /etc/apt/sources.list.d/debian.sources |
        tr ' ' '\n' | grep -v security | head -n1 || true)
    elif [ -f /etc/apt/sources.list ]; then
      mirror=$(grep -h '^deb ' /etc/apt/sources.list | grep -v security |
        sed -E 's/^deb +(\[[^]]*\] +)?([^ ]+).*/\2/' | head -n1 || true)
    fi
    mirror="${mirror:-http://deb.debian.org/debian}"
    $sudo tee "/etc/apt/sources.list.d/database-interface-src-$suite.sources" >/dev/null <<EOF
Types: deb-src
URIs: $mirror
Suites: $suite
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
EOF
  fi
  $sudo apt-get update >/dev/null
fi
scripts/install_deps.sh dpkg-dev tcl gcc make

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "Fetching Debian's sqlite3 $version source package..."
(cd "$work" && apt-get source --only-source "sqlite3=$version" >/dev/null 2>&1) || {
  echo "apt-get source sqlite3=$version failed: is $version still in the archive${suite:+" (suite $suite)"}?" \
       "$pin pins it; 'apt-cache showsrc sqlite3' lists the versions the archive has." >&2
  exit 1
}
source_dir=$(find "$work" -mindepth 1 -maxdepth 1 -type d -name 'sqlite3-*' | head -n1)
echo "Building the amalgamation..."
mkdir "$work/build"
# SQLite's configure is autoconf's up to 3.47 and autosetup's from 3.48; both
# write a Makefile whose sqlite3.c target makes the amalgamation.
(cd "$work/build" && "$source_dir/configure" >/dev/null && make sqlite3.c >/dev/null)

mkdir -p "$target"
cp "$work/build/sqlite3.c" "$work/build/sqlite3.h" "$target/"
echo "$version" > "$stamp"
echo "SQLite amalgamation $version in $target"
