// Stands in for libFuzzer where there is none: runs a target with each file of its corpus and then, up to -runs=N, with
// inputs made from these by a few random changes. Each run makes the same. Other options are ignored.
#include <cstring>
#include <filesystem>
#include <random>
#include <vector>

#include "input.h"
#include "support/temp_dir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize);

namespace {

using Bytes = std::vector<uint8_t>;
Bytes s_input; // of this moment

size_t Option(const std::string &sArgument, const char *szName, size_t nDefault) {
    const size_t nName = std::strlen(szName);
    return sArgument.compare(0, nName, szName) == 0 ? std::stoul(sArgument.substr(nName)) : nDefault;
}

void Run() {
    const Bytes input(s_input); // of exactly this size, so that a sanitizer sees its end
    (void)LLVMFuzzerTestOneInput(input.data(), input.size());
}

void Change(const std::vector<Bytes> &corpus, size_t nMost, std::mt19937 *pRandom) {
    const auto Below = [pRandom](size_t n) { return n == 0 ? 0 : (*pRandom)() % n; };
    for (size_t nChanges = 1 + Below(6); nChanges > 0; --nChanges) {
        const auto itAt = s_input.begin() + static_cast<std::ptrdiff_t>(Below(s_input.size()));
        const auto &other = corpus[Below(corpus.size())];
        const size_t nKind = Below(s_input.empty() ? 2 : 5);
        if (nKind == 0)
            s_input.insert(itAt, static_cast<uint8_t>(Below(256)));
        else if (nKind == 1)
            s_input.insert(itAt, other.begin() + static_cast<std::ptrdiff_t>(Below(other.size())),
                           other.end());
        else if (nKind == 2)
            s_input.erase(itAt);
        else
            *itAt = static_cast<uint8_t>(nKind == 3 ? Below(256) : *itAt ^ (1U << Below(8)));
    }
    s_input.resize(std::min(s_input.size(), nMost));
}

} // namespace

int main(int argc, char **argv) {
    size_t nRuns = 0;
    size_t nMost = 4096;
    std::vector<Bytes> corpus(1); // an empty one
    for (int i = 1; i < argc; ++i) {
        const std::string sArgument = argv[i];
        nRuns = Option(sArgument, "-runs=", nRuns);
        nMost = Option(sArgument, "-max_len=", nMost);
        if (sArgument[0] == '-' || !std::filesystem::is_directory(sArgument))
            continue;
        for (const auto &file : std::filesystem::directory_iterator(sArgument)) {
            const std::string sBytes = support::ReadFile(file.path());
            corpus.emplace_back(sBytes.begin(), sBytes.end());
        }
    }
    std::sort(corpus.begin(), corpus.end()); // folders have no order
    size_t nDone = 0;
    for (; nDone < corpus.size(); ++nDone) {
        s_input = corpus[nDone];
        Run();
    }
    for (std::mt19937 random(1); nDone < nRuns; ++nDone) {
        s_input = corpus[random() % corpus.size()];
        Change(corpus, nMost, &random);
        Run();
    }
    std::fprintf(stderr, "stat::number_of_executed_units: %zu\n", nDone);
    return 0;
}
