// A hostile core under the tools that look at the library from outside. A true core of this process is made once; the input
// changes it where they read: its headers and notes, the library's description, its registries. They have to end, with tables or
// with a message, and nothing of what the core says reaches the terminal as a command.
#include <clocale>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>
#include <vyx/vyx.h>

#include "description.h"
#include "input.h"
#include "print.h"
#include "support/temp_dir.h"

extern "C" char __executable_start, _end; // of this program, by the linker

namespace {

constexpr unsigned long long kTooLarge = 1 << 22;     // bytes, of a mapping
constexpr unsigned long long kTooLargeHere = 1 << 26; // of the program's, where a sanitizer has its own
constexpr size_t kMostSegments = 100;

// How the core begins; the memory follows.
struct Head {
    ElfW(Ehdr) header;
    ElfW(Phdr) notes, segments[kMostSegments];
    struct __attribute__((packed)) {
        ElfW(Word) nName, nSize, nType;
        char szName[8];
        ElfW(Addr) image[5];
        char szImage[64];
    } files;
};

struct Place {
    size_t nOffset; // in the core
    size_t nSize;
};

struct BaseCore {
    int iFile = memfd_create("core", MFD_CLOEXEC);
    std::string sPath = "/proc/self/fd/" + std::to_string(iFile);
    std::string sBytes;
    Head head = {};
    size_t nSegments = 0;
    std::vector<Place> places = {};
    VYX_SEM_T hSem = nullptr;
    size_t nNext = 0; // the link from its record to the next one

