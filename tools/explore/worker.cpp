#include "worker.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <set>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/wait.h>
#include <unistd.h>

namespace explore {
namespace {

namespace fs = std::filesystem;

const char *const kRuntime = "libvyx_explore.so";
const char *const kHeap = "libvyx_explore_heap.so";

// A preload library: beside this program in a build, in the library folder once installed.
std::string FindLibrary(const char *name) {
    std::error_code error;
    const fs::path own = fs::read_symlink("/proc/self/exe", error).parent_path();
    const fs::path places[] = {own / name, own / VYX_EXPLORE_TO_LIBRARY / name};
    for (const fs::path &place : places)
        if (fs::exists(place, error))
            return fs::canonical(place, error).string();
    return "";
}

void Set(const char *name, const std::string &value) {
    (void)setenv(name, value.c_str(), 1);
}

void Append(const char *name, const std::string &value) {
    const char *before = getenv(name);
    Set(name, before == nullptr || *before == 0 ? value : std::string(before) + ":" + value);
}

uint64_t Mix(uint64_t hash, uint64_t value) {
    hash = (hash ^ value) * 0x9E3779B97F4A7C15u;
    return hash ^ (hash >> 31);
}

} // namespace

Worker::Worker(const Options &options) : m_options(options) {}

Worker::~Worker() {
    if (m_commands >= 0)
        (void)close(m_commands);
    if (m_server > 0)
        (void)waitpid(m_server, nullptr, 0);
    if (m_answers >= 0)
        (void)close(m_answers);
    if (m_output >= 0)
        (void)close(m_output);
    if (m_memory >= 0)
        (void)close(m_memory);
    if (m_mapping != nullptr)
        (void)munmap(m_mapping, sizeof(Mapping));
    std::error_code error;
    if (!m_directory.empty())
        fs::remove_all(m_directory, error);
}

bool Worker::MakeMapping(std::string &message) {
    m_memory = memfd_create("vyx-explore", MFD_CLOEXEC);
    if (m_memory < 0 || ftruncate(m_memory, sizeof(Mapping)) != 0) {
        message = std::string("no shared memory: ") + strerror(errno);
        return false;
    }
    void *memory = mmap(nullptr, sizeof(Mapping), PROT_READ | PROT_WRITE, MAP_SHARED, m_memory, 0);
    if (memory == MAP_FAILED) {
        message = std::string("no shared memory: ") + strerror(errno);
        return false;
    }
    m_mapping = static_cast<Mapping *>(memory);
    m_mapping->order.layout = kLayout;
    return true;
}

Order Worker::NewOrder() const {
    Order order = {};
    order.layout = kLayout;
    order.max_points = m_options.max_points;
    order.lateness = m_options.lateness * 1000000;
    order.real_time = m_options.real_time ? 1 : 0;
    order.check_races = m_options.races ? 1 : 0;
    order.check_leaks = (m_options.fail_on & OnLeak) != 0 ? 1 : 0;
    order.fail_calls = m_options.fail_calls;
    order.fail_millions = m_options.fail_millions;
    return order;
}

// In the child: the environment, then the program. Returns only if it cannot be run.
void Worker::Execute(bool serve, int commands, int answers) {
    const char *preload = getenv("LD_PRELOAD");
    const std::string before = preload == nullptr ? "" : preload;
    Set("VYX_EXPLORE_PRELOAD", before);
    std::string libraries = FindLibrary(kRuntime);
    if (m_options.races || (m_options.fail_on & OnLeak) != 0 || (m_options.fail_calls & FailMalloc) != 0)
        libraries += ":" + FindLibrary(kHeap);
    Set("LD_PRELOAD", libraries + (before.empty() ? "" : ":" + before));
    Set(kMappingVariable, std::to_string(m_memory));
    if (serve) {
        Set(kServerVariable, std::to_string(commands) + "," + std::to_string(answers));
        Set("TMPDIR", m_directory);
    }
    Append("ASAN_OPTIONS", "verify_asan_link_order=0");
    // The same addresses in every run. Where that is refused, only programs that look at addresses notice.
    (void)personality(ADDR_NO_RANDOMIZE);
    std::vector<char *> arguments;
    for (const std::string &argument : m_options.program)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    (void)execvp(arguments[0], arguments.data());
}

bool Worker::Start(std::string &message) {
    if (FindLibrary(kRuntime).empty()) {
        message = std::string(kRuntime) + " not found";
        return false;
    }
    if (!MakeMapping(message))
        return false;
    std::error_code error;
    std::string directory = fs::temp_directory_path(error) / "vyx-explore-XXXXXX";
    if (mkdtemp(directory.data()) == nullptr) {
        message = std::string("no folder for temporary files: ") + strerror(errno);
        return false;
    }
    m_directory = directory;
    int commands[2];
    int answers[2];
    m_output = memfd_create("vyx-explore-output", MFD_CLOEXEC);
    if (m_output < 0 || pipe2(commands, O_CLOEXEC) != 0 || pipe2(answers, O_CLOEXEC) != 0) {
        message = strerror(errno);
        return false;
    }
    (void)fcntl(m_output, F_SETFL, O_APPEND);
    m_server = fork();
    if (m_server == 0) {
        const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
        (void)dup2(nothing, 0);
        if (!m_options.output) {
            (void)dup2(m_output, 1);
            (void)dup2(m_output, 2);
        }
        for (const int descriptor : {m_memory, commands[0], answers[1]})
            (void)fcntl(descriptor, F_SETFD, 0);
        Execute(true, commands[0], answers[1]);
        const std::string failure = m_options.program[0] + ": " + strerror(errno) + "\n";
        (void)!write(m_output, failure.data(), failure.size());
        _exit(127);
    }
    (void)close(commands[0]);
    (void)close(answers[1]);
    m_commands = commands[1];
    m_answers = answers[0];
    int status = 0;
    bool stuck = false;
    if (m_server < 0 || !AwaitAnswer(status, stuck) || stuck) {
        message = "the program does not start under exploration (a static program, or one that may not be "
                  "preloaded): " +
                  Output();
        return false;
    }
    return true;
}

void Worker::Write(const Order &order, const std::vector<Decision> &decisions) {
    m_mapping->order = order;
    m_mapping->order.decisions = static_cast<uint32_t>(std::min<size_t>(decisions.size(), kMaxDecisions));
    std::vector<Decision> sorted = decisions;
    std::stable_sort(sorted.begin(), sorted.end(), [](const Decision &a, const Decision &b) {
        if (a.thread != b.thread)
            return a.thread < b.thread;
        return a.type != b.type ? a.type < b.type : a.at < b.at;
    });
    std::copy_n(sorted.begin(), m_mapping->order.decisions, m_mapping->given);
    m_mapping->answer = Answer();
}

// The server's next answer. Kills the schedule that takes too long.
bool Worker::AwaitAnswer(int &status, bool &stuck) {
    stuck = false;
    pollfd poll = {m_answers, POLLIN, 0};
    for (;;) {
        const int ready = ::poll(&poll, 1, stuck ? 5000 : static_cast<int>(m_options.limit * 1000));
        if (ready > 0)
            break;
        if (ready < 0 && errno == EINTR)
            continue;
        const pid_t child = m_mapping->child.load();
        if (ready < 0 || child <= 0 || stuck)
            return false;
        stuck = true;
        (void)kill(child, SIGKILL);
    }
    return read(m_answers, &status, sizeof status) == sizeof status;
}

void Worker::EmptyDirectory() const {
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(m_directory, error))
        fs::remove_all(entry.path(), error);
}

