// The file that every side copies and the directory that every side lists.
#ifndef VYX_BENCH_FILE_BENCH_H
#define VYX_BENCH_FILE_BENCH_H

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/bench.h"

constexpr uint64_t kFileBytes = uint64_t{256} << 20;
constexpr uint64_t kEntries = 10000;
constexpr uint64_t kEntryBytes = 3; // of each file listed

// A temporary directory, made at first use and removed at the program's end.
class FileBenchDir {
  public:
    static const FileBenchDir &Get() {
        static const FileBenchDir s_dir;
        return s_dir;
    }
    [[nodiscard]] const std::string &Source() const { return m_source; } // of kFileBytes
    [[nodiscard]] const std::string &Target() const { return m_target; }
    [[nodiscard]] const std::string &List() const { return m_list; } // of kEntries

    FileBenchDir(const FileBenchDir &) = delete;
    FileBenchDir &operator=(const FileBenchDir &) = delete;

  private:
    FileBenchDir() {
        std::string root = (std::filesystem::temp_directory_path() / "vyx_bench_XXXXXX").string();
        if (mkdtemp(root.data()) == nullptr)
            return;
        m_root = root;
        m_source = root + "/source";
        m_target = root + "/target";
        m_list = root + "/list";
        std::ofstream source(m_source, std::ios::binary);
        std::vector<char> block(1 << 20);
        for (uint64_t n = 0; n < kFileBytes / block.size(); ++n) {
            std::fill(block.begin(), block.end(), static_cast<char>(n + 1));
            source.write(block.data(), static_cast<std::streamsize>(block.size()));
        }
        std::filesystem::create_directory(m_list);
        for (uint64_t n = 0; n < kEntries; ++n)
            std::ofstream(m_list + "/entry-" + std::to_string(n)) << "abc";
    }
    ~FileBenchDir() {
        std::error_code ignored;
        if (!m_root.empty())
            std::filesystem::remove_all(m_root, ignored);
    }
    std::string m_root;
    std::string m_source;
    std::string m_target;
    std::string m_list;
};

// One iteration: a copy to a new file. bCopy copies from Source() to Target() and tells whether that worked.
template <bool (*pfnCopy)(const char *szSource, const char *szTarget)>
void FileCopy(benchmark::State &state) {
    const FileBenchDir &dir = FileBenchDir::Get();
    std::vector<double> samples;
    std::error_code error;
    for (auto _ : state) {
        for (int n = 0; n < 3; ++n) {
            std::filesystem::remove(dir.Target(), error);
            const auto start = bench::Clock::now();
            const bool bDone = pfnCopy(dir.Source().c_str(), dir.Target().c_str());
            samples.push_back(bench::MicrosecondsSince(start));
            if (!bDone || std::filesystem::file_size(dir.Target(), error) != kFileBytes)
                state.SkipWithError("not copied");
        }
        bench::TimeOfMedian(state, samples);
    }
    std::filesystem::remove(dir.Target(), error);
}

// What a listing found, which must be the same for all sides.
struct Listing {
    uint64_t nEntries = 0;
    uint64_t nBytes = 0; // of the regular files
};

// One iteration: the whole directory is read, with the size and kind of each entry.
template <Listing (*pfnList)(const char *szPath)>
void FileList(benchmark::State &state) {
    const std::string &path = FileBenchDir::Get().List();
    for (auto _ : state) {
        const Listing listing = pfnList(path.c_str());
        if (listing.nEntries != kEntries || listing.nBytes != kEntries * kEntryBytes)
            state.SkipWithError("not what is there");
    }
}

#endif
