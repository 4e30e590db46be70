#!/usr/bin/env bash
# Installs the build tree into a temporary prefix, then compiles and runs a consumer
# program using nothing but `pkg-config --cflags --libs libzolo_media`.
set -euo pipefail
build=$1
source=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(find "$prefix" -name libzolo_media.pc -printf '%h\n' | head -n1)
[ -n "$libdir" ] || { echo "no libzolo_media.pc installed"; exit 1; }
export PKG_CONFIG_PATH="$libdir"
flags=$(pkg-config --cflags --libs libzolo_media)
c++ -std=c++17 -Wall -Werror "$source/tests/install/consumer.cc" -o "$prefix/consumer" $flags \
    -Wl,-rpath,"$(dirname "$libdir")"
"$prefix/consumer"
test -L "$(dirname "$libdir")/libzolo_media.so.2"
echo "install check passed"
