#!/usr/bin/env bash
# Fails when the library's exports hold anything but the interface: the
# class's factories, vtable and typeinfo, and the two records. No sqlite3_*
# (SQLite is compiled in, hidden) and no std:: instantiations. A shared
# object's exports are its dynamic symbol table; a DLL's (built with MinGW)
# are the names in its export table, read with the MinGW objdump ($OBJDUMP).
set -euo pipefail
library="$1"

if [[ "$library" == *.dll ]]; then
  objdump="${OBJDUMP:-x86_64-w64-mingw32-objdump}"
  symbols=$("$objdump" -p "$library" |
    sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^[[:space:]]*\[ *[0-9]*\] //p' | c++filt)
else
  symbols=$(nm -D --defined-only -C "$library" | cut -d' ' -f3-)
fi
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
