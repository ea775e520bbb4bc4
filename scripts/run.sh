#!/usr/bin/env bash
# Builds acl and runs it in the foreground on the built-in virtual device. Arguments go to acl,
# e.g. scripts/run.sh --run-dir /tmp/acl1 --opt acl.maxlstnum=128
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh default
exec ./build/default/src/main/acl "$@"
