#!/usr/bin/env bash
# Installs what is missing, builds wavestore in release mode and runs the demo host.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${WAVESTORE_DEMO_BUILD:-"$root/build/release"}

"$root/scripts/bootstrap.sh"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DWAVESTORE_BUILD_TESTS=OFF
cmake --build "$build" -j2 --target wavestore_demo
"$build/apps/wavestore_demo" "$@"
