// A true core of this process, made by itself: a file with its data in memory, and with a note of where its program is.
#ifndef VYX_FUZZ_OWN_CORE_H_
#define VYX_FUZZ_OWN_CORE_H_

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "input.h"
#include "support/temp_dir.h"

extern "C" char __executable_start[], _end[]; // of this program, by the linker

namespace fuzz {

inline ElfW(Addr) AddressOf(const void *p) {
    return static_cast<ElfW(Addr)>(reinterpret_cast<uintptr_t>(p));
}

// How the core begins; the memory follows.
struct CoreHead {
    static constexpr size_t kMostSegments = 100;
    ElfW(Ehdr) header;
    ElfW(Phdr) notes, segments[kMostSegments];
    struct __attribute__((packed)) {
        ElfW(Word) nName, nSize, nType;
        char szName[8];
        ElfW(Addr) image[5];
        char szImage[64];
    } files;
};

struct OwnCore {
    int iFile = memfd_create("core", MFD_CLOEXEC);
    std::string sPath = "/proc/self/fd/" + std::to_string(iFile);
    support::TempDir folder{"/dev/shm"};
    CoreHead head = {};
    size_t nSegments = 0;
    std::string sBytes = std::string(sizeof head, '\0'); // what it holds while nothing is written into it

    OwnCore() {
        AddMemory();
        FillHead();
        std::memcpy(sBytes.data(), &head, sizeof head);
        Write(0, sBytes);
    }
    // Where it has what is at that address; 0 if it has not.
    size_t OffsetOf(uint64_t nAddress) const {
        for (const auto &segment : head.segments)
            if (nAddress - segment.p_vaddr < segment.p_filesz)
                return static_cast<size_t>(segment.p_offset + (nAddress - segment.p_vaddr));
        return 0;
    }
    void Write(size_t nAt, const std::string &sNew) const {
        REQUIRE(pwrite(iFile, sNew.data(), sNew.size(), static_cast<off_t>(nAt)) ==
                static_cast<ssize_t>(sNew.size()));
    }
    // What is small and no code.
    void AddMemory() {
        std::ifstream maps("/proc/self/maps");
        const int iMemory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
        for (std::string sLine; std::getline(maps, sLine) && nSegments < CoreHead::kMostSegments;) {
            unsigned long long nStart = 0;
            unsigned long long nEnd = 0;
            char szRights[8] = "";
            REQUIRE(std::sscanf(sLine.c_str(), "%llx-%llx %7s", &nStart, &nEnd, szRights) == 3);
            if (szRights[2] != 'x')
                AddMapping(iMemory, nStart, nEnd);
        }
        (void)close(iMemory);
    }
    void AddMapping(int iMemory, unsigned long long nStart, unsigned long long nEnd) {
        const bool bProgram = nStart >= AddressOf(__executable_start) && nStart < AddressOf(_end);
        const unsigned long long nTooLarge = bProgram ? 1 << 26 : 1 << 22; // it has a sanitizer's data, too
        std::string sMapping(static_cast<size_t>(std::min(nEnd - nStart, nTooLarge)), '\0');
        if (sMapping.size() == nTooLarge ||
            pread64(iMemory, sMapping.data(), sMapping.size(), static_cast<off_t>(nStart)) < 0)
            return;
        ElfW(Phdr) &segment = head.segments[nSegments++];
        segment.p_type = PT_LOAD;
        segment.p_offset = static_cast<ElfW(Off)>(sBytes.size());
        segment.p_vaddr = static_cast<ElfW(Addr)>(nStart);
        segment.p_filesz = segment.p_memsz = static_cast<ElfW(Addr)>(sMapping.size());
        sBytes += sMapping;
    }
    // The class and byte order are those of this program. What it names is a pipe, for which nobody may wait.
    void FillHead() {
        const std::string sImage = folder / "image";
        REQUIRE(mkfifo(sImage.c_str(), 0600) == 0);
        std::memcpy(head.header.e_ident, __executable_start, EI_NIDENT);
        head.header.e_type = ET_CORE;
        head.header.e_phoff = offsetof(CoreHead, notes);
        head.header.e_phentsize = sizeof head.notes;
        head.header.e_phnum = static_cast<ElfW(Half)>(1 + nSegments);
        head.notes.p_type = PT_NOTE;
        head.notes.p_offset = offsetof(CoreHead, files);
        head.notes.p_filesz = sizeof head.files;
        head.files = {5,      sizeof head.files.image + sizeof head.files.szImage,       NT_FILE,
                      "CORE", {1, 1, AddressOf(__executable_start), AddressOf(_end), 0}, ""};
        std::strncpy(head.files.szImage, sImage.c_str(), sizeof head.files.szImage - 1);
    }
};

} // namespace fuzz

#endif
