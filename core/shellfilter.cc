#include "shellfilter.h"

#include "commandline.h"
#include "convpath.h"
#include "formatspec.h"

namespace dt {

ShellFilterRun ShellFilterPlan(const std::string &ifspec, const std::string &ofspec,
                               const std::string &programFile) {
    ShellFilterRun run;
    std::string ifpath = SpecPath(ifspec);
    std::string ofpath = SpecPath(ofspec);
    run.dir = path(ifpath);
    if (run.dir.empty()) run.dir = "/";
    run.argv = {programFile, PathArgument(ifpath)};
    if (!ofpath.empty() && ofpath[0] != '/')
        run.outpath = run.dir + "/" + ofpath;
    else
        run.outpath = ofpath;
    return run;
}

}  // namespace dt
