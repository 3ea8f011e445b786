// A scenario: calls of the library while the platform's calls fail, and what has to hold.
#ifndef VYX_TESTS_SCENARIO_H
#define VYX_TESTS_SCENARIO_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <vyx/frame.h>

#include "failing.h"

namespace torture {

// What a call may do without: sets of kinds. What it may be interrupted in or do in parts, it is to finish.
namespace may {
#define MAY_KIND(kind) constexpr uint32_t kind = 1U << fails_##kind;
FAILING_KINDS(MAY_KIND)
#undef MAY_KIND
constexpr uint32_t anything = ((1U << failing_kinds) - 1) | 1U << 30;
constexpr uint32_t or_not = 1U << 30; // no kind: what is interrupted may be refused as well
constexpr uint32_t errors = 1U << 31; // no kind: errno tells of the failure
} // namespace may

// Notes that a public function is called next; within Act only. CALL(VYX_SemPost)(&hSem).
#define CALL(function) (torture::Enter(#function), function)
void Enter(const char *szFunction);

// Runs the calls that are to fail.
void Act(const std::function<void()> &fnAct);

// Judges the call before: it did what it is for, or it was refused as its header says. A refusal needs a failure of
// the platform, and a failure during the call a refusal, unless the call may do without what failed. Result: bDid.
bool Judge(bool bDid, bool bRefused, uint32_t nMay, int iLine);
#define DONE(did, refused, may) torture::Judge((did), (refused), (may), __LINE__)
// For the results 0 and -1.
#define OK(result, may) torture::JudgeResult((result), (may), __LINE__)
bool JudgeResult(int64_t iResult, uint32_t nMay, int iLine);
// Whether one of these kinds fails in this round.
bool Fails(uint32_t nKinds);
// What must hold whatever fails, and outside of Act, where nothing does.
#define MUST(condition) torture::Must((condition), #condition, __LINE__)
bool Must(bool bHolds, const char *szCondition, int iLine);

// The library, started for a scenario's round.
struct Started {
    Started() { MUST(VYX_Init() == VYX_OK); }
    ~Started() { (void)VYX_Fini(); }
    Started(const Started &) = delete;
    Started &operator=(const Started &) = delete;
};

// Runs twice or three times in a process of its own, one of them with failures, and is to leave nothing behind.
struct Scenario {
    const char *szName;
    void (*fnRun)();
    bool bReachesNothing = false; // calls none of the functions that can fail
};

// The tables.
extern const std::vector<Scenario> kSyncScenarios, kServiceScenarios, kSystemScenarios, kNetScenarios,
    kPlainScenarios;

} // namespace torture

#endif
