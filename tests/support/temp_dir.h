// A folder of its own for a test, removed with all that is in it.
#ifndef VYX_TESTS_TEMP_DIR_H
#define VYX_TESTS_TEMP_DIR_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <string>

namespace support {

class TempDir {
  public:
    explicit TempDir(const std::string &parent = std::filesystem::temp_directory_path().string())
        : m_path(parent + "/vyx_test_XXXXXX") {
        if (mkdtemp(m_path.data()) == nullptr)
            throw std::runtime_error("no folder for the test in " + parent);
    }
    ~TempDir() {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &Path() const { return m_path; }
    std::string operator/(const std::string &name) const { return m_path + "/" + name; }

  private:
    std::string m_path;
};

inline void WriteFile(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Open descriptors of this process.
inline long OpenDescriptors() {
    const std::filesystem::directory_iterator all("/dev/fd");
    return std::distance(begin(all), end(all));
}

} // namespace support

#endif
