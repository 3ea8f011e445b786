// Log: the process ends while a thread hands lines over and the service writes them to files that rotate. It does end.
#include <filesystem>
#include <string>

#include "scenario.h"

int main() {
    std::string folder = std::filesystem::temp_directory_path() / "logs_XXXXXX";
    CHECK(mkdtemp(folder.data()) != nullptr);
    CHECK(EnableTarget(VYX_LOG_TARGET_FILE, folder.c_str(), 150, 0) == 0); // two lines each
    const auto write = [](void *) -> void * {
        while (WriteLog(VYX_LOG_LEVEL_ERR, "file", 1, "line") == 0)
            Pass(1);
        return nullptr;
    };
    CHECK(VYX_ThreadDetached_Create(write, nullptr, 0) == VYX_TRUE);
    CHECK(WriteLog(VYX_LOG_LEVEL_ERR, "file", 2, "line") == 0);
    Pass(3);
    return WriteLog(VYX_LOG_LEVEL_ERR, "file", 3, "line");
}
