#!/usr/bin/env bash
# Installs, from Debian's archive, whatever this project needs that the machine
# lacks. Safe to run again: packages already installed are left alone.
#   scripts/setup.sh            what building and testing need
#   scripts/setup.sh --fuzz     also clang and libFuzzer's runtime
#   scripts/setup.sh --bench    also the peer programs the benchmarks compare with
#   scripts/setup.sh --package  also the checkers of the Debian package and its metadata
set -euo pipefail

packages=(build-essential cmake pkg-config libjpeg62-turbo-dev libgtest-dev
          libjpeg-turbo-progs qt6-base-dev fonts-liberation libgphoto2-dev
          poppler-utils ghostscript xdg-utils dbus libpng-dev libwebp-dev libheif-dev
          libheif-examples webp netpbm imagemagick libexiv2-dev)
# The manual pages' source format and the icon generator's SVG output.
packages+=(scdoc qt6-svg-dev)
for group in "$@"; do
  case "$group" in
    --fuzz) packages+=(clang libclang-rt-14-dev) ;;
    --package) packages+=(dpkg-dev lintian appstream desktop-file-utils) ;;
    --bench) packages+=(libjpeg-turbo-progs time libvips-tools imagemagick liblcms2-dev) ;;
    *) echo "setup.sh: unknown option $group" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup.sh: need root or sudo to install: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "setup.sh: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends \
  "${missing[@]}"
