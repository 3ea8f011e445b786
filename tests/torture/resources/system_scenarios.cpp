// Files, directories, modules, the system, times, memory.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vyx/vyx.h>

#include "scenario.h"

namespace {

using torture::Act;
namespace may = torture::may;

constexpr char kText[] = "a text of thirty-two characters.";
constexpr int32_t kLength = sizeof kText - 1;

// Writes the text to the file's end, in a file of that many bytes before.
void Put(const char *szPath, off_t iBefore, const std::string &text) {
    const int fd = open(szPath, O_WRONLY | O_CREAT, 0600);
    MUST(ftruncate(fd, iBefore) == 0 && lseek(fd, 0, SEEK_END) == iBefore);
    MUST(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    (void)close(fd);
}

std::string ContentOf(const char *szPath) {
    std::string text(1000000, '\0');
    const int fd = open(szPath, O_RDONLY);
    const ssize_t iCount = fd < 0 ? 0 : read(fd, text.data(), text.size());
    if (fd >= 0)
        (void)close(fd);
    text.resize(iCount < 0 ? 0 : static_cast<size_t>(iCount));
    return text;
}

void File() {
    (void)unlink("file");
    Act([] {
        const VYX_FILE_T hFile = CALL(VYX_OpenFile)("file", VYX_OPEN_READ | VYX_OPEN_WRITE | VYX_OPEN_CREATE,
                                                    VYX_UREAD | VYX_UWRITE);
        if (!DONE(hFile >= 0, hFile == VYX_INVALID_FILE, may::errors))
            return;
        int32_t iWritten = -2;
        const bool bWritten = OK(CALL(VYX_WriteFile)(hFile, kText, kLength, &iWritten), may::errors);
        MUST(bWritten ? iWritten > 0 && iWritten <= kLength : iWritten == -1);
        OK(CALL(VYX_FileFlush)(hFile), may::errors);
        VYX_FINFO_T info = {};
        info.size = -7;
        const bool bTold = OK(CALL(VYX_FileStat)(hFile, &info), may::errors);
        MUST(info.size == (bTold ? std::max(iWritten, 0) : -7));
        int64_t iPosition = -2;
        const bool bMoved = OK(CALL(VYX_FileSeek)(hFile, 1, 0, &iPosition), may::errors | may::writes);
        MUST(iPosition == (bMoved ? 1 : -1));
        char szRead[kLength];
        int32_t iRead = -2;
        const bool bRead = OK(CALL(VYX_ReadFile)(hFile, szRead, sizeof szRead, &iRead), may::errors);
        MUST(bRead ? iRead >= 0 && iRead <= kLength : iRead == -1);
        OK(CALL(VYX_CloseFile)(hFile), may::errors);
        OK(CALL(VYX_AccessFile)("file", 4), may::errors);
        const char *szNow = OK(CALL(VYX_RenameFile)("file", "renamed"), may::errors) ? "renamed" : "file";
        OK(CALL(VYX_DeleteFile)(szNow), may::errors);
    });
    (void)unlink("renamed");
}

// A copy that says it is one has the same content; the source stays.
void Copy() {
    const std::string text = std::string(400, 'x') + std::string(300000, '\0') + "end";
    Put("source", 0, text.substr(0, 400));
    Put("source", 300400, "end");
    Put("target", 0, "what was there");
    bool bCopied = false;
    Act([&] {
        const int32_t iResult = CALL(VYX_CopyFile)("source", "target", 0);
        constexpr uint32_t kMay =
            may::interrupts | may::files | may::descriptors | may::writes; // there are other ways
        bCopied = DONE(iResult == 1, iResult == -1, kMay);
    });
    MUST(!bCopied || ContentOf("target") == text);
    MUST(ContentOf("source") == text);
}

void CopyThroughBuffer() {
    failing_refuse_copies();
    Copy();
}

void Directory() {
    (void)rmdir("folder/in");
    (void)rmdir("folder");
    Act([] {
        if (!OK(CALL(VYX_MakeDir)("folder"), may::errors))
            return;
        OK(CALL(VYX_MakeDir)("folder/in"), may::errors);
        const VYX_DIR_T hDir = CALL(VYX_OpenDir)("folder");
        if (DONE(hDir != nullptr, hDir == nullptr, may::errors)) {
            _FILE_FIND_INFO info;
            for (int i = 0; i < 3; ++i) // itself, its parent, the folder in it
                if (!OK(CALL(VYX_FindFileInDir)(hDir, &info), may::files | may::writes))
                    break;
            OK(CALL(VYX_CloseDir)(hDir), may::directories);
        }
        OK(CALL(VYX_RemoveDir)("folder/in"), may::errors);
    });
}

void Module() {
    Act([] {
        const VYX_HANDLE_DSO hModule = CALL(VYX_LoadDSo)("libm.so.6");
        if (!DONE(hModule != nullptr, hModule == nullptr, may::memory))
            return;
        failing_own(hModule);
        MUST(CALL(VYX_GetDsoSym)(hModule, "cos") != nullptr);
        if (!OK(CALL(VYX_UnloadDSo)(hModule), 0)) {
            failing_disarm();
            (void)VYX_UnloadDSo(hModule);
        }
    });
}

void System() {
    Act([] {
        char szPath[1024];
        OK(CALL(VYX_GetCurExePath)(szPath, sizeof szPath), may::errors);
        uint8_t byUuid[16];
        const int32_t iMade = CALL(VYX_GetUUID)(byUuid);
        OK(iMade, may::anything);
        MUST(iMade == VYX_OK || !torture::Fails(may::random)); // the device gives them, too
        const int32_t nProcessors = CALL(VYX_GetCPUNumber)();
        MUST(nProcessors >= 1);
        VYX_CPU_PERFORMANCE_T records[256];
        uint32_t nSize = sizeof records;
        const int32_t iAnswer = CALL(VYX_GetCPUPerformance)(records, &nSize);
        MUST(iAnswer == VYX_NOT_AVAILABLE || iAnswer == VYX_ERROR);
        MUST(CALL(VYX_Rand)() >= 0);
        OK(CALL(VYX_USleep)(10), may::errors);
        OK(CALL(VYX_Sleep)(1), may::errors);
        const int32_t iPut = CALL(VYX_OutputDebug)("%s", "text");
        (void)DONE(iPut >= 0, iPut == -1, 0);
        CALL(VYX_OutputDebugString)("text");
    });
}

// A list of converters that could not be read once, the C library never reads again.
void Charset() {
    MUST(!VYX_A2UTF8("\xc4\xe3").empty() && !VYX_UTF82A("a").empty());
    Act([] {
        const std::string utf8 = CALL(VYX_A2UTF8)("\xc4\xe3\xba\xc3");
        (void)DONE(utf8 == "\xe4\xbd\xa0\xe5\xa5\xbd", utf8.empty(), may::memory | may::iconv);
        const std::string text = CALL(VYX_UTF82A)("\xe4\xbd\xa0\xe5\xa5\xbd");
        (void)DONE(text == "\xc4\xe3\xba\xc3", text.empty(), may::memory | may::iconv);
    });
}

void Time() {
    Act([] {
        const VYX_TIME_T now = CALL(VYX_TimeNow)();
        (void)DONE(now > 0, now == -1, 0);
        (void)CALL(VYX_GetTimeTick)();
        static VYX_TIME_T s_moment = 0; // each time another one, which no thread remembers
        const VYX_TIME_T moment = s_moment += 86400000000;
        VYX_TIME_EXP_T fields = {};
        OK(CALL(VYX_ExpTimeFromTime)(moment, 7, &fields), may::memory);
        OK(CALL(VYX_ExpTimeFromTimeGMT)(moment, &fields), may::memory);
        OK(CALL(VYX_ExpTimeFromTimeLocal)(moment, &fields), may::memory);
        char szText[64];
        MUST(CALL(VYX_CTime)(szText, moment + 86400000000) == VYX_OK && std::strlen(szText) == 24);
    });
}

void TimeObjects() {
    Act([] {
        torture::Enter("vyx::vyx_time_tick");
        const vyx::vyx_time_tick tick;
        (void)DONE(tick.get_time() > 0, tick.get_time() == -1, 0);
        torture::Enter("vyx::vyx_time");
        vyx::vyx_time time;
        (void)DONE(time.get_time() > 0, time.get_time() == -1, may::anything);
        const vyx::vyx_time earlier(86400 * 365);
        time = earlier;
        MUST(time.get_time() == 86400 * 365);
    });
}

void FormattedTime() {
    struct tm fields = {};
    fields.tm_mday = 1;
    VYX_TIME_EXP_T exploded = {};
    exploded.tm_mday = 1;
    const std::string format = std::string(1000, 'x') + "%D";
    Act([&] {
        char szOut[2000];
        const size_t nLength = CALL(win32_strftime_extra)(szOut, sizeof szOut, format.c_str(), &fields);
        (void)DONE(nLength == 1008, nLength == 0 && szOut[0] == '\0', may::memory);
        uint32_t nWritten = 7;
        MUST(CALL(VYX_StrFmtTime)(szOut, &nWritten, sizeof szOut, format.c_str(), &exploded) == VYX_OK);
        (void)DONE(nWritten == 1008, nWritten == 0, may::memory);
    });
}

void Memory() {
    Act([] {
        char szKey[] = "key";
        void *pFound = nullptr;
        void *pTable = &pTable;
        if (OK(CALL(VYX_SimpleHashCreate)(100, &pTable), 0)) {
            _VYX_ENTRY entry = {szKey, szKey};
            MUST(CALL(VYX_SimpleHashEnter)(&entry, pTable) == VYX_OK &&
                 CALL(VYX_SimpleHashFind)(szKey, &pFound, pTable) == VYX_OK && pFound == szKey &&
                 CALL(VYX_SimpleHashRemove)(szKey, pTable) == VYX_OK);
            (void)CALL(VYX_SimpleHashDestroy)(pTable);
            pTable = nullptr;
        }
        MUST(pTable == nullptr);
        pTable = &pTable;
        if (OK(CALL(VYX_SimpleIntHashCreate)(100, &pTable), 0)) {
            _VYX_INTITEM item = {1, szKey};
            MUST(CALL(VYX_SimpleIntHashEnter)(&item, pTable) == VYX_OK &&
                 CALL(VYX_SimpleIntHashFind)(1, &pFound, pTable) == VYX_OK && pFound == szKey &&
                 CALL(VYX_SimpleIntHashRemove)(1, pTable) == VYX_OK);
            (void)CALL(VYX_SimpleIntHashDestroy)(pTable);
            pTable = nullptr;
        }
        MUST(pTable == nullptr);
        VYX_HANDLE_CYCLEBUFFER hRing = nullptr;
        const auto Take = [](uint8_t *, uint32_t, void *) -> int32_t { return 0; };
        if (OK(CALL(VYX_CycleBufferInit)(&hRing, 100, Take, nullptr), 0)) {
            uint32_t nCount = 0;
            MUST(CALL(VYX_CycleBufferWrite)(hRing, reinterpret_cast<uint8_t *>(szKey), 3) == VYX_OK &&
                 CALL(VYX_CycleBufferValue)(hRing, &nCount) == VYX_OK && nCount == 3);
            (void)CALL(VYX_CycleBufferRead)(hRing);
            (void)CALL(VYX_CycleBufferDestroy)(hRing);
        } else {
            MUST(hRing == nullptr);
        }
        void *const pBlock = CALL(VYX_AlignedMalloc)(100, 64);
        if (DONE(pBlock != nullptr, pBlock == nullptr, 0))
            (void)CALL(VYX_AlignedFree)(pBlock);
        char *szCopy = CALL(VYX_Strdup)(kText);
        (void)DONE(szCopy != nullptr, szCopy == nullptr, 0);
        std::free(szCopy);
        szCopy = CALL(VYX_Strndup)(kText, 5);
        (void)DONE(szCopy != nullptr, szCopy == nullptr, 0);
        std::free(szCopy);
    });
}

} // namespace

const std::vector<torture::Scenario> torture::kSystemScenarios = {
    {"file", File},
    {"copy", Copy},
    {"copy through a buffer", CopyThroughBuffer},
    {"directory", Directory},
    {"module", Module},
    {"system", System},
    {"charset", Charset},
    {"time", Time},
    {"time objects", TimeObjects},
    {"formatted time", FormattedTime},
    {"memory", Memory},
};
