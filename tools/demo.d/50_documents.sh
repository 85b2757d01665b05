# demo: documents: real text files entered from the client, stored, and their top terms
set -euo pipefail
DOCSQL=${DOC_BUILD:-build}/docsql
client=$(mktemp -d /tmp/demodocs.XXXXXX)
chmod 755 "$client"
trap 'rm -rf "$client"' EXIT
# A handful of real texts on the client's machine.
n=0
for f in /usr/share/common-licenses/GPL-3 /usr/share/common-licenses/Apache-2.0 \
         /usr/share/common-licenses/Artistic /usr/share/common-licenses/MPL-2.0; do
    [ -f "$f" ] && cp "$f" "$client/$(basename "$f").txt" && n=$((n + 1))
done
for page in bash grep; do
    f=$(ls /usr/share/man/man1/$page.1.gz 2>/dev/null | head -1)
    # The manual page as a reader sees it (plain zcat when man is missing).
    if [ -n "$f" ]; then
        { MANPAGER=cat MANWIDTH=80 man -l "$f" 2>/dev/null | col -b; } >"$client/$page.1.txt" || true
        [ -s "$client/$page.1.txt" ] || zcat "$f" >"$client/$page.1.txt"
        n=$((n + 1))
    fi
done
printf 'Dogs chase cats.\n' >"$client/note.txt"
ls -l "$client"
"$DOCSQL" -X -e <<SQL
CREATE TABLE library(title text, body doc);
-- The extension gave the table the triggers that tie large objects to rows.
SELECT tgname FROM pg_trigger WHERE tgrelid = 'library'::regclass ORDER BY tgname;
SQL
for f in "$client"/*.txt; do
    "$DOCSQL" -X -c "INSERT INTO library VALUES ('$(basename "$f" .txt)', 'format(ascii):$f')"
done
"$DOCSQL" -X -e <<SQL
SELECT title, DocLength(body) AS bytes, DocWordCnt(body) AS terms, DocUWordCnt(body) AS distinct_terms,
       CASE WHEN dt_LOOid(body) IS NULL THEN 'in row' ELSE 'large object ' || dt_LOOid(body) END AS stored
  FROM library ORDER BY title;
SELECT title, TopNTerms(body, 6) AS top_terms FROM library ORDER BY title;
SELECT title, Occurrences(body, 'licenses, patents and warranties') AS occurrences FROM library ORDER BY title;
-- Deleting a row frees its large object.
SELECT count(*) AS large_objects FROM pg_largeobject_metadata;
DELETE FROM library WHERE title = 'grep.1';
SELECT count(*) AS large_objects FROM pg_largeobject_metadata;
SQL
# A round trip: the stored GPL text pushed back to the client and compared.
exported=$("$DOCSQL" -X -At -c "SELECT findparamtx('ImportName', dt_Export(body, '$client/back')) FROM library WHERE title = 'GPL-3'")
echo "exported to the client as $exported"
if cmp -s "$exported" "$client/GPL-3.txt"; then
    echo "the exported file equals the original, byte for byte"
else
    echo "the exported file differs from the original" >&2
    exit 1
fi
