# demo: the extension is installed: release, format specifications, errors
set -euo pipefail
psql -X -e <<'SQL'
SELECT dt_Release();
SELECT findparamtx('version', ' format ( wp ) ,, version(5.1):/p') AS version;
SELECT findparamtx('format', 'format(wordperfect),version(5.1):/home/docs/report.wp') AS format;
\set VERBOSITY verbose
SELECT 'NoCopyText:/a/b'::doc;
SQL
