#!/usr/bin/env bash
# Installs what is missing, builds the release and the sanitizer trees, and
# runs the whole test suite in both (the sanitizer run also runs the fuzz
# targets for a short time). Ends with ctest's summary.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_deps.sh
scripts/build.sh release
scripts/build.sh sanitize
jobs=$(nproc 2>/dev/null || echo 2)

echo "== Release build tests =="
(cd build && ctest --output-on-failure -j "$jobs")

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build tests =="
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd build-asan && ctest --output-on-failure -j "$jobs")
