// A message queue as a list in the order of the priorities, in which messages of one priority keep their order; and what is
// sent to it.
#ifndef VYX_FUZZ_QUEUE_MODEL_H_
#define VYX_FUZZ_QUEUE_MODEL_H_

#include <cstdint>
#include <list>
#include <string>

#include "input.h"

namespace fuzz {

struct Message {
    int32_t iType;
    int32_t iPriority;
    std::string sData;
};

class QueueModel {
  public:
    [[nodiscard]] bool IsEmpty() const { return m_messages.empty(); }
    void Put(const Message &message) {
        auto itAt = m_messages.begin();
        while (itAt != m_messages.end() && itAt->iPriority >= message.iPriority)
            ++itAt;
        m_messages.insert(itAt, message);
    }
    // The first one; there is one.
    Message Take() {
        const Message first = m_messages.front();
        m_messages.pop_front();
        return first;
    }

  private:
    std::list<Message> m_messages;
};

// One message, or a row of them whose priorities rise or fall.
struct Row {
    int32_t iType;
    int64_t iPriority; // of the first
    int32_t iLength;   // bytes, -1 to 8128: below and above what is allowed
    int32_t iStep;
    unsigned nMany;
};

inline Row NextRow(Input *pInput) {
    Row row = {};
    row.iType = pInput->Byte();
    const unsigned nSpread = pInput->Pick(4);
    row.iPriority = nSpread == 0  ? static_cast<int32_t>(pInput->Pick(3))
                    : nSpread < 3 ? pInput->Number<int8_t>()
                                  : pInput->Number<int32_t>();
    row.iLength = std::max(-1, pInput->Byte() * 32 - 32);
    row.iStep = pInput->Number<int8_t>();
    row.nMany = row.iType % 4 == 0 ? pInput->Pick(64) : 1;
    return row;
}

} // namespace fuzz

#endif
