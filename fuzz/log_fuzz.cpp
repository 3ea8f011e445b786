// Lines of the log into its files: levels, files, texts and sizes. What was taken is there whole, once and in order, cut where the
// header says, in files that change exactly before a line that would not fit.
#include <vyx/log.h>

#include "log_files.h"

namespace {

constexpr size_t kLongest = 2046; // bytes of header and text

// What a format is given: a number, a text or a null pointer, and a large number as each type that it may be.
#define ARGUMENTS                                                                                            \
    iNumber, (sText.empty() ? nullptr : sText.c_str()), static_cast<long long>(iLarge),                      \
        static_cast<long>(iLarge), static_cast<size_t>(iLarge)

std::string Printed(const char *szFormat, int iNumber, const std::string &sText, int64_t iLarge) {
    std::string sOut(sText.size() + 200, '\0');
    const int iLength = std::snprintf(sOut.data(), sOut.size(), szFormat, ARGUMENTS);
    return sOut.substr(0, static_cast<size_t>(iLength));
}

std::string Repeated(const std::string &sText, unsigned nTimes) {
    std::string sOut;
    for (; nTimes > 0; --nTimes)
        sOut += sText;
    return sOut;
}

// Hands a line over. Adds it to those that are expected, with zeros for the digits of the time.
void Write(fuzz::Input *pInput, int32_t iThreshold, std::vector<std::string> *pLines) {
    static const char *const kFormats[] = {"%d %s|%lld",        "%5d|%-9s|%lld",  "%x%s%llx",
                                           "%%%+d%.3s %020lld", "%i%9s%lli",      "%u%s%llu%lu%zu",
                                           "%c%s%lld%ld%zd",    "%x%s%llx%lx%zx", "%9d"};
    static const char *const kNames[] = {"DISABLE", "ERR", "DBG", "INF"};
    const auto iLevel = static_cast<int32_t>(pInput->Pick(7)) - 1;
    const char *szFormat = kFormats[pInput->Pick(std::size(kFormats))];
    const auto iNumber = pInput->Number<int32_t>();
    const auto iLarge = pInput->Number<int64_t>();
    const std::string sPart = pInput->Text(pInput->Pick(24)).c_str();
    const unsigned nLong = pInput->Pick(100);
    const std::string sWord = pInput->Text(pInput->Pick(32)).c_str(); // as far as a zero
    const std::string sText = Repeated(sWord, nLong < 90 ? 1 : 300);
    const std::string sFile = Repeated(sPart, nLong < 97 ? 1 : 300);
    const int32_t iResult =
        WriteLog(static_cast<log_level>(iLevel), sFile.c_str(), iNumber, szFormat, ARGUMENTS);
    REQUIRE(iResult == (iLevel > iThreshold ? -3 : 0));
    if (iResult != 0)
        return;
    const std::string sName = iLevel >= 0 && iLevel < 4 ? kNames[iLevel] : "?";
    const std::string sLine =
        "[0000-00-00 00:00:00.000][" + sName + "][FILE:" + sFile.substr(sFile.find_last_of("/\\") + 1) +
        "][LINE:" + std::to_string(iNumber) + "] " + Printed(szFormat, iNumber, sText, iLarge);
    pLines->push_back(sLine.substr(0, kLongest) + "\r\n");
    if (iNumber % 2 != 0)
        (void)DisableTarget(VYX_LOG_TARGET_CONSOLE); // waits until the line is written
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const support::TempDir s_folder("/dev/shm");
    for (const auto &file : fuzz::FindLogFiles(s_folder / ""))
        std::filesystem::remove(file.second);
    fuzz::Input input(pData, nSize);
    const uint32_t nLimit = input.Byte() * 16;
    const auto iThreshold = static_cast<int32_t>(input.Pick(5));
    REQUIRE(AdjustLogLevel(static_cast<log_level>(iThreshold)) == 0);
    REQUIRE(EnableTarget(VYX_LOG_TARGET_FILE, (s_folder / "").c_str(), nLimit, 0) == 0);
    std::vector<std::string> lines;
    while (!input.AtEnd())
        Write(&input, iThreshold, &lines);
    REQUIRE(DisableTarget(VYX_LOG_TARGET_FILE) == 0); // writes them
    fuzz::Check(fuzz::FindLogFiles(s_folder / ""), lines, nLimit);
    return 0;
}
