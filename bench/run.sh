#!/usr/bin/env bash
# Runs every benchmark (bench/*_bench.sh) against the private server that
# tools/pgserver.sh started; each writes its figures to bench/results/.
#   tools/pgserver.sh bench/run.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
export DOC_BUILD=${1:-build}
mkdir -p bench/results
for b in bench/*_bench.sh; do
    [ -e "$b" ] || continue
    echo "== $(basename "$b" .sh)"
    bash "$b"
done
