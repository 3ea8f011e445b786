// Log: two writers, files that rotate, a target that goes off and on in another folder, a stop. Every line that was taken
// is in the files, whole and once.
#include <filesystem>
#include <fstream>
#include <string>

#include "scenario.h"

static void Enable(const std::string &folder) {
    CHECK(EnableTarget(VYX_LOG_TARGET_FILE, folder.c_str(), 150, 0) == 0); // two lines each
}

int main() {
    std::string folder = std::filesystem::temp_directory_path() / "logs_XXXXXX";
    CHECK(mkdtemp(folder.data()) != nullptr);
    const std::string folders[] = {folder + "/first", folder + "/second"};
    int taken[2] = {};
    CHECK(VYX_Init() == VYX_OK);
    Enable(folders[0]);
    {
        const auto write = [&](int i) {
            for (int line = 0; line < 3; line++)
                taken[i] += WriteLog(VYX_LOG_LEVEL_ERR, "file", i, "line") == 0 ? 1 : 0;
        };
        Runner first([&] { write(0); });
        Runner second([&] { write(1); });
        Runner switcher([&] {
            CHECK(DisableTarget(VYX_LOG_TARGET_FILE) == 0);
            Enable(folders[1]);
        });
    }
    CHECK(StopLogService(true) == 0);
    CHECK(WriteLog(VYX_LOG_LEVEL_ERR, "file", 0, "late line") != 0);
    CHECK(VYX_Fini() == VYX_OK);
    int written = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
        std::filesystem::permissions(entry.path(),
                                     std::filesystem::perms::owner_all); // log files are written only
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line); written++)
            CHECK(line.size() > 5 && line.compare(line.size() - 5, 5, "line\r") == 0);
    }
    CHECK(written == taken[0] + taken[1]);
    std::filesystem::remove_all(folder);
}
