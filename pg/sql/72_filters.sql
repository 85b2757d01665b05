-- Conversion steps that run programs: troff, TeX and LinuxDoc SGML through
-- the filter programs of the module's home (extend/document/bin), and the
-- word-processor formats through the engine ravelcnvt.  They read and write
-- server files by the paths of their specifications, so ordinary roles may
-- not call them directly; the conversion service runs them on the files it
-- makes.
CREATE FUNCTION troff2ascii(inspec text, outspec text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_troff2ascii' LANGUAGE C VOLATILE STRICT;
CREATE FUNCTION tex2ascii(inspec text, outspec text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_tex2ascii' LANGUAGE C VOLATILE STRICT;
CREATE FUNCTION qwertz_sgml2latex(inspec text, outspec text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_qwertz_sgml2latex' LANGUAGE C VOLATILE STRICT;
CREATE FUNCTION ravelconv(inspec text, outspec text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_ravelconv' LANGUAGE C VOLATILE STRICT;
-- The step that converts nothing: the input specification itself.
CREATE FUNCTION raveldummy(inspec text, outspec text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_raveldummy' LANGUAGE C IMMUTABLE STRICT;
-- The word-processor conversion engine: (filter directory, source format,
-- target format, source version, target version, input path, output path);
-- 0 when converted, 2 when it has no converter for the two formats, 3 when
-- the converters failed.
CREATE FUNCTION ravelcnvt(binpath text, infmt text, outfmt text, inversion text,
                          outversion text, inpath text, outpath text) RETURNS integer
    AS 'MODULE_PATHNAME', 'pgdoc_ravelcnvt' LANGUAGE C VOLATILE STRICT;
REVOKE ALL ON FUNCTION troff2ascii(text, text) FROM PUBLIC;
REVOKE ALL ON FUNCTION tex2ascii(text, text) FROM PUBLIC;
REVOKE ALL ON FUNCTION qwertz_sgml2latex(text, text) FROM PUBLIC;
REVOKE ALL ON FUNCTION ravelconv(text, text) FROM PUBLIC;
REVOKE ALL ON FUNCTION ravelcnvt(text, text, text, text, text, text, text) FROM PUBLIC;
COMMENT ON FUNCTION troff2ascii(text, text) IS
    'Conversion step: plain text of a troff document by the filter program "deroff"';
COMMENT ON FUNCTION tex2ascii(text, text) IS
    'Conversion step: plain text of a TeX or LaTeX document by the filter program "detex"';
COMMENT ON FUNCTION qwertz_sgml2latex(text, text) IS
    'Conversion step: LaTeX of a LinuxDoc (QWERTZ) SGML document by the filter program "format"';
COMMENT ON FUNCTION ravelconv(text, text) IS
    'Conversion step: a word-processor document through the conversion engine ravelcnvt';
COMMENT ON FUNCTION raveldummy(text, text) IS
    'Conversion step that converts nothing: returns the input specification';
COMMENT ON FUNCTION ravelcnvt(text, text, text, text, text, text, text) IS
    'Word-processor conversion engine: converts the input file to the output file by short format names; 0 on success';

-- The conversions the installation offers.  Rows are searched in this
-- order, a direct conversion first.
INSERT INTO "DocumentConversions" (source_format, target_format, function_name, installed) VALUES
    ('postscript', 'ascii', 'ps2ascii', true),
    ('dvips', 'ascii', 'dvips2ascii', true),
    ('troff', 'ascii', 'troff2ascii', true),
    ('tex', 'ascii', 'tex2ascii', true),
    ('latex', 'ascii', 'tex2ascii', true),
    ('sgml', 'tex', 'qwertz_sgml2latex', true),
    ('avalon', 'ascii', 'ravelconv', true),
    ('displaywrite', 'ascii', 'ravelconv', true),
    ('executivewriter', 'ascii', 'ravelconv', true),
    ('framemaker', 'ascii', 'ravelconv', true),
    ('ibmdca', 'ascii', 'ravelconv', true),
    ('interleaf', 'ascii', 'ravelconv', true),
    ('islandwrite', 'ascii', 'ravelconv', true),
    ('leadingedge', 'ascii', 'ravelconv', true),
    ('microsoftword', 'ascii', 'ravelconv', true),
    ('msword', 'ascii', 'ravelconv', true),
    ('multimate', 'ascii', 'ravelconv', true),
    ('officewriter', 'ascii', 'ravelconv', true),
    ('pcwrite', 'ascii', 'ravelconv', true),
    ('pfsprofessional', 'ascii', 'ravelconv', true),
    ('pfswrite', 'ascii', 'ravelconv', true),
    ('q&awrite', 'ascii', 'ravelconv', true),
    ('rft', 'ascii', 'ravelconv', true),
    ('samna', 'ascii', 'ravelconv', true),
    ('spellbinder', 'ascii', 'ravelconv', true),
    ('volkswriter', 'ascii', 'ravelconv', true),
    ('word', 'ascii', 'ravelconv', true),
    ('wordforwindows', 'ascii', 'ravelconv', true),
    ('wordperfect', 'ascii', 'ravelconv', true),
    ('wordperfect5', 'ascii', 'ravelconv', true),
    ('wordstar', 'ascii', 'ravelconv', true),
    ('wordstar2000', 'ascii', 'ravelconv', true),
    ('xywrite', 'ascii', 'ravelconv', true),
    ('rtf', 'ascii', 'ravelconv', true),
    ('odt', 'ascii', 'ravelconv', true),
    ('docx', 'ascii', 'ravelconv', true),
    ('pdf', 'ascii', 'ravelconv', true),
    ('html', 'ascii', 'ravelconv', true),
    ('text', 'ascii', 'raveldummy', true);
