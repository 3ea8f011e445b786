// What a sender may say to logmill's collector, in pieces of any size, ended or torn off. A greeting that is none stores nothing
// and gets no answer; otherwise each line is stored once, in order, under its number and name, and the answer counts them.
#include <regex>
#include <sstream>
#include <vyx/frame.h>

#include "played_sender.h"
#include "support/temp_dir.h"

namespace {

using fuzz::Stored;

// Greeting, name and line feed are taken off the text. False if it is no sender's.
bool Greet(std::string *pText, std::string *pName) {
    static const std::regex s_greeting("LOGMILL 1 ([A-Za-z0-9._-]{1,64})");
    const size_t nEnd = pText->find('\n');
    const std::string sLine = pText->substr(0, nEnd);
    std::smatch found;
    if (nEnd == std::string::npos || !std::regex_match(sLine, found, s_greeting))
        return false;
    *pName = found[1];
    pText->erase(0, nEnd + 1);
    return true;
}

// The lines in the pieces in which they are stored. Of a line that was torn off, what is sure not to end it.
std::vector<Stored> Expected(std::string sText, bool bTorn, int32_t *pLines) {
    std::vector<Stored> stored;
    std::replace(sText.begin(), sText.end(), '\0', '?');
    std::istringstream lines(sText);
    for (std::string sLine; std::getline(lines, sLine);) {
        for (; sLine.size() > logmill::kPieceBytes; sLine.erase(0, logmill::kPieceBytes))
            stored.push_back({*pLines + 1, sLine.substr(0, logmill::kPieceBytes)});
        if (!lines.eof() || !bTorn)
            stored.push_back({++*pLines, sLine});
    }
    return stored;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const support::TempDir s_folder("/dev/shm");
    static const bool s_bStarted = VYX_Init() == VYX_OK && fuzz::Interrupt();
    REQUIRE(s_bStarted);
    fuzz::Input input(pData, nSize);
    fuzz::Sender &sender = fuzz::s_sender;
    sender = {"", 1 + size_t{input.Byte()} * input.Byte(), input.Pick(2) != 0};
    for (const char c : input.Rest()) // long lines of short inputs
        sender.sBytes.append(c == '\x01' ? 950 : 1, c == '\x01' ? 'x' : c);
    fuzz::Serve(s_folder / "");
    std::string sText = sender.sBytes;
    std::string sName;
    int32_t iLines = 0;
    const bool bSender = Greet(&sText, &sName);
    REQUIRE(sender.stored == (bSender ? Expected(sText, sender.bTorn, &iLines) : std::vector<Stored>()));
    REQUIRE(sender.sAnswer == (bSender ? "STORED " + std::to_string(iLines) + "\n" : ""));
    REQUIRE(sender.stored.empty() || sender.sName == sName);
    return 0;
}