    BaseCore();
    void Populate();
    void AddMemory();
    size_t OffsetOf(uint64_t nAddress) const;
    void AddHead();
    void AddDescription();
    void Write(size_t nAt, const std::string &sNew) const;
};

ElfW(Addr) AddressOf(const void *p) {
    return static_cast<ElfW(Addr)>(reinterpret_cast<uintptr_t>(p));
}

// Something in each registry.
void BaseCore::Populate() {
    static VYX_MSG_BLOCK_T s_block;
    VYX_HANDLE_MSGQ hQueue = nullptr;
    uint32_t nTimer = 0;
    REQUIRE(VYX_Init() == VYX_OK && VYX_MsgQCreateEx(&hQueue) == VYX_OK &&
            VYX_MsgQSendEx(hQueue, &s_block) == VYX_OK && VYX_SemCreate(&hSem, 1) == VYX_OK);
    REQUIRE(VYX_ThreadPool_CreateFlex(1, 2, 0, VYX_INFINITE) != nullptr && VYX_CreateEvent(1) != nullptr);
    REQUIRE(VYX_SetTimer([](uint32_t, void *) {}, nullptr, 1000000, &nTimer) == VYX_OK);
}

// What is small and no code.
void BaseCore::AddMemory() {
    std::ifstream maps("/proc/self/maps");
    const int iMemory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    sBytes.resize(sizeof head);
    for (std::string sLine; std::getline(maps, sLine) && nSegments < kMostSegments;) {
        unsigned long long nStart = 0;
        unsigned long long nEnd = 0;
        char szRights[8] = "";
        REQUIRE(std::sscanf(sLine.c_str(), "%llx-%llx %7s", &nStart, &nEnd, szRights) == 3);
        const bool bHere = nStart >= AddressOf(&__executable_start) && nStart < AddressOf(&_end);
        const unsigned long long nLimit = bHere ? kTooLargeHere : kTooLarge;
        std::string sMapping(static_cast<size_t>(std::min(nEnd - nStart, nLimit)), '\0');
        if (szRights[2] == 'x' || sMapping.size() == nLimit ||
            pread64(iMemory, sMapping.data(), sMapping.size(), static_cast<off_t>(nStart)) < 0)
            continue;
        ElfW(Phdr) &segment = head.segments[nSegments++];
        segment.p_type = PT_LOAD;
        segment.p_offset = static_cast<ElfW(Off)>(sBytes.size());
        segment.p_vaddr = static_cast<ElfW(Addr)>(nStart);
        segment.p_filesz = segment.p_memsz = static_cast<ElfW(Addr)>(sMapping.size());
        sBytes += sMapping;
    }
    (void)close(iMemory);
}

// In the core.
size_t BaseCore::OffsetOf(uint64_t nAddress) const {
    for (const auto &segment : head.segments)
        if (nAddress - segment.p_vaddr < segment.p_filesz)
            return static_cast<size_t>(segment.p_offset + (nAddress - segment.p_vaddr));
    return 0;
}

void BaseCore::AddHead() {
    static const support::TempDir s_folder("/dev/shm");
    const std::string sImage = s_folder / "image"; // nobody may wait for what the core names
    REQUIRE(mkfifo(sImage.c_str(), 0600) == 0);
    const size_t nImage = OffsetOf(AddressOf(&__executable_start));
    std::memcpy(head.header.e_ident, &sBytes[nImage],
                EI_NIDENT); // the class and byte order are those of this program
    head.header.e_type = ET_CORE;
    head.header.e_phoff = offsetof(Head, notes);
    head.header.e_phentsize = sizeof head.notes;
    head.header.e_phnum = static_cast<ElfW(Half)>(1 + nSegments);
    head.notes.p_type = PT_NOTE;
    head.notes.p_offset = offsetof(Head, files);
    head.notes.p_filesz = sizeof head.files;
    head.files = {5,      sizeof head.files.image + sizeof head.files.szImage,         NT_FILE,
                  "CORE", {1, 1, AddressOf(&__executable_start), AddressOf(&_end), 0}, ""};
    std::strncpy(head.files.szImage, sImage.c_str(), sizeof head.files.szImage - 1);
    std::memcpy(sBytes.data(), &head, sizeof head);
    places = {{0, sizeof head.header},
              {offsetof(Head, notes), 8 * sizeof head.notes},
              {offsetof(Head, files), 64},
              {nImage, 1024}};
}

// Where the description is, and what it describes.
void BaseCore::AddDescription() {
    constexpr size_t kAround = 2048;
    for (const char *szRow :
         {"lock.taken", "pool_used", "event.pipe", "log_ring", "timer.period", "queue_closed", "starts"})
        for (size_t nAt = 0; (nAt = sBytes.find(szRow, nAt + 1)) != std::string::npos && nAt > kAround;)
            places.push_back({nAt - kAround, 2 * kAround});
    const auto memory = inspect::OpenCore(sPath);
    const inspect::Description description(*memory);
    for (const char *szRegistry :
         {"starts", "pool", "pool_used", "queue", "timer", "event", "semaphore", "flex", "log", "cond_wait"})
        if (description.Has(szRegistry))
            places.push_back(
                {OffsetOf(description.Get(szRegistry).address), description.Get(szRegistry).size});
    places.push_back({OffsetOf(AddressOf(hSem)), description.RecordSize("semaphore")});
    nNext = places.back().nOffset + description.Get("semaphore.next").offset;
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

void BaseCore::Write(size_t nAt, const std::string &sNew) const {
    REQUIRE(pwrite(iFile, sNew.data(), sNew.size(), static_cast<off_t>(nAt)) ==
            static_cast<ssize_t>(sNew.size()));
}

BaseCore::BaseCore() {
    REQUIRE(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr);
    Populate();
    AddMemory();
    AddHead();
    Write(0, sBytes);
    AddDescription();
    // It is as true as one of the kernel's; and a list that goes round in a circle is given up.
    const auto tables = Look(sPath);
    REQUIRE(std::count_if(tables.begin(), tables.end(),
                          [](const auto &table) { return !table.rows.empty(); }) >= 7);
    Write(nNext, {reinterpret_cast<const char *>(&hSem), sizeof hSem});
    const auto circle = Look(sPath);
    REQUIRE(std::any_of(circle.begin(), circle.end(), [](const auto &table) { return !table.complete; }));
    Write(nNext, sBytes.substr(nNext, sizeof hSem));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const BaseCore s_base;
    fuzz::Input input(pData, nSize);
    std::vector<Place> changed;
    while (!input.AtEnd()) {
        const Place &place = s_base.places[input.Pick(static_cast<unsigned>(s_base.places.size()))];
        const size_t nAt = place.nOffset + input.Number<uint16_t>() % place.nSize / 4 * 4;
        const unsigned nKind = input.Pick(4);
        const auto &segment = s_base.head.segments[input.Byte() % s_base.nSegments];
        const auto nPointer = static_cast<ElfW(Addr)>(segment.p_vaddr + input.Number<uint16_t>() * 8);
        const std::string sNew = nKind == 0
                                     ? std::string(reinterpret_cast<const char *>(&nPointer), sizeof nPointer)
                                     : input.Text(nKind == 1 ? 1 : 4 * nKind - 4);
        s_base.Write(nAt, sNew);
        changed.push_back({nAt, sNew.size()});
    }
    (void)Look(s_base.sPath);
    for (const Place &place : changed)
        s_base.Write(place.nOffset, s_base.sBytes.substr(place.nOffset, place.nSize));
    return 0;
}
