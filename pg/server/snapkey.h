// What an MVCC snapshot sees, kept for comparison with later snapshots.
//
// Two MVCC snapshots of the same transaction and command with the same
// bounds and the same lists of running transactions see the same rows of
// every table, so anything read under the first holds for the second.
#pragma once

#include <vector>

extern "C" {
#include "postgres.h"
#include "access/transam.h"
}

namespace dt::pg {

struct SnapKey {
    bool valid = false;
    LocalTransactionId lxid = 0;
    CommandId curcid = 0;
    TransactionId xmin = 0, xmax = 0;
    bool suboverflowed = false;
    std::vector<TransactionId> xip, subxip;
};

// How the active snapshot compares with the one of a key: the same; the
// same but for its command (it sees what the transaction itself did up to
// another command, and all else alike); or different (also when the key is
// not valid or no MVCC snapshot is active).  No allocation.
enum class SnapMatch { kDiffers, kSame, kOtherCommand };
SnapMatch MatchSnapshot(const SnapKey &k, CommandId *curcid);

// Whether the active snapshot is the one of key.
inline bool SameSnapshot(const SnapKey &k) { return MatchSnapshot(k, nullptr) == SnapMatch::kSame; }

// The key of the active snapshot; not valid when there is no active MVCC
// snapshot.
SnapKey CurrentSnapKey();

}  // namespace dt::pg
