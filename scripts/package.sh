#!/usr/bin/env bash
# Builds the Debian package (korvelapp_VERSION_amd64.deb, through CPack) and checks
# it: unpacked into a scratch root, its files must be exactly those listed in
# res/package/files.txt, both programs must answer --version and --help there without
# a display, the AppStream data must pass a strict validation, the desktop entry its
# validator, and lintian must find no errors.
#   scripts/package.sh           build in build/ (as scripts/build.sh does) and check
#   scripts/package.sh FOLDER    package an already configured build folder instead
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh --package
if [ $# -ge 1 ]; then
  build=$1
  cmake --build "$build" -j"$(nproc)" >/dev/null
else
  build=build
  bash scripts/build.sh
fi

rm -f "$build"/korvelapp_*.deb
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(ls "$build"/korvelapp_*_amd64.deb)
version=$(dpkg-deb -f "$deb" Version)

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
dpkg -x "$deb" "$root"
(cd "$root" && find . ! -type d | sed 's|^\.||' | LC_ALL=C sort) > "$root.files"
if ! diff -u res/package/files.txt "$root.files"; then
  echo "package: the file list differs from res/package/files.txt (- expected, + packaged)" >&2
  rm -f "$root.files"
  exit 1
fi
rm -f "$root.files"

# Help and version are answered before Qt starts, so no display is needed.
[ "$(env -u DISPLAY -u WAYLAND_DISPLAY "$root/usr/bin/korvelapp" --version)" = "KorvelApp $version" ]
[ "$("$root/usr/bin/korvel-raster" --version)" = "korvel-raster $version" ]
env -u DISPLAY -u WAYLAND_DISPLAY "$root/usr/bin/korvelapp" --help | grep -q '^Usage: korvelapp'
status=0
env -u DISPLAY -u WAYLAND_DISPLAY "$root/usr/bin/korvelapp" --no-such-option 2>/dev/null || status=$?
[ "$status" -eq 2 ]

appstreamcli validate --strict --no-net "$root"/usr/share/metainfo/*.metainfo.xml
desktop-file-validate "$root/usr/share/applications/korvelapp.desktop"
# Errors fail the check; what lintian says besides is listed in the README.
lintian --fail-on error "$deb"
echo "package: $(basename "$deb") built and checked"
