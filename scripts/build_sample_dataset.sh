#!/usr/bin/env bash
# Builds the sample world dataset into out/sample/ (or the directory given as
# the first argument) from the source data in data/, with the project's own
# tools only (modes of build/bin/map_server; MAP_SERVER overrides the path).
# Safe to run again: the dataset is built in a fresh directory next to the
# target and put in place only once complete.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
target="${1:-$root/out/sample}"
bin="${MAP_SERVER:-$root/build/bin/map_server}"
data="$root/data"
case "$bin" in /*) ;; *) bin="$PWD/$bin" ;; esac
[ -x "$bin" ] || { echo "build_sample_dataset: $bin not built (run scripts/build.sh)" >&2; exit 1; }

mkdir -p "$(dirname "$target")"
target="$(cd "$(dirname "$target")" && pwd)/$(basename "$target")"
work="$target.building.$$"
rm -rf "$work"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/{countries,places,image,elevation,styles,fonts,logs}
cd "$work"
# The tools' own log files go with the dataset, not into the caller's directory.
export VMP_LOG_DIR="$work/logs" KAV_LOG_DIR="$work/logs"
# Image tiles are whole multiples of the source here; any padding would be black.
export VMP_TILE_FILL_COLOR=0,0,0

run() { "$bin" "$@" 2>>logs/build.log; }

# --- Countries (1:50m): shapefile -> binary TVF, also tiled into a 4 x 2 grid of 90-degree cells.
# Attributes (in this order): 0 NAME, 1 ISO_A3, 2 CONTINENT, 3 POP_EST, 4 MAPCOLOR7, 5 ADMIN.
run -shp2tvf -b -suppress-warnings -attr 18 -attr 46 -attr 92 -attr 36 -attr 32 -attr 9 \
  -output countries/countries.tvf "$data/natural_earth/ne_50m_admin_0_countries.shp"
run -tile -vector -b -filename countries/countries.tvf -template 'countries/c_%_%.tvf' \
  -num-x-tiles 4 -num-y-tiles 2 -world-extent

# --- Populated places: markers labelled with their names (table field 4).
# Attributes: 0 name, 1 featurecla, 2 pop_max, 3 scalerank, 4 adm0name.
run -shp2tvf -b -suppress-warnings -attr 4 -attr 3 -attr 26 -attr 0 -attr 16 -marker-label-attr 4 \
  -output places/places.tvf "$data/natural_earth/ne_110m_populated_places_simple.shp"

# --- World image: 8 x 4 JPEG tiles of 256 pixels, tile info files, an SLF tree and its LIF.
run -tile -image -filename "$data/world_image/earth_2048x1024.jpg" -template 'image/w_%_%.jpg' \
  -num-x-tiles 8 -num-y-tiles 4
run -tile_info -slf-pattern 'image/w_%_%.info' -data-pattern 'w_%_%.jpg' -width 2048 -height 1024 \
  -num-x-tiles 8 -num-y-tiles 4 -min-lat -90 -max-lat 90 -min-lon -180 -max-lon 180
run -slf -image -path image -pattern '*.info' -out-slf-name world -out-lif-name image_tiles.lif

# --- Elevation: ETOPO20 (1080 x 540 signed 16-bit metres) in 4 x 2 TIFF tiles of 270 cells.
run -tile -image -elevation -filename "$data/elevation/etopo20_world_int16.tif" \
  -template 'elevation/e_%_%.tif' -num-x-tiles 4 -num-y-tiles 2

# --- Fonts: a Hershey stroke font and the TrueType font, as the dataset's own.
cp "$data/fonts/futural.jhf" "$data/fonts/rowmans.jhf" "$data/fonts/DejaVuSans.ttf" fonts/

# --- Styles: country fills by MAPCOLOR7 (1..7), label priorities by population.
cat > styles/mapcolor7.thr <<'EOF'
# Pastel fills for the seven map colours of Natural Earth.
INPUT DATA TYPE=VMP_D
OUTPUT DATA TYPE=VMP_G
1 0.957 0.859 0.690
2 0.800 0.890 0.745
3 0.992 0.788 0.741
4 0.780 0.820 0.925
5 0.973 0.933 0.678
6 0.867 0.780 0.910
7 0.745 0.890 0.898
EOF
cat > styles/country_priority.thr <<'EOF'
# More populous countries place their names first (a lower priority wins).
INPUT DATA TYPE=VMP_D
OUTPUT DATA TYPE=VMP_D
0 8
1000000 7
10000000 6
50000000 5
100000000 4
EOF
cat > styles/population_priority.thr <<'EOF'
# Bigger cities place their labels first (a lower priority wins).
INPUT DATA TYPE=VMP_D
OUTPUT DATA TYPE=VMP_D
0 9
1000000 7
5000000 4
10000000 3
EOF

# --- Layers.
cat > world_image.lif <<'EOF'
# The world image: tiles, tile info files and SLF tree written by the tools.
INCLUDE=image_tiles.lif
IMAGE ANTIALIASING=1
MAX TILES=32
MAX CACHE SIZE=32
EOF
cat > elevation_tiles.lif <<'EOF'
# The ETOPO20 elevation tiles, shared by the two layers below.
TYPE=IMAGE
TRANS TYPE=OPAQUE
IMAGE FORMAT=TIF
FILENAME=elevation/e_%_%.tif
NUM TILES X=4
NUM TILES Y=2
WIDTH=1080
HEIGHT=540
MIN LON=-180
MAX LON=180
MIN LAT=-90
MAX LAT=90
EOF
cat > relief.lif <<'EOF'
# Coloured relief from the elevation tiles.
INCLUDE=elevation_tiles.lif
ELEVATION MODE=COLOR
IMAGE ANTIALIASING=1
EOF
cat > elevation.lif <<'EOF'
# The same tiles as data only: answers elevation queries, never drawn.
INCLUDE=elevation_tiles.lif
ELEVATION MODE=DATA
EOF
countries_grid='FILENAME=countries/c_%_%.tvf
NUM TILES X=4
NUM TILES Y=2
MIN LON=-180
MAX LON=180
MIN LAT=-90
MAX LAT=90
ALLOW MISSING TILES=1'
cat > country_fills.lif <<EOF
# Countries filled by their map colour, from the tiles.
TYPE=VECTOR
TRANS TYPE=OPAQUE
$countries_grid
FILL TYPE=FILL
FILL COLOR=0.9 0.9 0.85
CUSTOM ATTR= 200 fill VMP_G
ATTR MAP= fill FillColor@4 styles/mapcolor7.thr ABS
EOF
cat > country_edges.lif <<'EOF'
# Country edges, and country names from 3x zoom on. One file rather than tiles: the tiler puts
# each part of a country into the tiles its own box reaches, so a country's name placed from
# its parts could differ from tile to tile.
TYPE=VECTOR
TRANS TYPE=OPAQUE
FILENAME=countries/countries.tvf
FILL TYPE=EDGE
EDGE COLOR=1 0.92 0.55
ALPHA=0.85
LINE WIDTH=1
POLY LABEL FORMAT={0}
LABEL TYPE=AREA LABEL
# No feature carries attribute 199: every name goes to an interior point of its country.
LABEL CENTER=199
LABEL MIN ZOOM=3
FONT=sans
FONT SCALE=1.3
TEXT TYPE=FLAT
TEXT ANCHOR=HCENTER VTOP
LABEL COLOR=0.15 0.15 0.15
LABEL OUTLINE COLOR=1 1 1
LABEL STYLE=OUTLINE
LAYOUT TYPE=GLOBAL
CUSTOM ATTR= 202 priority VMP_D
ATTR MAP= priority LabelPriority@3 styles/country_priority.thr ABS
LABEL SELECTION MODE=YES
EOF
cat > place_labels.lif <<'EOF'
# The populated places with their names to the right, shared by the two layers below.
TYPE=VECTOR
TRANS TYPE=OPAQUE
FILENAME=places/places.tvf
FONT=sans
TEXT TYPE=FLAT
TEXT ANCHOR=HLEFT VCENTER
LABEL OUTLINE COLOR=0.1 0.1 0.1
LABEL STYLE=OUTLINE
LAYOUT TYPE=GLOBAL
LABEL SELECTION MODE=YES
EOF
cat > capitals.lif <<'EOF'
# National capitals: a dot and the name, bigger cities first.
INCLUDE=place_labels.lif
ATTR COND=@1=="Admin-0 capital"
MARKER ICON TYPE=CIRCLE_FILL CIRCLE_EDGE
MARKER ICON SIZE=6
MARKER FILL COLOR=0.85 0.1 0.1
MARKER EDGE COLOR=1 1 1
MARKER MARGIN=1
FONT SCALE=0.9
LABEL COLOR=1 1 1
LAYOUT MARGIN=2
CUSTOM ATTR= 201 priority VMP_D
ATTR MAP= priority LabelPriority@2 styles/population_priority.thr ABS
EOF
cat > towns.lif <<'EOF'
# The other populated places, from 3x zoom on.
INCLUDE=place_labels.lif
ATTR COND=@1!="Admin-0 capital"
MIN ZOOM=3
MARKER ICON TYPE=BOX_FILL BOX_EDGE
MARKER ICON SIZE=5
MARKER FILL COLOR=1 0.85 0.2
MARKER EDGE COLOR=0.2 0.2 0.2
FONT SCALE=0.8
LABEL COLOR=1 1 0.85
LABEL PRIORITY=10
EOF
cat > graticule.lif <<'EOF'
# Parallels and meridians, denser as the map zooms in, labelled in the stroke font.
TYPE=GRID
TRANS TYPE=OPAQUE
ADAPTIVE GRID=1
EDGE COLOR=0.72 0.78 0.85
LINE WIDTH=1
GRID LABELS=1
ROTATE LON LABELS=0
FONT=roman
FONT SCALE=1
VTEXT LINE WIDTH=1
LABEL COLOR=1 1 1
LABEL OUTLINE COLOR=0 0 0
LABEL STYLE=OUTLINE
TEXT ANCHOR=HLEFT VBOTTOM
LAYOUT TYPE=LAYER
LAYOUT MARGIN=2
EOF
cat > outline.lif <<'EOF'
# The globe's edge with a blue halo (the rectangular map gets a frame).
TYPE=OUTLINE
TRANS TYPE=OPAQUE
EDGE COLOR=0.55 0.75 1
LINE WIDTH=2
GRADIENT TYPE=AROUND_GLOBE
GRADIENT COLOR=0.35 0.6 1
GRADIENT LENGTH=0.12
ALPHA=0.9
EOF
cat > space.lif <<'EOF'
# Deep blue behind the globe.
TYPE=BACKGROUND
TRANS TYPE=OPAQUE
FILL COLOR=0.02 0.03 0.09
EOF
cat > ocean.lif <<'EOF'
# Sea colour under the political map.
TYPE=BACKGROUND
TRANS TYPE=OPAQUE
FILL COLOR=0.64 0.8 0.9
EOF

# --- The dataset info file.
cat > world.sdf <<'EOF'
# Sample world dataset (Natural Earth 1:110m, NASA world image, NOAA ETOPO20).
FONT DIR=fonts
ENCODING=UTF8
GLYPH CACHE TYPE=local
VECTOR FONT=futura futural.jhf
VECTOR FONT=roman rowmans.jhf
IMAGE FONT=sans DejaVuSans.ttf
DEFAULT FONT=sans
ERROR FONT=roman
MAX IMAGE TILES=64
MAX VECTOR TILES=32
LAYER=space space.lif
LAYER=ocean ocean.lif
LAYER=world_image world_image.lif
LAYER=relief relief.lif
LAYER=elevation elevation.lif
LAYER=country_fills country_fills.lif
LAYER=country_edges country_edges.lif
LAYER=graticule graticule.lif
LAYER=capitals capitals.lif
LAYER=towns towns.lif
LAYER=outline outline.lif
ALIAS=cities "capitals,towns"
ALIAS=borders "country_edges"
ALIAS=countries "country_fills,country_edges"
ALIAS=world "space,world_image,borders,graticule,cities,outline"
ALIAS=political "ocean,countries,graticule,cities,outline"
ALIAS=terrain "space,relief,borders,graticule,cities,outline"
EOF

# --- Check: the dataset and every layer file read without errors (capabilities in text form).
"$bin" -generate -dataset world.sdf -oGISreq 'SERVICE=WMS&VERSION=1.3.0&REQUEST=GetCapabilities&FORMAT=text/plain' \
  > logs/capabilities.txt 2>>logs/build.log
if grep -q "Error" logs/build.log; then
  echo "build_sample_dataset: the tools reported errors:" >&2
  grep "Error" logs/build.log >&2
  exit 1
fi

rm -rf "$target"
mv "$work" "$target"
trap - EXIT
echo "Sample dataset: $target/world.sdf"
