# Leaves that VACUUM empties leave the tree and their pages are used again:
# after most rows of a collection are deleted and vacuumed (while other
# sessions insert and read), the index has far fewer leaves, passes
# dt_CheckIndex and holds exactly the postings of the rows left, also after
# a crash right after (the redo is checked against the logged page
# images); the next VACUUM hands the pages out again, and new rows fill
# them before the index grows.
set -uo pipefail
source "$(dirname "$0")/channel_common.bash"
source "$(dirname "$0")/dtree_common.bash"
q() { psql -X -qtA -v ON_ERROR_STOP=1 "$@"; }
NG=3000
CHECK_WAL=1 gloss_server "$DOC_SERVER_DIR/eg" "$NG"
q <<SQL >/dev/null
CREATE TABLE e (id serial PRIMARY KEY, gid int, body doc);
CREATE INDEX e_dt ON e USING dtree (body);
INSERT INTO e (gid, body) SELECT i, gloss(i) FROM generate_series(1, $NG) i;
SQL
stats() { q -c "SELECT $1 FROM dt_IndexStats('e_dt')"; }
leaves0=$(stats leaf_pages)
check "the collection fills many leaves ($leaves0)" test "$leaves0" -ge 20
same 0 "$(stats free_pages)" "no free pages before the deletes"

# All rows but three go; VACUUM runs while two sessions insert more rows
# with those three glosses and one reads.
q -c "DELETE FROM e WHERE gid > 3" >/dev/null
end=$((SECONDS + 4))
writer() {
    while [ $SECONDS -lt $end ]; do
        psql -X -q -v ON_ERROR_STOP=1 -c "INSERT INTO e (gid, body) SELECT g, gloss(g) FROM (SELECT 1 + (random() * 2)::int AS g FROM generate_series(1, 5)) s" \
            >/dev/null 2>>"$WORK/errors"
    done
}
reader() {
    local bad=0 r
    while [ $SECONDS -lt $end ]; do
        r=$(psql -X -qtA -c "SELECT count(*) FROM ($(expected e) EXCEPT ALL
                SELECT term, row_id, count FROM dt_IndexEntries('e_dt') WHERE term <> '') d" 2>&1)
        [ "$r" = 0 ] || { bad=$((bad + 1)); echo "reader: $r" >&2; }
    done
    echo "$bad"
}
: >"$WORK/errors"
writer & w1=$!
writer & w2=$!
reader >"$WORK/r" & r=$!
q -c "VACUUM e" >/dev/null
wait "$w1" "$w2" "$r"
same 0 "$(cat "$WORK/r")" "reads during the VACUUM found every posting of the rows they see"
lacks "ERROR" "$(cat "$WORK/errors")" "inserts during the VACUUM succeeded"
leaves1=$(stats leaf_pages)
check "VACUUM took most emptied leaves out of the tree ($leaves0 -> $leaves1)" test "$((leaves1 * 2))" -le "$leaves0"
deleted=$(stats free_pages)
check "the pages are deleted, waiting to be recycled ($deleted)" test "$deleted" -ge "$((leaves0 - leaves1))"
compare e e_dt "after the VACUUM"

# A crash now: the redo of the records that took leaves out must give the
# same pages.
as_pg "$PGBIN/pg_ctl" -D "$DOC_SERVER_DIR/data" -m immediate -w stop >/dev/null 2>&1
as_pg "$PGBIN/pg_ctl" -D "$DOC_SERVER_DIR/data" -l "$DOC_SERVER_DIR/server.log" -w -t 60 start >/dev/null
compare e e_dt "after a crash and recovery"
if grep -q "inconsistent page" "$DOC_SERVER_DIR/server.log" 2>/dev/null; then
    fail "WAL consistency checking found a page that differs after redo"
else
    pass "WAL consistency checking found no difference after redo"
fi

# The next VACUUM records the deleted pages as free; new rows use them.
q -c "VACUUM e" >/dev/null
size1=$(q -c "SELECT pg_relation_size('e_dt')")
q -c "INSERT INTO e (gid, body) SELECT i, gloss(i) FROM generate_series(1, 600) i" >/dev/null
free2=$(stats free_pages)
check "new rows took recycled pages ($deleted free -> $free2)" test "$free2" -lt "$deleted"
same "$size1" "$(q -c "SELECT pg_relation_size('e_dt')")" "the index did not grow while it had free pages"
compare e e_dt "after the pages were used again"
finish
