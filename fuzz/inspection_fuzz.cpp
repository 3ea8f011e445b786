// A hostile core under the tools that look at the library from outside. A true core of this process is made once; the input
// changes it where they read: its headers and notes, the library's description, its registries. They have to end, with tables or
// with a message, and nothing of what the core says reaches the terminal as a command.
#include <clocale>
#include <vyx/vyx.h>

#include "hostile_core.h"
#include "print.h"

namespace {

// Something in each registry. Result: the semaphore.
VYX_SEM_T Populate() {
    static VYX_MSG_BLOCK_T s_block;
    VYX_HANDLE_MSGQ hQueue = nullptr;
    VYX_SEM_T hSem = nullptr;
    uint32_t nTimer = 0;
    REQUIRE(VYX_Init() == VYX_OK && VYX_MsgQCreateEx(&hQueue) == VYX_OK &&
            VYX_MsgQSendEx(hQueue, &s_block) == VYX_OK && VYX_SemCreate(&hSem, 1) == VYX_OK);
    REQUIRE(VYX_ThreadPool_CreateFlex(1, 2, 0, VYX_INFINITE) != nullptr && VYX_CreateEvent(1) != nullptr);
    REQUIRE(VYX_SetTimer([](uint32_t, void *) {}, nullptr, 1000000, &nTimer) == VYX_OK);
    return hSem;
}

// Result: the tables; none if the core is refused.
std::vector<inspect::Table> Look(const std::string &sPath) {
    try {
        const auto memory = inspect::OpenCore(sPath);
        const inspect::Report report = inspect::Collect(*memory);
        for (const std::string &sText : {inspect::ToText(report), inspect::ToJson({report})}) {
            for (const char c : sText)
                REQUIRE(static_cast<unsigned char>(c) >= ' ' || c == '\n');
            REQUIRE(std::mbstowcs(nullptr, sText.c_str(), 0) != static_cast<size_t>(-1));
        }
        REQUIRE(!inspect::ToPrometheus({report}).empty());
        return report.tables;
    } catch (const inspect::Error &error) {
        REQUIRE(error.what()[0] != '\0');
        return {};
    }
}

// It is as true as one of the kernel's; and a list that goes round in a circle is given up.
const fuzz::HostileCore &MakeCore() {
    REQUIRE(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr);
    static const VYX_SEM_T s_hSem = Populate();
    static const fuzz::HostileCore s_core(s_hSem);
    const auto tables = Look(s_core.sPath);
    REQUIRE(std::count_if(tables.begin(), tables.end(),
                          [](const auto &table) { return !table.rows.empty(); }) >= 7);
    s_core.Write(s_core.nNext, {reinterpret_cast<const char *>(&s_hSem), sizeof s_hSem});
    const auto circle = Look(s_core.sPath);
    REQUIRE(std::any_of(circle.begin(), circle.end(), [](const auto &table) { return !table.complete; }));
    s_core.Restore({s_core.nNext, sizeof s_hSem});
    return s_core;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const fuzz::HostileCore &s_core = MakeCore();
    fuzz::Input input(pData, nSize);
    std::vector<fuzz::Place> changed;
    while (!input.AtEnd()) {
        const fuzz::Place &place = s_core.places[input.Pick(static_cast<unsigned>(s_core.places.size()))];
        const size_t nAt = place.nOffset + input.Number<uint16_t>() % place.nSize / 4 * 4;
        const unsigned nKind = input.Pick(4);
        const auto &segment = s_core.head.segments[input.Byte() % s_core.nSegments];
        const auto nPointer = static_cast<ElfW(Addr)>(segment.p_vaddr + input.Number<uint16_t>() * 8);
        const std::string sNew = nKind == 0
                                     ? std::string(reinterpret_cast<const char *>(&nPointer), sizeof nPointer)
                                     : input.Text(nKind == 1 ? 1 : 4 * nKind - 4);
        s_core.Write(nAt, sNew);
        changed.push_back({nAt, sNew.size()});
    }
    (void)Look(s_core.sPath);
    for (const fuzz::Place &place : changed)
        s_core.Restore(place);
    return 0;
}
