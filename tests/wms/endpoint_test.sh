#!/usr/bin/env bash
# The WMS endpoint end to end through a real web server: lighttpd with
# mod_cgi on a free loopback port serves the wms program and, for
# comparison, the native map server, over a dataset made here (the world
# image, and the 1:110m countries converted from the shapefile with
# Australia filled in red). OWSLib, GDAL's WMS driver and xmllint (with the
# WMS 1.3.0 schemas in tests/data) are the clients.
#
#   endpoint_test.sh WMS_BIN MAP_SERVER_BIN SOURCE_DIR
#
# Exits 77 (skipped) only when a tool is missing and cannot be installed.
set -euo pipefail
wms_bin=$(realpath "$1")
map_server_bin=$(realpath "$2")
src=$(realpath "$3")
py=/usr/bin/python3  # Debian's, which has OWSLib

have_tools() {
  command -v lighttpd >/dev/null && command -v gdal_translate >/dev/null &&
    command -v gdallocationinfo >/dev/null && command -v xmllint >/dev/null &&
    [ -x "$py" ] && "$py" -c 'import owslib' 2>/dev/null
}
PATH=$PATH:/usr/sbin
if ! have_tools; then
  bash "$src/scripts/install_deps.sh" >&2 || true
  have_tools || { echo "SKIP: lighttpd, OWSLib, GDAL or xmllint missing and not installable"; exit 77; }
fi

