#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer + ASan + UBSan) and runs each for a while.
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET]   (default 60)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh fuzz
seconds=${1:-60}
CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVO_BUILD_FUZZ=ON -DVO_BUILD_TESTS=OFF -DVO_SANITIZE=address,undefined >/dev/null
ninja -C build/fuzz decode_fuzzer thumbnail_fuzzer
mkdir -p build/fuzz/corpus
for target in decode_fuzzer thumbnail_fuzzer; do
  mkdir -p "build/fuzz/corpus/$target"
  "build/fuzz/bin/$target" -max_total_time="$seconds" -rss_limit_mb=4096 -max_len=65536 \
    "build/fuzz/corpus/$target"
done
