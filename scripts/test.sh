#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite.
#   scripts/test.sh              normal build in build/
#   scripts/test.sh --sanitize   address + undefined-behaviour sanitizers in build-asan/
#   scripts/test.sh --werror     warnings are errors (CI passes this)
set -euo pipefail
cd "$(dirname "$0")/.."
sanitize=OFF
werror=OFF
for arg in "$@"; do
  case "$arg" in
    --sanitize) sanitize=ON ;;
    --werror) werror=ON ;;
    *) echo "usage: $0 [--sanitize] [--werror]" >&2; exit 2 ;;
  esac
done
build=build
[ "$sanitize" = ON ] && build=build-asan
bash scripts/setup.sh
# ccache keeps a rebuild of unchanged sources (another flavour, a second run) cheap.
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
# The sanitizer flavour is built at -O1 with line tables only: it compiles faster and still
# reports every finding with its source line.
# The normal flavour keeps line tables only (-g1): a third faster to build than full debug
# information, and a backtrace still names every line.
flavour=("-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG" "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG")
[ "$sanitize" = ON ] && flavour=(-DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1" "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1 -g1")
cmake -S . -B "$build" -DZOLO_WERROR=$werror -DZOLO_SANITIZE=$sanitize "${launcher[@]}" "${flavour[@]}" \
      -DZOLO_BUILD_BENCH=$([ "$sanitize" = ON ] && echo OFF || echo ON) >/dev/null
cmake --build "$build" -j"$(nproc)"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
# GStreamer's plugin registry is brought up to date once here, not inside the first
# (possibly sanitized) engine test.
command -v gst-inspect-1.0 >/dev/null && gst-inspect-1.0 >/dev/null 2>&1 || true
ctest --test-dir "$build" --output-on-failure -j"$(nproc)"
