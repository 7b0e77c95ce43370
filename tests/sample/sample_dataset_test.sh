#!/usr/bin/env bash
# End to end on real data: builds the sample dataset with the tools, then serves a GetMap of
# the world from it. Usage: sample_dataset_test.sh MAP_SERVER WORK_DIR
set -euo pipefail
bin="$1"
work="$2"
root="$(cd "$(dirname "$0")/../.." && pwd)"
rm -rf "$work"
mkdir -p "$work"
export VMP_LOG_DIR="$work" KAV_LOG_DIR="$work"
MAP_SERVER="$bin" "$root/scripts/build_sample_dataset.sh" "$work/sample"
"$bin" -generate -dataset "$work/sample/world.sdf" -output "$work/world.jpg" -oGISreq \
  'VERSION=1.3.0&REQUEST=GetMap&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=512&HEIGHT=256&FORMAT=image/jpeg&LAYERS=world' \
  2> "$work/stderr.txt"
if [ -s "$work/stderr.txt" ]; then
  echo "GetMap reported:" >&2
  cat "$work/stderr.txt" >&2
  exit 1
fi
[ "$(head -c 3 "$work/world.jpg" | od -An -tx1 | tr -d ' \n')" = "ffd8ff" ] || { echo "not a JPEG" >&2; exit 1; }
# Image, borders, labels: far more detail than a background-only map of this size (about 3 kB).
size=$(stat -c %s "$work/world.jpg")
[ "$size" -gt 40000 ] || { echo "map of $size bytes: layers missing" >&2; exit 1; }
echo "sample dataset built and served: world.jpg of $size bytes"