bool Worker::Run(const Order &order, const std::vector<Decision> &decisions, Outcome &outcome) {
    Write(order, decisions);
    if (!m_options.output)
        (void)!ftruncate(m_output, 0);
    const char command = 1;
    int status = 0;
    bool stuck = false;
    if (write(m_commands, &command, 1) != 1 || !AwaitAnswer(status, stuck))
        return false;
    EmptyDirectory();
    outcome = Outcome();
    Judge(status, stuck, outcome);
    return true;
}

void Worker::Become(const Order &order, const std::vector<Decision> &decisions) {
    std::string message;
    if (!MakeMapping(message)) {
        (void)std::fprintf(stderr, "vyx-explore: %s\n", message.c_str());
        return;
    }
    Write(order, decisions);
    (void)fcntl(m_memory, F_SETFD, 0);
    Execute(false, -1, -1);
    (void)std::fprintf(stderr, "vyx-explore: %s: %s\n", m_options.program[0].c_str(), strerror(errno));
}

void Worker::Judge(int status, bool stuck, Outcome &outcome) const {
    const Answer &answer = m_mapping->answer;
    outcome.status = status;
    outcome.points = answer.points;
    outcome.hash = answer.hash;
    outcome.threads = answer.threads;
    outcome.outside = answer.outside;
    outcome.blocks = answer.blocks;
    outcome.text = std::string(answer.text, strnlen(answer.text, sizeof answer.text));
    outcome.notes = std::string(answer.notes, strnlen(answer.notes, sizeof answer.notes));
    outcome.fault = answer.fault;
    if (stuck)
        outcome.fault = Fault::Stuck;
    else if (WIFSIGNALED(status))
        outcome.fault = Fault::Signal;
    else if ((answer.fault == Fault::None || answer.fault == Fault::Misuse) && WEXITSTATUS(status) != 0)
        outcome.fault = Fault::Status;
    if (outcome.fault == Fault::Signal || outcome.fault == Fault::Status || outcome.fault == Fault::None) {
        const std::string output = Output();
        if (output.find("Sanitizer") != std::string::npos ||
            output.find("runtime error:") != std::string::npos)
            outcome.fault = Fault::Sanitizer;
    }
    uint64_t signature =
        Mix(static_cast<uint64_t>(outcome.fault), outcome.fault == Fault::Race ? answer.site : 0);
    if (outcome.fault == Fault::Status || outcome.fault == Fault::Signal)
        signature = Mix(signature, static_cast<uint64_t>(status));
    outcome.signature = outcome.fault == Fault::Deadlock ? DeadlockSignature(signature) : signature;
}

