#include "snapkey.h"

#include "boundary.h"

extern "C" {
#include "storage/proc.h"
#include "utils/snapmgr.h"
}

namespace dt::pg {

SnapMatch MatchSnapshot(const SnapKey &k, CommandId *curcid) {
    if (!k.valid) return SnapMatch::kDiffers;
    return ServerCall([&] {
        if (!ActiveSnapshotSet()) return SnapMatch::kDiffers;
        Snapshot s = GetActiveSnapshot();
        if (s->snapshot_type != SNAPSHOT_MVCC || MyProc->lxid != k.lxid || s->xmin != k.xmin ||
            s->xmax != k.xmax || s->suboverflowed != k.suboverflowed || s->xcnt != k.xip.size() ||
            (uint32)s->subxcnt != k.subxip.size())
            return SnapMatch::kDiffers;
        for (uint32 i = 0; i < s->xcnt; i++)
            if (s->xip[i] != k.xip[i]) return SnapMatch::kDiffers;
        for (int32 i = 0; i < s->subxcnt; i++)
            if (s->subxip[i] != k.subxip[i]) return SnapMatch::kDiffers;
        if (curcid) *curcid = s->curcid;
        return s->curcid == k.curcid ? SnapMatch::kSame : SnapMatch::kOtherCommand;
    });
}

SnapKey CurrentSnapKey() {
    SnapKey k;
    Snapshot s = ServerCall([] { return ActiveSnapshotSet() ? GetActiveSnapshot() : (Snapshot) nullptr; });
    if (!s || s->snapshot_type != SNAPSHOT_MVCC) return k;
    k.valid = true;
    k.lxid = MyProc->lxid;
    k.curcid = s->curcid;
    k.xmin = s->xmin;
    k.xmax = s->xmax;
    k.suboverflowed = s->suboverflowed;
    k.xip.assign(s->xip, s->xip + s->xcnt);
    if (s->subxcnt > 0) k.subxip.assign(s->subxip, s->subxip + s->subxcnt);
    return k;
}

}  // namespace dt::pg
