// The extension's library: module magic and the settings it defines.
#include "boundary.h"
#include "module.h"
#include "filterrun.h"
#include "loownership.h"
#include "clientchannel.h"
#include "tempfile.h"
#include "wordcharset.h"
#include "wordnet.h"
#include "interrupt.h"
#include "searchsel.h"
#include "rankingsettings.h"

#include <sys/stat.h>

#include <cstdlib>

extern "C" {
#include "access/genam.h"
#include "access/htup_details.h"
#include "access/table.h"
#include "catalog/indexing.h"
#include "catalog/pg_extension.h"
#include "utils/fmgroids.h"
#include "utils/guc.h"
#include "utils/inval.h"
#include "utils/syscache.h"
PG_MODULE_MAGIC;
void _PG_init(void);
}

namespace dt::pg {
char *home_setting = nullptr;
char *tmpdir_setting = nullptr;
bool dump_stored_form_setting = false;
}  // namespace dt::pg

std::string dt::pg::HomeDir() {
    const char *env = getenv("VX_HOME");
    if (env && *env) return env;
    if (home_setting && *home_setting) return home_setting;
    throw dt::Error::User("the document module has no home directory", "58P01",
                          "VX_HOME is not set in the server's environment and document.home is empty.");
}

std::string dt::pg::TempBaseDir() {
    if (tmpdir_setting && *tmpdir_setting) return tmpdir_setting;
    struct stat st;
    if (stat("/usr/tmp", &st) == 0 && S_ISDIR(st.st_mode)) return "/usr/tmp";
    return "/tmp";
}

namespace {

// The extension's schema as last found, until a function or schema
// changes: the extension cannot move (it is not relocatable), and dropping
// it drops its functions, so the next lookup after a DROP and CREATE
// EXTENSION in any schema reads pg_extension again.
Oid cachedExtensionSchema = InvalidOid;
bool extensionSchemaWatched = false;

void ForgetExtensionSchema(Datum, int, uint32) { cachedExtensionSchema = InvalidOid; }

}  // namespace

Oid dt::pg::ExtensionSchemaC() {
    if (OidIsValid(cachedExtensionSchema)) return cachedExtensionSchema;
    if (!extensionSchemaWatched) {
        CacheRegisterSyscacheCallback(PROCOID, ForgetExtensionSchema, (Datum) 0);
        CacheRegisterSyscacheCallback(NAMESPACEOID, ForgetExtensionSchema, (Datum) 0);
        extensionSchemaWatched = true;
    }
    Oid nsp = InvalidOid;
    Relation rel = table_open(ExtensionRelationId, AccessShareLock);
    ScanKeyData key;
    ScanKeyInit(&key, Anum_pg_extension_extname, BTEqualStrategyNumber, F_NAMEEQ,
                CStringGetDatum("document"));
    SysScanDesc scan = systable_beginscan(rel, ExtensionNameIndexId, true, nullptr, 1, &key);
    HeapTuple tup = systable_getnext(scan);
    if (HeapTupleIsValid(tup)) nsp = ((Form_pg_extension)GETSTRUCT(tup))->extnamespace;
    systable_endscan(scan);
    table_close(rel, AccessShareLock);
    cachedExtensionSchema = nsp;
    return nsp;
}

void _PG_init(void) {
    DefineCustomStringVariable(
        "document.home", "Home of the document module (used when VX_HOME is not set).",
        "The stop-word list is read from HOME/extend/document/install/stopwords and the "
        "filter programs from HOME/extend/document/bin.",
        &dt::pg::home_setting, DOCUMENT_HOME_DEFAULT, PGC_SUSET, 0, nullptr, nullptr, nullptr);
    DefineCustomStringVariable(
        "document.tmpdir", "Directory for the document module's temporary files.",
        "Defaults to /usr/tmp when it exists, else /tmp.", &dt::pg::tmpdir_setting, "",
        PGC_SUSET, 0, nullptr, nullptr, nullptr);
    DefineCustomBoolVariable(
        "document.client_channel", "The client serves client files (set by docsql when it connects).",
        "When on, the server may read files from the client and write files to it during a statement.",
        &dt::pg::client_channel_setting, false, PGC_USERSET, 0, nullptr, nullptr, nullptr);
    DefineCustomBoolVariable(
        "document.dump_stored_form", "doc values are written out in their complete stored form.",
        "For dumps: pg_dump run by a superuser with PGOPTIONS='-c document.dump_stored_form=on' "
        "writes values that a superuser's restore takes back without reading any file.",
        &dt::pg::dump_stored_form_setting, false, PGC_SUSET, 0, nullptr, nullptr, nullptr);
    dt::pg::DefineTextAnalysisSettings();
    dt::pg::DefineRankingSettings();
    dt::pg::DefineFilterSettings();
    dt::pg::LargeObjectOwnershipInit();
    // Long loops of the core give the server's cancels and timeouts a say.
    dt::SetInterruptPoll(&dt::pg::CheckInterrupts);
    MarkGUCPrefixReserved("document");
    dt::pg::TempFileInit();
    dt::pg::StartWordCharset();
    // The search estimates read each query once per planning.
    dt::pg::InstallPlannerCount();
    // Backends killed without a chance to clean up leave their directories
    // of temporary files behind; whoever loads the library next removes them.
    dt::pg::SweepDeadBackendDirs();
}
