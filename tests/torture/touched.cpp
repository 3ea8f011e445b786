// Part of the library that tests/torture/mutants.py builds: one byte for each function, 1 once it has been entered. The
// bytes are a mapped file, so that they outlive every way in which a process may end, and children write to them, too.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

extern "C" __attribute__((visibility("hidden"))) const char __ehdr_start; // where the linker's output begins

#define VYX_UNTRACED extern "C" __attribute__((no_instrument_function, visibility("hidden")))

static const std::size_t VYX_TOUCHED_MAX = 8U << 20U;
static char *g_pTouched = nullptr;

// The file has the name of the program or library that these functions are in.
__attribute__((constructor(101), no_instrument_function)) static void Open_Local() {
    const char *pFolder = std::getenv("VYX_TOUCHED");
    Dl_info module = {};
    char szModule[PATH_MAX];
    if (pFolder == nullptr || dladdr(&__ehdr_start, &module) == 0 ||
        realpath(module.dli_fname, szModule) == nullptr)
        return;
    std::string name = szModule;
    std::replace(name.begin(), name.end(), '/', '%');
    const int iFile = open((pFolder + ("/" + name)).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (iFile < 0)
        return;
    void *pBytes = MAP_FAILED;
    if (ftruncate(iFile, VYX_TOUCHED_MAX) == 0)
        pBytes = mmap(nullptr, VYX_TOUCHED_MAX, PROT_READ | PROT_WRITE, MAP_SHARED, iFile, 0);
    (void)close(iFile);
    g_pTouched = pBytes == MAP_FAILED ? nullptr : static_cast<char *>(pBytes);
}

VYX_UNTRACED void __cyg_profile_func_enter(void *pFunction, void *) {
    const std::size_t iAt =
        reinterpret_cast<std::uintptr_t>(pFunction) - reinterpret_cast<std::uintptr_t>(&__ehdr_start);
    if (g_pTouched != nullptr && iAt < VYX_TOUCHED_MAX)
        g_pTouched[iAt] = 1;
}

VYX_UNTRACED void __cyg_profile_func_exit(void *, void *) {}
