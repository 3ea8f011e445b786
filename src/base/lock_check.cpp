// The check of the order of locks, in builds that have it (VYX_CHECK_LOCKS).
#include "base/lock.h"

#if defined(VYX_CHECK_LOCKS)

#include <cstdio>
#include <cstdlib>

namespace {

constexpr size_t kMostHeld = 16;

// The ranks of the locks that the thread holds, in the order in which it took them.
struct Held {
    vyx_inter::Rank ranks[kMostHeld];
    size_t nCount;
};
thread_local Held t_held = {};

const vyx_inter::RankRow &Row_Local(vyx_inter::Rank eRank) {
    return vyx_inter::kRanks[static_cast<size_t>(eRank)];
}

[[noreturn]] void Fail_Local(const char *szWhat, vyx_inter::Rank eTaken, const char *szHeld) {
    (void)std::fprintf(stderr, "lock order: %s %s while %s is held\n", Row_Local(eTaken).szName, szWhat,
                       szHeld);
    std::abort();
}

void Push_Local(vyx_inter::Rank eRank) {
    if (t_held.nCount == kMostHeld)
        Fail_Local("is one lock too many", eRank, "a full list");
    t_held.ranks[t_held.nCount++] = eRank;
}

} // namespace

namespace vyx_inter {

void NoteAcquire(Rank eRank) {
    for (size_t i = 0; i < t_held.nCount; ++i)
        if (Row_Local(t_held.ranks[i]).nLevel >= Row_Local(eRank).nLevel)
            Fail_Local("is taken", eRank, Row_Local(t_held.ranks[i]).szName);
    Push_Local(eRank);
}

void NoteTried(Rank eRank) {
    Push_Local(eRank);
}

void NoteRelease(Rank eRank) {
    size_t i = t_held.nCount;
    while (i > 0 && t_held.ranks[i - 1] != eRank)
        --i;
    if (i == 0)
        Fail_Local("is given back", eRank, "none of its rank");
    for (; i < t_held.nCount; ++i)
        t_held.ranks[i - 1] = t_held.ranks[i];
    --t_held.nCount;
}

} // namespace vyx_inter

#endif
