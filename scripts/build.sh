#!/usr/bin/env bash
# Configures and builds one build tree (every target, or the targets named after the mode).
#   scripts/build.sh                       -> build/       (release, g++)
#   scripts/build.sh sanitize              -> build-asan/  (clang, ASan + UBSan, fuzz targets)
#   scripts/build.sh release map_server    -> only the program
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)

mode="${1:-release}"
if [ "$#" -gt 0 ]; then shift; fi
targets=()
for t in "$@"; do targets+=(--target "$t"); done

case "$mode" in
  release)
    cmake -S . -B build "${generator[@]}" -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build build -j "$jobs" "${targets[@]}"
    ;;
  sanitize)
    cmake -S . -B build-asan "${generator[@]}" -DCMAKE_BUILD_TYPE=Debug \
      -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
      -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" -DCMAKE_C_FLAGS_DEBUG="-O1 -g" \
      -DVMP_SANITIZE=ON -DVMP_FUZZ=ON -DVMP_BENCHMARKS=OFF >/dev/null
    cmake --build build-asan -j "$jobs" "${targets[@]}"
    ;;
  *)
    echo "usage: scripts/build.sh [release|sanitize] [target...]" >&2
    exit 2
    ;;
esac
