#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time (default 60 s).
#   scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
bash scripts/setup.sh
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DZOLO_BUILD_FUZZ=ON -DZOLO_BUILD_BENCH=OFF \
      -DZOLO_WERROR=ON >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target signal_parse_fuzz
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp tests/fuzz/corpus/signal_parse/* "$work/"
build-fuzz/tests/fuzz/signal_parse_fuzz -max_total_time="$seconds" -max_len=65536 \
    -print_final_stats=1 "$work"
