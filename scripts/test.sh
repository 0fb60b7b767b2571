#!/usr/bin/env bash
# Installs what is missing, builds wavestore under AddressSanitizer + UBSan (the benchmarks
# too, so that they keep building) and runs all tests.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${WAVESTORE_TEST_BUILD:-"$root/build/asan"}

"$root/scripts/bootstrap.sh"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DWAVESTORE_SANITIZE=address -DWAVESTORE_BUILD_BENCH=ON
cmake --build "$build" -j2
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/tests/lsan.supp}
ctest --test-dir "$build" --output-on-failure -j2 "$@"
