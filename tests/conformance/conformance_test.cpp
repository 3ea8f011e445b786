// The library answers as recorded, alike on every processor.
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <vyx/frame.h>

#include "support/temp_dir.h"
#include "transcript.h"

namespace {

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

TEST(Conformance, EveryCallAnswersAsRecorded) {
    ASSERT_EQ(VYX_Init(), 0);
    const std::string found = transcript::Take();
    ASSERT_EQ(VYX_Fini(), 0);
    ASSERT_FALSE(found.empty());
    std::ofstream(CONFORMANCE_FOUND) << found;
    ExpectSame(support::ReadFile(CONFORMANCE_RECORDED), found);
}

} // namespace
