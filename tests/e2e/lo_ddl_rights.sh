# The event trigger that puts the large-object triggers back on a table
# after an ALTER TABLE gives the table's rows copies of their documents by
# an update, which fires the owner's own row triggers.  A superuser's
# routine ALTER TABLE of a role's table must never run that role's code
# with the superuser's rights: the update runs as the table's owner in a
# security-restricted operation.
source "$(dirname "$0")/channel_common.bash"
setup_server
head -c 3000 /usr/share/common-licenses/GPL-3 >"$WORK/doc.txt"
chmod 644 "$WORK/doc.txt"
psql -X -q -c "CREATE ROLE mallory LOGIN" -c "GRANT CREATE ON DATABASE $PGDATABASE TO mallory" >/dev/null
as() { local r=$1; shift; PGUSER=$r "$DOCSQL" -X -qtA "$@" 2>&1; }
issuper() { psql -X -qtA -c "SELECT rolsuper FROM pg_roles WHERE rolname = 'mallory'"; }
ntriggers() { psql -X -qtA -c "SELECT count(*) FROM pg_trigger WHERE tgrelid = '$1'::regclass AND tgname LIKE 'dt_large_objects%'"; }
doc_md5=$(md5of "$WORK/doc.txt")

# Mallory's table of documents stored as large objects, with the truncate
# trigger dropped and a row trigger that asks for superuser.
as mallory -c "CREATE SCHEMA m" -c "CREATE TABLE m.t (id int, body doc)" \
    -c "INSERT INTO m.t VALUES (1, 'format(ascii):$WORK/doc.txt')" \
    -c "CREATE FUNCTION m.grab() RETURNS trigger LANGUAGE plpgsql AS \$\$
BEGIN EXECUTE 'ALTER ROLE mallory SUPERUSER'; RETURN NEW; END \$\$" \
    -c "CREATE TRIGGER a_grab BEFORE UPDATE ON m.t FOR EACH ROW EXECUTE FUNCTION m.grab()" >/dev/null
same "1" "$(psql -X -qtA -c "SELECT count(*) FROM m.t WHERE dt_LOOid(body) IS NOT NULL")" \
    "mallory's document is stored as a large object"

for ddl in "ALTER TABLE m.t SET (fillfactor = 90)" "ALTER TABLE m.t ALTER COLUMN id SET STATISTICS 200" \
           "ALTER TABLE m.t ADD COLUMN note text" "ALTER TABLE m.t OWNER TO mallory"; do
    as mallory -c "DROP TRIGGER IF EXISTS dt_large_objects_truncate ON m.t" >/dev/null
    out=$(psql -X -qtA -v VERBOSITY=verbose -c "$ddl" 2>&1)
    same "f" "$(issuper)" "a superuser's '$ddl' does not run mallory's trigger as superuser"
    has "42501" "$out" "'$ddl': mallory's trigger, run as mallory, is refused the role change"
done
same "$doc_md5" "$(psql -X -qtA -c "SELECT md5(GetDocText(body)) FROM m.t")" "mallory's document reads back"

# A table whose owner's row trigger is harmless: a superuser's ALTER TABLE
# puts the missing trigger back, the rows take copies of their own, and the
# owner's trigger ran as the owner.
as mallory -c "CREATE TABLE m.seen (who name, sec boolean)" \
    -c "CREATE TABLE m.u (id int, body doc)" \
    -c "INSERT INTO m.u VALUES (1, 'format(ascii):$WORK/doc.txt'), (2, 'format(ascii):$WORK/doc.txt')" \
    -c "CREATE FUNCTION m.note() RETURNS trigger LANGUAGE plpgsql AS \$\$
BEGIN INSERT INTO m.seen VALUES (current_user, (SELECT rolsuper FROM pg_roles WHERE rolname = current_user)); RETURN NEW; END \$\$" \
    -c "CREATE TRIGGER a_note BEFORE UPDATE ON m.u FOR EACH ROW EXECUTE FUNCTION m.note()" \
    -c "DROP TRIGGER dt_large_objects ON m.u" >/dev/null
out=$(psql -X -qtA -v ON_ERROR_STOP=1 -c "ALTER TABLE m.u SET (fillfactor = 80)" 2>&1)
same "" "$out" "a superuser's ALTER TABLE of a table missing a trigger succeeds"
same "3" "$(ntriggers m.u)" "the missing trigger is back"
same "mallory|f
mallory|f" "$(psql -X -qtA -c "SELECT who, sec FROM m.seen ORDER BY who")" "the owner's row trigger ran as the owner, twice"
same "2" "$(psql -X -qtA -c "SELECT count(DISTINCT dt_LOOid(body)) FROM m.u")" "each row holds a large object of its own"
same "2" "$(psql -X -qtA -c "SELECT count(*) FROM dt_large_objects WHERE relid = 'm.u'::regclass")" \
    "the registry knows both rows' objects"
same "$doc_md5" "$(psql -X -qtA -c "SELECT DISTINCT md5(GetDocText(body)) FROM m.u")" "the documents read back"

# The owner's own ALTER TABLE repairs the same way; the function refuses a
# caller without the owner's privileges.
as mallory -c "DROP TRIGGER dt_large_objects_claim ON m.u" -c "ALTER TABLE m.u SET (fillfactor = 70)" >/dev/null
same "3" "$(ntriggers m.u)" "the owner's ALTER TABLE puts the trigger back"
psql -X -q -c "CREATE ROLE eve LOGIN" >/dev/null
uoid=$(psql -X -qtA -c "SELECT 'm.u'::regclass::oid")
has "must be owner of table u" "$(PGUSER=eve psql -X -qtA -v VERBOSITY=verbose -c "SELECT dt_CopyRowLargeObjects($uoid)" 2>&1)" \
    "dt_CopyRowLargeObjects refuses a role without the owner's privileges"
finish
