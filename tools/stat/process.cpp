// A living process: its memory by process_vm_readv, all else by /proc. It is not stopped, and cannot notice.
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <unistd.h>

#include "memory.h"

namespace inspect {
namespace {

std::string Reason() {
    return std::strerror(errno); // NOLINT(concurrency-mt-unsafe): there is one thread
}

class Process : public Memory {
  public:
    explicit Process(int64_t process) {
        number = process;
        name = "process " + std::to_string(process);
        ReadMappings();
        char path[PATH_MAX] = {};
        if (readlink(Path("exe").c_str(), path, sizeof path - 1) > 0)
            program = path;
    }

    bool Read(const std::vector<Part> &parts) override {
        for (size_t first = 0; first < parts.size(); first += kMostParts)
            if (!ReadSome(&parts[first], std::min<size_t>(kMostParts, parts.size() - first)))
                return false;
        return true;
    }

    [[nodiscard]] std::vector<Thread> Threads() const override {
        std::vector<Thread> threads;
        const std::string folder = Path("task");
        DIR *directory = opendir(folder.c_str());
        if (directory == nullptr)
            return threads;
        const bool nested = OwnNumber(std::to_string(number)) != number;
        while (const dirent *entry =
                   readdir(directory)) { // NOLINT(concurrency-mt-unsafe): there is one thread
            const auto thread = static_cast<uint32_t>(std::strtoul(entry->d_name, nullptr, 10));
            std::ifstream file(folder + "/" + entry->d_name + "/stat");
            std::string text;
            if (thread != 0 && std::getline(file, text))
                threads.push_back(ToThread(nested ? OwnNumber(entry->d_name) : thread, text));
        }
        (void)closedir(directory);
        return threads;
    }

    [[nodiscard]] int PipeState(int64_t descriptor) const override {
        const std::string path = Path("fd/" + std::to_string(descriptor));
        char target[64] = {};
        if (readlink(path.c_str(), target, sizeof target - 1) < 0 || std::strncmp(target, "pipe:", 5) != 0)
            return -1;
        const int pipe = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (pipe < 0)
            return -1;
        int bytes = 0;
        const int result = ioctl(pipe, FIONREAD, &bytes);
        (void)close(pipe);
        return result != 0 ? -1 : bytes > 0 ? 1 : 0;
    }

    [[nodiscard]] int64_t MonotonicMicros() const override {
        timespec now = {};
        (void)clock_gettime(CLOCK_MONOTONIC, &now); // it is there
        return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000 + ClockOffset(Path("timens_offsets")) -
               ClockOffset("/proc/self/timens_offsets");
    }

  private:
    static constexpr size_t kMostParts = 512;

    // By how many microseconds a time namespace puts its monotonic clock forward. Kernels without them have no such file.
    static int64_t ClockOffset(const std::string &path) {
        std::ifstream file(path);
        std::string clock;
        int64_t seconds = 0;
        int64_t nanoseconds = 0;
        while (file >> clock >> seconds >> nanoseconds)
            if (clock == "monotonic")
                return seconds * 1000000 + nanoseconds / 1000;
        return 0;
    }

    [[nodiscard]] std::string Path(const std::string &entry) const {
        return "/proc/" + std::to_string(number) + "/" + entry;
    }

    // The number that a thread has in the process itself, which may be in another namespace.
    [[nodiscard]] uint32_t OwnNumber(const std::string &thread) const {
        std::ifstream file(Path("task/" + thread + "/status"));
        std::string line;
        while (std::getline(file, line))
            if (line.compare(0, 6, "NSpid:") == 0)
                return static_cast<uint32_t>(
                    std::strtoul(line.c_str() + line.find_last_of(" \t"), nullptr, 10));
        return static_cast<uint32_t>(std::strtoul(thread.c_str(), nullptr, 10));
    }

    void ReadMappings() {
        errno = 0;
        std::ifstream file(Path("maps"));
        std::string line;
        if (!file && errno == ENOENT)
            throw Ended("there is no " + name);
        if (!file)
            throw Error(name + ": no right to look at it: " + Reason());
        while (std::getline(file, line))
            AddMapping(line);
    }

    void AddMapping(const std::string &line) {
        Mapping mapping = {};
        int path = 0;
        if (std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64 " %*s %" SCNx64 " %*s %*s %n", &mapping.start,
                        &mapping.end, &mapping.offset, &path) < 3 ||
            path <= 0 || static_cast<size_t>(path) >= line.size() || line[static_cast<size_t>(path)] != '/')
            return;
        mapping.path = line.substr(static_cast<size_t>(path));
        if (mapping.end > std::numeric_limits<uintptr_t>::max())
            throw Error(name + " has 64 bits, and this is a 32-bit program");
        mappings.push_back(mapping);
    }

    bool ReadSome(const Part *parts, size_t count) {
        std::vector<iovec> here(count);
        std::vector<iovec> there(count);
        size_t sum = 0;
        for (size_t i = 0; i < count; i++) {
            if (parts[i].address > std::numeric_limits<uintptr_t>::max() - parts[i].size)
                return false;
            here[i] = {parts[i].to, parts[i].size};
            there[i] = {reinterpret_cast<void *>(static_cast<uintptr_t>(parts[i].address)), parts[i].size};
            sum += parts[i].size;
        }
        const ssize_t done =
            process_vm_readv(static_cast<pid_t>(number), here.data(), count, there.data(), count, 0);
        if (done < 0 && errno == EPERM)
            throw Error(name + ": no right to read its memory; that takes the same user and a kernel without "
                               "kernel.yama.ptrace_scope, or the capability CAP_SYS_PTRACE");
        if (done < 0 && errno == ESRCH)
            throw Ended(name + " has ended");
        return done >= 0 && static_cast<size_t>(done) == sum;
    }

    // "17 (name) S ...": the processor time is in the fields 14 and 15; the name may have anything in it.
    static Thread ToThread(uint32_t thread, const std::string &text) {
        const size_t open = text.find('(');
        const size_t close = text.rfind(')');
        if (open == std::string::npos || close == std::string::npos)
            return {thread, "", 0};
        std::istringstream fields(text.substr(close + 1));
        std::string skipped;
        for (int i = 3; i < 14; i++)
            fields >> skipped;
        uint64_t user = 0;
        uint64_t system = 0;
        fields >> user >> system;
        const auto ticks = static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
        return {thread, text.substr(open + 1, close - open - 1), (user + system) * 1000 / ticks};
    }
};

} // namespace

std::unique_ptr<Memory> OpenProcess(int64_t number) {
    return std::make_unique<Process>(number);
}

} // namespace inspect
