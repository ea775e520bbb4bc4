#!/usr/bin/env bash
# Mutation check: flips chosen conditions and constants in src/ one at a time and checks that the
# tests notice.
#
#   scripts/mutation.sh [--tree DIR] [--list FILE] [--only N[,N...]] [--timeout S] [--check]
#
# --tree   the worktree to mutate and test (default: the repository this script lives in); its
#          build/default must have been configured and built once (scripts/build.sh default).
# --list   the mutation list (default: mutations.txt beside this script).
# --only   run only these mutations (their numbers, as printed).
# --timeout  per-test time limit in seconds (default 60): a hang counts as caught.
# --check  only check that every entry's text is found exactly once, change nothing.
#
# List lines: FILE @@ TEXT @@ REPLACEMENT @@ CTEST-REGEX. FILE is relative to the tree; TEXT must
# occur exactly once in FILE (on one line). The regex names the tests expected to catch it: they
# are built and run first; if none fails, the whole suite is built and run. Blank lines and lines
# starting with # are skipped.
#
# Prints one row per mutation (caught by which test, or missed) and exits 1 if any is missed, its
# text is not found exactly once, or it does not compile. The mutated file is always restored,
# also on Ctrl-C; it is rewritten (new mtime) so the next build recompiles it.
set -uo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
tree="$(cd "$here/.." && pwd)"
list="$here/mutations.txt"
only=""
timeout=60
check_only=0
while [ $# -gt 0 ]; do
  case "$1" in
    --tree) tree="$(cd "$2" && pwd)" || exit 2; shift 2 ;;
    --list) list="$2"; shift 2 ;;
    --only) only=",$2,"; shift 2 ;;
    --timeout) timeout="$2"; shift 2 ;;
    --check) check_only=1; shift ;;
    -h|--help) sed -n '2,20p' "$0"; exit 0 ;;
    *) echo "mutation.sh: unknown argument '$1'" >&2; exit 2 ;;
  esac
done
build="$tree/build/default"
if [ ! -f "$build/CTestTestfile.cmake" ]; then
  echo "mutation.sh: $build is not built; run scripts/build.sh default in $tree first" >&2
  exit 2
fi
[ -f "$list" ] || { echo "mutation.sh: no list $list" >&2; exit 2; }

work="$(mktemp -d)"
mutated=""   # the file currently mutated, restored from $work/orig
restore() {
  if [ -n "$mutated" ]; then
    cat "$work/orig" >"$mutated"
    mutated=""
  fi
}
trap 'restore; rm -rf "$work"' EXIT
trap 'echo "mutation.sh: interrupted, source restored" >&2; exit 130' INT TERM

# Replaces TEXT by REPLACEMENT in FILE (or, with check, only counts): fails unless exactly once.
subst() {  # mode file text replacement
  python3 - "$@" <<'EOF'
import sys
mode, path, old, new = sys.argv[1:5]
src = open(path, encoding="utf-8").read()
n = src.count(old)
if n != 1:
    sys.stderr.write(f"mutation.sh: '{old}' occurs {n} times in {path}, expected once\n")
    sys.exit(1)
if mode == "apply":
    open(path, "w", encoding="utf-8").write(src.replace(old, new))
EOF
}

# The test executables (build targets) whose tests match a ctest regex.
targets_of() {
  ctest --test-dir "$build" -N -R "$1" --show-only=json-v1 2>/dev/null | python3 -c '
import json, os, sys
names = set()
for t in json.load(sys.stdin).get("tests", []):
    cmd = t.get("command") or []
    if cmd:
        names.add(os.path.basename(cmd[0]))
print(" ".join(sorted(names)))'
}

# Runs ctest with the given selection, stops at the first failure; prints the failing test's name.
first_failure() {
  local out="$work/ctest.log"
  nice -n 10 ctest --test-dir "$build" --stop-on-failure --timeout "$timeout" -j 2 "$@" >"$out" 2>&1
  # ctest lists failures as "  12 - Suite.Case (Failed)"; a test that crashed or timed out too.
  sed -n 's/^[[:space:]]*[0-9]\{1,\} - \([^ ]*\) (.*)$/\1/p' "$out" | head -1
}

# Read the list: fields split on " @@ ".
mapfile -t lines < <(grep -v -e '^[[:space:]]*#' -e '^[[:space:]]*$' "$list")
count=${#lines[@]}
# Check every entry before touching anything.
bad=0
for i in "${!lines[@]}"; do
  IFS=$'\x1f' read -r file text repl regex <<<"${lines[$i]// @@ /$'\x1f'}"
  if [ -z "${regex:-}" ]; then
    echo "mutation.sh: entry $((i + 1)) does not have four fields: ${lines[$i]}" >&2
    bad=1
    continue
  fi
  [ -f "$tree/$file" ] || { echo "mutation.sh: entry $((i + 1)): no file $tree/$file" >&2; bad=1; continue; }
  subst check "$tree/$file" "$text" "$repl" || bad=1
done
[ "$bad" = 0 ] || exit 1
if [ "$check_only" = 1 ]; then
  echo "mutation.sh: all $count entries found exactly once"
  exit 0
fi

missed=0
caught=0
printf '| # | File | Mutation | Result | Caught by |\n|---|---|---|---|---|\n'
for i in "${!lines[@]}"; do
  n=$((i + 1))
  if [ -n "$only" ] && [[ "$only" != *",$n,"* ]]; then continue; fi
  IFS=$'\x1f' read -r file text repl regex <<<"${lines[$i]// @@ /$'\x1f'}"
  cp "$tree/$file" "$work/orig"
  mutated="$tree/$file"
  subst apply "$tree/$file" "$text" "$repl" || { restore; missed=$((missed + 1)); continue; }
  result="missed"
  by=""
  targets="$(targets_of "$regex")"
  if [ -z "$targets" ]; then
    echo "mutation.sh: entry $n: no test matches '$regex'" >&2
  elif ! nice -n 10 cmake --build "$build" --target $targets >"$work/build.log" 2>&1; then
    result="no build"
    tail -5 "$work/build.log" >&2
  else
    by="$(first_failure -R "$regex")"
  fi
  if [ "$result" != "no build" ] && [ -z "$by" ]; then
    # The hint missed: everything is built and the whole suite runs.
    if nice -n 10 cmake --build "$build" >"$work/build.log" 2>&1; then
      by="$(first_failure -LE fuzz)"
      [ -n "$by" ] && by="$by (whole suite)"
    else
      result="no build"
      tail -5 "$work/build.log" >&2
    fi
  fi
  restore
  if [ -n "$by" ]; then
    result="caught"
    caught=$((caught + 1))
  else
    missed=$((missed + 1))
  fi
  printf '| %d | %s | `%s` → `%s` | %s | %s |\n' "$n" "$file" "${text//|/\\|}" "${repl//|/\\|}" \
    "$result" "$by"
done
echo
echo "caught $caught, missed or broken $missed, of $count listed"
[ "$missed" = 0 ]
