#!/usr/bin/env bash
# Speed of the vector data tools on real and synthetic data, run by hand:
#
#   bench/vector_tools.sh [--install-gdal] [--points N] [COUNTRIES]
#
# COUNTRIES is the 1:50m countries shapefile (or its directory); default
# data/natural_earth/ne_50m_admin_0_countries.shp. A synthetic shapefile of N
# points (default 1000000: polygons of two 50-point rings) is made with
# bench_make_shapefile. Each step runs three times and the best time is
# printed, with points per second. For comparison GDAL's ogr2ogr converts
# the same shapefiles to GeoJSON and FlatGeobuf when it is installed
# (--install-gdal installs Debian's gdal-bin first).
set -euo pipefail
cd "$(dirname "$0")/.."

install_gdal=0
points=1000000
countries=data/natural_earth/ne_50m_admin_0_countries.shp
while [ $# -gt 0 ]; do
  case "$1" in
    --install-gdal) install_gdal=1 ;;
    --points) points="$2"; shift ;;
    -h|--help) sed -n '2,12p' "$0"; exit 0 ;;
    *) countries="$1" ;;
  esac
  shift
done
if [ -d "$countries" ]; then countries=$(ls "$countries"/*.shp | head -n 1); fi
[ -f "$countries" ] || { echo "no shapefile: $countries" >&2; exit 2; }

if [ "$install_gdal" = 1 ] && ! command -v ogr2ogr >/dev/null; then
  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq gdal-bin
fi

[ -d build ] || cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target map_server bench_make_shapefile >/dev/null
bin=build/bin
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# best_of_three LABEL POINTS COMMAND...: prints the best wall time of three runs.
best_of_three() {
  local label=$1 count=$2 best=""
  shift 2
  for _ in 1 2 3; do
    local t0 t1
    t0=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || { echo "$label: failed: $*" >&2; return 1; }
    t1=$(date +%s.%N)
    best=$(awk -v a="$t0" -v b="$t1" -v best="$best" \
      'BEGIN { t = b - a; if (best == "" || t < best) best = t; print best }')
  done
  awk -v l="$label" -v t="$best" -v n="$count" \
    'BEGIN { printf "  %-34s %8.3f s %12.0f points/s\n", l, t, n / t }'
}

# ogr2ogr into a fresh file each time (GeoJSON cannot be overwritten in place);
# FlatGeobuf needs one geometry type, so polygons are promoted to
# multipolygons.
ogr() {
  rm -f "$2"
  ogr2ogr -f "$1" "$2" "$3" -nlt PROMOTE_TO_MULTI
}

cp "${countries%.shp}".{shp,shx,dbf} "$work"/
base=$(basename "${countries%.shp}")
$bin/bench_make_shapefile polygons "$work/synthetic" "$points"

for name in "$base" synthetic; do
  shp="$work/$name.shp"
  read -r records vertices < <($bin/bench_make_shapefile count "$shp")
  echo "$name: $records records, $vertices points"
  best_of_three "shp2tvf ASCII" "$vertices" $bin/map_server -shp2tvf -a -output "$work/$name.tvf" "$shp"
  best_of_three "shp2tvf BINARY" "$vertices" $bin/map_server -shp2tvf -b -output "$work/$name.bin.tvf" "$shp"
  if command -v ogr2ogr >/dev/null; then
    best_of_three "ogr2ogr GeoJSON" "$vertices" \
      ogr GeoJSON "$work/$name.geojson" "$shp"
    best_of_three "ogr2ogr FlatGeobuf" "$vertices" \
      ogr FlatGeobuf "$work/$name.fgb" "$shp"
  fi
  best_of_three "merge ASCII+BINARY -> BINARY" "$((2 * vertices))" \
    $bin/map_server -merge -b -output "$work/$name.merged.tvf" "$work/$name.tvf" "$work/$name.bin.tvf"
  best_of_three "split -num-points 1000" "$vertices" \
    $bin/map_server -split -b -filename "$work/$name.bin.tvf" -output "$work/$name.split.tvf" -num-points 1000
  best_of_three "tile 64x32 world" "$vertices" \
    $bin/map_server -progress 0 -tile -vector -b -filename "$work/$name.bin.tvf" \
      -template "$work/tile_%_%.tvf" -num-x-tiles 64 -num-y-tiles 32 -world-extent
  best_of_three "slim -resolution 0.05" "$vertices" \
    $bin/map_server -slim -b -filename "$work/$name.bin.tvf" -output "$work/$name.slim.tvf" -resolution 0.05
  rm -f "$work"/tile_*.tvf
done
