#include "pool/waiting.h"

#include <algorithm>
#include <atomic>

#include <vyx/sys.h>

namespace vyx_inter {

namespace {

std::atomic<int32_t> s_nSpinning{0}; // threads that look for something without sleeping, in all pools

// One processor stays free for whoever is to provide what the others look for.
int32_t SpinLimit_Local() {
    static const int32_t s_nLimit = std::max(VYX_GetCPUNumber(), 1) - 1;
    return s_nLimit;
}

} // namespace

SpinTurn::SpinTurn() : m_bGranted(s_nSpinning.fetch_add(1) < SpinLimit_Local()) {}
SpinTurn::~SpinTurn() {
    s_nSpinning.fetch_sub(1);
}

} // namespace vyx_inter
