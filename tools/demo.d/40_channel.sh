# demo: client files: docsql hands a file to the server and gets one back
set -euo pipefail
DOCSQL=${DOC_BUILD:-build}/docsql
client=$(mktemp -d /tmp/democlient.XXXXXX)
trap 'rm -rf "$client"' EXIT
# A real text on the client's machine.
if [ -f /usr/share/common-licenses/GPL-3 ]; then cp /usr/share/common-licenses/GPL-3 "$client/report.txt"
else man -P cat bash 2>/dev/null | head -c 200000 >"$client/report.txt" || echo "a short report" >"$client/report.txt"; fi
echo "client file: $client/report.txt, $(stat -c %s "$client/report.txt") bytes, md5 $(md5sum <"$client/report.txt" | cut -d' ' -f1)"
# A server file to send back (written by the server itself).
server=$DOC_SERVER_DIR/demo-export.txt
"$DOCSQL" -X -e <<SQL
-- The server pulls the client file while the statement runs.
CREATE TABLE arrivals AS SELECT '$client/report.txt' AS path, * FROM dt_ClientFileInfo('$client/report.txt');
TABLE arrivals;
SQL
echo "Intended error: a statement that returns rows cannot take a client file; it says so."
"$DOCSQL" -X -c "SELECT * FROM dt_ClientFileInfo('$client/report.txt')" || true
"$DOCSQL" -X -e <<SQL
-- The server writes a file and pushes it to the client.
COPY (SELECT path || ' arrived with ' || size || ' bytes, md5 ' || md5 FROM arrivals) TO '$server';
SELECT PutClientFile('$server', '$client/receipt.txt');
SQL
echo "client received: $(cat "$client/receipt.txt")"
echo "Intended error: psql cannot take part in the channel; it says so."
psql -X -c "SELECT PutClientFile('$server', '$client/other.txt')" || true
