# demo: boolean queries and a query by document over a small collection
set -euo pipefail
DOCSQL=${DOC_BUILD:-build}/docsql
client=$(mktemp -d /tmp/democlient.XXXXXX)
trap 'rm -rf "$client"' EXIT
# The sample collection: the copyright files of installed Debian packages.
n=0
for p in postgresql-15 wordnet-base cmake make bash coreutils apt libpq-dev g++ tar gzip; do
    f=/usr/share/doc/$p/copyright
    [ -f "$f" ] || continue
    cp "$f" "$client/$p.txt"
    n=$((n + 1))
done
echo "sample collection: $n copyright files from /usr/share/doc"
{
    echo "CREATE TABLE notices(package text, body doc);"
    for f in "$client"/*.txt; do
        p=$(basename "$f" .txt)
        echo "INSERT INTO notices VALUES ('$p', 'format(ascii):$f');"
    done
} >"$client/load.sql"
"$DOCSQL" -X -q -f "$client/load.sql"
"$DOCSQL" -X -e <<'SQL'
-- What a query turns into (stems, no precedence, negations as and-not).
SELECT PrintExprTree('Licenses and (GNU or !Berkeley)');
-- Boolean queries, one row at a time (left to right: the third is
-- (regents or princeton) and !postgresql).
SELECT package, DocWordCnt(body) AS words FROM notices WHERE Contains(body, 'warranty and !(bsd or regents)') ORDER BY package;
SELECT package FROM notices WHERE body @@ 'regents or princeton and !postgresql' ORDER BY package;
SELECT package FROM notices WHERE body @@@ 'postgresql wordnet princeton' ORDER BY package;
-- Query by document: the notices that share a term with PostgreSQL's, and
-- PostgreSQL's own notice written out as a weighted query.
SELECT b.package FROM notices a JOIN notices b ON b.body % a.body
 WHERE a.package = 'postgresql-15' AND b.package <> a.package ORDER BY 1;
SELECT left(MakeQueryFromDoc(body), 160) || ' ...' AS query FROM notices WHERE package = 'wordnet-base';
SELECT package FROM notices
 WHERE Contains(body, (SELECT MakeQueryFromDoc(body) FROM notices WHERE package = 'wordnet-base'))
 ORDER BY package;
SQL
