#!/usr/bin/env bash
# Start-up time and memory of the daemon at its default options, on the built-in virtual device.
#
#   bench/startup.sh [RUNS] [BUILD_DIR]      (defaults: 10 runs, build/default)
#
# Each run starts acl in a fresh run directory and takes the time from the start to the line the
# daemon writes once its command socket listens ("serving"); then one aclctl call (version) must
# answer, so the figure is a daemon that serves. The resident set (VmRSS) and its peak (VmHWM) are
# read from /proc after that call, with the CPU time the daemon's threads had run when it reported
# serving (on a loaded machine the wall time is mostly waiting for a core); the daemon is stopped. Prints every run, then the minimum,
# median and maximum of each figure. Goals: under 100 ms to serve, under 16 MB resident.
set -euo pipefail
runs="${1:-10}"
build="${2:-build/default}"
cd "$(dirname "$0")/.."
acl="$build/src/main/acl"
aclctl="$build/src/client/aclctl"
for bin in "$acl" "$aclctl"; do
  [[ -x "$bin" ]] || { echo "startup.sh: $bin is not built" >&2; exit 2; }
done

work="$(mktemp -d /tmp/acl-startup-XXXXXX)"
pid=""
cleanup() {
  if [[ -n "$pid" ]] && kill -0 "$pid" 2>/dev/null; then
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

now_us() {
  local t="${EPOCHREALTIME/./}"
  echo "$t"
}
# CPU time the daemon's threads have run so far, in microseconds (the scheduler's own count).
cpu_us() {
  local sum=0 ns
  for f in /proc/"$1"/task/*/schedstat; do
    read -r ns _ <"$f" || continue
    sum=$((sum + ns))
  done
  echo $((sum / 1000))
}
kb_of() {
  awk -v k="$1:" '$1 == k { print $2 }' "/proc/$2/status"
}

ms=() cpums=() rss=() hwm=()
for ((i = 1; i <= runs; i++)); do
  run="$work/run$i"
  mkdir -p "$run"
  mkfifo "$run/err"
  start="$(now_us)"
  "$acl" --run-dir "$run" 2>"$run/err" &
  pid=$!
  served=""
  exec 3<"$run/err"
  # The daemon writes a line or two before it serves; 5 s bounds a daemon that never does.
  while IFS= read -r -t 5 line <&3; do
    if [[ "$line" == *" serving "* ]]; then
      served="$(now_us)"
      cpu="$(cpu_us "$pid")"
      break
    fi
  done
  if [[ -z "$served" ]]; then
    echo "startup.sh: run $i: the daemon did not report serving" >&2
    exit 1
  fi
  "$aclctl" --run-dir "$run" version >/dev/null
  r="$(kb_of VmRSS "$pid")"
  h="$(kb_of VmHWM "$pid")"
  kill "$pid"
  wait "$pid" 2>/dev/null || true
  exec 3<&-
  pid=""
  t=$(((served - start) / 1000))
  c=$((cpu / 1000))
  printf 'run %2d: serving after %4d ms (CPU %3d ms), VmRSS %6d kB, VmHWM %6d kB\n' \
    "$i" "$t" "$c" "$r" "$h"
  ms+=("$t") cpums+=("$c") rss+=("$r") hwm+=("$h")
done

summary() {
  local name="$1" unit="$2"
  shift 2
  printf '%s\n' "$@" | sort -n | awk -v n="$name" -v u="$unit" '
    { v[NR] = $1 }
    END { printf "%-22s min %7d  median %7d  max %7d %s\n", n, v[1], v[int((NR + 1) / 2)], v[NR], u }'
}
echo "over $runs runs:"
summary "start to serving" ms "${ms[@]}"
summary "CPU to serving" ms "${cpums[@]}"
summary "resident (VmRSS)" kB "${rss[@]}"
summary "peak resident (VmHWM)" kB "${hwm[@]}"
