#!/usr/bin/env bash
# Builds the tests with AddressSanitizer and UndefinedBehaviorSanitizer and runs them.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DKORVEL_SANITIZE=ON -DKORVEL_BENCH=OFF \
  -DKORVEL_WERROR=ON >/dev/null
cmake --build build-asan -j"$(nproc)"
# Failed allocations are part of what the code handles, so they return null.
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j"$(nproc)"
