#!/bin/sh
# The library exports exactly the names of its version script, needs the C library alone, and calls
# by their plain names what a program may put before the C library.
# Usage: exports_test.sh LIBRARY MAP [instrumented]
set -eu
library=$1 map=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed -n '/global:/,/local:/s/^ *\([a-z0-9_]*\);$/\1/p' "$map" | sort > "$work/map"
nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort > "$work/exported"
if [ ! -s "$work/map" ] || ! diff "$work/map" "$work/exported"; then
  echo "exported names (>) differ from $map (<)" >&2
  exit 1
fi

# A sanitizer, and the check of the order of locks, bring libraries of their own.
[ "${3:-}" = instrumented ] && exit 0
readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' > "$work/needed"
if [ "$(cat "$work/needed")" != libc.so.6 ]; then
  echo "needs more than the C library:" >&2
  cat "$work/needed" >&2
  exit 1
fi
readelf -d "$library" | grep -q 'SONAME.*\[libkzddl\.so\.1\]'

# Compilers give the large-file twins, and calloc, for what the sources say. In 32 bits stat must
# be the twin, which works on any file system.
nm -D --undefined-only "$library" | sed 's/.* //; s/@.*//' > "$work/imported"
class=$(readelf -h "$library" | sed -n 's/ *Class: *//p')
stat=stat
[ "$class" = ELF32 ] && stat=stat64
for name in open close ioctl $stat fopen uname malloc free; do
  grep -qx "$name" "$work/imported" || { echo "does not call $name" >&2; exit 1; }
done
if grep -xE 'calloc|realloc|open64|fopen64|f?l?stat(at)?(64)?|__f?l?x?stat(64)?' "$work/imported" |
   grep -vx "$stat" >&2; then
  echo "calls these" >&2
  exit 1
fi
