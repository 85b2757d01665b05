# Concurrent writers and readers of one dtree index.  Four sessions insert
# (and now and then delete) rows, one adds terms to random rows with
# AddIndexTerms, one runs VACUUM, two read, and one watches the server's
# lock table, all at once:
#  - every read goes through the index's read routines (dt_IndexEntries
#    walks the leaves and reads each term's postings) while pages split,
#    lists move to posting pages and VACUUM unlinks pages; each read, in one
#    statement, must find every posting of every row its snapshot sees, with
#    the count IndexTerms gives (the index may hold more: rows not yet
#    committed or not yet vacuumed, added terms);
#  - writers take buffer locks only: the watcher must never see a page lock
#    on the index (held or awaited), and must see inserts running side by
#    side in the index;
#  - at the end the index passes dt_CheckIndex and, after VACUUM, holds
#    exactly the postings IndexTerms gives each row plus the terms added to
#    rows that are still there, with counters to match.
#   DTREE_CONCURRENT_SECONDS  how long the sessions run (default 12)
set -uo pipefail
source "$(dirname "$0")/channel_common.bash"
source "$(dirname "$0")/dtree_common.bash"
q() { psql -X -qtA -v ON_ERROR_STOP=1 "$@"; }
SECS=${DTREE_CONCURRENT_SECONDS:-12}
NG=2000
gloss_server "$DOC_SERVER_DIR/ccg" "$NG"
q <<SQL >/dev/null
CREATE TABLE c (id serial PRIMARY KEY, gid int, body doc);
CREATE INDEX c_dt ON c USING dtree (body);
INSERT INTO c (gid, body) SELECT i, gloss(i) FROM generate_series(1, 200) i;
-- The terms AddIndexTerms gave a row (id and row, as the row stays put).
CREATE TABLE added (id int, row_id tid, n int);
SQL
end=$((SECONDS + SECS))
writer() {
    local errs=0
    while [ $SECONDS -lt $end ]; do
        psql -X -q -v ON_ERROR_STOP=1 -c "INSERT INTO c (gid, body) SELECT g, gloss(g) FROM (SELECT 1 + (random() * $((NG - 1)))::int AS g FROM generate_series(1, 1 + $RANDOM % 40)) s" \
            -c "DELETE FROM c WHERE id IN (SELECT id FROM c TABLESAMPLE SYSTEM (1) LIMIT $RANDOM % 6)" >/dev/null 2>>"$WORK/errors" ||
            errs=$((errs + 1))
    done
    echo "$errs" >>"$WORK/writer_errors"
}
# One statement adds the terms and records them, so both happen or neither.
adder() {
    while [ $SECONDS -lt $end ]; do
        psql -X -q -v ON_ERROR_STOP=1 -c "WITH r AS (SELECT id, ctid FROM c ORDER BY random() LIMIT 1),
                a AS (SELECT id, ctid, AddIndexTerms('c_dt', ctid, 'cat cats') FROM r)
            INSERT INTO added SELECT id, ctid, 2 FROM a" >/dev/null 2>>"$WORK/errors" || echo x >>"$WORK/adder_errors"
    done
}
vacuumer() { while [ $SECONDS -lt $end ]; do psql -X -q -c "VACUUM c" >/dev/null 2>>"$WORK/errors"; sleep 0.5; done; }
# One read: postings of visible rows missing from the index, or an error.
reader() {
    local bad=0 reads=0 r
    while [ $SECONDS -lt $end ]; do
        r=$(psql -X -qtA -c "SELECT count(*) FROM ($(expected c) EXCEPT ALL
                SELECT term, row_id, count FROM dt_IndexEntries('c_dt') WHERE term <> '') d" 2>&1)
        reads=$((reads + 1))
        [ "$r" = 0 ] || { bad=$((bad + 1)); echo "reader: $r" >&2; }
    done
    echo "$reads $bad"
}
# Samples the lock table and the sessions every few milliseconds (one
# function call, so that nothing else slows it down): page locks on the
# index (there must be none), and how often two or more inserts were
# running at once without waiting for a lock.
q <<'SQL' >/dev/null
CREATE FUNCTION watch(secs float8, OUT samples int, OUT pagelocks int, OUT overlap int) LANGUAGE plpgsql AS $$
DECLARE
    stop timestamptz := clock_timestamp() + secs * interval '1 second';
    a int;
    b int;
