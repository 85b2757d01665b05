# demo: conversion filters: a PostScript, a troff and a word-processor document entered and found by search
set -euo pipefail
DOCSQL=${DOC_BUILD:-build}/docsql
client=$(mktemp -d /tmp/demo_filters.XXXXXX)
trap 'rm -rf "$client"' EXIT
# Documents made from Debian's own sources: the manual page of ls as troff
# and as PostScript, and the GNU GPL as an OpenDocument text and an RTF file.
zcat /usr/share/man/man1/ls.1.gz >"$client/ls.1"
groff -man -Tps "$client/ls.1" >"$client/ls.ps" 2>/dev/null
sed -n '1,80p' /usr/share/common-licenses/GPL-3 >"$client/gpl.txt"
pandoc -s -f markdown --metadata title=License "$client/gpl.txt" -o "$client/gpl.odt"
pandoc -s -f markdown --metadata title=License "$client/gpl.txt" -o "$client/gpl.rtf"
"$DOCSQL" -X -e <<SQL
SELECT source_format, target_format, function_name FROM "DocumentConversions" WHERE installed LIMIT 7;
CREATE TABLE papers (title text, body doc);
INSERT INTO papers VALUES ('ls, PostScript', 'format(postscript):$client/ls.ps'),
                          ('ls, troff', 'format(troff):$client/ls.1'),
                          ('GPL, OpenDocument', 'format(odt):$client/gpl.odt'),
                          ('GPL, RTF', 'format(rtf):$client/gpl.rtf');
SELECT title, dt_GetFormat(body) AS format, DocWordCnt(body) AS words, TopNTerms(body, 6) FROM papers;
SELECT title FROM papers WHERE Contains(body, 'directory and alphabetically');
SELECT title FROM papers WHERE Contains(body, 'freedom and (software or program)');
SQL
