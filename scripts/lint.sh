#!/usr/bin/env bash
# Checks that every C++ file is laid out as .clang-format says and runs
# clang-tidy (.clang-tidy) over src/, with the compile commands of a build
# configured in build-lint/ (nothing is compiled). Prints every finding and
# exits non-zero when there is any.
#
#   scripts/lint.sh       check
#   scripts/lint.sh fix   rewrite the files' layout in place, then check
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_deps.sh clang-format-14 clang-tidy-14
scripts/fetch_sqlite.sh

mapfile -t sources < <(find src include host_base tests examples bench fuzz \
  -name '*.cpp' -o -name '*.h' | sort)
[ "${1:-}" = "fix" ] && clang-format-14 -i "${sources[@]}"

failed=0
echo "== clang-format-14 over ${#sources[@]} files"
unformatted=()
for file in "${sources[@]}"; do
  clang-format-14 --dry-run -Werror "$file" 2>/dev/null || unformatted+=("$file")
done
if [ ${#unformatted[@]} -gt 0 ]; then
  clang-format-14 --dry-run "${unformatted[@]}" || true
  echo "not formatted (scripts/lint.sh fix rewrites them):"
  printf '  %s\n' "${unformatted[@]}"
  failed=1
fi

echo "== clang-tidy-14 over src/"
cmake -S . -B build-lint -DDATABASE_INTERFACE_BUILD_TESTS=OFF \
  -DDATABASE_INTERFACE_BUILD_EXAMPLES=OFF -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
mapfile -t units < <(find src -name '*.cpp' | sort)
# One process for all units, so a finding in a header is reported once.
rc=0
report=$(clang-tidy-14 -p build-lint --quiet --use-color=false "${units[@]}" 2>&1) || rc=$?
report=$(grep -vE '^[0-9]+ warnings? (and [0-9]+ errors? )?generated\.$' <<<"$report" || true)
[ -n "$report" ] && echo "$report"
if [ $rc -ne 0 ] || grep -qE ': (warning|error):' <<<"$report"; then
  failed=1
fi

if [ $failed -ne 0 ]; then
  echo "lint: findings above"
  exit 1
fi
echo "lint: clean"
