#!/usr/bin/env bash
# Whole-process speed of GetMap requests, run by hand:
#
#   bench/render_requests.sh [--runs N] [--baseline MAP_SERVER] [COUNTRIES]
#
# Builds a dataset of two layers: the world image (data/world_image,
# 2048 x 1024 JPEG) as one image tile, and the 1:50m countries (COUNTRIES:
# the shapefile or its directory, default
# data/natural_earth/ne_50m_admin_0_countries.shp) converted with
# "-shp2tvf -b", filled and edged. Then renders 512 x 512 and 2048 x 2048
# maps of both layers in the rectangular and orthographic projections, N
# runs each (default 30), every run a new process (start-up, dataset, tile
# loads, drawing and JPEG encoding all count), and prints the mean and
# minimum milliseconds per request (with hyperfine also the CPU time, user
# and system, which a busy machine inflates less). Uses hyperfine when
# installed, else a loop timed with date. With --baseline, another build of
# map_server (an older one, say) is timed on the same requests after each.
set -euo pipefail
cd "$(dirname "$0")/.."

runs=30
baseline=""
countries=data/natural_earth/ne_50m_admin_0_countries.shp
while [ $# -gt 0 ]; do
  case "$1" in
    --runs) runs="$2"; shift ;;
    --baseline) baseline="$2"; shift ;;
    -h|--help) sed -n '2,19p' "$0"; exit 0 ;;
    *) countries="$1" ;;
  esac
  shift
done
if [ -d "$countries" ]; then countries=$(ls "$countries"/*.shp | head -n 1); fi
[ -f "$countries" ] || { echo "no shapefile: $countries" >&2; exit 2; }

[ -d build ] || cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target map_server >/dev/null
bin=$(pwd)/build/bin/map_server
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cp data/world_image/earth_2048x1024.jpg "$work/world.jpg"
"$bin" -shp2tvf -b -output "$work/countries.tvf" "$countries" >/dev/null 2>&1
cat >"$work/world.lif" <<'EOF'
TYPE=IMAGE
TRANS TYPE=OPAQUE
FILENAME=world.jpg
WIDTH=2048
HEIGHT=1024
MIN LON=-180
MAX LON=180
MIN LAT=-90
MAX LAT=90
EOF
cat >"$work/countries.lif" <<'EOF'
TYPE=VECTOR
TRANS TYPE=OPAQUE
FILENAME=countries.tvf
MIN LON=-180
MAX LON=180
MIN LAT=-90
MAX LAT=90
FILL TYPE=FILL AND EDGE
FILL COLOR=1 0.8 0.2
EDGE COLOR=0 0 0
ALPHA=0.4
EOF
printf 'LAYER=world, world.lif\nLAYER=countries, countries.lif\n' >"$work/set.sdf"

query() {  # projection size
  local srs bbox
  if [ "$1" = rect ]; then
    srs="EPSG:4326"; bbox="-180,-90,180,90"
  else
    srs="AUTO:42003,9001,10,45"; bbox="-6400000,-6400000,6400000,6400000"
  fi
  echo "VERSION=1.3.0&REQUEST=GetMap&SRS=$srs&BBOX=$bbox&WIDTH=$2&HEIGHT=$2&FORMAT=image/jpeg&LAYERS=world,countries"
}

run_loop() {  # label command...
  local label=$1 total=0 best="" t0 t1 ms
  shift
  "$@" >/dev/null 2>&1 || { echo "$label: failed" >&2; return 1; }
  for _ in $(seq "$runs"); do
    t0=$(date +%s%N)
    "$@" >/dev/null 2>&1
    t1=$(date +%s%N)
    ms=$(( (t1 - t0) / 1000 ))
    total=$((total + ms))
    if [ -z "$best" ] || [ "$ms" -lt "$best" ]; then best=$ms; fi
  done
  awk -v l="$label" -v t="$total" -v n="$runs" -v b="$best" \
    'BEGIN { printf "%-22s mean %7.2f ms   min %7.2f ms\n", l, t / n / 1000, b / 1000 }'
}

run_hyperfine() {  # label command...
  local label=$1 json="$work/hf.json"
  shift
  hyperfine -N --warmup 3 --runs "$runs" --export-json "$json" "$(printf '%q ' "$@")" >/dev/null 2>&1 ||
    { echo "$label: failed" >&2; return 1; }
  # The first "mean", "user", "system" and "min" of the result are the run's.
  awk -v l="$label" -F'[:,]' '
    /"mean"/ && !mean { mean = $2 } /"user"/ && !user { user = $2 }
    /"system"/ && !sys { sys = $2 } /"min"/ && !min { min = $2 }
    END { printf "%-22s mean %7.2f ms   min %7.2f ms   cpu %7.2f ms\n", l, mean * 1000, min * 1000,
          (user + sys) * 1000 }' "$json"
}

timer=run_loop
command -v hyperfine >/dev/null && timer=run_hyperfine
echo "GetMap, whole process, $runs runs each ($([ $timer = run_hyperfine ] && echo hyperfine || echo date loop))"
for size in 512 2048; do
  for projection in rect ortho; do
    for program in "$bin" $baseline; do
      label="$projection $size x $size"
      [ "$program" = "$bin" ] || label="  (baseline)"
      $timer "$label" \
        "$program" -generate -dataset "$work/set.sdf" -oGISreq "$(query $projection $size)" -output "$work/out.jpg"
    done
  done
done
