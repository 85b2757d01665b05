# Conversion steps of an ordinary role that owns only a schema of its own:
# a step it puts first on its search path never stands in for the module's
# steps, and a step that returns some other file than its output (a server
# file, or a path that climbs out of the temporary directory) is refused:
# that file is neither sent, nor indexed, nor removed.
source "$(dirname "$0")/channel_common.bash"
setup_server
DATADIR=$(psql -X -qtA -c "SHOW data_directory")
psql -X -q -v ON_ERROR_STOP=1 \
    -c "CREATE ROLE attacker LOGIN" \
    -c "CREATE SCHEMA own AUTHORIZATION attacker" \
    -c "COPY (SELECT 'precious settings') TO '$DATADIR/victim.conf'" >/dev/null
# docsql as the role (it receives the files dt_ConvertTx sends), and plain psql.
a() { PGUSER=attacker PGOPTIONS="-c search_path=own,public" "$DOCSQL" -X -qtA "$@"; }
p() { PGUSER=attacker PGOPTIONS="-c search_path=own,public" psql -X -qtA -v VERBOSITY=verbose "$@"; }
mkdir -p "$WORK/out" && chmod 777 "$WORK/out"
# A path that starts like the backend's temporary directory and leaves it.
climb="'$SERVER_TMP/document.' || pg_backend_pid() || '/../../../../../../../../..$DATADIR/victim.conf'"

# ---- a step named like the module's, first on the search path ----------------
a -c "CREATE FUNCTION own.raveldummy(i text, o text) RETURNS text LANGUAGE sql
      AS \$\$ SELECT 'format(ascii):$DATADIR/global/1260' \$\$" >/dev/null
out=$(p -c "SELECT TopNTerms(dt_FromText('x', 'format(text):x'), 15)" 2>&1)
lacks "postgres" "$out" "the role's raveldummy does not index pg_authid"
has "x" "$out" "the module's own step converts the text"
out=$(a -c "SELECT dt_ConvertTx(dt_FromText('hello', 'format(text):x'), 'ascii', '$WORK/out/')" 2>&1)
file=$(printf '%s' "$out" | sed -n 's/^format(ascii)://p')
same "hello" "$(cat "$file" 2>/dev/null)" "dt_ConvertTx sends the converted text, not the server's file"
a -c "CREATE OR REPLACE FUNCTION own.raveldummy(i text, o text) RETURNS text LANGUAGE sql
      AS \$\$ SELECT 'format(ascii):' || $climb \$\$" >/dev/null
a -c "SELECT dt_ConvertTx(dt_FromText('hello', 'format(text):x'), 'ascii', '$WORK/out/')" >/dev/null 2>&1
check "the role's raveldummy does not make dt_ConvertTx remove a server file" test -f "$DATADIR/victim.conf"

# ---- a step of its own, named with its schema in the table ------------------
psql -X -q -v ON_ERROR_STOP=1 \
    -c "INSERT INTO \"DocumentConversions\" VALUES ('leak', 'ascii', 'own.leak'), ('gone', 'ascii', 'own.gone')" >/dev/null
a -c "CREATE FUNCTION own.leak(i text, o text) RETURNS text LANGUAGE sql
      AS \$\$ SELECT 'format(ascii):$DATADIR/global/1260' \$\$" >/dev/null
a -c "CREATE FUNCTION own.gone(i text, o text) RETURNS text LANGUAGE sql
      AS \$\$ SELECT 'format(ascii):' || $climb \$\$" >/dev/null
out=$(a -c "SELECT TopNTerms(dt_FromText('x', 'format(leak):x'), 15)" 2>&1)
has "ERROR:  42501" "$out" "a step returning a server file is refused (42501)"
has "names neither its output file" "$out" "the error says why"
lacks "postgres" "$out" "nothing of pg_authid is indexed"
out=$(p -c "SELECT TopNTerms(dt_FromText('x', 'format(leak):x'), 15)" 2>&1)
has "ERROR:  42501" "$out" "the same from plain psql"
p -c "SELECT dt_ConvertTx(dt_FromText('x', 'format(gone):x'), 'ascii', '$WORK/out/')" >/dev/null 2>&1
check "plain psql: the server file named by the climbing path is still there" test -f "$DATADIR/victim.conf"
out=$(a -c "SELECT dt_ConvertTx(dt_FromText('x', 'format(leak):x'), 'ascii', '$WORK/out/')" 2>&1)
has "42501" "$out" "dt_ConvertTx refuses a step returning a server file"
same "" "$(grep -l postgres "$WORK"/out/* 2>/dev/null)" "no server file is sent to the client"
out=$(a -c "SELECT dt_ConvertTx(dt_FromText('x', 'format(gone):x'), 'ascii', '$WORK/out/')" 2>&1)
has "42501" "$out" "a path climbing out of the temporary directory is refused"
check "the server file named by the climbing path is still there" test -f "$DATADIR/victim.conf"
same "precious settings" "$(cat "$DATADIR/victim.conf" 2>/dev/null)" "and unchanged"
check "nothing left in the temporary directory" tmp_empty
psql -X -q -c "DELETE FROM \"DocumentConversions\" WHERE source_format IN ('leak', 'gone')" >/dev/null
rm -f "$DATADIR/victim.conf"
finish
