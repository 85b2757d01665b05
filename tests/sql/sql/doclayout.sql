-- The stored layout of doc values, read back byte by byte.
-- An ExternalFile value: flag 1, no table, the handle "EXT:" + server path.
CREATE TEMP TABLE lay AS
  SELECT dt_DocBytes('format(ascii),ExternalFile:/etc/hostname'::doc) AS b;
-- Header size: literal of 40 characters + 29 = 69, rounded to 72.
SELECT length(b) AS total,
       get_byte(b, 22) + 256 * get_byte(b, 23) AS ht_lo_offset,
       get_byte(b, 24) + 256 * get_byte(b, 25) AS ht_nameoffset,
       get_byte(b, 20) AS ht_flags,
       get_byte(b, 12) AS ht_offset,
       get_byte(b, 4) AS ht_wordcnt,
       get_byte(b, 26) AS ht_spare,
       get_byte(b, length(b) - 1) AS final_nul
FROM lay;
-- Strings area: spec NUL path NUL, zero fill.
SELECT convert_from(substring(b from 28 for 26), 'SQL_ASCII') AS spec,
       get_byte(b, 53) AS nul,
       convert_from(substring(b from 55 for 13), 'SQL_ASCII') AS path,
       get_byte(b, 67) AS nul2
FROM lay;
-- The handle: its length word counts itself (the server stores length << 2
-- on this little-endian machine), the path starts at its byte 8.
SELECT convert_from(substring(b from 77 for length(b) - 77), 'SQL_ASCII') AS handle,
       (get_byte(b, 72) + 256 * get_byte(b, 73)) >> 2 AS handle_len,
       length(b) - 1 - 72 AS expected_len,
       convert_from(substring(b from 81 for length(b) - 81), 'SQL_ASCII') AS path_at_handle_byte_8
FROM lay;
-- Output shows the handle.
SELECT 'format(ascii),ExternalFile:/etc/hostname'::doc;
-- The file's current size is recorded.
SELECT get_byte(b, 16) + 256 * get_byte(b, 17) = length(pg_read_binary_file('/etc/hostname')) AS size_ok FROM lay;
