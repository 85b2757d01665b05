
-- The client channel: files on the client's machine (served by docsql).
-- Sends the server file fromname to the client file toname; returns toname.
-- Needs superuser or pg_read_server_files.
CREATE FUNCTION PutClientFile(fromname text, toname text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_PutClientFile' LANGUAGE C VOLATILE PARALLEL UNSAFE;
COMMENT ON FUNCTION PutClientFile(text, text) IS 'send a server file to a file on the client''s machine (docsql)';

-- Reads a client file into the server and reports what arrived: its size
-- and MD5.  Checks the channel; the server's copy is removed at once.
CREATE FUNCTION dt_ClientFileInfo(clientpath text, OUT size bigint, OUT md5 text) RETURNS record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_ClientFileInfo' LANGUAGE C VOLATILE PARALLEL UNSAFE;
COMMENT ON FUNCTION dt_ClientFileInfo(text) IS 'read a client file into the server (docsql) and report its size and MD5';
