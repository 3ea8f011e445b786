// Runs a scenario with failures, each run in a child process.
//   torture_resources                               the names of the scenarios
//   torture_resources SCENARIO --short | --full     the first failure of each kind, or all of them; prints figures as JSON
//   torture_resources SCENARIO KIND N [on] [warm]   one run, with its output; on: all calls from the N-th on fail; warm: a
//                                                   run without failures goes before
// Exit status: 0 nothing was found, 1 findings, on standard error.
#include "scenario.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using torture::Scenario;

constexpr int kLimit = 20;          // seconds that a run may take
constexpr int kSettleMillis = 3000; // that threads may take to go
constexpr size_t kMostFunctions = 100;

#define KIND_NAME(kind) #kind,
constexpr const char *kKinds[] = {FAILING_KINDS(KIND_NAME)};
#undef KIND_NAME

// A public function that a scenario called, and how many calls of the platform were made meanwhile.
struct Called {
    char szFunction[40];
    int nReached;
};

// What a process has of what can be left behind.
struct Holdings {
    long nBlocks, nDescriptors, nThreads, nNames;
    // Fewer is no leak: what failed once need not be tried again.
    bool IsWithin(const Holdings &other) const {
        return nBlocks <= other.nBlocks && nDescriptors <= other.nDescriptors && nThreads <= other.nThreads &&
               nNames <= other.nNames;
    }
};

// What a child tells its parent, in memory that both have.
struct Report {
    Holdings holdings;
    int nCalls[failing_kinds + 1];
    Called called[kMostFunctions];
    size_t nCalled;
    char szFinding[500];
};

struct Run {
    const Scenario *pScenario;
    int iKind, iNth;
    bool bOn, bWarm;
};

Report *s_pReport; // the child's
Run s_run;         // likewise
long s_nInherited; // blocks of memory, from the parent
int s_nRuns;       // the parent's
int s_nFindings;   // likewise
int s_iRound;      // 0, 1, ...
int s_iFailing;    // the round with failures
int s_iHitsBefore; // the last call
int s_iReachedBefore;
Called *s_pCalled;

void Find(const std::string &what) {
    if (s_pReport->szFinding[0] == '\0')
        (void)std::snprintf(s_pReport->szFinding, sizeof s_pReport->szFinding, "%s", what.c_str());
}

std::string LastCall() {
    return s_pCalled == nullptr ? "no call" : s_pCalled->szFunction;
}

void Leave() {
    const int nReached = failing_reached();
    if (s_pCalled != nullptr)
        s_pCalled->nReached += nReached - s_iReachedBefore;
    s_iReachedBefore = nReached;
}

long CountEntries(const char *szFolder) {
    const std::filesystem::directory_iterator all(szFolder);
    return std::distance(begin(all), end(all));
}

Holdings Held() {
    return {failing_blocks() - s_nInherited, CountEntries("/proc/self/fd"), CountEntries("/proc/self/task"),
            failing_sem_names()};
}

// What is held when the scenario's threads have gone, as they all do.
Holdings Settled() {
    for (int i = 0; i < kSettleMillis && CountEntries("/proc/self/task") > 1; ++i)
        std::this_thread::sleep_for(
            std::chrono::milliseconds(1)); // no condition tells that a detached thread is gone
    return Held();
}

std::string Text(const Holdings &held) {
    return std::to_string(held.nBlocks) + " blocks, " + std::to_string(held.nDescriptors) + " descriptors, " +
           std::to_string(held.nThreads) + " threads, " + std::to_string(held.nNames) + " names";
}

// The child: runs the scenario, and compares what it holds with what it held when nothing failed.
void RunScenario(const Holdings *pExpected) {
    s_iFailing = s_run.bWarm ? 1 : 0;
    const int iRounds = s_iFailing + 2;
    for (s_iRound = 0; s_iRound < iRounds; ++s_iRound)
        s_run.pScenario->fnRun();
    if (pExpected == nullptr) { // without failures: another round changes nothing
        s_pReport->holdings = Settled();
        s_run.pScenario->fnRun();
        pExpected = &s_pReport->holdings;
    }
    const Holdings held = Settled();
    if (!held.IsWithin(*pExpected))
        Find("leaves " + Text(held) + " instead of " + Text(*pExpected));
}

