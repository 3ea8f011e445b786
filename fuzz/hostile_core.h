// A core of this process, and the places of it that the tools which look at the library read.
#ifndef VYX_FUZZ_HOSTILE_CORE_H_
#define VYX_FUZZ_HOSTILE_CORE_H_

#include <vector>
#include <vyx/sync.h>

#include "description.h"
#include "own_core.h"

namespace fuzz {

struct Place {
    size_t nOffset; // in the core
    size_t nSize;
};

struct HostileCore : OwnCore {
    std::vector<Place> places = {{0, sizeof head.header},
                                 {offsetof(CoreHead, notes), 8 * sizeof head.notes},
                                 {offsetof(CoreHead, files), 64},
                                 {OffsetOf(AddressOf(__executable_start)), 1024}};
    size_t nNext = 0; // the link from the semaphore's record to the next one

    // Made while the library has this semaphore, and something in each of its registries.
    explicit HostileCore(VYX_SEM_T hSem) {
        AddDescription();
        AddRegistries(hSem);
    }
    // Writes there what is true.
    void Restore(const Place &place) const {
        Write(place.nOffset, sBytes.substr(place.nOffset, place.nSize));
    }
    // Around some rows of the library's description.
    void AddDescription() {
        constexpr size_t kAround = 2048;
        for (const char *szRow :
             {"lock.taken", "pool_used", "event.pipe", "log_ring", "timer.period", "queue_closed", "starts"})
            for (size_t nAt = 0; (nAt = sBytes.find(szRow, nAt + 1)) != std::string::npos && nAt > kAround;)
                places.push_back({nAt - kAround, 2 * kAround});
    }
    // What it describes.
    void AddRegistries(VYX_SEM_T hSem) {
        const auto memory = inspect::OpenCore(sPath);
        const inspect::Description description(*memory);
        for (const char *szRegistry : {"starts", "pool", "pool_used", "queue", "timer", "event", "semaphore",
                                       "flex", "log", "cond_wait"})
            if (description.Has(szRegistry))
                places.push_back(
                    {OffsetOf(description.Get(szRegistry).address), description.Get(szRegistry).size});
        places.push_back({OffsetOf(AddressOf(hSem)), description.RecordSize("semaphore")});
        nNext = places.back().nOffset + description.Get("semaphore.next").offset;
    }
};

} // namespace fuzz

#endif
