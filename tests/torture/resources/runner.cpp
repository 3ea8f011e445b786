// Runs a scenario with failures, each run in a child process.
//   torture_resources                         the names of the scenarios
//   torture_resources SCENARIO MOST [KIND]    the first MOST failures of each kind, or of one kind with their output; prints
//                                             figures as JSON. Each alone and with all after it, at first and after a run
//                                             without failures ("warm")
// Exit status: 0 nothing was found, 1 findings, on standard error.
#include "scenario.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "torture/torture.h"

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

// What can be left behind.
enum Holding { kBlocks, kDescriptors, kThreads, kNames, kHoldings };

// What a child tells its parent, in memory that both have.
struct Report {
    long nHeld[kHoldings];
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
int64_t s_nRuns;   // the parent's
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

// What is held when the scenario's threads have gone, as they all do.
void Settle(long (&nHeld)[kHoldings]) {
    torture::Held held = torture::HeldNow();
    for (int i = 0; i < kSettleMillis && held.threads > 1; ++i, held = torture::HeldNow())
        torture::Pause(1000); // no condition tells that a detached thread is gone
    nHeld[kBlocks] = failing_blocks() - s_nInherited;
    nHeld[kDescriptors] = held.descriptors;
    nHeld[kThreads] = held.threads;
    nHeld[kNames] = held.names;
}

// The child: runs the scenario, and compares what it holds with what it held when nothing failed.
void RunScenario(const Report *pClean) {
    s_iFailing = s_run.bWarm ? 1 : 0;
    for (s_iRound = 0; s_iRound < s_iFailing + 2; ++s_iRound)
        s_run.pScenario->fnRun();
    if (pClean == nullptr) { // without failures: another round changes nothing
        Settle(s_pReport->nHeld);
        s_run.pScenario->fnRun();
        pClean = s_pReport;
    }
    long nHeld[kHoldings];
    Settle(nHeld);
    constexpr const char *kNamesOf[] = {"blocks", "descriptors", "threads", "names"};
    for (int i = 0; i < kHoldings; ++i)
        if (nHeld[i] > pClean->nHeld[i]) // fewer is no leak: what failed once need not be tried again
            Find("leaves " + std::to_string(nHeld[i]) + " " + kNamesOf[i] + " instead of " +
                 std::to_string(pClean->nHeld[i]));
}

[[noreturn]] void Child(const Run &run, const Report *pClean, Report *pReport, bool bShow) {
    s_pReport = pReport;
    s_run = run;
    alarm(kLimit);
    const int fd = open("/dev/null", O_RDWR);
    for (int i = 1; i < 3 && !bShow; ++i)
        (void)dup2(fd, i);
    (void)close(fd);
    (void)close(0);      // so that the library gets this one, too
    (void)std::puts(""); // which takes the stream's buffer
    s_nInherited = failing_blocks();
    try {
        RunScenario(pClean);
    } catch (const std::exception &error) {
        Find(LastCall() + " throws " + error.what());
    }
    _exit(0);
}

// Runs it in a child. pClean: the report without failures, which tells what may be held at its end; null to make it.
Report RunChild(const Run &run, const Report *pClean, bool bShow = false) {
    static auto *const pReport = static_cast<Report *>(
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    *pReport = {};
    const pid_t pid = fork();
    if (pid == 0)
        Child(run, pClean, pReport, bShow);
    int iStatus = 0;
    (void)waitpid(pid, &iStatus, 0);
    ++s_nRuns;
    const std::string end = iStatus == 0            ? ""
                            : !WIFSIGNALED(iStatus) ? "exits with " + std::to_string(WEXITSTATUS(iStatus))
                            : WTERMSIG(iStatus) == SIGALRM
                                ? "does not end"
                                : std::string("dies: ") + strsignal(WTERMSIG(iStatus));
    (void)torture::Check(end.empty() && pReport->szFinding[0] == '\0',
                         std::string(run.pScenario->szName) + ' ' + kKinds[run.iKind] + ' ' +
                             std::to_string(run.iNth) + (run.bOn ? " on" : "") + (run.bWarm ? " warm" : "") +
                             ": " + end + pReport->szFinding);
    return *pReport;
}

// The figures: what was called, with its calls of the platform, and the kinds of these.
void TellFigures(const Scenario &scenario, const Report &clean) {
    std::printf("{\"runs\": %lld, \"findings\": %d, \"plain\": %s, \"kinds\": [\"any\"",
                static_cast<long long>(s_nRuns), torture::Findings(),
                scenario.bReachesNothing ? "true" : "false");
    for (int iKind = 0; iKind < failing_kinds; ++iKind)
        if (clean.nCalls[iKind] > 0)
            std::printf(", \"%s\"", kKinds[iKind]);
    for (size_t i = 0; i < clean.nCalled; ++i)
        std::printf("%s\"%s\": %d", i == 0 ? "], \"called\": {" : ", ", clean.called[i].szFunction,
                    clean.called[i].nReached);
    std::puts("}}");
}

void RunFailures(const Scenario &scenario, int nMostNth, const char *szKind) {
    const Report clean = RunChild({&scenario, 0, 0, false, false}, nullptr);
    for (int iKind = 0; iKind < failing_kinds; ++iKind) {
        const bool bLimit = iKind == fails_mappings || iKind == fails_openings;
        const int nCalls = clean.nCalls[bLimit ? failing_kinds : iKind];
        const bool bWanted = szKind == nullptr || std::strcmp(szKind, kKinds[iKind]) == 0;
        for (int iNth = 1; bWanted && iNth <= std::min(nCalls, nMostNth); ++iNth)
            for (const int iForm : {0, 1, 2, 3})
                (void)RunChild({&scenario, iKind, iNth, iForm % 2 == 1, iForm > 1}, &clean,
                               szKind != nullptr);
    }
    TellFigures(scenario, clean);
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
    // A file of a zone that cannot be read is the C library's matter.
    (void)setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    std::string folder = (std::filesystem::temp_directory_path() / "vyx_torture_XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr)
        return 77;
    std::filesystem::current_path(folder);
    for (const auto *pTable :
         {&torture::kSyncScenarios, &torture::kServiceScenarios, &torture::kSystemScenarios,
          &torture::kNetScenarios, &torture::kPlainScenarios})
        for (const Scenario &scenario : *pTable)
            if (nArgs == 1)
                std::puts(scenario.szName);
            else if (nArgs > 2 && std::strcmp(scenario.szName, pArgs[1]) == 0)
                RunFailures(scenario, std::atoi(pArgs[2]), pArgs[3]);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder);
    return torture::Findings() == 0 && (nArgs == 1 || s_nRuns > 0) ? 0 : 1;
}
