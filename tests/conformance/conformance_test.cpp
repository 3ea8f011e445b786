// The library behaves and is laid out as recorded: alike on every processor, layouts by processor.
#include <sstream>

#include <gtest/gtest.h>
#include <vyx/frame.h>

#include "support/temp_dir.h"
#include "transcript.h"

namespace {

std::string Recorded(const std::string &name) {
    return support::ReadFile(CONFORMANCE_DIR "/" + name);
}

// Shows the first line that differs, with its number.
void ExpectSame(const std::string &recorded, const std::string &found) {
    std::istringstream a(recorded);
    std::istringstream b(found);
    std::string lineA;
    std::string lineB;
    for (int iLine = 1;; ++iLine) {
        const bool bA = static_cast<bool>(std::getline(a, lineA));
        const bool bB = static_cast<bool>(std::getline(b, lineB));
        if (!bA && !bB)
            return;
        ASSERT_EQ(bA ? lineA : "(end)", bB ? lineB : "(end)") << "line " << iLine;
    }
}

// Those lines of a list that are for the same kind of processor as the first line of another.
std::string ForThisProcessor(const std::string &all, const std::string &own) {
    const std::string mark = own.substr(0, own.find(':') + 1);
    std::istringstream lines(all);
    std::string out;
    for (std::string line; std::getline(lines, line);)
        if (line.compare(0, mark.size(), mark) == 0)
            out += line + "\n";
    return out;
}

TEST(Conformance, EveryCallAnswersAsRecorded) {
    ASSERT_EQ(VYX_Init(), 0);
    const transcript::Transcript found = transcript::Take();
    ASSERT_EQ(VYX_Fini(), 0);
    ASSERT_FALSE(found.common.empty());
    ExpectSame(Recorded("transcript.txt"), found.common);
    ExpectSame(ForThisProcessor(Recorded("transcript_local.txt"), found.local), found.local);
}

TEST(Conformance, RecordsAreLaidOutAsRecorded) {
    ExpectSame(Recorded("layout/" CONFORMANCE_TARGET ".txt"), transcript::Layout());
}

} // namespace
