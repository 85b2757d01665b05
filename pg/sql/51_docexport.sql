
-- Documents sent to the client's machine (through docsql).
-- GetDoc: a client copy of the document text in the directory; returns
-- "spec:client file".
CREATE FUNCTION GetDoc(doc, directory text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_GetDoc' LANGUAGE C STRICT VOLATILE PARALLEL UNSAFE;
-- dt_Export: the document as a client file; returns a description that
-- dt_Import reads back ("handle(H),ImportName(file),spec:path").
CREATE FUNCTION dt_Export(doc, filename text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_dt_Export' LANGUAGE C STRICT VOLATILE PARALLEL UNSAFE;
-- dt_Import: a new document from an export description: the client file is
-- read again (in INSERT or UPDATE, like a literal) and a new term table built.
CREATE FUNCTION dt_Import(text) RETURNS doc
    AS 'MODULE_PATHNAME', 'pgdoc_dt_Import' LANGUAGE C STRICT VOLATILE PARALLEL UNSAFE;
-- dt_ConvertTx: the document converted to a format (through
-- "DocumentConversions"), sent to a client file in the directory; returns
-- the converted document's specification with the client file's name.
CREATE FUNCTION dt_ConvertTx(doc, format text, directory text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_dt_ConvertTx' LANGUAGE C STRICT VOLATILE PARALLEL UNSAFE;
