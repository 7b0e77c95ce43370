#!/usr/bin/env bash
# The web deployment end to end: scripts/serve.sh serves a freshly built
# sample dataset through lighttpd on a free loopback port, and headless
# Chromium, driven by playwright-core (browser_check.mjs), uses the page.
# The final screenshot goes to docs/web.png.
#
#   browser_test.sh BIN_DIR WORK_DIR
#
# Exits 77 (skipped) only when a tool is missing and cannot be installed.
set -euo pipefail
bin_dir=$(realpath "$1")
work=$2
src=$(cd "$(dirname "$0")/../.." && pwd)
PATH=$PATH:/usr/sbin

have_tools() {
  command -v lighttpd && command -v node && command -v npm && [ -x /usr/bin/chromium ]
} >/dev/null
if ! have_tools; then
  bash "$src/scripts/install_deps.sh" >&2 || true
  have_tools || { echo "SKIP: lighttpd, Node.js, npm or Chromium missing and not installable"; exit 77; }
fi
web=$src/web
if [ ! -f "$web/node_modules/.package-lock.json" ] || [ "$web/package-lock.json" -nt "$web/node_modules/.package-lock.json" ]; then
  (cd "$web" && npm ci --no-audit --no-fund --loglevel=error) || { echo "SKIP: the npm packages cannot be installed"; exit 77; }
fi

rm -rf "$work"
mkdir -p "$work"
export VMP_SERVE_DIR="$work/serve" VMP_BIN_DIR="$bin_dir" VMP_SERVE_DATASET="$work/sample/world.sdf"
cleanup() { bash "$src/scripts/serve.sh" stop >/dev/null || true; }
trap cleanup EXIT
MAP_SERVER="$bin_dir/map_server" bash "$src/scripts/build_sample_dataset.sh" "$work/sample" >/dev/null
port=$(node -e 'const s = require("net").createServer().listen(0, "127.0.0.1", () => { console.log(s.address().port); s.close(); })')
bash "$src/scripts/serve.sh" start "$port"

if timeout 120 node "$src/tests/web/browser_check.mjs" "http://127.0.0.1:$port/" "$work/web.png" "$web" "$work/profile"; then
  cp "$work/web.png" "$src/docs/web.png" || echo "note: docs/web.png not updated (read-only tree?)"
else
  echo "--- lighttpd error log and the programs' messages ---"
  tail -n 30 "$work/serve/error.log" "$work/serve/cgi.log" || true
  exit 1
fi
