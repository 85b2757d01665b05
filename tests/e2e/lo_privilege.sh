# Attacks of an ordinary role on the large objects of documents and on the
# rights the module uses for them: none may raise the role's rights, remove
# or leak another user's document, or read the complete stored form.
source "$(dirname "$0")/channel_common.bash"
setup_server
head -c 3000 /usr/share/common-licenses/GPL-3 >"$WORK/big.txt"
head -c 2500 /usr/share/common-licenses/Apache-2.0 >"$WORK/victim.txt"
chmod 644 "$WORK"/*.txt
psql -X -q -c "CREATE ROLE mallory LOGIN" -c "CREATE ROLE alice LOGIN" \
     -c "GRANT CREATE ON SCHEMA public TO mallory, alice" -c "GRANT CREATE ON DATABASE $PGDATABASE TO mallory" >/dev/null
# as ROLE: docsql, unaligned rows only, errors kept
as() { local r=$1; shift; PGUSER=$r "$DOCSQL" -X -qtA "$@" 2>&1; }
issuper() { psql -X -qtA -c "SELECT rolsuper FROM pg_roles WHERE rolname = 'mallory'"; }

# Alice's document, readable by everyone.
as alice -c "CREATE TABLE alice_docs (id int, body doc)" \
         -c "INSERT INTO alice_docs VALUES (1, 'format(ascii):$WORK/victim.txt')" \
         -c "GRANT SELECT ON alice_docs TO PUBLIC" >/dev/null
alice_md5=$(md5of "$WORK/victim.txt")
readback() { as alice -c "SELECT md5(GetDocText(body)) FROM alice_docs WHERE id = 1"; }
same "$alice_md5" "$(readback)" "alice's document reads back"

# 1. Operators of the role's own schema first on its search_path, meant to
# run as superuser inside the module's registry statements.
as mallory -c "CREATE SCHEMA m" -c "
CREATE FUNCTION m.evil(int4, int4) RETURNS int4 LANGUAGE plpgsql AS \$\$
BEGIN EXECUTE 'ALTER ROLE mallory SUPERUSER'; RETURN \$1 OPERATOR(pg_catalog.+) \$2; END \$\$" \
  -c "CREATE OPERATOR m.+ (LEFTARG = int4, RIGHTARG = int4, FUNCTION = m.evil)" \
  -c "CREATE FUNCTION m.evileq(oid, oid) RETURNS bool LANGUAGE plpgsql AS \$\$
BEGIN EXECUTE 'ALTER ROLE mallory SUPERUSER'; RETURN \$1 OPERATOR(pg_catalog.=) \$2; END \$\$" \
  -c "CREATE OPERATOR m.= (LEFTARG = oid, RIGHTARG = oid, FUNCTION = m.evileq)" >/dev/null
out=$(as mallory -c "SET search_path = m, public, pg_catalog" \
    -c "CREATE TABLE mine (id int, body doc)" \
    -c "INSERT INTO mine VALUES (1, 'format(ascii):$WORK/big.txt')" \
    -c "INSERT INTO mine SELECT 2, body FROM alice_docs" \
    -c "UPDATE mine SET body = NULL WHERE id = 2" \
    -c "DELETE FROM mine" -c "SELECT assign(body) IS NOT NULL FROM alice_docs")
same "f" "$(issuper)" "operators on the caller's search_path never run with raised rights"

# 2. destroy() is not for ordinary roles.
out=$(as mallory -c "SELECT destroy(body) FROM alice_docs")
has "42501" "$out" "destroy() of another user's document is refused"
same "$alice_md5" "$(readback)" "alice's document survives destroy()"
# assign() leaks nothing: its copy goes at commit unless a row takes it.
before=$(psql -X -qtA -c "SELECT count(*) FROM pg_largeobject_metadata")
as mallory -c "SELECT count(assign(body)) FROM alice_docs, generate_series(1, 5)" >/dev/null
same "$before" "$(psql -X -qtA -c "SELECT count(*) FROM pg_largeobject_metadata")" "assign() leaves no large object behind"

# The owner of a table disables its triggers, copies alice's value in,
# enables them again and deletes the row.
out=$(as mallory -c "CREATE TABLE trap (id int, body doc)" \
    -c "ALTER TABLE trap DISABLE TRIGGER USER" \
    -c "INSERT INTO trap SELECT 1, body FROM alice_docs" \
    -c "ALTER TABLE trap ENABLE TRIGGER USER" \
    -c "DELETE FROM trap" -c "INSERT INTO trap SELECT 2, body FROM alice_docs" \
    -c "ALTER TABLE trap DISABLE TRIGGER USER" -c "UPDATE trap SET body = (SELECT body FROM alice_docs)" \
    -c "ALTER TABLE trap ENABLE TRIGGER USER" -c "UPDATE trap SET body = NULL" -c "TRUNCATE trap" -c "DROP TABLE trap")
same "$alice_md5" "$(readback)" "a table with its triggers switched off cannot remove another user's document"

# Triggers on another role's table.
out=$(as mallory -c "SELECT dt_AttachLargeObjectTriggers('alice_docs')")
has "42501" "$out" "dt_AttachLargeObjectTriggers on another role's table is refused"
out=$(as mallory -c "SELECT dt_DropTableLargeObjects('alice_docs'::regclass, 0::int2)")
has "42501" "$out" "dt_DropTableLargeObjects is not for ordinary roles"
out=$(as mallory -c "DELETE FROM dt_large_objects")
has "42501" "$out" "the registry is closed to ordinary roles"
same "$alice_md5" "$(readback)" "alice's document survives all of it"

# 4. The complete stored form is for superusers' dumps only.
out=$(as mallory -c "SET application_name = 'pg_dump'" -c "SELECT body::text FROM alice_docs")
case "$out" in *"stored("*) fail "application_name gives the stored form: $out" ;; *) pass "application_name no longer gives the stored form" ;; esac
out=$(as mallory -c "SELECT dt_Release() IS NOT NULL" -c "SET document.dump_stored_form = on")
has "42501" "$out" "an ordinary role cannot turn on the stored form"
out=$(as mallory -c "SET document.dump_stored_form = on" -c "SELECT body::text FROM alice_docs")
case "$out" in *"stored("*) fail "a setting made before the module loaded gives the stored form: $out" ;; *) pass "nor before the module is loaded" ;; esac
out=$(PGOPTIONS='-c document.dump_stored_form=on' PGUSER=mallory "$DOCSQL" -X -qtA -c "SELECT body::text FROM alice_docs" 2>&1)
case "$out" in *"stored("*) fail "PGOPTIONS gives the stored form: $out" ;; *) pass "nor through PGOPTIONS" ;; esac
out=$(PGOPTIONS='-c document.dump_stored_form=on' q -c "SELECT body::text FROM alice_docs")
has "stored(" "$out" "a superuser's dump session gets the stored form"
same "s" "$(psql -X -qtA -c "SELECT provolatile FROM pg_proc WHERE proname = 'dt_docoutputfunc'")" "the output function is declared stable"

# 10. A document literal in a SELECT keeps no large object.
before=$(psql -X -qtA -c "SELECT count(*) FROM pg_largeobject_metadata")
q -c "SELECT DocWordCnt('format(ascii):$WORK/big.txt'::doc) > 0" >/dev/null
q -c "BEGIN" -c "SELECT 'format(ascii):$WORK/big.txt'::doc IS NOT NULL" -c "COMMIT" >/dev/null
same "$before" "$(psql -X -qtA -c "SELECT count(*) FROM pg_largeobject_metadata")" "a literal in a SELECT leaves no large object"
# ... nor a row that a later trigger skipped.
q -c "CREATE TABLE skipping (body doc)" \
  -c "CREATE FUNCTION skip() RETURNS trigger LANGUAGE plpgsql AS \$\$ BEGIN RETURN NULL; END \$\$" \
  -c "CREATE TRIGGER zz_skip BEFORE INSERT ON skipping FOR EACH ROW EXECUTE FUNCTION skip()" \
  -c "INSERT INTO skipping VALUES ('format(ascii):$WORK/big.txt')" >/dev/null
same "$before" "$(psql -X -qtA -c "SELECT count(*) FROM pg_largeobject_metadata")" "a row a trigger skipped leaves no large object"
# ... nor a rolled back subtransaction.
q -c "CREATE TABLE kept (id int, body doc)" -c "BEGIN" \
  -c "INSERT INTO kept VALUES (1, 'format(ascii):$WORK/big.txt')" -c "SAVEPOINT s" \
  -c "INSERT INTO kept VALUES (2, 'format(ascii):$WORK/big.txt')" -c "ROLLBACK TO s" \
  -c "INSERT INTO kept VALUES (3, 'format(ascii):$WORK/big.txt')" -c "COMMIT" >/dev/null
same "$((before + 2))|0" "$(psql -X -qtA -c "SELECT count(*) FROM pg_largeobject_metadata")|$(q -c "SELECT count(*) FROM kept WHERE md5(GetDocText(body)) <> '$(md5of "$WORK/big.txt")'")" \
    "savepoints: the committed rows keep their objects, nothing else is left"
finish
