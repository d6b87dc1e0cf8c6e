#!/usr/bin/env bash
# Configures and builds the project in build/ (warnings are errors under CI).
set -euo pipefail
cd "$(dirname "$0")/.."
werror=OFF
[ -n "${CI:-}" ] && werror=ON
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVEL_WERROR="$werror" "$@" >/dev/null
cmake --build build -j"$(nproc)"
