// The order of a queue's messages: descending priority, equal ones in order of arrival.
#ifndef VYX_MSG_MSGQ_INDEX_H
#define VYX_MSG_MSGQ_INDEX_H

#include <array>
#include <cstdint>

#include <vyx/msg.h>

// A queued message. Its block of memory ends with the iDataLen bytes of data that there are, so that a message takes
// what it needs: struMsg is never copied or assigned as a whole.
struct VYX_MQ_MSG_S {
    VYX_MQ_MSG_S *pNext; // the next one of its list
    VYX_MSG_BLOCK_T struMsg;
};

namespace vyx_inter {

// Messages by priority. Links them through their own fields, so it needs no memory and nothing in it can fail. Neither
// copies nor frees messages.
class MsgIndex {
  public:
    // Puts a message behind all those of its priority and higher ones.
    void Append(VYX_MQ_MSG_S *pMsg);

    // Takes the first message out; null if there is none.
    VYX_MQ_MSG_S *RemoveFirst();

  private:
    friend struct QueueRows;
    // Messages in order of arrival, of one priority or, if it is mixed, of several.
    struct Bucket {
        VYX_MQ_MSG_S *pFirst;
        VYX_MQ_MSG_S *pLast;
        int32_t iLowest; // of the priorities in it
        int32_t iHighest;

        [[nodiscard]] bool IsMixed() const { return iLowest != iHighest; }
        void Append(VYX_MQ_MSG_S *pMsg);
    };
    // Splitting the highest bucket until it is not mixed takes one for each bit of a priority at most.
    static constexpr uint32_t kBuckets = 40;

    [[nodiscard]] uint32_t Search(int32_t iPriority) const;
    void MakeRoom();
    void SplitHighest();
    VYX_MQ_MSG_S *First(); // null if there is none; the highest bucket is not mixed then

    // The first m_nBuckets are in use: ascending, without common priorities, none empty.
    std::array<Bucket, kBuckets> m_buckets = {};
    uint32_t m_nBuckets = 0;
};

} // namespace vyx_inter

#endif
