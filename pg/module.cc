// The extension's library: module magic and the settings it defines.
#include "boundary.h"
#include "module.h"

extern "C" {
#include "utils/guc.h"
PG_MODULE_MAGIC;
void _PG_init(void);
}

namespace dt::pg {
char *home_setting = nullptr;
char *tmpdir_setting = nullptr;
}  // namespace dt::pg

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
    MarkGUCPrefixReserved("document");
}
