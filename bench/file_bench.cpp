// Copying a file of 256 MiB and listing a directory of 10,000 entries, all in the page cache, beside what else is there.
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vyx/vyx.h>

#include "file_bench.h"

extern char **environ;

namespace {

bool CopyVyx(const char *szSource, const char *szTarget) {
    return VYX_CopyFile(szSource, szTarget, 0) == 1;
}

bool CopyStd(const char *szSource, const char *szTarget) {
    std::error_code error;
    return std::filesystem::copy_file(szSource, szTarget, error);
}

bool CopyByProgram(const char *szSource, const char *szTarget) {
    const char *arguments[] = {"cp", szSource, szTarget, nullptr};
    pid_t pid = 0;
    int iStatus = -1;
    return posix_spawnp(&pid, "cp", nullptr, nullptr, const_cast<char **>(arguments), environ) == 0 &&
           waitpid(pid, &iStatus, 0) == pid && iStatus == 0;
}

// The platform's call for the purpose, again and again.
bool CopyRaw(const char *szSource, const char *szTarget) {
    const int iSource = open(szSource, O_RDONLY | O_CLOEXEC);
    const int iTarget = open(szTarget, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ssize_t iCount = 0;
    do
        iCount = copy_file_range(iSource, nullptr, iTarget, nullptr, kFileBytes, 0);
    while (iCount > 0);
    (void)close(iSource);
    return close(iTarget) == 0 && iCount == 0;
}

Listing ListVyx(const char *szPath) {
    Listing listing;
    _FILE_FIND_INFO info;
    const VYX_DIR_T hDir = VYX_OpenDir(szPath);
    while (VYX_FindFileInDir(hDir, &info) == VYX_OK) {
        if (info.finfo.type != VYX_TYPE_REG)
            continue;
        ++listing.nEntries;
        listing.nBytes += static_cast<uint64_t>(info.finfo.size);
    }
    (void)VYX_CloseDir(hDir);
    return listing;
}

// bByPath looks an entry up by its whole path, as VYX_FindFileInDir need not.
template <bool bByPath>
Listing ListRaw(const char *szPath) {
    Listing listing;
    DIR *pDir = opendir(szPath);
    std::string path;
    while (const struct dirent *pEntry = readdir(pDir)) {
        struct stat status;
        if (bByPath)
            path.assign(szPath).append("/").append(pEntry->d_name);
        if ((bByPath ? stat(path.c_str(), &status) : fstatat(dirfd(pDir), pEntry->d_name, &status, 0)) != 0)
            continue;
        if (!S_ISREG(status.st_mode))
            continue;
        ++listing.nEntries;
        listing.nBytes += static_cast<uint64_t>(status.st_size);
    }
    (void)closedir(pDir);
    return listing;
}

Listing ListStd(const char *szPath) {
    Listing listing;
    for (const auto &entry : std::filesystem::directory_iterator(szPath)) {
        if (!entry.is_regular_file())
            continue;
        ++listing.nEntries;
        listing.nBytes += entry.file_size();
    }
    return listing;
}

} // namespace

int main(int argc, char **argv) {
    const auto configure = [](auto *pBenchmark) {
        bench::ByHand(pBenchmark);
        pBenchmark->Unit(benchmark::kMillisecond);
    };
    bench::Compare("copy_256m",
                   {{"vyx", FileCopy<CopyVyx>},
                    {"raw", FileCopy<CopyRaw>, 1.1},
                    {"std", FileCopy<CopyStd>, 1.1},
                    {"cp", FileCopy<CopyByProgram>, 1.1}},
                   configure);
    const auto list = [](auto *pBenchmark) { pBenchmark->Unit(benchmark::kMillisecond); };
    bench::Compare("list_10k",
                   {{"vyx", FileList<ListVyx>},
                    {"raw_fstatat", FileList<ListRaw<false>>, 1.1},
                    {"raw_stat", FileList<ListRaw<true>>, 1.1},
                    {"std", FileList<ListStd>, 1.1}},
                   list);
    return bench::Run(argc, argv);
}
