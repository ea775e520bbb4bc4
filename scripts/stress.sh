#!/usr/bin/env bash
# Stress run: scripts/stress.sh SECONDS [default|tsan|asan]
# Builds acl, aclctl and acl_stress with the preset, starts acl on the built-in virtual device in a
# private run directory, runs acl_stress against it for SECONDS (8 clients, device events and
# faults, audits every ACL_STRESS_AUDIT_EVERY seconds, default 5), stops the daemon and exits 0
# only when every check passed: the stress checks, the daemon alive to the end and stopping
# cleanly, and no sanitizer report from either program. The run directory (daemon log, sanitizer
# logs) is kept when the run failed. The daemon runs with dynamic binding on (rules of bound lists
# change in place, the busiest install path); ACL_STRESS_OPTS replaces its --opt settings.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-}"
preset="${2:-default}"
if ! [[ "$seconds" =~ ^[0-9]+$ ]] || [ "$seconds" -eq 0 ]; then
  echo "usage: scripts/stress.sh SECONDS [default|tsan|asan]" >&2
  exit 2
fi
case "$preset" in default | tsan | asan) ;; *)
  echo "stress: unknown preset '$preset' (default, tsan or asan)" >&2
  exit 2
  ;;
esac

bash scripts/build.sh "$preset" acl aclctl acl_stress
bin="build/$preset"
run_dir="$(mktemp -d /tmp/acl-stress.XXXXXX)"
# Sanitizer reports go to files in the run directory, one per process, and are counted at the end.
export TSAN_OPTIONS="halt_on_error=0 second_deadlock_stack=1 log_path=$run_dir/tsan"
export ASAN_OPTIONS="detect_leaks=1 log_path=$run_dir/asan"
export UBSAN_OPTIONS="print_stacktrace=1 log_path=$run_dir/ubsan"

started=$(date +%s)
opts=()
for o in ${ACL_STRESS_OPTS-acl.dynamicbindenable=true}; do opts+=(--opt "$o"); done
"$bin/src/main/acl" --run-dir "$run_dir" --log-file "$run_dir/acl.log" "${opts[@]}" \
  2>"$run_dir/acl.stderr" &
pid=$!
cleanup() {
  if kill -0 "$pid" 2>/dev/null; then kill -KILL "$pid" 2>/dev/null || true; fi
}
trap cleanup EXIT

# Up, and its line cards learned from the device's replay.
ctl=("$bin/src/client/aclctl" --run-dir "$run_dir")
for _ in $(seq 1 300); do
  if "${ctl[@]}" slot show 1/2 >/dev/null 2>&1; then break; fi
  if ! kill -0 "$pid" 2>/dev/null; then break; fi
  sleep 0.1
done
if ! "${ctl[@]}" slot show 1/2 >/dev/null 2>&1; then
  echo "stress: the daemon did not come up; see $run_dir" >&2
  exit 1
fi

status=0
"$bin/src/client/stress/acl_stress" --run-dir "$run_dir" --seconds "$seconds" --pid "$pid" \
  --audit-every "${ACL_STRESS_AUDIT_EVERY:-5}" ${ACL_STRESS_SEED:+--seed "$ACL_STRESS_SEED"} \
  ${ACL_STRESS_ARGS:-} ||
  status=1

if ! kill -0 "$pid" 2>/dev/null; then
  echo "stress: FAIL the daemon is gone" >&2
  status=1
else
  kill -TERM "$pid"
  daemon_status=0
  wait "$pid" || daemon_status=$?
  # Stopped by the signal (128 + 15) or by its own handler (0).
  if [ "$daemon_status" -ne 0 ] && [ "$daemon_status" -ne 143 ]; then
    echo "stress: FAIL the daemon exited with status $daemon_status on SIGTERM" >&2
    status=1
  fi
fi
trap - EXIT

reports=$(grep -l -E "ThreadSanitizer|AddressSanitizer|LeakSanitizer|runtime error" \
  "$run_dir"/tsan* "$run_dir"/asan* "$run_dir"/ubsan* "$run_dir/acl.stderr" 2>/dev/null || true)
if [ -n "$reports" ]; then
  echo "stress: FAIL sanitizer reports:" >&2
  for f in $reports; do
    echo "--- $f" >&2
    grep -E "^(WARNING|ERROR|SUMMARY)|runtime error" "$f" | head -20 >&2
  done
  status=1
fi

echo "stress: $preset build, ${seconds} s asked, $(($(date +%s) - started)) s wall clock"
if [ "$status" -eq 0 ]; then
  rm -rf "$run_dir"
else
  echo "stress: run directory kept: $run_dir" >&2
fi
exit "$status"
