#!/usr/bin/env bash
# Builds the tests with AddressSanitizer and UndefinedBehaviorSanitizer and runs them.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DKORVEL_SANITIZE=ON -DKORVEL_BENCH=OFF \
  -DKORVEL_WERROR=ON >/dev/null
cmake --build build-asan -j"$(nproc)"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j"$(nproc)"
