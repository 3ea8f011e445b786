// A hostile core under the tools that look at the library from outside. A true core of this process is made once; the input
// changes it where they read: its headers and notes, the library's description, its registries. They have to end, with tables or
// with a message, and nothing of what the core says reaches the terminal as a command.
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
#include "folder.h"
#include "input.h"
#include "print.h"

namespace {

constexpr size_t kLargestMapping = size_t{1} << 22; // bytes
constexpr size_t kLargestCore = size_t{1} << 26;
constexpr int kFileNote = 0x46494c45;

struct Place {
    size_t nOffset; // in the core
    size_t nSize;
};

struct BaseCore {
    int iFile = memfd_create("core", MFD_CLOEXEC);
    std::string sPath = "/proc/self/fd/" + std::to_string(iFile);
    std::vector<Place> places = {};
    std::vector<ElfW(Phdr)> segments = {};

    BaseCore();
    void AddSegments(std::string *pBytes, std::vector<ElfW(Addr)> *pImage);
    void AddDescription(const std::string &sBytes);
};

// Something in each registry.
void Populate() {
    static VYX_MSG_BLOCK_T s_block;
    static VYX_SEM_T s_sem = nullptr;
    VYX_HANDLE_MSGQ hQueue = nullptr;
    uint32_t nTimer = 0;
    REQUIRE(VYX_Init() == VYX_OK && VYX_MsgQCreateEx(&hQueue) == VYX_OK &&
            VYX_MsgQSendEx(hQueue, &s_block) == VYX_OK);
    REQUIRE(VYX_ThreadPool_CreateFlex(1, 2, 0, VYX_INFINITE) != nullptr && VYX_CreateEvent(1) != nullptr);
    REQUIRE(VYX_SemCreate(&s_sem, 1) == VYX_OK);
    REQUIRE(VYX_SetTimer([](uint32_t, void *) {}, nullptr, 1000000, &nTimer) == VYX_OK);
}

// The program's own mappings but its code, and small ones of the heap.
void BaseCore::AddSegments(std::string *pBytes, std::vector<ElfW(Addr)> *pImage) {
    std::ifstream maps("/proc/self/maps");
    char szProgram[4096] = "";
    REQUIRE(readlink("/proc/self/exe", szProgram, sizeof szProgram - 1) > 0);
    const int iMemory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    unsigned long long nBehindIt = 0;
    for (std::string sLine; std::getline(maps, sLine);) {
        unsigned long long nStart = 0;
        unsigned long long nEnd = 0;
        char szRights[8] = "";
        REQUIRE(std::sscanf(sLine.c_str(), "%llx-%llx %7s", &nStart, &nEnd, szRights) == 3);
        const bool bProgram =
            sLine.find(szProgram) != std::string::npos || nStart == nBehindIt; // its zeros have no name
        if (bProgram && pImage->empty()) // the code is in no core, but the file is named
            *pImage = {1, 1, static_cast<ElfW(Addr)>(nStart), 0, 0};
        if (bProgram)
            (*pImage)[3] = static_cast<ElfW(Addr)>(nBehindIt = nEnd);
        const auto nSize = static_cast<size_t>(nEnd - nStart);
        if (szRights[2] == 'x' ||
            (!bProgram && (std::strncmp(szRights, "rw", 2) != 0 || nSize > kLargestMapping)) ||
            pBytes->size() + nSize > kLargestCore)
            continue;
        std::string sMapping(nSize, '\0');
        if (pread64(iMemory, sMapping.data(), nSize, static_cast<off_t>(nStart)) !=
            static_cast<ssize_t>(nSize))
            continue;
        ElfW(Phdr) segment = {};
        segment.p_type = PT_LOAD;
        segment.p_offset = static_cast<ElfW(Off)>(pBytes->size());
        segment.p_vaddr = static_cast<ElfW(Addr)>(nStart);
        segment.p_filesz = segment.p_memsz = static_cast<ElfW(Addr)>(nSize);
        segments.push_back(segment);
        *pBytes += sMapping;
    }
    (void)close(iMemory);
}

// Where the description is, and what it describes.
void BaseCore::AddDescription(const std::string &sBytes) {
    constexpr size_t kAround = 2048;
    for (const char *szRow :
         {"lock.taken", "pool_used", "event.pipe", "log_ring", "timer.period", "queue_closed", "starts"})
        for (size_t nAt = 0; (nAt = sBytes.find(szRow, nAt + 1)) != std::string::npos && nAt > kAround;)
            places.push_back({nAt - kAround, 2 * kAround});
    const auto memory = inspect::OpenCore(sPath);
    const inspect::Description description(*memory);
    for (const inspect::Table &table :
         inspect::Collect(*memory).tables) // it is as true as one of the kernel's
        REQUIRE(!table.rows.empty() || table.key == std::string("flexible_pools") ||
                table.key == std::string("receivers") || table.key == std::string("waits") ||
                table.key == std::string("threads"));
    for (const char *szRegistry : {"starts", "pool", "pool_used", "queue", "timer", "event", "semaphore",
                                   "flex", "log", "cond_wait"}) {
        if (!description.Has(szRegistry))
            continue;
        const inspect::Row &row = description.Get(szRegistry);
        for (const auto &segment : segments)
            if (row.address >= segment.p_vaddr && row.address - segment.p_vaddr < segment.p_filesz)
                places.push_back(
                    {static_cast<size_t>(segment.p_offset + (row.address - segment.p_vaddr)), row.size});
    }
}

BaseCore::BaseCore() {
    Populate();
    static const fuzz::Folder s_folder;
    const std::string sImage = s_folder / "image"; // nobody may wait for what the core names
    REQUIRE(mkfifo(sImage.c_str(), 0600) == 0);
    std::string sBytes(16384, '\0'); // headers and the note
    std::vector<ElfW(Addr)> image;
    AddSegments(&sBytes, &image);
    const struct {
        ElfW(Word) nName, nSize, nType;
        char szName[8];
    } note = {5, static_cast<ElfW(Word)>(image.size() * sizeof image[0] + sImage.size() + 1), kFileNote,
              "CORE"};
    ElfW(Phdr) notes = {};
    notes.p_type = PT_NOTE;
    notes.p_offset = 8192;
    notes.p_filesz = static_cast<ElfW(Addr)>(sizeof note + note.nSize);
    segments.insert(segments.begin(), notes);
    ElfW(Ehdr) header = {};
    const size_t nImage =
        static_cast<size_t>(segments[1].p_offset); // the class and byte order are those of any of ours
    for (const auto &segment : segments)
        if (segment.p_type == PT_LOAD && segment.p_vaddr == image[2])
            std::memcpy(header.e_ident, &sBytes[static_cast<size_t>(segment.p_offset)], EI_NIDENT);
    header.e_type = ET_CORE;
    header.e_phoff = sizeof header;
    header.e_phentsize = sizeof segments[0];
    segments.resize(std::min<size_t>(segments.size(), 100));
    header.e_phnum = static_cast<ElfW(Half)>(segments.size());
    std::memcpy(sBytes.data(), &header, sizeof header);
    std::memcpy(&sBytes[sizeof header], segments.data(), segments.size() * sizeof segments[0]);
    std::memcpy(&sBytes[8192], &note, sizeof note);
    std::memcpy(&sBytes[8192 + sizeof note], image.data(), image.size() * sizeof image[0]);
    std::memcpy(&sBytes[8192 + sizeof note + image.size() * sizeof image[0]], sImage.c_str(),
                sImage.size() + 1);
    REQUIRE(write(iFile, sBytes.data(), sBytes.size()) == static_cast<ssize_t>(sBytes.size()));
    places = {{0, sizeof header}, {sizeof header, 8 * sizeof segments[0]}, {8192, 64}, {nImage, 1024}};
    AddDescription(sBytes);
}

void Look(const std::string &sPath) {
    try {
        const auto memory = inspect::OpenCore(sPath);
        const inspect::Report report = inspect::Collect(*memory);
        for (const std::string &sText : {inspect::ToText(report), inspect::ToJson({report})})
            for (const char c : sText)
                REQUIRE(static_cast<unsigned char>(c) >= ' ' || c == '\n');
        REQUIRE(!inspect::ToPrometheus({report}).empty());
    } catch (const inspect::Error &error) {
        REQUIRE(error.what()[0] != '\0');
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const BaseCore s_base;
    fuzz::Input input(pData, nSize);
    std::vector<std::pair<off_t, std::string>> before; // what is changed
    while (!input.AtEnd()) {
        const Place &place = s_base.places[input.Pick(static_cast<unsigned>(s_base.places.size()))];
        const auto iAt = static_cast<off_t>(place.nOffset + input.Number<uint16_t>() % place.nSize / 4 * 4);
        const unsigned nKind = input.Pick(4);
        const auto &segment = s_base.segments[1 + input.Byte() % (s_base.segments.size() - 1)];
        const auto nPointer = static_cast<ElfW(Addr)>(segment.p_vaddr + input.Number<uint16_t>() * 8);
        std::string sNew = nKind == 0
                               ? std::string(reinterpret_cast<const char *>(&nPointer), sizeof nPointer)
                               : input.Text(nKind == 1 ? 1 : 4 * nKind - 4);
        std::string sOld(sNew.size(), '\0');
        REQUIRE(pread(s_base.iFile, sOld.data(), sOld.size(), iAt) >= 0);
        before.emplace_back(iAt, sOld);
        REQUIRE(pwrite(s_base.iFile, sNew.data(), sNew.size(), iAt) == static_cast<ssize_t>(sNew.size()));
    }
    Look(s_base.sPath);
    for (auto it = before.rbegin(); it != before.rend(); ++it)
        REQUIRE(pwrite(s_base.iFile, it->second.data(), it->second.size(), it->first) ==
                static_cast<ssize_t>(it->second.size()));
    return 0;
}
