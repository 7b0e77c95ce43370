#!/usr/bin/env bash
# Serves the sample world on the loopback address through lighttpd: the web
# page, the standard WMS endpoint (/cgi-bin/wms) and the native map server
# (/cgi-bin/map_server, answering with -generate -cgi). Builds what is
# missing first: the programs, the sample dataset and the page's bundle.
#
#   scripts/serve.sh [port]          serve in the foreground until Ctrl-C (port 8080)
#   scripts/serve.sh start [port]    serve in the background; returns once it answers
#   scripts/serve.sh stop            stop the server started by either form
#
# Environment (all optional):
#   VMP_SERVE_DIR      configuration, page, logs and pid file   (out/web)
#   VMP_BIN_DIR        where map_server and wms are            (build/bin, built when missing)
#   VMP_SERVE_DATASET  the dataset info file served            (out/sample/world.sdf, built when missing)
#   ASAN_OPTIONS, UBSAN_OPTIONS are handed on to the CGI programs.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
PATH=$PATH:/usr/sbin:/sbin

die() { echo "serve: $*" >&2; exit 1; }
usage() { sed -n '6,9p' "$0" | sed 's/^# *//' >&2; exit 2; }

mode=run
case "${1:-}" in
  start | stop) mode=$1; shift ;;
  -h | --help) usage ;;
esac
port=${1:-8080}
[ "$#" -le 1 ] || usage
[[ "$port" =~ ^[0-9]+$ ]] && [ "$port" -ge 1 ] && [ "$port" -le 65535 ] || die "not a port number: $port"

mkdir -p "${VMP_SERVE_DIR:-$root/out/web}"
serve_dir=$(cd "${VMP_SERVE_DIR:-$root/out/web}" && pwd)
conf=$serve_dir/lighttpd.conf
pid_file=$serve_dir/lighttpd.pid

# The pid of the server started from this directory, if it still runs.
running_pid() {
  [ -f "$pid_file" ] || return 1
  local pid
  pid=$(cat "$pid_file" 2>/dev/null) || return 1
  [[ "$pid" =~ ^[0-9]+$ ]] || return 1
  # Only a lighttpd running on this configuration counts (pids are reused).
  tr '\0' ' ' <"/proc/$pid/cmdline" 2>/dev/null | grep -qF -- "$conf" || return 1
  echo "$pid"
}

stop_server() {
  local pid
  if ! pid=$(running_pid); then
    rm -f "$pid_file"
    echo "serve: no server running from $serve_dir"
    return 0
  fi
  kill -TERM "$pid" 2>/dev/null || true
  for _ in $(seq 50); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  if kill -0 "$pid" 2>/dev/null; then die "lighttpd (pid $pid) did not stop"; fi
  rm -f "$pid_file"
  echo "serve: stopped (pid $pid)"
}

if [ "$mode" = stop ]; then
  stop_server
  exit 0
fi
if pid=$(running_pid); then
  die "already serving from $serve_dir (pid $pid); stop it first: scripts/serve.sh stop"
fi

# --- Tools: lighttpd for serving, Node.js and npm for bundling the page.
if ! command -v lighttpd >/dev/null || ! command -v npm >/dev/null; then
  bash "$root/scripts/install_deps.sh"
  command -v lighttpd >/dev/null || die "lighttpd is missing (scripts/install_deps.sh installs it)"
  command -v npm >/dev/null || die "npm is missing (scripts/install_deps.sh installs it)"
fi

# --- Programs.
if [ -n "${VMP_BIN_DIR:-}" ]; then
  bin_dir=$(cd "$VMP_BIN_DIR" && pwd)
else
  # Brings build/ up to date (quick when it is).
  if ! bash "$root/scripts/build.sh" release map_server wms >"$serve_dir/build.log" 2>&1; then
    tail -n 30 "$serve_dir/build.log" >&2
    die "the build failed (log: $serve_dir/build.log)"
  fi
  bin_dir=$root/build/bin
fi
for program in map_server wms; do
  [ -x "$bin_dir/$program" ] || die "$bin_dir/$program is not built"
done

# --- Dataset.
if [ -n "${VMP_SERVE_DATASET:-}" ]; then
  [ -f "$VMP_SERVE_DATASET" ] || die "dataset info file not found: $VMP_SERVE_DATASET"
  dataset=$(cd "$(dirname "$VMP_SERVE_DATASET")" && pwd)/$(basename "$VMP_SERVE_DATASET")
else
  dataset=$root/out/sample/world.sdf
  if [ ! -f "$dataset" ] || [ "$root/scripts/build_sample_dataset.sh" -nt "$dataset" ]; then
    MAP_SERVER="$bin_dir/map_server" bash "$root/scripts/build_sample_dataset.sh" "$root/out/sample"
  fi
fi

# --- The page: OpenLayers and the page's code bundled into static files.
web=$root/web
if [ ! -f "$web/node_modules/.package-lock.json" ] ||
   [ "$web/package-lock.json" -nt "$web/node_modules/.package-lock.json" ] ||
   [ "$web/package.json" -nt "$web/node_modules/.package-lock.json" ]; then
  (cd "$web" && npm ci --no-audit --no-fund --loglevel=error) || die "npm ci failed in $web"