// A deadlock is known by the places where threads wait; if it is about mutexes, by where threads wait for those.
// Who waits for a thread's end only follows.
uint64_t Worker::DeadlockSignature(uint64_t signature) const {
    const Answer &answer = m_mapping->answer;
    std::set<uint64_t> sites;
    std::set<uint64_t> mutex_sites;
    for (uint32_t i = 0; i < answer.waiting && i < kMaxWaiting; i++) {
        const Waiting &waiting = m_mapping->waiting[i];
        if (waiting.kind == Kind::Mutex)
            mutex_sites.insert(waiting.site);
        if (waiting.op != Op::Join && waiting.op != Op::None)
            sites.insert(waiting.site);
    }
    for (const uint64_t site : mutex_sites.size() > 1 ? mutex_sites : sites)
        signature = Mix(signature, site);
    return signature;
}

std::vector<Decision> Worker::Made() const {
    const uint32_t count = std::min(m_mapping->answer.decisions, kMaxDecisions);
    return {m_mapping->made, m_mapping->made + count};
}

std::string Worker::Output() const {
    constexpr off_t kEnd = 65536;
    const off_t size = m_output < 0 ? 0 : lseek(m_output, 0, SEEK_END);
    if (size <= 0)
        return "";
    std::string text(static_cast<size_t>(std::min(size, kEnd)), '\0');
    const ssize_t count = pread(m_output, text.data(), text.size(), std::max<off_t>(0, size - kEnd));
    text.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return text;
}

const char *FaultText(Fault fault) {
    static const char *const texts[] = {"none",   "deadlock",    "endless", "race",  "leak",
                                        "misuse", "exit status", "signal",  "stuck", "sanitizer"};
    return texts[static_cast<size_t>(fault)];
}

std::string StatusText(const Outcome &outcome) {
    if (outcome.fault == Fault::Stuck)
        return "it was killed after the real time that a schedule may take";
    if (WIFSIGNALED(outcome.status))
        return std::string("killed by signal ") + std::to_string(WTERMSIG(outcome.status)) + " (" +
               strsignal(WTERMSIG(outcome.status)) + ")";
    if (outcome.fault == Fault::Misuse)
        return outcome.notes;
    if (outcome.fault == Fault::Status || outcome.fault == Fault::Sanitizer)
        return "exit status " + std::to_string(WEXITSTATUS(outcome.status));
    return outcome.text;
}

} // namespace explore
