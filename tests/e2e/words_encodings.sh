# Words in every language: in a UTF-8 database and in a LATIN1 database,
# letters beyond ASCII are letters and fold to lower case, in documents
# (client files, server files, texts), queries, word lists and the stop-word
# file alike; ASCII text gives what it always gave.
source "$(dirname "$0")/channel_common.bash"
SF=$DOC_SERVER_DIR/words
mkdir -p "$SF/home/extend/document/install"
# The stop-word file of each database is in that database's encoding.
printf 'the\nand\nüber\nÄrger\n' >"$SF/home/extend/document/install/stopwords"
mkdir -p "$SF/home1/extend/document/install"
printf 'the\nand\nüber\nÄrger\n' | iconv -f UTF-8 -t LATIN1 >"$SF/home1/extend/document/install/stopwords"
printf 'Ein Résumé über die BRÜCKE; naïve Straße, café.\n' >"$SF/de.txt"
iconv -f UTF-8 -t LATIN1 "$SF/de.txt" >"$SF/de1.txt"
chown -R postgres: "$SF" 2>/dev/null || true
mkdir -p "$SERVER_TMP"; chown postgres: "$SERVER_TMP" 2>/dev/null || true

createdb -E UTF8 -T template0 --locale=C.UTF-8 wu8
# No LATIN1 locale is generated on this machine: the database runs under the
# C locale, where each byte counts as the Unicode character it stands for.
createdb -E LATIN1 -T template0 --locale=C wl1
for db in wu8 wl1; do
    psql -X -q -d $db -c "CREATE EXTENSION document" \
        -c "ALTER DATABASE $db SET document.tmpdir = '$SERVER_TMP'"
done
psql -X -q -d wu8 -c "ALTER DATABASE wu8 SET document.home = '$SF/home'"
psql -X -q -d wl1 -c "ALTER DATABASE wl1 SET document.home = '$SF/home1'"

for db in wu8 wl1; do
    x() { PGCLIENTENCODING=UTF8 "$DOCSQL" -X -qtA -d $db "$@" 2>&1; }
    file=de.txt; [ $db = wl1 ] && file=de1.txt
    same "straße brücke naïve café résumé ärger" "$(x -c "SELECT StripAndStemText('Straße über Brücke naïve café résumé ÜBER Ärger')")" \
         "$db: letters beyond ASCII stay in words, fold to lower case, stop words drop (Ärger is listed with a capital: never a stop word)"
    same "dog cat x25_b x a b" "$(x -c "SELECT StripAndStemText('The Dogs and CATS x25_b 25x a-b')")" "$db: ASCII words as before"
    same "t|t|f" "$(x -c "SELECT IsStopWord('ÜBER'), IsStopWord('über'), IsStopWord('ärger')")" \
         "$db: stop words from the file, looked up in lower case, stored as written"
    same "strasse or straße or brücke" "$(x -c "SELECT OrTerms('STRASSE Straße über Brücke')")" "$db: word lists"
    x -c "CREATE TABLE d(id int, body doc)" >/dev/null
    x -c "CREATE TRIGGER d_lo AFTER INSERT OR UPDATE OR DELETE ON d FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()" >/dev/null
    x -c "INSERT INTO d VALUES (1, 'format(ascii),ExternalFile:$SF/$file'), (2, dt_FromText('Ein Résumé über die BRÜCKE; naïve Straße, café. ' || repeat('Größe Öl ', 20)))" >/dev/null
    cp "$SF/$file" "$WORK/client.txt"
    yes "$(cat "$WORK/client.txt")" | head -20 >"$WORK/client.txt.big"
    x -c "INSERT INTO d VALUES (3, 'format(ascii):$WORK/client.txt'), (4, 'format(ascii):$WORK/client.txt.big')" >/dev/null
    same "1 2 3 4" "$(x -c "SELECT string_agg(id::text, ' ' ORDER BY id) FROM d WHERE Contains(body, 'résumé and BRÜCKE')")" \
         "$db: Contains finds words beyond ASCII in every kind of document"
    same "1 2 3 4" "$(x -c "SELECT string_agg(id::text, ' ' ORDER BY id) FROM d WHERE body @@ 'Straße and !Ärger and (café or naïve)'")" \
         "$db: queries with operators"
    same "" "$(x -c "SELECT string_agg(id::text, ' ') FROM d WHERE Contains(body, 'stra or br or cke')")" \
         "$db: no pieces of words"
    same "brücke:1 café:1 die:1 ein:1 naïve:1 résumé:1 straße:1" \
         "$(x -c "SELECT string_agg(term || ':' || count, ' ' ORDER BY term) FROM dt_Terms((SELECT body FROM d WHERE id = 1))")" \
         "$db: the terms of a server file"
    same "20" "$(x -c "SELECT count FROM dt_Terms((SELECT body FROM d WHERE id = 4)) WHERE term = 'résumé'")" \
         "$db: counts in a large object"
    out=$(x -c "SELECT Contains(body, 'résumé') FROM d WHERE id = 1")
    same "t" "$out" "$db: Contains(body, 'résumé') raises nothing"
done
same "größe:20 öl:20" "$(PGCLIENTENCODING=UTF8 q -d wl1 -c "SELECT string_agg(term || ':' || count, ' ' ORDER BY term) FROM dt_Terms((SELECT body FROM d WHERE id = 2)) WHERE count = 20")" \
     "wl1: LATIN1 capitals fold to lower case"
same "σοφία:2 москва:2" "$(PGCLIENTENCODING=UTF8 q -d wu8 -c "SELECT string_agg(term || ':' || count, ' ' ORDER BY term) FROM dt_Terms(dt_FromText('ΣΟΦΊΑ σοφία МОСКВА Москва'))")" \
     "wu8: Greek and Cyrillic capitals fold to lower case"
# Another single-byte encoding under the C locale: its bytes are taken as
# the characters they stand for in it.
createdb -E WIN1251 -T template0 --locale=C w1251
psql -X -q -d w1251 -c "CREATE EXTENSION document"
same "москва и санкт петербург ёё" "$(PGCLIENTENCODING=UTF8 psql -X -qtA -d w1251 -c "SELECT StripAndStemText('Москва и САНКТ-ПЕТЕРБУРГ, ёЁ')")" \
     "w1251: Cyrillic letters and their case in a WIN1251 database"
finish
