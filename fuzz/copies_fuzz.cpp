// VYX_CopyFile where the input makes its calls fall short, be interrupted or fail. What has to hold: 1 means that the content is
// the same; -1 that a call failed, or that the arguments forbid it; the source is as it was; no descriptor is left.
#include <fcntl.h>
#include <unistd.h>
#include <vyx/sys.h>

#include "failing_calls.h"
#include "support/temp_dir.h"

namespace {

// Makes a file with gaps, pieces of text at places of the input's choice, and returns what it holds.
std::string Make(const std::string &sPath, fuzz::Input *pInput) {
    std::string sContent;
    const int iFile = open(sPath.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    for (unsigned nPieces = pInput->Pick(4); nPieces > 0; --nPieces) {
        const size_t nLen = pInput->Byte();
        std::string sText(nLen, static_cast<char>(pInput->Byte()));
        const size_t nAt = pInput->Pick(100) * size_t{4096};
        if (sText.empty())
            continue;
        sText += "end";
        sContent.resize(std::max(sContent.size(), nAt + sText.size()));
        sContent.replace(nAt, sText.size(), sText);
        REQUIRE(pwrite(iFile, sText.data(), sText.size(), static_cast<off_t>(nAt)) ==
                static_cast<ssize_t>(sText.size()));
    }
    (void)close(iFile);
    return sContent;
}

bool Holds(const std::string &sPath, const std::string &sContent) {
    std::string sFound(sContent.size() + 1, '\0');
    const int iFile = open(sPath.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t iLen = read(iFile, sFound.data(), sFound.size());
    (void)close(iFile);
    return iLen >= 0 && sFound.compare(0, static_cast<size_t>(iLen), sContent) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const support::TempDir s_folder("/dev/shm");
    fuzz::Input input(pData, nSize);
    const std::string sSource = s_folder / "source";
    const std::string sTarget = s_folder / "target";
    (void)unlink(sTarget.c_str());
    const std::string sBefore = Make(sSource, &input);
    std::string sOld = sBefore;
    const unsigned nKind = input.Pick(8); // of the target: a file, the source itself, or nothing
    const int32_t iKeep = nKind % 2;
    if (nKind < 2)
        sOld = Make(sTarget, &input);
    else if (nKind < 4)
        REQUIRE(link(sSource.c_str(), sTarget.c_str()) == 0);
    const bool bForbidden = nKind < 4 && (iKeep != 0 || nKind >= 2);
    const long iOpen = support::OpenDescriptors();
    fuzz::s_bFailed = false;
    fuzz::s_pPlayed = &input;
    const int32_t iResult = VYX_CopyFile(sSource.c_str(), sTarget.c_str(), iKeep);
    fuzz::s_pPlayed = nullptr;
    REQUIRE(support::OpenDescriptors() == iOpen);
    REQUIRE(Holds(sSource, sBefore));
    REQUIRE(iResult == 1 || iResult == -1);
    REQUIRE(iResult == -1 || (!bForbidden && !sBefore.empty() && Holds(sTarget, sBefore)));
    REQUIRE(iResult == 1 || bForbidden || fuzz::s_bFailed || sBefore.empty());
    REQUIRE(!bForbidden || Holds(sTarget, sOld));
    return 0;
}
