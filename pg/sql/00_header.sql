-- document: full-text documents for PostgreSQL.
\echo Use "CREATE EXTENSION document" to load this file. \quit
