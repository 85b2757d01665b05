# A database with documents survives pg_dump and pg_restore (custom format)
# and a plain dump replayed by psql: every value, its text, its counts and
# its large object come back, each object is recorded for its row's table
# and column, and the
# restore reports no error.
source "$(dirname "$0")/channel_common.bash"
setup_server
PGBIN=${PGBIN:-/usr/lib/postgresql/15/bin}
head -c 5000 /usr/share/common-licenses/GPL-3 >"$WORK/big.txt"
printf 'Dogs chase cats.\n' >"$WORK/small.txt"
head -c 3000 /usr/share/common-licenses/Apache-2.0 >"$WORK/nocopy.txt"
cp /usr/share/common-licenses/GPL-2 "$DOC_SERVER_DIR/external.txt"
chmod 644 "$DOC_SERVER_DIR/external.txt"
q -c "CREATE TABLE lib(id int PRIMARY KEY, d doc)" \
  -c "INSERT INTO lib VALUES (1, 'format(ascii):$WORK/big.txt'), (2, 'format(ascii):$WORK/small.txt'),
      (3, 'format(ascii),NoCopyText:$WORK/nocopy.txt'), (4, 'format(ascii),ExternalFile:$DOC_SERVER_DIR/external.txt'),
      (5, 'format(ascii):$WORK/big.txt'), (6, NULL)" \
  -c "CREATE TABLE copies AS SELECT * FROM lib WHERE id = 1" >/dev/null

summary() {  # id, output text, text md5, counts, large object present
    q -d "$1" -c "SELECT string_agg(id || '|' || coalesce(d::text, '-') || '|' || coalesce(md5(GetDocText(d)), '-') || '|' ||
                  coalesce(DocWordCnt(d) || '/' || DocUWordCnt(d), '-') || '|' ||
                  coalesce((dt_LOOid(d) IN (SELECT oid FROM pg_largeobject_metadata))::text, '-'), E'\n' ORDER BY id) FROM lib"
}
registry() { q -d "$1" -c "SELECT coalesce(string_agg(loid || ':' || relid::text || ':' || attnum, ',' ORDER BY loid), '') FROM dt_large_objects"; }
# Dumps of documents are made by a superuser with the stored form on.
export PGOPTIONS='-c document.dump_stored_form=on'
before=$(summary "$PGDATABASE")
reg_before=$(registry "$PGDATABASE")
same 6 "$(q -c "SELECT count(*) FROM lib")" "six rows entered"

# Custom format through pg_restore.
$PGBIN/pg_dump -Fc -f "$WORK/db.dump" "$PGDATABASE" 2>"$WORK/dump.err"
same 0 $? "pg_dump succeeds"
createdb restored
$PGBIN/pg_restore -d restored "$WORK/db.dump" >"$WORK/restore.out" 2>&1
rc=$?
same 0 $rc "pg_restore succeeds without errors"
[ $rc = 0 ] || head -20 "$WORK/restore.out"
same "$before" "$(summary restored)" "every value, text, count and large object comes back"
same "$reg_before" "$(registry restored)" "every object is recorded for the same table and column"
same "dt_large_objects,dt_large_objects_claim,dt_large_objects_truncate" \
    "$(q -d restored -c "SELECT string_agg(tgname, ',' ORDER BY tgname) FROM pg_trigger WHERE tgrelid = 'lib'::regclass")" \
    "the table has its three triggers, once each"
q -d restored -c "DELETE FROM lib WHERE id IN (1, 3)" >/dev/null
same "2|0" "$(q -d restored -c "SELECT count(*) FROM pg_largeobject_metadata")|$(q -d restored -c "SELECT count(*) FROM pg_largeobject_metadata m WHERE NOT EXISTS (SELECT 1 FROM lib WHERE dt_LOOid(d) = m.oid)
                                  AND NOT EXISTS (SELECT 1 FROM copies WHERE dt_LOOid(d) = m.oid)")" \
    "deleting restored rows frees what only they held (the copy keeps its object)"

# A plain dump replayed by psql.
$PGBIN/pg_dump -f "$WORK/db.sql" "$PGDATABASE"
createdb plain
PGOPTIONS= psql -X -q -v ON_ERROR_STOP=1 -d plain -f "$WORK/db.sql" >"$WORK/plain.out" 2>&1
rc=$?
same 0 $rc "a plain dump replays without error"
[ $rc = 0 ] || grep -m5 ERROR "$WORK/plain.out"
same "$before" "$(summary plain)" "the plain dump brings back every value"

# Without the setting the output is the ordinary form; the stored form is
# accepted from superusers only.
unset PGOPTIONS
has "format(ascii),handle(" "$(q -c "SELECT d FROM lib WHERE id = 1")" "ordinary sessions see spec,handle(H):path"
stored=$(PGOPTIONS='-c document.dump_stored_form=on' psql -X -qtA -c "SELECT d FROM lib WHERE id = 2")
has "stored(" "$stored" "a session with document.dump_stored_form on sees the stored form"
same "format(ascii):$WORK/small.txt" "$(q -c "SELECT '$stored'::doc")" "the stored form is taken back as it stands"
q -c "CREATE ROLE plainuser LOGIN" >/dev/null
has "42501" "$(psql -X -qtA -U plainuser -c "SELECT '$stored'::doc" 2>&1 | head -1; psql -X -qtA -U plainuser -c "\set VERBOSITY verbose" -c "SELECT '$stored'::doc" 2>&1)" \
    "other roles cannot enter stored values"
finish
