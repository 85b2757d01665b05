#!/usr/bin/env bash
# The main job, run under tools/pgserver.sh by "make demo": creates a
# database with the extension and runs each step of tools/demo.d in order.
set -euo pipefail
cd "$(dirname "$0")/.."
export DOC_BUILD=${DOC_BUILD:-build}
createdb demo
export PGDATABASE=demo
psql -X -q -c "CREATE EXTENSION document"
for step in tools/demo.d/*.sh; do
    echo
    echo "=== $(sed -n 's/^# demo: //p' "$step" | head -1)"
    bash "$step"
done
echo
echo "=== demo finished"