fi
node "$web/build.mjs" "$serve_dir/htdocs" >/dev/null || die "the page could not be bundled"

# --- CGI programs and the configuration.
for path in "$serve_dir" "$bin_dir" "$dataset"; do
  case "$path" in *'"'* | *$'\n'* | *"'"*) die "paths with quotes are not supported: $path" ;; esac
done
mkdir -p "$serve_dir/cgi-bin"
ln -sfn "$bin_dir/wms" "$serve_dir/cgi-bin/wms"
cat >"$serve_dir/cgi-bin/map_server" <<EOF
#!/bin/sh
# The native front door: one request from QUERY_STRING per run.
exec '$bin_dir/map_server' -generate -cgi -dataset '$dataset'
EOF
chmod +x "$serve_dir/cgi-bin/map_server"

environment="\"VMP_WMS_DATASET\" => \"$dataset\""
for name in ASAN_OPTIONS UBSAN_OPTIONS; do
  if [ -n "${!name:-}" ]; then environment+=", \"$name\" => \"${!name}\""; fi
done
cat >"$conf" <<EOF
# Written by scripts/serve.sh; rewritten at every start.
server.modules = ("mod_alias", "mod_cgi", "mod_setenv", "mod_accesslog")
server.document-root = "$serve_dir/htdocs"
server.bind = "127.0.0.1"
server.port = $port
server.pid-file = "$pid_file"
server.errorlog = "$serve_dir/error.log"
# What the CGI programs write to standard error: their messages.
server.breakagelog = "$serve_dir/cgi.log"
accesslog.filename = "$serve_dir/access.log"
index-file.names = ("index.html")
mimetype.assign = (
  ".html" => "text/html; charset=utf-8", ".js" => "text/javascript; charset=utf-8",
  ".css" => "text/css; charset=utf-8", ".map" => "application/json", ".png" => "image/png",
  ".jpg" => "image/jpeg", ".svg" => "image/svg+xml", ".xml" => "text/xml"
)
alias.url = ("/cgi-bin/" => "$serve_dir/cgi-bin/")
\$HTTP["url"] =~ "^/cgi-bin/" { cgi.assign = ("" => "") }
setenv.add-environment = ($environment)
EOF
# Another server answering on the port would pass for this one below.
if timeout 2 bash -c 'exec 3<>"/dev/tcp/127.0.0.1/$1"' _ "$port" 2>/dev/null; then
  die "port $port on 127.0.0.1 is in use; give another port number"
fi
lighttpd -tt -f "$conf" >"$serve_dir/lighttpd.out" 2>&1 || {
  cat "$serve_dir/lighttpd.out" >&2
  die "lighttpd refused the configuration $conf"
}

# True once the standard endpoint answers its capabilities through the server.
answering() {
  local status
  status=$(timeout 10 bash -c '
    exec 3<>"/dev/tcp/127.0.0.1/$1" || exit 1
    printf "GET /cgi-bin/wms?SERVICE=WMS&REQUEST=GetCapabilities HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n" >&3
    head -n 1 <&3' _ "$port" 2>/dev/null) || return 1
  [[ "$status" == HTTP/1.?" 200"* ]]
}
wait_until_answering() {  # wait_until_answering PID_OF_A_RUNNING_PROCESS_TO_WATCH
  for _ in $(seq 100); do
    answering && return 0
    kill -0 "$1" 2>/dev/null || return 1
    sleep 0.1
  done
  return 1
}
report_start_failure() {
  echo "serve: lighttpd did not start on 127.0.0.1:$port" >&2
  tail -q -n 3 "$serve_dir/lighttpd.out" "$serve_dir/error.log" >&2 2>/dev/null || true
  exit 1
}
announce() {
  cat <<EOF
Serving the sample world (dataset $dataset):
  page                   http://127.0.0.1:$port/
  standard WMS endpoint  http://127.0.0.1:$port/cgi-bin/wms?SERVICE=WMS&REQUEST=GetCapabilities
  native map server      http://127.0.0.1:$port/cgi-bin/map_server?VERSION=1.3.0&REQUEST=GetCapabilities
Logs in $serve_dir ($1).
EOF
}

if [ "$mode" = start ]; then
  lighttpd -f "$conf" >"$serve_dir/lighttpd.out" 2>&1 || report_start_failure
  for _ in $(seq 50); do running_pid >/dev/null && break; sleep 0.1; done
  pid=$(running_pid) || report_start_failure
  wait_until_answering "$pid" || { stop_server >/dev/null; report_start_failure; }
  announce "stop with: scripts/serve.sh stop"
  exit 0
fi

# Foreground: lighttpd runs as a child so that Ctrl-C (or a stop from
# elsewhere) ends both cleanly.
lighttpd -D -f "$conf" >"$serve_dir/lighttpd.out" 2>&1 &
pid=$!
on_signal() {
  kill -TERM "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  rm -f "$pid_file"
  echo
  echo "serve: stopped"
  exit 0
}
trap on_signal INT TERM
wait_until_answering "$pid" || { kill -TERM "$pid" 2>/dev/null || true; report_start_failure; }
announce "Ctrl-C stops"
status=0
wait "$pid" || status=$?
rm -f "$pid_file"
echo "serve: lighttpd ended (status $status)"
exit "$status"
