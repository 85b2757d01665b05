# demo: the conversion service: a step registered in "DocumentConversions"
set -euo pipefail
dir=${DOC_SERVER_DIR:-/tmp}
cp /usr/share/common-licenses/GPL-3 "$dir/demo_license.txt" 2>/dev/null ||
    printf 'A text to convert.\n' >"$dir/demo_license.txt"
chmod 644 "$dir/demo_license.txt"
psql -X -e -v dir="$dir" <<'SQL'
CREATE FUNCTION ascii_to_upper(i text, o text) RETURNS text LANGUAGE plpgsql AS $$
DECLARE obj oid;
BEGIN
    obj := lo_from_bytea(0, convert_to(upper(pg_read_file(coalesce(dt_GetPathText(i), i))), 'UTF8'));
    PERFORM lo_export(obj, coalesce(dt_GetPathText(o), o));
    PERFORM lo_unlink(obj);
    RETURN o;
END $$;
INSERT INTO "DocumentConversions" VALUES ('ascii', 'upper', 'ascii_to_upper');
SELECT dt_ConversionPath('ascii', 'upper');
SELECT IsConvertible(('format(ascii),ExternalFile:' || :'dir' || '/demo_license.txt')::doc, 'upper');
SELECT formatconvert(:'dir' || '/demo_license.txt', 'format(upper):' || :'dir' || '/demo_license.up');
SELECT left(pg_read_file(:'dir' || '/demo_license.up'), 120) AS converted_start;
SQL
rm -f "$dir/demo_license.txt"