work=$(mktemp -d)
server_pid=""
cleanup() {
  if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
failures=0
check() {  # check DESCRIPTION COMMAND...
  local what=$1; shift
  if "$@" >"$work/check.out" 2>&1; then echo "ok: $what"; else
    echo "FAIL: $what"; sed 's/^/    /' "$work/check.out"; failures=$((failures + 1)); fi
}

# --- The dataset ---
mkdir -p "$work/data" "$work/cgi-bin" "$work/htdocs"
cp "$src/data/world_image/earth_2048x1024.jpg" "$work/data/"
"$map_server_bin" -shp2tvf -attr 18 -output "$work/data/countries.tvf" \
  "$src/data/natural_earth/ne_110m_admin_0_countries.shp" >/dev/null 2>&1
world_box="MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n"
printf "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=earth_2048x1024.jpg\nIMAGE FORMAT=JPEG\nWIDTH=2048\nHEIGHT=1024\n$world_box" \
  >"$work/data/world.lif"
printf "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=countries.tvf\nFILL TYPE=EDGE\nEDGE COLOR=1 1 0\n$world_box" \
  >"$work/data/countries.lif"
printf 'TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=countries.tvf\nFILL TYPE=FILL\nFILL COLOR=1 0 0\nATTR COND=@0=="Australia"\n%s' \
  "MIN LON=112
MAX LON=154
MIN LAT=-44
MAX LAT=-10
" >"$work/data/australia.lif"
printf 'LAYER=world world.lif\nLAYER=countries countries.lif\nLAYER=australia australia.lif\nALIAS=base, "world,countries"\n' \
  >"$work/data/set.sdf"

# --- The server ---
ln -s "$wms_bin" "$work/cgi-bin/wms"
printf '#!/bin/sh\nexec "%s" -generate -cgi -dataset "%s"\n' "$map_server_bin" "$work/data/set.sdf" >"$work/cgi-bin/native"
chmod +x "$work/cgi-bin/native"
port=$("$py" -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat >"$work/lighttpd.conf" <<EOF
server.modules = ("mod_alias", "mod_cgi", "mod_setenv")
server.document-root = "$work/htdocs"
server.bind = "127.0.0.1"
server.port = $port
server.errorlog = "$work/error.log"
alias.url = ("/cgi-bin/" => "$work/cgi-bin/")
\$HTTP["url"] =~ "^/cgi-bin/" { cgi.assign = ("" => "") }
setenv.add-environment = ("VMP_WMS_DATASET" => "$work/data/set.sdf", "ASAN_OPTIONS" => "${ASAN_OPTIONS:-}")
EOF
lighttpd -D -f "$work/lighttpd.conf" >"$work/lighttpd.out" 2>&1 &
server_pid=$!
url="http://127.0.0.1:$port/cgi-bin/wms"
native="http://127.0.0.1:$port/cgi-bin/native"
fetch() { "$py" -c 'import sys, urllib.request; sys.stdout.buffer.write(urllib.request.urlopen(sys.argv[1], timeout=60).read())' "$1"; }
for _ in $(seq 50); do fetch "$url" >/dev/null 2>&1 && break; sleep 0.2; done

# --- OWSLib: capabilities, layers, a map, in both versions ---
check "OWSLib reads the capabilities and fetches maps" "$py" - "$url" <<'EOF'
import struct, sys
from owslib.wms import WebMapService
for version in ("1.3.0", "1.1.1"):
    wms = WebMapService(sys.argv[1], version=version)
    assert list(wms.contents) == ["world", "countries", "australia", "base"], list(wms.contents)
    assert wms["countries"].queryable and not wms["world"].queryable
    assert wms["australia"].boundingBoxWGS84 == (112, -44, 154, -10), wms["australia"].boundingBoxWGS84
    assert wms.getOperationByName("GetMap").methods[0]["url"].endswith("?")
    png = wms.getmap(layers=["world", "australia"], styles=["", ""], srs="EPSG:4326",
                     bbox=(-180, -90, 180, 90), size=(300, 150), format="image/png", transparent=True).read()
    assert png[:8] == b"\x89PNG\r\n\x1a\n" and struct.unpack(">II", png[16:24]) == (300, 150), png[:200]
EOF

# --- GDAL's WMS driver: georeferenced rasters with Australia where it is ---
red_at() {  # red_at FILE LON LAT: the pixel there is pure red
  [ "$(gdallocationinfo -valonly -geoloc "$1" "$2" "$3" | head -3 | tr '\n' ' ')" = "255 0 0 " ]
}
not_red_at() { [ -f "$1" ] && ! red_at "$@"; }
for view in "VERSION=1.3.0&CRS=EPSG:4326&BBOX=-90,-180,90,180" "VERSION=1.3.0&CRS=CRS:84&BBOX=-180,-90,180,90" \
            "VERSION=1.1.1&SRS=EPSG:4326&BBOX=-180,-90,180,90"; do
  rm -f "$work/gdal.tif"
  gdal_translate -q -of GTiff -outsize 720 360 \
    "WMS:$url?SERVICE=WMS&REQUEST=GetMap&LAYERS=world,australia&FORMAT=image/png&$view" "$work/gdal.tif" 2>"$work/gdal.err" || cat "$work/gdal.err"
  check "GDAL ($view): Australia at 134E 25S" red_at "$work/gdal.tif" 134 -25
  check "GDAL ($view): not at 134E 25N" not_red_at "$work/gdal.tif" 134 25
  check "GDAL ($view): not at 150W 25S" not_red_at "$work/gdal.tif" -150 -25
done

# --- Feature info and transparency ---
gfi="$url?SERVICE=WMS&VERSION=1.3.0&REQUEST=GetFeatureInfo&LAYERS=countries&QUERY_LAYERS=countries&STYLES="
fetch "$gfi&CRS=EPSG:4326&BBOX=-90,-180,90,180&WIDTH=360&HEIGHT=180&I=314&J=115&INFO_FORMAT=text/xml" >"$work/info.xml"
check "GetFeatureInfo at 134E 25S names Australia" grep -q '<Attribute name="0" type="S">Australia</Attribute>' "$work/info.xml"
fetch "$url?SERVICE=WMS&VERSION=1.3.0&REQUEST=GetMap&LAYERS=australia&STYLES=&CRS=CRS:84&BBOX=-180,-90,180,90&WIDTH=360&HEIGHT=180&FORMAT=image/png&TRANSPARENT=TRUE" \
  >"$work/clear.png"
check "transparent PNG: Australia opaque red, the ocean clear" "$py" - "$work/clear.png" <<'EOF'
import sys
from osgeo import gdal
image = gdal.Open(sys.argv[1])
pixel = lambda x, y: [int(image.GetRasterBand(k).ReadAsArray(x, y, 1, 1)[0, 0]) for k in (1, 2, 3, 4)]
assert pixel(314, 115) == [255, 0, 0, 255], pixel(314, 115)
assert pixel(30, 115)[3] == 0, pixel(30, 115)
EOF

# --- Schemas: the capabilities and the exception reports ---
schemas="$src/tests/data/wms-1.3.0"
fetch "$url?service=WMS&request=GetCapabilities&version=1.3.0" >"$work/caps.xml"
check "capabilities valid against the WMS 1.3.0 schema" \
  xmllint --noout --nonet --schema "$schemas/capabilities_1_3_0.xsd" "$work/caps.xml"
n=0
for query in "layers=no%3Csuch%26layer&crs=EPSG:4326" "layers=world&crs=EPSG:3857" "layers=world&crs=EPSG:4326&time=2020"; do
  n=$((n + 1))
  fetch "$url?SERVICE=WMS&VERSION=1.3.0&REQUEST=GetMap&styles=&bbox=-90,-180,90,180&width=64&height=32&format=image/png&$query" \
    >"$work/exception$n.xml"
  check "exception report ($query) valid" \
    xmllint --noout --nonet --schema "$schemas/exceptions_1_3_0.xsd" "$work/exception$n.xml"
done
check "LayerNotDefined with the name escaped" grep -q 'code="LayerNotDefined".*no&lt;such&amp;layer' "$work/exception1.xml"
check "InvalidCRS" grep -q 'code="InvalidCRS"' "$work/exception2.xml"

# --- The native door, same server: its own form works, the standard form is refused ---
fetch "$native?VERSION=1.3.0&REQUEST=GetMap&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=361&HEIGHT=181&FORMAT=image/jpeg&LAYERS=world,australia" \
  >"$work/native.jpg"
check "native map: Australia at 134E 25S (pixel 314, 115)" "$py" - "$work/native.jpg" <<'EOF'
import sys
from osgeo import gdal
image = gdal.Open(sys.argv[1])
r, g, b = (int(image.GetRasterBand(k).ReadAsArray(314, 115, 1, 1)[0, 0]) for k in (1, 2, 3))
assert r > 200 and g < 60 and b < 60, (r, g, b)
EOF
fetch "$native?service=WMS&version=1.3.0&request=GetMap&layers=world&styles=&width=256&height=128&crs=EPSG%3A4326&bbox=-90%2C-180%2C90%2C180&format=image%2Fjpeg" \
  >"$work/native_refusal.xml"
check "native refuses the standard form" grep -q "ServiceExceptionReport" "$work/native_refusal.xml"

if [ "$failures" -ne 0 ]; then
  echo "--- lighttpd error log ---"; cat "$work/error.log" "$work/lighttpd.out" 2>/dev/null || true
  echo "$failures check(s) failed"; exit 1
fi
echo "all checks passed"
