#!/usr/bin/env bash
# Builds the libFuzzer target with clang and runs it for SECONDS (default 60),
# seeded from the shared test files and fuzz/seeds. Findings are left in build-fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shared=${KORVEL_SHARED_DIR:-$(cd .. && pwd)/shared}
bash scripts/setup.sh --fuzz
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKORVEL_FUZZ=ON -DKORVEL_TESTS=OFF -DKORVEL_BENCH=OFF -DKORVEL_WERROR=ON >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target raster_fuzz
mkdir -p build-fuzz/corpus build-fuzz/findings
seeds=("$(pwd)/fuzz/seeds")  # small files of the formats the shared data lacks (DCS, ...)
[ -d "$shared/testdata" ] && seeds+=("$shared/testdata")
cd build-fuzz/findings
../fuzz/raster_fuzz -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=20 \
  -print_final_stats=1 ../corpus "${seeds[@]}" 2>&1 | tail -n 25
