# psql next to docsql: psql works for everything that moves no client file
# and gets clear errors for what does; docsql prints what psql prints.
source "$(dirname "$0")/channel_common.bash"
setup_server
printf 'hello' >"$WORK/hello"

out=$(psql -X -qtA -c "SELECT dt_Release() IS NOT NULL" -c "SELECT findparamtx('format', 'format(ascii):/x')" 2>&1)
same "t
ascii" "$out" "psql runs the module's functions"
out=$(psql -X -qtA -c "CREATE TABLE t(a int)" -c "INSERT INTO t VALUES (1), (2)" -c "SELECT sum(a) FROM t" 2>&1)
same 3 "$out" "psql: ordinary statements in a database with the module"
out=$(psql -X -c "CREATE TABLE p AS SELECT * FROM dt_ClientFileInfo('$WORK/hello')" 2>&1)
has "ERROR:  cannot read client file \"$WORK/hello\": this session does not serve client files; run the statement from docsql" "$out" "pull from psql: clear error"
out=$(psql -X -qtA -c "SELECT 40 + 2" 2>&1)
same 42 "$out" "psql goes on working"
out=$(psql -X -qtA -c "SET document.client_channel = on" -c "SELECT * FROM dt_ClientFileInfo('$WORK/hello')" 2>&1)
has "a statement that returns rows cannot read client files" "$out" "psql that claims the channel still gets the rows error"

# docsql prints results the way psql does.
for sql in "SELECT 1 AS n, 'apple'::text AS name UNION ALL SELECT 22, NULL" \
           "SELECT E'two\\nlines' AS a, 3.5::numeric AS b, 'x' AS c" \
           "SELECT 'été' AS word, 12345678901 AS big" \
           "SELECT * FROM t WHERE false" \
           "CREATE TABLE v(a int)" "INSERT INTO u VALUES (1), (2)" "UPDATE u SET a = a + 1" \
           "INSERT INTO u VALUES (7) RETURNING a, 'r' AS tag" "COPY (SELECT 1 UNION SELECT 2) TO STDOUT"; do
    for flags in "" "-t" "-A" "-At"; do
        # Each run in a transaction that is rolled back, so both see the same database.
        set -- -X $flags -c BEGIN -c "CREATE TEMP TABLE u(a int)" -c "$sql" -c ROLLBACK
        p=$(psql "$@" 2>&1); d=$("$DOCSQL" "$@" 2>&1)
        same "$p" "$d" "docsql prints like psql ($flags): ${sql:0:40}"
    done
done

# Scripts from a file and from standard input, statements split properly.
cat >"$WORK/script.sql" <<'SQL'
-- a comment; with a semicolon
CREATE FUNCTION two() RETURNS int AS $$ SELECT 1; SELECT 2 $$ LANGUAGE sql;
SELECT two() AS "a;b", 'x;y' AS s; /* trailing; comment */
SELECT E'it\'s;' AS e
SQL
p=$(psql -X -f "$WORK/script.sql" 2>&1)
psql -X -q -c "DROP FUNCTION two()"
d=$("$DOCSQL" -X -f "$WORK/script.sql" 2>&1)
same "$p" "$d" "a script file gives psql's output"
psql -X -q -c "DROP FUNCTION two()"
d=$("$DOCSQL" -X <"$WORK/script.sql" 2>&1)
same "$p" "$d" "the same script on standard input"

# Errors: SQLSTATE, detail, exit status; the first error stops the script.
out=$("$DOCSQL" -X -c "SELECT dt_RaiseError('XD00M', 'FILENAME', '/x/y')" -c "SELECT 'not reached'" 2>&1)
rc=$?
same 3 "$rc" "an error gives exit status 3"
has "ERROR:  XD00M: could not create, open or examine server file \"/x/y\"" "$out" "the error shows its SQLSTATE"
has "DETAIL:  FILENAME=/x/y" "$out" "and its detail"
[[ "$out" != *"not reached"* ]] && pass "docsql stops at the first error" || fail "docsql stops at the first error"
printf 'SELECT 1;\nSELECT nosuch;\nSELECT 2;\n' >"$WORK/bad.sql"
out=$("$DOCSQL" -X -f "$WORK/bad.sql" 2>&1)
has "docsql: stopped at $WORK/bad.sql:2" "$out" "the failing line of a script is named"
out=$("$DOCSQL" -X -c '\nosuch' 2>&1); rc=$?
same 3 "$rc" "an unknown backslash command is refused"
has "invalid command \\nosuch" "$out" "with a clear message"
"$DOCSQL" -X -f "$WORK/nosuch.sql" >/dev/null 2>&1; same 1 "$?" "a missing script: exit status 1"
"$DOCSQL" -X --nosuch >/dev/null 2>&1; same 1 "$?" "a bad option: exit status 1"
"$DOCSQL" -X -h /nonexistent -c "SELECT 1" >/dev/null 2>&1; same 2 "$?" "no server: exit status 2"

# Connection options and PG* variables.
same "postgres|postgres" "$("$DOCSQL" -X -qtA -h "$PGHOST" -p "$PGPORT" -U postgres -d postgres -c "SELECT current_user || '|' || current_database()")" \
    "-h -p -U -d connect"
psql -X -q -c "CREATE DATABASE other" >/dev/null
same other "$(PGDATABASE=other "$DOCSQL" -X -qtA -c "SELECT current_database()")" "PGDATABASE is honoured"
same "other|on" "$("$DOCSQL" -X -qtA "dbname=other" -c "SELECT current_database() || '|' || current_setting('document.client_channel')")" \
    "a connection string as database name; the channel is declared"
same "on|docsql" "$("$DOCSQL" -X -qtA -c "SELECT current_setting('document.client_channel') || '|' || current_setting('application_name')")" \
    "docsql declares the channel when it connects"
same "1ms|on" "$(PGOPTIONS='-c statement_timeout=1' "$DOCSQL" -X -qtA -c "SELECT current_setting('statement_timeout') || '|' || current_setting('document.client_channel')")" \
    "PGOPTIONS is kept alongside the declaration"

# COPY TO STDOUT prints; COPY FROM STDIN is refused clearly.
same "1
2" "$("$DOCSQL" -X -c "COPY (SELECT * FROM t ORDER BY a) TO STDOUT")" "COPY TO STDOUT"
out=$("$DOCSQL" -X -c "COPY t FROM STDIN" 2>&1)
has "docsql sends no standard input to COPY FROM STDIN" "$out" "COPY FROM STDIN is refused"
same 2 "$(psql -X -qtA -c "SELECT count(*) FROM t")" "and nothing was copied"

finish
