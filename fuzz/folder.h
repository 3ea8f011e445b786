// A folder in memory for a target's files, removed at the end of the process.
#ifndef VYX_FUZZ_FOLDER_H_
#define VYX_FUZZ_FOLDER_H_

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace fuzz {

class Folder {
  public:
    Folder() : m_sPath(access("/dev/shm", W_OK) == 0 ? "/dev/shm/vyx_fuzz_XXXXXX" : "/tmp/vyx_fuzz_XXXXXX") {
        if (mkdtemp(m_sPath.data()) == nullptr)
            std::abort();
    }
    ~Folder() {
        std::error_code error;
        std::filesystem::remove_all(m_sPath, error);
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    void Empty() const {
        for (const auto &entry : std::filesystem::directory_iterator(m_sPath))
            std::filesystem::remove_all(entry.path());
    }
    std::string operator/(const std::string &sName) const { return m_sPath + "/" + sName; }

  private:
    std::string m_sPath;
};

inline std::string ReadFile(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace fuzz

#endif
