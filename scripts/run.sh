#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs the program.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_deps.sh
scripts/build.sh release
build/bin/map_server -help
