// A row of buckets that are sorted only as far as receivers have asked.
//
// Each bucket has the messages of a range of priorities, as a list in order of arrival. The first message is looked for
// in the highest bucket: while that has several priorities, it is split in the middle between its lowest and its highest
// one. So a message is moved once for each bit of its priority at most, mostly long after it came, and together with its
// neighbours in memory. A priority that has a bucket of its own keeps it: one message of another priority does not
// cause a long list to be gone through again.
//
// A handful of priorities thus have a bucket each, and nothing is ever split. With many, new messages go to the
// end of some mixed bucket without being compared with others.
#include "msg/msgq_index.h"

#include <algorithm>

namespace vyx_inter {

void MsgIndex::Bucket::Append(VYX_MQ_MSG_S *pMsg) {
    const int32_t iPriority = pMsg->struMsg.iPriority;
    if (pFirst == nullptr)
        *this = {pMsg, pMsg, iPriority, iPriority};
    pLast->pNext = pMsg;
    pMsg->pNext = nullptr;
    pLast = pMsg;
    iLowest = std::min(iLowest, iPriority);
    iHighest = std::max(iHighest, iPriority);
}

// Result: how many buckets begin at this priority or below.
uint32_t MsgIndex::Search(int32_t iPriority) const {
    uint32_t nBucket = m_nBuckets; // from above: what is sent is often among the first to be received
    while (nBucket != 0 && m_buckets[nBucket - 1].iLowest > iPriority)
        --nBucket;
    return nBucket;
}

// Leaves a bucket free. If there is none, the lowest two become one: they are needed last.
void MsgIndex::MakeRoom() {
    if (m_nBuckets < kBuckets)
        return;
    m_buckets[0].pLast->pNext = m_buckets[1].pFirst;
    m_buckets[0].pLast = m_buckets[1].pLast;
    m_buckets[0].iHighest = m_buckets[1].iHighest;
    std::copy(m_buckets.begin() + 2, m_buckets.end(), m_buckets.begin() + 1);
    --m_nBuckets;
}

void MsgIndex::SplitHighest() {
    MakeRoom();
    const Bucket &highest = m_buckets[m_nBuckets - 1];
    const int64_t iMiddle =
        (int64_t{highest.iLowest} + highest.iHighest) >> 1; // rounded down: below the highest
    std::array<Bucket, 2> parts = {};
    VYX_MQ_MSG_S *pMsg = highest.pFirst;
    while (pMsg != nullptr) {
        VYX_MQ_MSG_S *pNext = pMsg->pNext;
        parts[pMsg->struMsg.iPriority > iMiddle ? 1 : 0].Append(pMsg);
        pMsg = pNext;
    }
    m_buckets[m_nBuckets - 1] = parts[0];
    m_buckets[m_nBuckets++] = parts[1];
}

void MsgIndex::Append(VYX_MQ_MSG_S *pMsg) {
    const int32_t iPriority = pMsg->struMsg.iPriority;
    if (m_nBuckets == 0) { // most queues are empty most of the time
        pMsg->pNext = nullptr;
        m_buckets[m_nBuckets++] = {pMsg, pMsg, iPriority, iPriority};
        return;
    }
    MakeRoom();
    uint32_t nPlace = Search(iPriority);
    if (nPlace == 0 && m_buckets[0].IsMixed())
        nPlace = 1;
    if (nPlace != 0 && (m_buckets[nPlace - 1].IsMixed() || m_buckets[nPlace - 1].iLowest == iPriority)) {
        m_buckets[nPlace - 1].Append(pMsg);
        return;
    }
    std::copy_backward(m_buckets.begin() + nPlace, m_buckets.begin() + m_nBuckets,
                       m_buckets.begin() + m_nBuckets + 1);
    m_buckets[nPlace] = {};
    m_buckets[nPlace].Append(pMsg);
    ++m_nBuckets;
}

VYX_MQ_MSG_S *MsgIndex::First() {
    if (m_nBuckets == 0)
        return nullptr;
    while (m_buckets[m_nBuckets - 1].IsMixed())
        SplitHighest();
    return m_buckets[m_nBuckets - 1].pFirst;
}

VYX_MQ_MSG_S *MsgIndex::RemoveFirst() {
    VYX_MQ_MSG_S *pFirst = First();
    if (pFirst == nullptr)
        return nullptr;
    Bucket &highest = m_buckets[m_nBuckets - 1];
    highest.pFirst = pFirst->pNext;
    if (highest.pFirst == nullptr)
        --m_nBuckets;
    return pFirst;
}

} // namespace vyx_inter
