// The order of a queue's messages: descending priority, equal ones in order of arrival.
#ifndef VYX_MSG_MSGQ_INDEX_H
#define VYX_MSG_MSGQ_INDEX_H

#include <cstdint>

#include <vyx/msg.h>

// A queued message. Its block of memory ends with the iDataLen bytes of data that there are, so that a message takes
// what it needs: struMsg is never copied or assigned as a whole.
struct VYX_MQ_MSG_S {
    VYX_MQ_MSG_S
    *pNext; // the next one of its list; in the index, where the last of a ring leads to the first
    VYX_MSG_BLOCK_T struMsg;
};

namespace vyx_inter {

struct MsgIndexNode;

// Messages by priority. The messages of one priority form a ring; a tree of priorities holds each ring's last
// message. Neither copies nor frees messages. Everything but an object without messages needs a common lock.
class MsgIndex {
  public:
    // Puts messages of one priority, linked from the first to the last, behind all those of this priority and
    // higher ones. Cannot fail: see m_pLate.
    void Append(VYX_MQ_MSG_S *pFirst, VYX_MQ_MSG_S *pLast);

    // Takes the first message out; null if there is none.
    VYX_MQ_MSG_S *RemoveFirst();

    bool Empty() const;

    // The first message; null if there is none.
    VYX_MQ_MSG_S *First() const;

    // Frees what the index itself holds. Only without messages.
    void Release();

  private:
    bool AppendToTree(VYX_MQ_MSG_S *pFirst, VYX_MQ_MSG_S *pLast);
    const MsgIndexNode *FirstLeaf() const;

    MsgIndexNode *m_pRoot = nullptr; // kept when the last message goes, so that the next needs no memory
    // Messages that came when there was no memory for the tree, and those that came after them, as a plain list
    // in order: slow, but nothing is lost. The tree gets messages again once these have gone.
    VYX_MQ_MSG_S *m_pLate = nullptr;
};

} // namespace vyx_inter

#endif
