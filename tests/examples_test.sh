#!/bin/sh
# The examples build outside the source tree, without a warning, against an installed kzddl, and
# run on the simulated host.
# Usage: examples_test.sh EXAMPLES KZDDL LIBKZSIM [CMAKE_ARGUMENT...]
set -eu
examples=$1 kzddl=$2 libkzsim=$3
shift 3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

quietly() {
  "$@" > "$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
  }
}

# expect TEXT COMMAND...: on the simulated host the command succeeds, and says TEXT.
expect() {
  text=$1
  shift
  quietly env KZSIM=1 LD_PRELOAD="$libkzsim" "$@"
  cat "$work/log"
  grep -qF -- "$text" "$work/log" || {
    echo "not said: $text" >&2
    exit 1
  }
}

for example in array_support database paths_cpp; do
  quietly cmake -S "$examples/$example" -B "$work/$example" "$@" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON
  quietly cmake --build "$work/$example"
done
module=$work/array_support/kzexample_asl.so
expect 'RAID-5' "$kzddl" attribute /dev/sda ARRAY_TYPE --library "$module"
expect 'ARRAY_TYPE' "$work/database/kzexample_database" --library "$module" /dev/sda /dev/sdb
expect 'active/non-optimized' "$work/paths_cpp/kzexample_paths" /dev/sda /dev/sdb
