-- Conversion steps: text of PostScript files.  They read and write server
-- files by the paths of their specifications, so ordinary roles may not
-- call them directly; the conversion service runs them.
CREATE FUNCTION ps2ascii(inspec text, outspec text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_ps2ascii' LANGUAGE C VOLATILE STRICT;
CREATE FUNCTION dvips2ascii(inspec text, outspec text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_dvips2ascii' LANGUAGE C VOLATILE STRICT;
REVOKE ALL ON FUNCTION ps2ascii(text, text) FROM PUBLIC;
REVOKE ALL ON FUNCTION dvips2ascii(text, text) FROM PUBLIC;
COMMENT ON FUNCTION ps2ascii(text, text) IS
    'Conversion step: writes the text of the PostScript file of the first specification to the file of the second; the second specification, or null when a file cannot be opened';
COMMENT ON FUNCTION dvips2ascii(text, text) IS
    'Conversion step: writes the text of PostScript made from DVI (dvips) to the file of the second specification; the second specification, or null when a file cannot be opened';
