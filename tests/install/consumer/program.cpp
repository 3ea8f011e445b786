// A C++ program at work with the library. The exit status names the first step that went wrong; 0 is success.
#include <iconv.h>
#include <vyx/vyx.h>

namespace {

struct Shared {
    VYX_Sema sema{0, 1};
    VYX_Mutex mutex;
    int iValue = 0;
};

void *Work(void *pParam) {
    auto *pShared = static_cast<Shared *>(pParam);
    pShared->mutex.Lock();
    pShared->iValue = 7;
    pShared->mutex.Unlock();
    pShared->sema.Post();
    return nullptr;
}

int UseThread() {
    Shared shared;
    VYX_Thread thread;
    if (shared.sema.TimedWait(20) != VYX_ERROR || thread.Create(Work, &shared, 0, 0, 0, 0) != VYX_OK)
        return 2;
    const bool bPosted = shared.sema.TimedWait(60000) == VYX_OK;
    return thread.Wait() == VYX_OK && bPosted && shared.iValue == 7 ? 0 : 3;
}

// Where the C library came without its conversion tables, a conversion gives an empty text.
bool HasTables() {
    const iconv_t hConverter = iconv_open("UTF-8", "EUC-CN");
    return hConverter != reinterpret_cast<iconv_t>(-1) && iconv_close(hConverter) == 0;
}

} // namespace

int main() {
    if (VYX_Init() != VYX_OK)
        return 1;
    if (const int iStep = UseThread())
        return iStep;
    const bool bTables = HasTables();
    if (VYX_A2UTF8("\xD6\xD0") != (bTables ? "\xE4\xB8\xAD" : "") ||
        VYX_UTF82A("\xE4\xB8\xAD") != (bTables ? "\xD6\xD0" : ""))
        return 4;
    vyx::vyx_time time(20);
    time += vyx::vyx_time(22);
    if (time != vyx::vyx_time(42) || vyx::vyx_time_tick::us2ms(1500) != 2)
        return 5;
    return VYX_Fini() == VYX_OK ? 0 : 6;
}