[[noreturn]] void Child(const Run &run, const Holdings *pExpected, Report *pReport, bool bShow) {
    s_pReport = pReport;
    s_run = run;
    alarm(kLimit);
    if (!bShow) {
        const int fd = open("/dev/null", O_RDWR);
        for (int i = 0; i < 3; ++i)
            (void)dup2(fd, i);
        (void)close(fd);
    }
    (void)std::puts(""); // which takes the stream's buffer
    s_nInherited = failing_blocks();
    try {
        RunScenario(pExpected);
    } catch (const std::exception &error) {
        Find(LastCall() + " throws " + error.what());
    }
    _exit(0);
}

std::string EndOf(int iStatus) {
    if (WIFSIGNALED(iStatus))
        return WTERMSIG(iStatus) == SIGALRM ? "does not end"
                                            : std::string("dies: ") + strsignal(WTERMSIG(iStatus));
    return WEXITSTATUS(iStatus) == 0 ? "" : "exits with status " + std::to_string(WEXITSTATUS(iStatus));
}

std::string Text(const Run &run) {
    std::string text =
        std::string(run.pScenario->szName) + ' ' + kKinds[run.iKind] + ' ' + std::to_string(run.iNth);
    return text + (run.bOn ? " on" : "") + (run.bWarm ? " warm" : "");
}

// Runs it in a child. *pExpected: what may be held at its end; null if nothing fails, and the report tells it.
Report RunChild(const Run &run, const Holdings *pExpected, bool bShow = false) {
    static auto *const pReport = static_cast<Report *>(
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    *pReport = {};
    const pid_t pid = fork();
    if (pid == 0)
        Child(run, pExpected, pReport, bShow);
    int iStatus = 0;
    (void)waitpid(pid, &iStatus, 0);
    ++s_nRuns;
    const std::string end = EndOf(iStatus);
    if (!end.empty() || pReport->szFinding[0] != '\0') {
        ++s_nFindings;
        std::fprintf(stderr, "finding: %s: %s %s\n", Text(run).c_str(), end.c_str(), pReport->szFinding);
    }
    return *pReport;
}

// The figures: what was called, with its calls of the platform, and the kinds of these.
void TellFigures(const Scenario &scenario, const Report &clean) {
    std::printf("{\"runs\": %d, \"findings\": %d, \"plain\": %s, \"kinds\": [\"any\"", s_nRuns, s_nFindings,
                scenario.bReachesNothing ? "true" : "false");
    for (int iKind = 0; iKind < failing_kinds; ++iKind)
        if (clean.nCalls[iKind] > 0)
            std::printf(", \"%s\"", kKinds[iKind]);
    for (size_t i = 0; i < clean.nCalled; ++i)
        std::printf("%s\"%s\": %d", i == 0 ? "], \"called\": {" : ", ", clean.called[i].szFunction,
                    clean.called[i].nReached);
    std::puts("}}");
}

void RunFailures(const Scenario &scenario, int nMostNth) {
    const Report clean = RunChild({&scenario, 0, 0, false, false}, nullptr);
    for (int iKind = 0; iKind < failing_kinds; ++iKind) {
        const bool bLimit = iKind == fails_mappings || iKind == fails_openings;
        const int nCalls = clean.nCalls[bLimit ? failing_kinds : iKind];
        for (int iNth = 1; iNth <= std::min(nCalls, nMostNth); ++iNth)
            for (const bool bOn : {false, true})
                for (const bool bWarm : {false, true})
                    (void)RunChild({&scenario, iKind, iNth, bOn, bWarm}, &clean.holdings);
    }
    TellFigures(scenario, clean);
}

void RunOne(const Scenario &scenario, char **pArgs, int nArgs) {
    const auto *const pKind = std::find(std::begin(kKinds), std::end(kKinds), std::string(pArgs[2]));
    const std::set<std::string> words(pArgs + 4, pArgs + nArgs);
    const Report clean = RunChild({&scenario, 0, 0, false, false}, nullptr);
    for (size_t i = 0; i < clean.nCalled; ++i)
        std::printf("%s: %d calls\n", clean.called[i].szFunction, clean.called[i].nReached);
    (void)RunChild({&scenario, static_cast<int>(pKind - kKinds), std::atoi(pArgs[3]), words.count("on") != 0,
                    words.count("warm") != 0},
                   &clean.holdings, true);
}

} // namespace

