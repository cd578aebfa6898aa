#!/bin/sh
# An installation works from outside: the README's program builds through pkg-config and through
# the CMake package, so do the examples, and they run on the simulated host.
# Usage: install_test.sh BUILD_DIR SOURCE_DIR C_FLAGS
set -eu
build=$1 source=$2 flags=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" > "$work/log"
libdir=$(dirname "$(find "$prefix" -name libkzddl.so)")

# The program as the README shows it.
sed -n '/^```c$/,/^```$/p' "$source/README.md" | sed '/^```/d' > "$work/first.c"
test -s "$work/first.c"

PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
options=$(pkg-config --cflags --libs kzddl)
# shellcheck disable=SC2086
${CC:-cc} $flags -Wall -Wextra -Werror "$work/first.c" $options -o "$work/first"
output=$(KZSIM=1 LD_PRELOAD=$libdir/libkzsim.so LD_LIBRARY_PATH=$libdir "$work/first" /dev/sda)
echo "$output"
echo "$output" | grep -q 'Product Identification : VIRTUAL DISK'

mkdir "$work/project"
cat > "$work/project/CMakeLists.txt" << 'PROJECT'
cmake_minimum_required(VERSION 3.25)
project(first C)
find_package(kzddl 1.0 REQUIRED)
add_executable(first ../first.c)
target_link_libraries(first kzddl::kzddl)
PROJECT
cmake -S "$work/project" -B "$work/project/build" -DCMAKE_C_FLAGS="$flags" \
  -DCMAKE_PREFIX_PATH="$prefix" > "$work/log"
cmake --build "$work/project/build" > "$work/log"

# The installed tool finds the library and the simulated host beside it.
"$prefix/bin/kzddl" --sim ready /dev/sda

test -s "$prefix/share/man/man1/kzddl.1"
test -s "$prefix/share/man/man3/kzddl.3"
test -s "$prefix/share/bash-completion/completions/kzddl"
"$source/tests/examples_test.sh" "$prefix/share/doc/kzddl/examples" "$prefix/bin/kzddl" \
  "$libdir/libkzsim.so" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags"
