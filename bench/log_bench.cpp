// What a log line costs the thread that writes it, and how many lines a second reach the files.
//
// Each side logs the same text with the same arguments into files in a folder of its own, through its asynchronous
// logger with one thread of its own behind it. The cost is taken in bursts that fit the side's queue, with time to
// write them in between, so that it is the call's and not the disk's.
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include <vyx/log.h>

#include "log_bench.h"

namespace {

class Vyx {
  public:
    explicit Vyx(const std::string &folder) {
        (void)StartLogService();
        (void)EnableTarget(VYX_LOG_TARGET_FILE, folder.c_str(), 0xFFFFFFFF, 0);
    }
    ~Vyx() { (void)StopLogService(true); }
    Vyx(const Vyx &) = delete;
    Vyx &operator=(const Vyx &) = delete;

    static void Write(int iThread, int n) {
        while (WriteLog(VYX_LOG_LEVEL_INF, "log_bench.cpp", 42, "thread %d writes line %d of many", iThread,
                        n) != 0)
            std::this_thread::sleep_for(std::chrono::microseconds(20)); // the ring is full
    }
};

const int kRegistered = RegisterLogger<Vyx>("vyx", 0);

} // namespace

int main(int argc, char **argv) {
    return bench::Run(argc, argv);
}
