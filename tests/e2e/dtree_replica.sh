# A streaming standby of a server with dtree indexes: a base backup taken
# with pg_basebackup over the Unix socket, then inserts, deletes, VACUUM,
# AddIndexTerms and a new index built on the primary.  Once the standby has
# replayed everything, its indexes pass dt_CheckIndex and hold the same
# postings as the primary's.  The primary logs with
# wal_consistency_checking = 'generic', so the standby's replay compares
# every page it rebuilds with the image logged beside the record.
set -uo pipefail
source "$(dirname "$0")/channel_common.bash"
source "$(dirname "$0")/dtree_common.bash"
q() { psql -X -qtA -v ON_ERROR_STOP=1 "$@"; }
sq() { psql -X -qtA -p 5433 "$@"; }
STANDBY=$DOC_SERVER_DIR/standby
stop_standby() { [ -f "$STANDBY/postmaster.pid" ] && as_pg "$PGBIN/pg_ctl" -D "$STANDBY" -m immediate -w stop >/dev/null 2>&1; rm -rf "$WORK"; }
trap stop_standby EXIT

CHECK_WAL=1 gloss_server "$DOC_SERVER_DIR/rg" 3000
q <<SQL >/dev/null
CREATE TABLE r (id int, body doc);
CREATE INDEX r_dt ON r USING dtree (body);
INSERT INTO r SELECT i, gloss(i) FROM generate_series(1, 1000) i;
SQL
as_pg "$PGBIN/pg_basebackup" -h "$PGHOST" -p 5432 -U postgres -D "$STANDBY" -R -X stream -c fast >/dev/null 2>&1
check "pg_basebackup over the Unix socket" test -f "$STANDBY/standby.signal"
cat >>"$STANDBY/postgresql.conf" <<CONF
port = 5433
hot_standby = on
CONF
as_pg "$PGBIN/pg_ctl" -D "$STANDBY" -l "$DOC_SERVER_DIR/standby.log" -w -t 60 start >/dev/null
check "the standby starts" sq -c "SELECT pg_is_in_recovery()"

q <<SQL >/dev/null
INSERT INTO r SELECT i, gloss(i) FROM generate_series(1001, 3000) i;
DELETE FROM r WHERE id % 4 = 0;
VACUUM r;
SELECT AddIndexTerms('r_dt', (SELECT ctid FROM r WHERE id = 5), 'Extra words, extra terms');
CREATE TABLE r2 AS SELECT * FROM r WHERE id % 2 = 1;
CREATE INDEX r2_dt ON r2 USING dtree (body);
INSERT INTO r2 SELECT i, gloss(i) FROM generate_series(1, 500) i;
SQL
lsn=$(q -c "SELECT pg_current_wal_flush_lsn()")
caught_up() { [ "$(sq -c "SELECT pg_last_wal_replay_lsn() >= '$lsn'::pg_lsn")" = t ]; }
for _ in $(seq 1 120); do caught_up && break; sleep 0.5; done
check "the standby replays up to the primary's last record" caught_up
for idx in r_dt r2_dt; do
    same "t" "$(sq -c "SELECT dt_CheckIndex('$idx')" 2>&1)" "standby: dt_CheckIndex('$idx')"
    same "$(q -c "SELECT ReadMetaTerms('$idx')")" "$(sq -c "SELECT ReadMetaTerms('$idx')" 2>&1)" "standby: counters of $idx"
    same "$(q -c "SELECT md5(string_agg(e::text, ';' ORDER BY e::text)) FROM dt_IndexEntries('$idx') e")" \
         "$(sq -c "SELECT md5(string_agg(e::text, ';' ORDER BY e::text)) FROM dt_IndexEntries('$idx') e" 2>&1)" \
         "standby: the postings of $idx equal the primary's"
done
compare r2 r2_dt "primary"
if grep -q "inconsistent page" "$DOC_SERVER_DIR/standby.log" 2>/dev/null; then
    fail "the standby's replay found a page that differs from the logged image"
else
    pass "the standby's replay found every page equal to the logged image"
fi
finish
