#!/usr/bin/env bash
# Builds and runs the consumer program against an installed library both ways: with
# `pkg-config --cflags --libs libzolo_media` and with find_package(ZoloMedia 2 CONFIG).
#   check_install.sh BUILD SOURCE      installs BUILD into a temporary prefix first
#   check_install.sh --system SOURCE   uses what is installed on the system (the packages)
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rpath=()
if [ "$build" = --system ]; then
  prefix=/usr
else
  prefix=$work/prefix
  cmake --install "$build" --prefix "$prefix" >/dev/null
  libdir=$(find "$prefix" -name libzolo_media.pc -printf '%h\n' | head -n1)
  [ -n "$libdir" ] || { echo "no libzolo_media.pc installed"; exit 1; }
  export PKG_CONFIG_PATH="$libdir"
  rpath=(-Wl,-rpath,"$(dirname "$libdir")")
  test -L "$(dirname "$libdir")/libzolo_media.so.2"
fi

flags=$(pkg-config --cflags --libs libzolo_media)
c++ -std=c++17 -Wall -Werror "$source/tests/install/consumer.cc" -o "$work/consumer" $flags \
    "${rpath[@]}"
"$work/consumer"

cmake -S "$source/tests/install/cmake_consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
      -DCMAKE_BUILD_RPATH="$([ "$build" = --system ] || dirname "$libdir")" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"
echo "install check passed (pkg-config and CMake)"
