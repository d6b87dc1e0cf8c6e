#!/usr/bin/env bash
# Installs what is missing, builds, and starts KorvelApp. Until the photo
# application itself is built, this shows what the raster library reads in
# the bundled sample photo.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
exec build/tools/korvel-raster info res/sample.jpg
