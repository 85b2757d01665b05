#include "ravel.h"

#include <cstring>

namespace dt {

const RavelAliases Falias[] = {
    {"ascii", "asc"},
    {"avalon", "ava"},
    {"displaywrite", "dw"},
    {"executivewriter", "ex"},
    {"framemaker", "fr"},
    {"ibmdca", "dca"},
    {"interleaf", "il"},
    {"islandwrite", "iw"},
    {"leadingedge", "le"},
    {"microsoftword", "msw"},
    {"msword", "msw"},
    {"multimate", "mm"},
    {"officewriter", "ow"},
    {"pcwrite", "pcw"},
    {"pfsprofessional", "pfsp"},
    {"pfswrite", "pfs"},
    {"q&awrite", "qa"},
    {"rft", "dca"},
    {"samna", "sam"},
    {"spellbinder", "sb"},
    {"volkswriter", "vw"},
    {"word", "msw"},
    {"wordforwindows", "ww"},
    {"wordperfect", "wp"},
    {"wordperfect5", "wp5"},
    {"wordstar", "ws"},
    {"wordstar2000", "ws2"},
    {"xywrite", "xy"},
    {nullptr, nullptr},
};

int fa_lookup(char *name) {
    for (const RavelAliases *a = Falias; a->fa_name; a++) {
        if (std::strcmp(a->fa_name, name) == 0) {
            // Every alias is shorter than its name: it fits in place.
            std::strcpy(name, a->fa_alias);
            return 1;
        }
    }
    return 0;
}

bool fa_lookup(std::string &name) {
    for (const RavelAliases *a = Falias; a->fa_name; a++) {
        if (name == a->fa_name) {
            name = a->fa_alias;
            return true;
        }
    }
    return false;
}

const char *const kRavelLinkName = "input.docx";

namespace {

struct Route {
    const char *from;
    RavelConverter conv;
};

RavelConverter Conv(std::vector<std::string> argv, RavelInput input = RavelInput::Argument,
                    std::vector<std::string> after = {}) {
    RavelConverter c;
    c.argv = std::move(argv);
    c.input = input;
    c.after = std::move(after);
    return c;
}

// Every converter writes text; the engine's text format is "asc".
const std::vector<Route> &Routes() {
    static const std::vector<Route> routes = {
        // WordPerfect, any version: libwpd's text writer.
        {"wp", Conv({"wpd2text"})},
        {"wp5", Conv({"wpd2text"})},
        // Microsoft Word: antiword for the binary formats of Word 2 to 2003
        // (no line wrapping), catdoc (no wrapping) when antiword refuses the
        // file; catdoc also reads Word files that are RTF inside.
        {"msw", Conv({"antiword", "-w", "0"})},
        {"msw", Conv({"catdoc", "-w"})},
        {"ww", Conv({"antiword", "-w", "0"})},
        {"ww", Conv({"catdoc", "-w"})},
        // Rich Text Format.
        {"rtf", Conv({"unrtf", "--text", "--nopict"})},
        // OpenDocument text, without line wrapping.
        {"odt", Conv({"odt2txt", "--width=-1"})},
        // Office Open XML: docx2txt hands its path argument to a shell (and
        // copies standard input to a fixed directory), so it reads a link
        // with a harmless name; "-" is standard output.
        {"docx", Conv({"docx2txt"}, RavelInput::FixedName, {"-"})},
        // PDF, in reading order; "-" is standard output.
        {"pdf", Conv({"pdftotext", "-q", "-enc", "UTF-8", "-nopgbrk"}, RavelInput::Argument, {"-"})},
        // HTML: html2text takes an argument for a URL, so the document comes
        // on standard input; no backspace emphasis, plain ASCII, long lines.
        {"html", Conv({"html2text", "-nobs", "-ascii", "-width", "1000"}, RavelInput::StandardInput)},
    };
    return routes;
}

}  // namespace

std::vector<RavelConverter> RavelConverters(const std::string &from, const std::string &to) {
    std::vector<RavelConverter> out;
    if (to != "asc") return out;
    for (const Route &r : Routes())
        if (from == r.from) out.push_back(r.conv);
    return out;
}

std::vector<std::string> RavelArgv(const RavelConverter &c, const std::string &inpath) {
    std::vector<std::string> argv = c.argv;
    if (c.input != RavelInput::StandardInput) argv.push_back(inpath);
    argv.insert(argv.end(), c.after.begin(), c.after.end());
    return argv;
}

}  // namespace dt
