// Four lines of about a third of the log's ring: each is whole when the writer reads it.
#include <string>

#include "../scenarios/scenario.h"
#include "log/log_ring.h"

// The third line does not fit behind the first two; the fourth is as long as what is skipped there.
static constexpr uint32_t kLine = kRingSize / 3 + 1;
static constexpr uint32_t kLastLine = kRingSize - 2 * kLine;

static void Write(LogRing &ring) {
    char text = 'A';
    for (LogBatch batch; ring.Next(batch);)
        for (uint32_t n = 0; n < batch.Size(); n++, text++) {
            const _LOG &line = batch.Line(n);
            Pass(1); // other threads come in between
            for (uint32_t i = 0; i < line.nLen; i += 1000)
                CHECK(batch.Text(line)[i] == text);
        }
    CHECK(text == 'E');
}

int main() {
    LogRing ring;
    (void)ring.Switch(0, true);
    CHECK(ring.Prepare() == 0 && ring.Open());
    Runner writer([&] { Write(ring); });
    for (char text = 'A'; text < 'E'; text++) {
        const std::string line(text < 'D' ? kLine : kLastLine, text);
        while (ring.Put(line.data(), static_cast<uint32_t>(line.size())) != 0)
            Pass(1);
    }
    ring.Close();
}
