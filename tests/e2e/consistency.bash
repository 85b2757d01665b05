# Checks of stored documents against their large objects, shared by the
# crash, concurrency and soak tests (sourced after channel_common.bash).
# TABLES: "table.column" items naming every doc column in the database.

# The stored values of every listed column, as one query.
_doc_values() {
    local sep="" sql="" tc
    for tc in $TABLES; do
        sql="$sql$sep SELECT ${tc#*.} AS v FROM ${tc%%.*} WHERE ${tc#*.} IS NOT NULL"
        sep=" UNION ALL"
    done
    echo "$sql"
}
# Large objects that no stored value names.
lo_orphans() { q -c "SELECT count(*) FROM pg_largeobject_metadata m WHERE m.oid NOT IN (SELECT dt_LOOid(v) FROM ($(_doc_values)) s WHERE dt_LOOid(v) IS NOT NULL)"; }
# Stored values whose large object is gone.
lo_lost() { q -c "SELECT count(*) FROM ($(_doc_values)) s WHERE dt_LOOid(v) IS NOT NULL AND dt_LOOid(v) NOT IN (SELECT oid FROM pg_largeobject_metadata)"; }
# Objects named by more than one stored value.
lo_shared() { q -c "SELECT count(*) FROM (SELECT dt_LOOid(v) FROM ($(_doc_values)) s WHERE dt_LOOid(v) IS NOT NULL GROUP BY 1 HAVING count(*) > 1) s"; }
# Stored values whose object the registry does not record, and recorded
# objects that no stored value names.
lo_unrecorded() {
    q -c "SELECT count(*) FROM (SELECT dt_LOOid(v) AS o FROM ($(_doc_values)) s WHERE dt_LOOid(v) IS NOT NULL) s
          FULL JOIN dt_large_objects l ON l.loid = s.o WHERE s.o IS NULL OR l.loid IS NULL"
}
# All four at once: "orphans|lost|shared|unrecorded" must be "0|0|0|0".
lo_state() { echo "$(lo_orphans)|$(lo_lost)|$(lo_shared)|$(lo_unrecorded)"; }
