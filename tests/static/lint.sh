#!/usr/bin/env bash
# usage: lint.sh BUILD_DIRECTORY
#
# Every static check of the project, each to its end; the exit status is 1 when one of them found something.
# BUILD_DIRECTORY is a configured one: clang-tidy takes the compiler's options from there.
set -uo pipefail
build=$(realpath "$1") || exit 2
cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit 2

mapfile -t sources < <(git ls-files '*.cpp')
mapfile -t headers < <(git ls-files '*.h')
mapfile -t product < <(git ls-files '*.cpp' | grep -v '^tests/\|^bench/')
mapfile -t scripts < <(git grep -lE '^#!/.*[ /](ba)?sh$')
if [ ${#sources[@]} -eq 0 ] || [ ${#scripts[@]} -eq 0 ]; then
  echo "lint.sh: no files; is this a clone with git at hand?" >&2
  exit 2
fi
each=(xargs -d '\n' -P "$(nproc)")
status=0

echo "== include arrows"
tests/static/include_arrows.py || status=1

echo "== shellcheck"
shellcheck "${scripts[@]}" || status=1

echo "== clang-format"
clang-format --dry-run --Werror "${sources[@]}" "${headers[@]}" || status=1

echo "== cppcheck"
cppcheck --quiet --std=c++20 --language=c++ -I. -j "$(nproc)" --error-exitcode=1 \
  --enable=warning,performance,portability --suppressions-list=tests/static/cppcheck.txt \
  "${product[@]}" || status=1

echo "== headers compile alone"
read -ra libraries < <(pkg-config --cflags jansson ACE)
printf '%s\n' "${headers[@]}" | "${each[@]}" -I{} \
  g++ -std=c++20 -fsyntax-only -Wall -Wextra -I. "${libraries[@]}" -include {} -x c++ /dev/null || status=1

# Its warnings about options that only GCC knows, and its count of warnings in the system's headers, are noise.
# One file a run: given several, it takes va_start of the later ones for missing.
echo "== clang-tidy"
printf '%s\n' "${product[@]}" | "${each[@]}" -n 1 \
  clang-tidy --quiet -p "$build" --extra-arg=-Wno-unknown-warning-option --extra-arg=-Wreserved-identifier \
  2> >(grep -v ' warnings\? generated\.$' >&2) || status=1

exit "$status"
