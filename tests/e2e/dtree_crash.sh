# Crashes while several sessions insert into and delete from a table with a
# dtree index, and one runs VACUUM: each cycle kills the server at a random
# moment (SIGKILL of a backend, which makes the server reset, or an
# immediate shutdown and a restart) and, once it is back, the index must
# pass dt_CheckIndex and, after VACUUM, hold exactly the committed rows
# with exactly the postings IndexTerms gives them.  The server replays
# with wal_consistency_checking = 'generic', which compares every page the
# redo of a generic record produces with the page logged with it.
#   DTREE_CRASH_CYCLES  cycles (default 3; the soak target runs many)
set -uo pipefail
source "$(dirname "$0")/channel_common.bash"
source "$(dirname "$0")/dtree_common.bash"
q() { psql -X -qtA -v ON_ERROR_STOP=1 "$@"; }
CYCLES=${DTREE_CRASH_CYCLES:-3}
NG=1500
CHECK_WAL=1 gloss_server "$DOC_SERVER_DIR/cg" "$NG"
q <<SQL >/dev/null
CREATE TABLE c (id serial PRIMARY KEY, gid int, body doc);
CREATE INDEX c_dt ON c USING dtree (body);
INSERT INTO c (gid, body) SELECT i, gloss(i) FROM generate_series(1, 600) i;
SQL

wait_ready() {
    for _ in $(seq 1 120); do
        psql -X -qtA -c "SELECT 1" >/dev/null 2>&1 && return 0
        sleep 0.5
    done
    return 1
}
# A session of random transactions: inserts of random glosses, deletes of
# random rows, now and then a rollback; until the stop file appears.  (A
# loop killed from outside would leave its running psql behind, which may
# reconnect once the server is back and write while the checks run.)
STOP="$DOC_SERVER_DIR/stop-workers"
worker() {
    while [ ! -e "$STOP" ]; do
        local end=COMMIT
        [ $((RANDOM % 5)) = 0 ] && end=ROLLBACK
        psql -X -q -c "BEGIN" \
            -c "INSERT INTO c (gid, body) SELECT g, gloss(g) FROM (SELECT 1 + (random() * $((NG - 1)))::int AS g FROM generate_series(1, 1 + $RANDOM % 30)) s" \
            -c "DELETE FROM c WHERE id IN (SELECT id FROM c TABLESAMPLE SYSTEM (2) LIMIT 1 + $RANDOM % 15)" \
            -c "$end" >/dev/null 2>&1 || sleep 0.2
    done
}
vacuumer() {
    while [ ! -e "$STOP" ]; do psql -X -q -c "VACUUM c" >/dev/null 2>&1; sleep 0.7; done
}

for cycle in $(seq 1 "$CYCLES"); do
    pids=()
    for _ in 1 2 3; do worker & pids+=($!); done
    vacuumer & pids+=($!)
    sleep "$((1 + RANDOM % 4)).$((RANDOM % 10))"
    if [ $((cycle % 2)) = 1 ]; then
        how="SIGKILL of a backend"
        victim=$(psql -X -qtA -c "SELECT pid FROM pg_stat_activity WHERE backend_type = 'client backend' AND pid <> pg_backend_pid() ORDER BY random() LIMIT 1" 2>/dev/null)
        [ -n "$victim" ] && kill -KILL "$victim"
    else
        how="immediate shutdown"
        as_pg "$PGBIN/pg_ctl" -D "$DOC_SERVER_DIR/data" -m immediate -w stop >/dev/null 2>&1
    fi
    sleep 0.5
    touch "$STOP"
    for p in "${pids[@]}"; do wait "$p" 2>/dev/null; done
    rm -f "$STOP"
    if [ "$how" = "immediate shutdown" ]; then
        as_pg "$PGBIN/pg_ctl" -D "$DOC_SERVER_DIR/data" -l "$DOC_SERVER_DIR/server.log" -w -t 60 start >/dev/null
    fi
    check "cycle $cycle ($how): the server is back" wait_ready
    same "t" "$(q -c "SELECT dt_CheckIndex('c_dt')" 2>&1)" "cycle $cycle: dt_CheckIndex right after recovery"
    q -c "VACUUM c" >/dev/null
    compare c c_dt "cycle $cycle ($(q -c "SELECT count(*) FROM c") rows)"
done
if grep -q "inconsistent page" "$DOC_SERVER_DIR/server.log" 2>/dev/null; then
    fail "WAL consistency checking found a page that differs after redo"
else
    pass "WAL consistency checking found no difference after redo"
fi
finish
