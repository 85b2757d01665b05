# Readers of a dtree index while three sessions insert and delete through
# it and VACUUM runs: every read goes through the index's read routines
# (dt_IndexEntries walks the leaves and reads each term's postings) while
# pages split, lists move to posting pages and VACUUM unlinks pages.  Each
# read, in one statement, must find every posting of every row its snapshot
# sees, with the count IndexTerms gives (the index may hold more: rows not
# yet committed or not yet vacuumed).  At the end the index passes
# dt_CheckIndex and, after VACUUM, equals the table.
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
SQL
end=$((SECONDS + SECS))
writer() {
    while [ $SECONDS -lt $end ]; do
        psql -X -q -c "INSERT INTO c (gid, body) SELECT g, gloss(g) FROM (SELECT 1 + (random() * $((NG - 1)))::int AS g FROM generate_series(1, 1 + $RANDOM % 40)) s" \
            -c "DELETE FROM c WHERE id IN (SELECT id FROM c TABLESAMPLE SYSTEM (1) LIMIT $RANDOM % 6)" >/dev/null 2>&1
    done
}
vacuumer() { while [ $SECONDS -lt $end ]; do psql -X -q -c "VACUUM c" >/dev/null 2>&1; sleep 0.5; done; }
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
pids=()
for _ in 1 2 3; do writer & pids+=($!); done
vacuumer & pids+=($!)
reader >"$WORK/r1" & r1=$!
reader >"$WORK/r2" & r2=$!
wait "$r1" "$r2"
for p in "${pids[@]}"; do wait "$p"; done
read -r reads1 bad1 <"$WORK/r1"
read -r reads2 bad2 <"$WORK/r2"
same 0 "$((bad1 + bad2))" "$((reads1 + reads2)) concurrent reads each found every posting of the rows they see"
check "the readers read at least twice" test "$((reads1 + reads2))" -ge 2
same "t" "$(q -c "SELECT internal_pages > 0 AND posting_pages > 0 FROM dt_IndexStats('c_dt')")" \
    "pages split and lists moved to posting pages while the readers ran"
q -c "VACUUM c" >/dev/null
compare c c_dt "after the sessions ($(q -c "SELECT count(*) FROM c") rows)"
finish
