#!/usr/bin/env bash
# Configuration restore speed: aclctl load of 10000 IPv4 rules in 100 lists, each list bound to
# one of 100 interfaces, into a fresh daemon on a device with 100 ports on four line cards.
# Prints the time of the load and the rules per second; also the time of aclctl save and of a
# second load (which finds everything in place). Not a test: nothing here fails on a slow machine.
#   bench/load_config.sh [BUILD_DIR]   (default build/default)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/default}"
lists=100
rules=100
work=$(mktemp -d /tmp/acl-bench-XXXXXX)
pid=""
cleanup() {
  [ -n "$pid" ] && kill "$pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# The device: four 25-port cards whose IPv4 ingress capacity holds 25 lists of 100 rules.
{
  printf '{"self": {"system": 1, "slot": 1},\n "systems": [{"index": 1, "slots": [\n'
  printf '  {"slot": 1, "card": {"type": 1, "name": "MCU-1"}}'
  for s in 2 3 4 5; do
    printf ',\n  {"slot": %d, "card": {"type": 2, "name": "GE25-%d", "options": {"acl.maxipv4inrulenumperslot": "4096"}}}' "$s" "$s"
  done
  printf ']}],\n "interfaces": ['
  for ((i = 0; i < lists; i++)); do
    slot=$((2 + i / 25)); port=$((1 + i % 25))
    [ "$i" -gt 0 ] && printf ','
    printf '\n  {"index": %d, "name": "ge-1/%d/%d", "system": 1, "slot": %d, "port": %d}' \
      $((1000 + i)) "$slot" "$port" "$slot" "$port"
  done
  printf ']}\n'
} >"$work/device.json"

# The document: list 1001+i bound to interface 1000+i for ingress.
{
  printf '{"version": 1, "lists": ['
  for ((l = 0; l < lists; l++)); do
    [ "$l" -gt 0 ] && printf ','
    printf '\n {"list": %d, "rules": [' $((1001 + l))
    for ((r = 1; r <= rules; r++)); do
      [ "$r" -gt 1 ] && printf ','
      printf '{"rule": %d, "fields": {"src": "10.%d.%d.0/24", "protocol": "tcp", "dport": "%d"}, "actions": [{"name": "%s"}]}' \
        "$r" "$l" "$r" $((1000 + r)) "$([ $((r % 2)) -eq 0 ] && echo permit || echo deny)"
    done
    printf ']}'
  done
  printf '],\n "interfaces": ['
  for ((l = 0; l < lists; l++)); do
    [ "$l" -gt 0 ] && printf ','
    printf '\n {"ifindex": %d, "slots": {"inIpv4Acl": %d}}' $((1000 + l)) $((1001 + l))
  done
  printf ']}\n'
} >"$work/config.json"

"$build/src/main/acl" --run-dir "$work/run" --log-file "$work/acl.log" --device "$work/device.json" \
  --opt acl.maxlstnum=128 --opt acl.maxrulenum=128 --opt acl.maxgrulenum=16384 \
  --opt acl.maxifnum=128 --opt acl.maxipv4rulenum=16384 &
pid=$!
A=("$build/src/client/aclctl" --run-dir "$work/run")
for _ in $(seq 100); do
  "${A[@]}" slot show 1/5 >/dev/null 2>&1 && break
  sleep 0.1
done

total=$((lists * rules))
t0=$(date +%s.%N)
"${A[@]}" load "$work/config.json"
t1=$(date +%s.%N)
"${A[@]}" save "$work/saved.json"
t2=$(date +%s.%N)
"${A[@]}" load "$work/saved.json"
t3=$(date +%s.%N)
"${A[@]}" audit >/dev/null && audit=clean || audit="NOT clean"
awk -v n="$total" -v a="$t0" -v b="$t1" -v c="$t2" -v d="$t3" -v au="$audit" 'BEGIN {
  printf "load of %d rules in %d lists on %d interfaces: %.2f s, %.0f rules/s\n", n, n / 100, 100, b - a, n / (b - a)
  printf "save: %.2f s; second load (nothing to change): %.2f s; audit %s\n", c - b, d - c, au }'
