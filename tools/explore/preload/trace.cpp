// Records of points with their call stacks, kept when the front end asks for them, and the stack at a crash.
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>
#include <unistd.h>

#include "calls.h"

namespace explore {
namespace {

bool s_trace;

uint32_t ModuleOf(const Dl_info &info) {
    Answer &answer = g.mapping->answer;
    const auto base = reinterpret_cast<uintptr_t>(info.dli_fbase);
    for (uint32_t i = 0; i < answer.modules; i++)
        if (g.mapping->modules[i].base == base)
            return i + 1;
    if (answer.modules >= kMaxModules)
        return 0;
    Module &module = g.mapping->modules[answer.modules++];
    module.base = base;
    // A program found through PATH is known to the loader by its name only.
    const bool found = strchr(info.dli_fname, '/') == nullptr;
    const ssize_t length = found ? readlink("/proc/self/exe", module.path, sizeof module.path - 1) : -1;
    if (length > 0)
        module.path[length] = 0;
    else
        strncpy(module.path, info.dli_fname, sizeof module.path - 1);
    return answer.modules;
}

void AddFrame(Record &record, const void *address) {
    Dl_info info;
    Dl_info own;
    (void)dladdr(reinterpret_cast<void *>(&StartTrace), &own);
    if (dladdr(address, &info) == 0 || info.dli_fbase == own.dli_fbase)
        return;
    Frame &frame = record.frame[record.frames++];
    frame.module = ModuleOf(info);
    frame.offset = reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(info.dli_fbase);
}

void FillFrames(Record &record) {
    constexpr int kDepth = 32;
    void *stack[kDepth];
    const int count = backtrace(stack, kDepth);
    for (int i = 0; i < count && record.frames < kMaxFrames; i++)
        AddFrame(record, stack[i]);
}

// The stack where the program crashes. The signal comes again when this returns, and ends the process.
void OnCrash(int) {
    Thread *me = t_self;
    if (me == nullptr || g.mapping->answer.records >= kMaxRecords)
        return;
    Record &record = g.mapping->records[g.mapping->answer.records++];
    record = Record();
    record.thread = record.next = static_cast<uint16_t>(me->number);
    record.flags = Record::Crash;
    record.time = Now();
    me->inside = true; // the C library's own calls on the way are no points
    FillFrames(record);
}

constexpr size_t kMaxUnwinders = 4;
struct Code {
    uintptr_t begin, end;
};
Code s_unwinder[kMaxUnwinders];
size_t s_unwinders;

bool IsUnwinder(const char *path) {
    const char *slash = strrchr(path, '/');
    const char *name = slash == nullptr ? path : slash + 1;
    return strncmp(name, "libgcc_s.so", 11) == 0 || strncmp(name, "libunwind.so", 12) == 0;
}

int NoteUnwinder(dl_phdr_info *info, size_t, void *) {
    if (!IsUnwinder(info->dlpi_name))
        return 0;
    for (int i = 0; i < info->dlpi_phnum && s_unwinders < kMaxUnwinders; i++) {
        const ElfW(Phdr) &part = info->dlpi_phdr[i];
        if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
            const uintptr_t begin = info->dlpi_addr + part.p_vaddr;
            s_unwinder[s_unwinders++] = {begin, begin + part.p_memsz};
        }
    }
    return 0;
}

} // namespace

void FindUnwinder() {
    void *stack[4];
    (void)backtrace(stack, 4); // loads it now rather than in the middle of a schedule
    (void)dl_iterate_phdr(NoteUnwinder, nullptr);
}

bool InUnwinder(const void *site) {
    const auto address = reinterpret_cast<uintptr_t>(site);
    for (size_t i = 0; i < s_unwinders; i++)
        if (address - s_unwinder[i].begin < s_unwinder[i].end - s_unwinder[i].begin)
            return true;
    return false;
}

void StartTrace() {
    s_trace = g.mapping->order.trace != 0;
    if (!s_trace)
        return;
    struct sigaction action = {};
    action.sa_handler = OnCrash;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    const int signals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
    for (const int signal : signals)
        (void)sigaction(signal, &action, nullptr);
}

uint32_t Trace(Thread *me, const Point &point, uint32_t object, uint8_t flags) {
    Answer &answer = g.mapping->answer;
    if (!s_trace || answer.records >= kMaxRecords)
        return 0;
    Record &record = g.mapping->records[answer.records];
    record = Record();
    record.time = Now();
    record.thread = record.next = static_cast<uint16_t>(me->number);
    record.object = object;
    record.op = point.op;
    record.kind = point.kind;
    record.flags = flags;
    if (point.op == Op::Start) // the routine rather than its caller, which is the C library
        AddFrame(record, static_cast<const char *>(point.site) + 1);
    else if (point.op != Op::Exit)
        FillFrames(record);
    return answer.records++;
}

void TraceAccess(uint32_t thread, const void *site, bool write) {
    Answer &answer = g.mapping->answer;
    if (!s_trace || answer.records >= kMaxRecords)
        return;
    Record &record = g.mapping->records[answer.records++];
    record = Record();
    record.thread = record.next = static_cast<uint16_t>(thread);
    record.op = write ? Op::Store : Op::Load;
    record.flags = Record::Crash;
    record.time = Now();
    AddFrame(record, site);
}

void TraceNext(Thread *me, uint32_t next, uint8_t flags) {
    if (!s_trace || me->record >= kMaxRecords)
        return;
    Record &record = g.mapping->records[me->record];
    record.next = static_cast<uint16_t>(next);
    record.flags = static_cast<uint8_t>(record.flags | flags);
}

} // namespace explore
