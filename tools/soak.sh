#!/usr/bin/env bash
# Long runs of the crash and concurrency tests (not part of make check):
#
#   tools/soak.sh [CYCLES] [ROUNDS] [SECONDS]
#       (defaults 40 crash cycles, 150 rounds, 300 seconds)
#
# Installs the build (under the install lock), then runs
# tests/e2e/crash_insert.sh with CYCLES kills at random moments of a
# loading script, tests/e2e/concurrent_insert.sh with 8 sessions of
# ROUNDS rounds each, tests/e2e/lo_concurrency.sh for SECONDS seconds,
# tests/e2e/lo_many.sh with 60,000 documents and the default lock table,
# and tests/e2e/dtree_crash.sh with CYCLES crashes of sessions writing
# through a dtree index, every one against its own private server.  Results
# are appended to bench/results/soak.txt.
set -uo pipefail
cd "$(dirname "$0")/.."
BUILD=${BUILD:-build}
cycles=${1:-40}
rounds=${2:-150}
seconds=${3:-300}
out=bench/results/soak.txt
mkdir -p bench/results
make --no-print-directory build >/dev/null || exit 1
log=$(mktemp /tmp/docsoak.XXXXXX)
rc=0
flock /tmp/document-install.lock bash -c "
    CMAKE_INSTALL_ALWAYS=1 cmake --install '$BUILD' >/dev/null || exit 1
    s=\$(date +%s)
    DOC_BUILD='$BUILD' CRASH_CYCLES=$cycles CRASH_MAX_DELAY=300 tools/pgserver.sh bash tests/e2e/crash_insert.sh >'$log.crash' 2>&1; c=\$?
    m=\$(date +%s)
    DOC_BUILD='$BUILD' WORKERS=8 ROUNDS=$rounds tools/pgserver.sh bash tests/e2e/concurrent_insert.sh >'$log.conc' 2>&1; k=\$?
    e=\$(date +%s)
    DOC_BUILD='$BUILD' DURATION=$seconds tools/pgserver.sh bash tests/e2e/lo_concurrency.sh >'$log.lo' 2>&1; l=\$?
    DOC_BUILD='$BUILD' LO_MANY=60000 LO_LOCKS=64 tools/pgserver.sh bash tests/e2e/lo_many.sh >>'$log.lo' 2>&1; n=\$?
    f=\$(date +%s)
    DOC_BUILD='$BUILD' DTREE_CRASH_CYCLES=$cycles tools/pgserver.sh bash tests/e2e/dtree_crash.sh >'$log.dtree' 2>&1; x=\$?
    g=\$(date +%s)
    echo \"crash: \$c \$((m - s)) s; concurrency: \$k \$((e - m)) s; large objects: \$l/\$n \$((f - e)) s; dtree crash: \$x \$((g - f)) s\" >'$log'
    [ \$c = 0 ] && [ \$k = 0 ] && [ \$l = 0 ] && [ \$n = 0 ] && [ \$x = 0 ]" || rc=1
{
    echo "== $(date -u +%Y-%m-%dT%H:%MZ) soak: $cycles crash cycles, 8 sessions x $rounds rounds ($(git rev-parse --short HEAD))"
    cat "$log"
    grep -E '^FAIL|checks,' "$log.crash" | sed 's/^/crash: /'
    grep -E 'cycle .*acknowledged' "$log.crash" | sed 's/^/crash: /'
    grep -E '^FAIL|checks,|sessions done|rows:|refused' "$log.conc" | sed 's/^/concurrency: /'
    grep -E '^FAIL|checks,|^after' "$log.lo" | sed 's/^/large objects: /'
    grep -E '^FAIL|checks,' "$log.dtree" | sed 's/^/dtree crash: /'
} | tee -a "$out"
rm -f "$log" "$log.crash" "$log.conc" "$log.lo" "$log.dtree"
exit $rc
