# pg_dump and pg_restore of a table with a dtree index: the restore builds
# the index again, with the same counters and postings (rows come back in
# the same order into a fresh table, so at the same row identifiers).
set -uo pipefail
source "$(dirname "$0")/channel_common.bash"
source "$(dirname "$0")/dtree_common.bash"
PGBIN=${PGBIN:-/usr/lib/postgresql/15/bin}
q() { psql -X -qtA -v ON_ERROR_STOP=1 "$@"; }
G=$DOC_SERVER_DIR/dg
write_glosses "$G" 800
q -c "CREATE DATABASE src" -c "CREATE DATABASE dst" >/dev/null
PGDATABASE=src q <<SQL >/dev/null
CREATE EXTENSION document;
CREATE TABLE d (id int, body doc);
INSERT INTO d SELECT i, ('format(ascii),ExternalFile:$G/' || i || '.txt')::doc FROM generate_series(1, 800) i;
CREATE INDEX d_dt ON d USING dtree (body);
DELETE FROM d WHERE id % 5 = 0;
VACUUM FULL d;
SQL
PGOPTIONS='-c document.dump_stored_form=on' "$PGBIN/pg_dump" -Fc -d src -f "$WORK/src.dump"
check "pg_restore into another database" "$PGBIN/pg_restore" -d dst "$WORK/src.dump"
for db in src dst; do
    same "t" "$(PGDATABASE=$db q -c "SELECT dt_CheckIndex('d_dt')" 2>&1)" "$db: dt_CheckIndex"
done
same "$(PGDATABASE=src q -c "SELECT ReadMetaTerms('d_dt')")" "$(PGDATABASE=dst q -c "SELECT ReadMetaTerms('d_dt')")" "restored counters"
same "$(PGDATABASE=src q -c "SELECT md5(string_agg(e::text, ';' ORDER BY e::text)) FROM dt_IndexEntries('d_dt') e")" \
     "$(PGDATABASE=dst q -c "SELECT md5(string_agg(e::text, ';' ORDER BY e::text)) FROM dt_IndexEntries('d_dt') e")" "restored postings"
same "dtree" "$(PGDATABASE=dst q -c "SELECT am.amname FROM pg_class c JOIN pg_am am ON am.oid = c.relam WHERE c.relname = 'd_dt'")" \
     "the restored index is a dtree index"
PGDATABASE=dst compare d d_dt "restored"
finish
