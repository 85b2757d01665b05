#!/usr/bin/env bash
# Runs every test and ends with one line: "N passed, N failed".
#   unit  GoogleTest suites of the core (each test counts once)
#   sql   regression suites tests/sql/sql/*.sql against tests/sql/expected/,
#         run by pg_regress against a private server (each suite counts once)
#   check tools/check-boundary.py: the C++/server boundary rules (counts once)
#   iso   isolation specs tests/isolation/specs/*.spec against expected/*.out,
#         run by the server's isolation tester (each spec counts once)
#   e2e   tests/e2e/*.sh, each run against its own private server
#         (each script counts once; a script prints its own checks)
set -uo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
PGBIN=${PGBIN:-/usr/lib/postgresql/15/bin}
REGRESS=$(dirname "$($PGBIN/pg_config --pgxs)")/../test/regress/pg_regress
out=$(mktemp -d /tmp/doctests.XXXXXX)
chmod 777 "$out"
passed=0
failed=0
failures=()

# ---- unit tests -------------------------------------------------------------
echo "== unit tests"
"$BUILD/core_tests" --gtest_brief=1 >"$out/unit.log" 2>&1
urc=$?
u_pass=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) test.*/\1/p' "$out/unit.log" | tail -1)
u_fail=$(sed -n 's/^\[  FAILED  \] \([0-9]*\) test.*/\1/p' "$out/unit.log" | tail -1)
u_pass=${u_pass:-0}; u_fail=${u_fail:-0}
if [ $urc -ne 0 ] && [ "$u_fail" = 0 ]; then u_fail=1; fi
grep -E '^\[  FAILED  \]|Failure|error' "$out/unit.log" | head -40
echo "unit: $u_pass passed, $u_fail failed"
passed=$((passed + u_pass)); failed=$((failed + u_fail))
[ "$u_fail" != 0 ] && failures+=("unit tests (see $out/unit.log)")

# ---- static checks -------------------------------------------------------------
# The C++/server boundary rules (pg/server/boundary.h) that the compiler cannot see.
echo "== boundary check"
if python3 tools/check-boundary.py --self-test >"$out/boundary.log" 2>&1 &&
   python3 tools/check-boundary.py >>"$out/boundary.log" 2>&1; then
    passed=$((passed + 1)); echo "ok boundary check"
else
    failed=$((failed + 1)); echo "FAILED boundary check"; cat "$out/boundary.log"
    failures+=("boundary check (see $out/boundary.log)")
fi

# ---- SQL regression suites ---------------------------------------------------
suites=$(cd tests/sql/sql && ls *.sql 2>/dev/null | sed 's/\.sql$//' | sort)
if [ -n "$suites" ]; then
    echo "== SQL suites"
    cp -r tests/sql "$out/sqlin"
    chmod -R a+rwX "$out"
    tools/pgserver.sh "$REGRESS" --inputdir="$out/sqlin" --outputdir="$out/sqlout" \
        --bindir="$PGBIN" --dbname=doc_regress --user=postgres --load-extension=document $suites >"$out/sql.log" 2>&1
    cat "$out/sql.log" | grep -E '^(ok|not ok|test |     [a-z]| +[0-9]+ of|All|#)' | sed 's/^/  /'
    s_pass=$(grep -cE '^(ok |test .* \.\.\. ok)' "$out/sql.log")
    s_fail=$(grep -cE '^(not ok |test .* \.\.\. FAILED)' "$out/sql.log")
    total=$(echo $suites | wc -w)
    if [ $((s_pass + s_fail)) -lt "$total" ]; then s_fail=$((total - s_pass)); fi
    echo "sql: $s_pass passed, $s_fail failed"
    passed=$((passed + s_pass)); failed=$((failed + s_fail))
    if [ "$s_fail" != 0 ]; then
        failures+=("SQL suites (diffs: $out/sqlout/regression.diffs)")
        [ -f "$out/sqlout/regression.diffs" ] && head -100 "$out/sqlout/regression.diffs"
    fi
fi

# ---- isolation specs ------------------------------------------------------------
# Concurrent sessions (tests/isolation/specs/*.spec against expected/*.out),
# run by the server's isolation tester against a private server.
ISOLATION=$(dirname "$($PGBIN/pg_config --pgxs)")/../test/isolation/pg_isolation_regress
specs=$(cd tests/isolation/specs 2>/dev/null && ls *.spec 2>/dev/null | sed 's/\.spec$//' | sort)
if [ -n "$specs" ]; then
    echo "== isolation specs"
    cp -r tests/isolation "$out/isoin"
    chmod -R a+rwX "$out"
    tools/pgserver.sh "$ISOLATION" --inputdir="$out/isoin" --outputdir="$out/isoout" \
        --bindir="$PGBIN" --dbname=doc_isolation --user=postgres --load-extension=document $specs >"$out/iso.log" 2>&1
    grep -E '^(ok|not ok|test |     [a-z]| +[0-9]+ of|All|#)' "$out/iso.log" | sed 's/^/  /'
    i_pass=$(grep -cE '^(ok |test .* \.\.\. ok)' "$out/iso.log")
    i_fail=$(grep -cE '^(not ok |test .* \.\.\. FAILED)' "$out/iso.log")
    total=$(echo $specs | wc -w)
    if [ $((i_pass + i_fail)) -lt "$total" ]; then i_fail=$((total - i_pass)); fi
    echo "isolation: $i_pass passed, $i_fail failed"
    passed=$((passed + i_pass)); failed=$((failed + i_fail))
    if [ "$i_fail" != 0 ]; then
        failures+=("isolation specs (diffs: $out/isoout/regression.diffs)")
        [ -f "$out/isoout/regression.diffs" ] && head -100 "$out/isoout/regression.diffs"
    fi
fi

# ---- end-to-end scripts -------------------------------------------------------
for t in tests/e2e/*.sh; do
    [ -e "$t" ] || continue
    name=$(basename "$t" .sh)
    echo "== e2e $name"
    if DOC_BUILD="$BUILD" tools/pgserver.sh bash "$t" >"$out/e2e-$name.log" 2>&1; then
        passed=$((passed + 1)); echo "ok $name"
    else
        failed=$((failed + 1)); echo "FAILED $name"; tail -30 "$out/e2e-$name.log"
        failures+=("e2e $name (see $out/e2e-$name.log)")
    fi
done

echo
for f in "${failures[@]}"; do echo "failed: $f"; done
echo "$passed passed, $failed failed"
[ "$failed" = 0 ] && rm -rf "$out"
[ "$failed" = 0 ]
