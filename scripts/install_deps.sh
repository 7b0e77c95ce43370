#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, when missing.
# Safe to run again: nothing is installed twice.
set -euo pipefail

packages=(
  build-essential g++ cmake ninja-build pkg-config git
  clang libclang-rt-14-dev
  libjpeg62-turbo-dev libpng-dev libtiff-dev libshp-dev libfreetype-dev zlib1g-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  # The WMS endpoint's end-to-end test: a web server and standard clients.
  lighttpd python3-owslib gdal-bin libxml2-utils
  # The web deployment's browser test.
  chromium
)
if [ "$#" -gt 0 ]; then packages+=("$@"); fi

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null || true)
  [ "$status" = "installed" ] || missing+=("$p")
done
# Node.js and npm bundle the web page and drive the browser test. A machine
# may have them from elsewhere already; Debian's are installed only if not.
command -v node >/dev/null || missing+=(nodejs)
command -v npm >/dev/null || missing+=(npm)
[ "${#missing[@]}" -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "Need root (or sudo) to install: ${missing[*]}" >&2; exit 1; }
  sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
