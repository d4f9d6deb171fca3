#!/usr/bin/env bash
# Fails when the library's dynamic symbol table holds anything but the
# interface: the class's factories, vtable and typeinfo, and the two records.
# No sqlite3_* (SQLite is compiled in, hidden) and no std:: instantiations.
set -euo pipefail
library="$1"

symbols=$(nm -D --defined-only -C "$library" | cut -d' ' -f3-)
allowed='^((typeinfo|typeinfo name|vtable) for )?database_interface::(IDatabaseInterface|CoreRecode|InstanceInfo)(::|$)'
unexpected=$(grep -vE "$allowed" <<<"$symbols" || true)
if [ -n "$unexpected" ]; then
  echo "unexpected exports:"; echo "$unexpected"; exit 1
fi
# The vtable of the abstract interface is emitted, weak, wherever a constructor
# needs it; an optimised build needs none, so it is not required here.
for required in 'IDatabaseInterface::GetDbInstance()' 'IDatabaseInterface::CreateDatabaseInterface()' \
                'typeinfo for database_interface::IDatabaseInterface'; do
  grep -qF "$required" <<<"$symbols" || { echo "missing export: $required"; exit 1; }
done
echo "exports ok"
