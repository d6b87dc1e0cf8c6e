#!/usr/bin/env bash
# Installs what is missing, builds, and starts KorvelApp. Any arguments are
# handed to the program (a photo to open, for instance).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
exec build/app/korvelapp "$@"
