#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a share of a bounded time.
#   scripts/fuzz.sh [SECONDS]    total time over all targets (default 120)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-120}
targets=(signal_parse layout_parse engine_reply url config bookmark gateway_message)
share=$(( seconds / ${#targets[@]} ))
[ "$share" -ge 1 ] || share=1
bash scripts/setup.sh
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DZOLO_BUILD_FUZZ=ON -DZOLO_BUILD_BENCH=OFF \
      -DZOLO_WERROR=ON >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target "${targets[@]/%/_fuzz}"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for target in "${targets[@]}"; do
  mkdir -p "$work/$target"
  cp tests/fuzz/corpus/"$target"/* "$work/$target/"
  echo "== $target: ${share} s"
  build-fuzz/tests/fuzz/"${target}_fuzz" -max_total_time="$share" -max_len=65536 \
      -print_final_stats=1 "$work/$target" 2>&1 | tail -n 12
done
