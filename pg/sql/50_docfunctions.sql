
-- Lengths, handles and text of documents.
CREATE FUNCTION DocLength(doc) RETURNS integer
    AS 'MODULE_PATHNAME', 'pgdoc_DocLength' LANGUAGE C STRICT STABLE PARALLEL SAFE;
CREATE FUNCTION DocLOHandle(doc) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_DocLOHandle' LANGUAGE C STRICT IMMUTABLE PARALLEL SAFE;
CREATE FUNCTION DocLOHandleExternal(doc) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_DocLOHandleExternal' LANGUAGE C STRICT IMMUTABLE PARALLEL SAFE;
CREATE FUNCTION dt_LOhandles(doc) RETURNS text[]
    AS 'MODULE_PATHNAME', 'pgdoc_dt_LOhandles' LANGUAGE C STRICT IMMUTABLE PARALLEL SAFE;
CREATE FUNCTION GetDocText(doc) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_GetDocText' LANGUAGE C STRICT STABLE;
-- A server copy of the document: "spec:file" (needs pg_write_server_files).
CREATE FUNCTION GetDocInternal(doc, directory text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_GetDocInternal' LANGUAGE C STRICT VOLATILE;
-- Run a command on a server copy of the document (needs pg_execute_server_program).
CREATE FUNCTION DocDisplay(doc, command text, display text) RETURNS integer
    AS 'MODULE_PATHNAME', 'pgdoc_DocDisplay' LANGUAGE C STRICT VOLATILE;
CREATE FUNCTION DocPrint(doc, command text) RETURNS integer
    AS 'MODULE_PATHNAME', 'pgdoc_DocPrint' LANGUAGE C STRICT VOLATILE;
-- Term occurrences and distinct terms (stop words dropped, stems counted).
CREATE FUNCTION DocWordCnt(doc) RETURNS integer
    AS 'MODULE_PATHNAME', 'pgdoc_DocWordCnt' LANGUAGE C STRICT STABLE;
CREATE FUNCTION DocUWordCnt(doc) RETURNS integer
    AS 'MODULE_PATHNAME', 'pgdoc_DocUWordCnt' LANGUAGE C STRICT STABLE;
