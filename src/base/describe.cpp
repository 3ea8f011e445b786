// What the description says of locks and deadlines, which are fields of many records.
#include "base/describe.h"

#include "base/lock.h"

namespace vyx_inter {

struct LockRows {
    static constexpr DescriptionRow kFields[] = {
        VYX_FIELD("lock.mutex", Lock, m_hMutex),
        VYX_FIELD("lock.rank", Lock, m_eRank),
        VYX_FIELD("lock.taken", Lock, m_nTaken),
        VYX_FIELD("deadline.micros", Deadline, m_iMicros),
    };
};

namespace {

constexpr char kRankPrefix[] = "rank:";

struct RankRows {
    DescriptionRow rows[std::size(kRanks)];
};

constexpr RankRows RankRows_Local() {
    RankRows made = {};
    for (uint32_t nRank = 0; nRank < std::size(kRanks); ++nRank) {
        DescriptionRow &row = made.rows[nRank];
        size_t nEnd = 0;
        for (const char *pNext = kRankPrefix; *pNext != 0; ++pNext)
            row.szName[nEnd++] = *pNext;
        for (const char *pNext = kRanks[nRank].szName; *pNext != 0; ++pNext)
            row.szName[nEnd++] = *pNext;
        row.nOffset = nRank;
        row.nSize = kRanks[nRank].nLevel;
    }
    return made;
}

constexpr RankRows kRankRows = RankRows_Local();

} // namespace

} // namespace vyx_inter

VYX_DESCRIBE(locks, vyx_inter::LockRows::kFields)
VYX_DESCRIBE(ranks, vyx_inter::kRankRows.rows)
