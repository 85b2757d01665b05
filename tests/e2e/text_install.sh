#!/usr/bin/env bash
# CREATE EXTENSION document works on any database: other encodings, another
# schema that is not on the search path; and stemming finds its WordNet
# tables there, also after the extension was dropped and made again in
# another schema by the same session.
set -euo pipefail
fails=0
check() {  # check WHAT GOT WANT
    if [ "$2" = "$3" ]; then echo "ok   $1: $2"; else echo "FAIL $1: got '$2', want '$3'"; fails=$((fails + 1)); fi
}
for enc in SQL_ASCII LATIN1 UTF8; do
    db="text_install_$(echo "$enc" | tr 'A-Z' 'a-z')"
    psql -X -q -d postgres -c "CREATE DATABASE $db TEMPLATE template0 ENCODING '$enc' LC_COLLATE 'C' LC_CTYPE 'C'"
    psql -X -q -d "$db" -c "CREATE SCHEMA docs" -c "CREATE EXTENSION document SCHEMA docs"
    got=$(psql -X -q -A -t -d "$db" -c "SET search_path = public" \
        -c "SELECT docs.StemWord('mice') || ' ' || docs.StripAndStemText('The churches, boxes') || ' ' || docs.IsStopWord('THE')")
    check "$enc, schema docs" "$got" "mouse church box true"
    got=$(psql -X -q -A -t -d "$db" -c "SET search_path = public" \
        -c "INSERT INTO docs.wordnet_excl VALUES ('churches', 'kirk')" -c "SELECT docs.StemWord('churches')")
    check "$enc, trigger of another schema" "$got" "kirk"
    # Dropped and made again in another schema within one session: the
    # session's module finds the new schema (it keeps the schema it found).
    got=$(psql -X -q -A -t -d "$db" -c "SET search_path = public" -c "SELECT docs.StemWord('mice')" \
        -c "DROP EXTENSION document" -c "CREATE SCHEMA docs2" -c "CREATE EXTENSION document SCHEMA docs2" \
        -c "SELECT docs2.StemWord('churches') || ' ' || docs2.StripAndStemText('The boxes')" | tr '\n' ' ')
    check "$enc, again in another schema, one session" "$got" "mouse church box "
    psql -X -q -d "$db" -c "DROP EXTENSION document"
    got=$(psql -X -q -A -t -d "$db" -c "SELECT count(*) FROM pg_class WHERE relname LIKE 'wordnet%'")
    check "$enc, nothing left after DROP EXTENSION" "$got" "0"
done
echo "$fails failures"
[ "$fails" = 0 ]