void torture::Enter(const char *szFunction) {
    Leave();
    Called *const pEnd = s_pReport->called + s_pReport->nCalled;
    s_pCalled = std::find_if(s_pReport->called, pEnd, [=](const Called &called) {
        return std::strcmp(called.szFunction, szFunction) == 0;
    });
    if (s_pCalled == pEnd) {
        if (s_pReport->nCalled == kMostFunctions)
            std::abort();
        (void)std::snprintf(s_pCalled->szFunction, sizeof s_pCalled->szFunction, "%s", szFunction);
        ++s_pReport->nCalled;
    }
    s_iHitsBefore = failing_hits();
    errno = 0;
}

void torture::Act(const std::function<void()> &fnAct) {
    const bool bFailing = s_iRound == s_iFailing;
    s_iReachedBefore = 0;
    s_pCalled = nullptr;
    failing_arm(static_cast<failing_kind>(s_run.iKind), bFailing ? s_run.iNth : 0, s_run.bOn ? 1 : 0);
    fnAct();
    Leave();
    failing_disarm();
    for (int i = 0; bFailing && i <= failing_kinds; ++i)
        s_pReport->nCalls[i] = failing_calls(i);
}

bool torture::Judge(bool bDid, bool bRefused, uint32_t nMay, int iLine) {
    const int iError = errno;
    const uint32_t nKind = 1U << s_run.iKind;
    constexpr uint32_t kVague =
        may::mappings | may::openings | may::shorts | may::locks; // whether it mattered is not known
    const bool bHit = failing_hits() > s_iHitsBefore;
    const char *szWrong = nullptr;
    if (!bDid && !bRefused)
        szWrong = "answers what its header does not say";
    else if (!bDid && failing_hits() == 0)
        szWrong = "is refused though nothing failed";
    else if (!bDid && (nKind & nMay & (may::interrupts | may::shorts)) != 0 && (nMay & may::or_not) == 0)
        szWrong = "does not go on";
    else if (bDid && bHit && (nKind & (kVague | nMay)) == 0)
        szWrong = "succeeds though something failed";
    else if (!bDid && bHit && (nMay & may::errors) != 0 && (nKind & kVague) == 0 && iError != failing_error())
        szWrong = "leaves another errno";
    if (szWrong != nullptr) {
        failing_disarm(); // what follows takes memory
        Find(LastCall() + " (line " + std::to_string(iLine) + ") " + szWrong + ", errno " +
             std::to_string(iError));
    }
    return bDid;
}

bool torture::Fails(uint32_t nKinds) {
    return s_iRound == s_iFailing && s_run.iNth > 0 && (1U << s_run.iKind & nKinds) != 0;
}

bool torture::JudgeResult(int64_t iResult, uint32_t nMay, int iLine) {
    return Judge(iResult == 0, iResult == -1, nMay, iLine);
}

bool torture::Must(bool bHolds, const char *szCondition, int iLine) {
    if (!bHolds) {
        failing_disarm();
        Find(std::string(szCondition) + " (line " + std::to_string(iLine) + ") does not hold after " +
             LastCall());
    }
    return bHolds;
}

int main(int nArgs, char **pArgs) {
    std::vector<Scenario> scenarios;
    for (const auto *pTable :
         {&torture::kSyncScenarios, &torture::kServiceScenarios, &torture::kSystemScenarios,
          &torture::kNetScenarios, &torture::kPlainScenarios})
        scenarios.insert(scenarios.end(), pTable->begin(), pTable->end());
    const auto it = std::find_if(scenarios.begin(), scenarios.end(), [=](const Scenario &scenario) {
        return nArgs > 2 && std::strcmp(scenario.szName, pArgs[1]) == 0;
    });
    for (size_t i = 0; nArgs == 1 && i < scenarios.size(); ++i)
        std::puts(scenarios[i].szName);
    if (it == scenarios.end())
        return nArgs == 1 ? 0 : 2;
    // A file of a zone that cannot be read is the C library's matter.
    (void)setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    std::string folder = (std::filesystem::temp_directory_path() / "vyx_torture_XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr)
        return 77;
    std::filesystem::current_path(folder);
    if (nArgs == 3)
        RunFailures(*it, pArgs[2] == std::string("--short") ? 1 : 100); // of a loop's calls the first ones
    else
        RunOne(*it, pArgs, nArgs);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder);
    return s_nFindings == 0 ? 0 : 1;
}
