#!/usr/bin/env bash
# Installs the Debian packages that wavestore needs, when they are missing.
set -euo pipefail

packages=(g++ cmake make pkg-config libpugixml-dev libfmt-dev libspdlog-dev libssl-dev
          libgtest-dev libgmock-dev libbenchmark-dev libhdf5-dev libcli11-dev libpng-dev
          libcairo2-dev nlohmann-json3-dev
          clang libclang-rt-14-dev)  # the fuzz targets: clang and its libFuzzer runtime

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "bootstrap: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get install -y --no-install-recommends "${missing[@]}" \
  || { $sudo apt-get update && $sudo apt-get install -y --no-install-recommends "${missing[@]}"; }
