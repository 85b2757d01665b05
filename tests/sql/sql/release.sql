-- The release string, exactly (two blanks before the 3).
SELECT dt_Release();
SELECT dt_Release() = 'Release 1.2.1 Fri Feb  3 15:18:40 PST 1995' AS exact;
SELECT length(dt_Release());
