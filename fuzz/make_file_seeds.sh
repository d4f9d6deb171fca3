#!/usr/bin/env bash
# Writes the seeds of database_interface_file_fuzzer into a fresh directory:
# stores the library made (the fuzzer's "--make-seed"), on 512-byte pages so
# that inputs stay small, then changed by SQL or with header bytes overwritten.
# The build runs it after each link of the fuzzer (fuzz/CMakeLists.txt).
#
#   fuzz/make_file_seeds.sh <database_interface_file_fuzzer> <directory>
set -euo pipefail
fuzzer=$1
dir=$2
rm -rf "$dir"
mkdir -p "$dir"

# A record of every kind under the ids and session key the fuzzer reads first.
records="INSERT INTO start_recode VALUES(1, 'v', 't', 1);
INSERT INTO core_recode VALUES(1, 'd', 'l', 1, 1);
INSERT INTO instance_info VALUES(1, 'n', 's', 1, 'p', 1, 1);
INSERT INTO session_cache VALUES(1, 'k', 'v', 9);
INSERT INTO message_collect_key VALUES('k', 's')"

# seed <name> <sql>: a store with the records on small pages, then <sql>
# (after the VACUUM, which also removes the journal the library left).
seed() {
  "$fuzzer" --make-seed "$dir/$1" "$records; PRAGMA page_size = 512; VACUUM; $2"
}
# damage <name> <offset> <bytes>: a store with the records, <bytes> (printf %b
# escapes) written over it at <offset>.
damage() {
  seed "$1" ""
  printf '%b' "$3" | dd of="$dir/$1" bs=1 seek="$2" conv=notrunc status=none
}

"$fuzzer" --make-seed "$dir/new" "PRAGMA page_size = 512; VACUUM"
seed records ""
seed no-version "DELETE FROM db_version"
for version in 1.11.9 1.12.0 1.20.3 1.24.1 2.0.0 1.24 1.x.0 1.24.2147483648; do
  seed "version-$version" "UPDATE db_version SET version = '$version'"
done
seed version-null "DROP TABLE db_version; CREATE TABLE db_version(id INTEGER PRIMARY KEY, version);
  INSERT INTO db_version VALUES(1, NULL)"
seed shape-session-cache "DROP TABLE session_cache; CREATE TABLE session_cache(id INTEGER PRIMARY
  KEY, session_key UNIQUE, session_value, expire_time); INSERT INTO session_cache VALUES(1, 'k',
  NULL, 9)"
seed check-start-recode "DROP TABLE start_recode; CREATE TABLE start_recode(id INTEGER PRIMARY
  KEY, sdk_version, sdk_type, start_time CHECK(start_time > 1));
  INSERT INTO start_recode VALUES(1, 'v', 't', 2)"
seed view-core-recode "DROP TABLE core_recode; CREATE VIEW core_recode AS SELECT 1"
seed view-newer "DROP TABLE core_recode; CREATE VIEW core_recode AS SELECT 1;
  UPDATE db_version SET version = '1.24.1'"
seed index-session-cache "DROP TABLE session_cache; CREATE TABLE t(x);
  CREATE INDEX session_cache ON t(x)"
seed trigger "CREATE TRIGGER t AFTER INSERT ON session_cache BEGIN DELETE FROM start_recode; END"
seed overflow "UPDATE session_cache SET session_value = hex(zeroblob(900))"
seed auto-vacuum "PRAGMA auto_vacuum = FULL; VACUUM"
seed wal "PRAGMA journal_mode = WAL"
damage wal-versions 18 '\x02\x02'
damage page-size 16 '\x00\x03'
damage reserved-bytes 20 '\x20'
damage page-count 28 '\xff\xff\xff\xff'
damage freelist-trunk 32 '\x00\x00\x00\x63'
damage schema-format 44 '\x00\x00\x00\x09'
damage text-encoding 56 '\x00\x00\x00\x02'
damage page-1-type 100 '\x0a'
damage page-3-cell-count 1027 '\xff'
damage magic 14 '2'
