#!/usr/bin/env bash
# The main job: installs what is missing, builds the program, builds the sample world dataset
# (out/sample/) when it is absent or older than its script, then serves a few requests on it:
# three maps into out/, the capabilities in text form and two elevation queries.
set -euo pipefail
cd "$(dirname "$0")/.."
start=$(date +%s.%N)
scripts/install_deps.sh
scripts/build.sh release map_server
if [ ! -f out/sample/world.sdf ] || [ scripts/build_sample_dataset.sh -nt out/sample/world.sdf ]; then
  scripts/build_sample_dataset.sh out/sample
fi

bin=build/bin/map_server
dataset=out/sample/world.sdf
# Messages of the requests go to out/logs/ rather than into this directory.
mkdir -p out/logs
export VMP_LOG_DIR="$PWD/out/logs" KAV_LOG_DIR="$PWD/out/logs"
request() { "$bin" -generate -dataset "$dataset" -oGISreq "SERVICE=WMS&VERSION=1.3.0&$1" "${@:2}"; }

echo "== Maps"
# The world in EPSG:4326: satellite image, borders, graticule, capitals.
request 'REQUEST=GetMap&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=1024&HEIGHT=512&FORMAT=image/jpeg&LAYERS=world' \
  -output out/world.jpg
# The globe (orthographic, AUTO:42003) seen from above Europe, with its halo.
request 'REQUEST=GetMap&SRS=AUTO:42003,9001,15,50&BBOX=-7000000,-7000000,7000000,7000000&WIDTH=640&HEIGHT=640&FORMAT=image/jpeg&LAYERS=world' \
  -output out/globe.jpg
# A zoom on France: the political map with country names, capitals and towns.
request 'REQUEST=GetMap&SRS=EPSG:4326&BBOX=-6,40,12,52&WIDTH=900&HEIGHT=600&FORMAT=image/jpeg&LAYERS=political' \
  -output out/france.jpg
# The coloured relief of the elevation tiles.
request 'REQUEST=GetMap&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=1024&HEIGHT=512&FORMAT=image/jpeg&LAYERS=terrain' \
  -output out/terrain.jpg
ls -l out/world.jpg out/globe.jpg out/france.jpg out/terrain.jpg

echo "== Capabilities (text form)"
request 'REQUEST=GetCapabilities&FORMAT=text/plain'

echo "== Elevation (GetLocationInfo, ETOPO20 cells of 1/3 degree, averaged)"
world_view='SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=1024&HEIGHT=512'
echo "Mount Everest (86.925E, 27.988N):"
request "REQUEST=GetLocationInfo&$world_view&QUERY_LAYERS=elevation&INFO_TYPE=elevation&LON_LAT=86.925,27.988&FORMAT=text/plain"
echo "Mont Blanc (6.865E, 45.833N):"
request "REQUEST=GetLocationInfo&$world_view&QUERY_LAYERS=elevation&INFO_TYPE=elevation&LON_LAT=6.865,45.833&FORMAT=text/plain"

end=$(date +%s.%N)
elapsed=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.1f", b - a }')
echo
echo "Maps written to $PWD/out/: world.jpg, globe.jpg, france.jpg, terrain.jpg ($elapsed s in all)"