BEGIN
    samples := 0; pagelocks := 0; overlap := 0;
    WHILE clock_timestamp() < stop LOOP
        PERFORM pg_stat_clear_snapshot();
        SELECT count(*) INTO a FROM pg_locks WHERE relation = 'c_dt'::regclass AND locktype = 'page';
        SELECT count(*) INTO b FROM pg_stat_activity
         WHERE query LIKE 'INSERT INTO c %' AND state = 'active' AND wait_event_type IS DISTINCT FROM 'Lock';
        samples := samples + 1;
        IF a > 0 THEN pagelocks := pagelocks + 1; END IF;
        IF b >= 2 THEN overlap := overlap + 1; END IF;
        PERFORM pg_sleep(0.003);
    END LOOP;
END $$;
SQL
watcher() { q -F ' ' -c "SELECT * FROM watch($SECS)"; }
: >"$WORK/errors"
pids=()
for _ in 1 2 3 4; do writer & pids+=($!); done
adder & pids+=($!)
vacuumer & pids+=($!)
reader >"$WORK/r1" & r1=$!
reader >"$WORK/r2" & r2=$!
watcher >"$WORK/w" & w=$!
wait "$r1" "$r2" "$w"
for p in "${pids[@]}"; do wait "$p"; done
read -r reads1 bad1 <"$WORK/r1"
read -r reads2 bad2 <"$WORK/r2"
read -r samples pagelocks overlap <"$WORK/w"
same 0 "$((bad1 + bad2))" "$((reads1 + reads2)) concurrent reads each found every posting of the rows they see"
check "the readers read at least twice" test "$((reads1 + reads2))" -ge 2
same 0 "$(awk '{ s += $1 } END { print s + 0 }' "$WORK/writer_errors")" "no insert or delete failed"
same 0 "$(cat "$WORK/adder_errors" 2>/dev/null | wc -l)" "no AddIndexTerms failed"
lacks "ERROR" "$(cat "$WORK/errors")" "no session saw an error"
same 0 "$pagelocks" "no page lock on the index in $samples samples of pg_locks"
check "inserts ran side by side in the index ($overlap of $samples samples)" test "$overlap" -ge 1
check "terms were added while the others ran ($(q -c "SELECT count(*) FROM added"))" test "$(q -c "SELECT count(*) FROM added")" -ge 1
same "t" "$(q -c "SELECT internal_pages > 0 AND posting_pages > 0 FROM dt_IndexStats('c_dt')")" \
    "pages split and lists moved to posting pages while the readers ran"
q -c "VACUUM c" >/dev/null
# What the index must hold: IndexTerms of every row, and "cat" twice with
# count 1 for each addition to a row that is still there.
want="$(expected c) UNION ALL SELECT 'cat', c.ctid, 1 FROM added a JOIN c ON c.id = a.id AND c.ctid = a.row_id, generate_series(1, a.n)"
diff=$(q -c "SELECT count(*) FROM (
    (SELECT term, row_id, count FROM dt_IndexEntries('c_dt') WHERE term <> '' EXCEPT ALL ($want))
    UNION ALL
    (($want) EXCEPT ALL SELECT term, row_id, count FROM dt_IndexEntries('c_dt') WHERE term <> '')) d")
rows=$(q -c "SELECT count(*) FROM c")
same 0 "$diff" "after the sessions ($rows rows): the postings equal IndexTerms of every row plus the added terms"
same "t" "$(q -c "SELECT dt_CheckIndex('c_dt')")" "after the sessions: dt_CheckIndex"
same "terms=$(q -c "SELECT coalesce(sum(count), 0) FROM ($want) w"), docs=$rows" "$(q -c "SELECT ReadMetaTerms('c_dt')")" \
    "after the sessions: the counters agree with the table"
same "$(q -c "SELECT count(*) FROM c")" "$(q -c "SELECT count(*) FROM dt_IndexEntries('c_dt') e JOIN c ON c.ctid = e.row_id
        WHERE e.term = '' AND e.wordcnt = DocWordCnt(c.body)")" "after the sessions: the document list holds every row with its word count"
finish
