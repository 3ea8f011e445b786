#include "log/log_targets.h"

#include <cstdio>
#include <vyx/sys.h>

#include "base/describe.h"

namespace {

// Both stop at a line's first zero; nobody is there to be told of a failure.
void WriteToConsole_Local(LogFiles & /*files*/, iovec *pLines, uint32_t nLines) {
    for (uint32_t n = 0; n < nLines; ++n)
        (void)std::fputs(static_cast<const char *>(pLines[n].iov_base), stdout);
}

void WriteToDebug_Local(LogFiles & /*files*/, iovec *pLines, uint32_t nLines) {
    for (uint32_t n = 0; n < nLines; ++n)
        VYX_OutputDebugString(static_cast<const char *>(pLines[n].iov_base));
}

void WriteToFiles_Local(LogFiles &files, iovec *pLines, uint32_t nLines) {
    (void)files.InputDataToFile(pLines, nLines); // a file that could not be opened has been reported
}

int SwitchFilesOn_Local(LogFiles &files, const void *pParam, uint32_t nSize, uint32_t nWrap) {
    return files.StartWriteFile(static_cast<const char *>(pParam), nSize, nWrap != 0);
}

void SwitchFilesOff_Local(LogFiles &files) {
    files.StopWriteFile();
}

} // namespace

const VYX_LOG_TARGET_S g_struLogTargets[] = {
    {"console", WriteToConsole_Local, Handed::ByLine, nullptr, nullptr},
    {"debug", WriteToDebug_Local, Handed::ByLine, nullptr, nullptr},
    {"file", WriteToFiles_Local, Handed::ByBatch, SwitchFilesOn_Local, SwitchFilesOff_Local},
};
const uint32_t g_nLogTargets = std::size(g_struLogTargets);

// Never called: has the compiler name an enumerator that is forgotten here, and the number of rows that there must be.
[[maybe_unused]] static void EachTargetHasARow_Local(log_services eTarget) {
    switch (eTarget) {
    case VYX_LOG_TARGET_CONSOLE:
    case VYX_LOG_TARGET_DEBUG:
    case VYX_LOG_TARGET_FILE:
        static_assert(std::size(g_struLogTargets) == VYX_LOG_TARGET_FILE + 1,
                      "a row for each target, in their order");
    }
}

/* ---- Description */

namespace {

constexpr vyx_inter::DescriptionRow kRows[] = {
    VYX_REGISTRY("log_target", g_struLogTargets), // by the bits of "log.targets"
    VYX_FIELD("log_target.name", VYX_LOG_TARGET_S, szName),
};

} // namespace

VYX_DESCRIBE(log_targets, kRows)
