// Events: one set by hand, one that follows a socket, and waits for the first of them, with a limit and without; one that is
// reset by two at once, and one that is set by two, which leaves one byte in its pipe.
#include <optional>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "scenario.h"

int main() {
    int ends[2];
    CHECK(VYX_Init() == VYX_OK && socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    VYX_EVENT manual = VYX_CreateEvent(0);
    VYX_EVENT socket = VYX_CreateEvent(0);
    VYX_EVENT twice = VYX_CreateEvent(1);
    const int read_end = dup(ends[0]); // the lowest number that is free
    CHECK(close(read_end) == 0);
    VYX_EVENT both = VYX_CreateEvent(0);
    CHECK(manual != nullptr && socket != nullptr && twice != nullptr && both != nullptr);
    CHECK(VYX_EventSelect(ends[0], socket, VYX_FD_READ | VYX_FD_CLOSE) == VYX_OK);
    {
        Runner sender([&] { CHECK(write(ends[1], "x", 1) == 1); });
        Runner setter([&] { CHECK(VYX_SetEvent(manual) == VYX_TRUE); });
        std::optional<Runner> waiter(
            [&] { CHECK(VYX_WaitForSingleObject(manual, VYX_INFINITE) == VYX_WAIT_OBJECT_0); });
        Runner other([&] { CHECK(VYX_SetEvent(both) == VYX_TRUE && VYX_ResetEvent(twice) == VYX_TRUE); });
        CHECK(VYX_SetEvent(both) == VYX_TRUE && VYX_ResetEvent(twice) == VYX_TRUE);
        const VYX_EVENT events[] = {manual, socket};
        bool seen[2] = {};
        while (!seen[0] || !seen[1]) {
            const uint32_t result =
                VYX_WaitForMultipleObjects(2, events, 0, seen[0] || seen[1] ? 10 : VYX_INFINITE);
            if (result == VYX_WAIT_OBJECT_0 + 1) {
                VYX_NETWORKEVENTS_T what = {};
                char letter = 0;
                CHECK(VYX_EnumNetworkEvents(ends[0], socket, &what) == VYX_OK &&
                      what.lNetworkEvents == VYX_FD_READ);
                CHECK(read(ends[0], &letter, 1) == 1 && letter == 'x');
                seen[1] = true;
            } else if (result == VYX_WAIT_OBJECT_0) {
                seen[0] = true;
                waiter.reset();
                CHECK(VYX_ResetEvent(manual) == VYX_TRUE);
            } else {
                CHECK(result == VYX_WAIT_TIMEOUT);
            }
        }
    }
    CHECK(VYX_CloseEvent(manual) == VYX_TRUE && VYX_CloseEvent(socket) == VYX_TRUE);
    int bytes = 0;
    CHECK(ioctl(read_end, FIONREAD, &bytes) == 0 && bytes == 1 && VYX_CloseEvent(both) == VYX_TRUE);
    CHECK(VYX_WaitForSingleObject(twice, 0) == VYX_WAIT_TIMEOUT && VYX_CloseEvent(twice) == VYX_TRUE);
    CHECK(close(ends[0]) == 0 && close(ends[1]) == 0 && VYX_Fini() == VYX_OK);
}
