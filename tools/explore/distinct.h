// Counts different numbers in a fixed amount of memory.
#ifndef VYX_EXPLORE_DISTINCT_H_
#define VYX_EXPLORE_DISTINCT_H_

#include <cstdint>
#include <vector>

namespace explore {

class Distinct {
  public:
    Distinct() : m_slots(kSlots) {}

    void Add(uint64_t number) {
        number += number == 0 ? 1 : 0;
        for (uint64_t slot = number % kSlots; m_count < kMost; slot = (slot + 1) % kSlots) {
            if (m_slots[slot] == number)
                return;
            if (m_slots[slot] == 0) {
                m_slots[slot] = number;
                m_count++;
                return;
            }
        }
    }
    uint64_t Count() const { return m_count; }
    bool Full() const { return m_count >= kMost; } // there may be more

  private:
    static constexpr uint64_t kSlots = 1u << 20;
    static constexpr uint64_t kMost = kSlots / 4 * 3;
    std::vector<uint64_t> m_slots;
    uint64_t m_count = 0;
};

} // namespace explore

#endif
