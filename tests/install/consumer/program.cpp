// A C++ program at work with the library. The exit status names the first step that went wrong; 0 is success.
#include <vyx/vyx.h>

static void *Post(void *pSema) {
    return static_cast<VYX_Sema *>(pSema)->Post() == VYX_OK ? pSema : nullptr;
}

int main() {
    if (VYX_Init() != VYX_OK)
        return 1;
    VYX_Sema sema(0, 1);
    VYX_Thread thread;
    if (sema.TimedWait(20) != VYX_ERROR || thread.Create(Post, &sema, 0, 0, 0, 0) != VYX_OK ||
        sema.TimedWait(60000) != VYX_OK || thread.Wait() != VYX_OK)
        return 2;
    const std::string text =
        VYX_A2UTF8("text"); // empty where the C library came without its conversion tables
    if (!text.empty() && text != "text")
        return 3;
    vyx::vyx_time time(20);
    time += vyx::vyx_time(22);
    if (time != vyx::vyx_time(42) || vyx::vyx_time_tick::us2ms(1500) != 2)
        return 4;
    return VYX_Fini() == VYX_OK ? 0 : 5;
}
