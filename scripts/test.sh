#!/usr/bin/env bash
# Sets up, builds and runs every test: in a release build, with AddressSanitizer and
# UndefinedBehaviorSanitizer, and with ThreadSanitizer. Usage: scripts/test.sh [release|asan|tsan]
# (default: all three).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=$(nproc)
run_suite() {  # name, extra cmake arguments...
  local name=$1; shift
  cmake -S . -B "build/$name" -G Ninja -Wno-dev "$@" >/dev/null
  ninja -C "build/$name"
  # Under a private X server, for the tests that need screens and OpenGL.
  xvfb-run -a -s '-screen 0 1280x1024x24 -noreset' \
    ctest --test-dir "build/$name" --output-on-failure -j "$jobs"
}
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$(mktemp -d)}

which=${1:-all}
if [[ $which == all || $which == release ]]; then
  run_suite release -DCMAKE_BUILD_TYPE=Release
fi
if [[ $which == all || $which == asan ]]; then
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp
  run_suite asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVO_SANITIZE=address,undefined
fi
if [[ $which == all || $which == tsan ]]; then
  export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
  run_suite tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVO_SANITIZE=thread
fi
