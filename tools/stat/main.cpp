// vyx-stat: what the pools, queues, timers, waits and the log of a process do, read from outside.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>

#include "description.h"
#include "print.h"

using namespace inspect;

namespace {

const char *const kHelp =
    R"(vyx-stat [options] PID | CORE | --all
Shows what libvyx does in a process, or did in a dead one: pools, queues, timers, waits, events, semaphores, log, threads.
The process is not stopped. What changed while it was read is "?".

  --all              all processes that have the library and may be read
  --json             as one JSON array with an object for each process
  --prometheus       as metrics in the text format of Prometheus
  --watch[=SECONDS]  again every second, or so many, until the process ends
  --version          the version of vyx-stat
Exit status: 0 shown, 1 it could not be read, 2 wrong usage.
)";

enum class Form : uint8_t { Text, Json, Prometheus };

struct Options {
    Form form = Form::Text;
    bool all = false;
    double watch = 0; // seconds; 0: once
    std::string target;
};

[[noreturn]] void Refuse(const std::string &message) {
    (void)std::fprintf(stderr, "vyx-stat: %s; see --help\n", message.c_str());
    std::exit(2); // NOLINT(concurrency-mt-unsafe): there is one thread
}

bool ReadWatch(const std::string &argument, Options &options) {
    if (argument == "--watch")
        options.watch = 1;
    if (argument.compare(0, 8, "--watch=") != 0)
        return argument == "--watch";
    char *end = nullptr;
    options.watch = std::strtod(argument.c_str() + 8, &end);
    if (argument.size() == 8 || *end != 0 || !(options.watch >= 0.1 && options.watch <= 86400))
        Refuse("no such time: " + argument);
    return true;
}

void SetForm(Form form, Options &options) {
    if (options.form != Form::Text && options.form != form)
        Refuse("--json and --prometheus");
    options.form = form;
}

void Say(const char *text) {
    (void)std::fputs(text, stdout);
    std::exit(0); // NOLINT(concurrency-mt-unsafe): there is one thread
}

Options ReadOptions(int count, char **arguments) {
    Options options;
    for (int i = 1; i < count; i++) {
        const std::string argument = arguments[i];
        if (argument == "--help" || argument == "-h")
            Say(kHelp);
        else if (argument == "--version")
            Say("vyx-stat " VYX_STAT_VERSION "\n");
        else if (argument == "--all")
            options.all = true;
        else if (argument == "--json")
            SetForm(Form::Json, options);
        else if (argument == "--prometheus")
            SetForm(Form::Prometheus, options);
        else if (ReadWatch(argument, options))
            continue;
        else if (argument[0] == '-')
            Refuse("unknown option " + argument);
        else if (!options.target.empty())
            Refuse("more than one process");
        else
            options.target = argument;
    }
    if (options.target.empty() != options.all)
        Refuse(options.all ? "--all and a process" : "no process");
    return options;
}

std::unique_ptr<Memory> Open(const std::string &target) {
    const bool number = target.find_first_not_of("0123456789") == std::string::npos && target.size() < 11;
    return number ? OpenProcess(std::strtoll(target.c_str(), nullptr, 10)) : OpenCore(target);
}

std::vector<int64_t> Processes() {
    std::vector<int64_t> processes;
    DIR *directory = opendir("/proc");
    while (const dirent *entry =
               directory == nullptr ? nullptr : readdir(directory)) { // NOLINT(concurrency-mt-unsafe)
        const int64_t number = std::strtoll(entry->d_name, nullptr, 10);
        if (number > 0 && number != getpid())
            processes.push_back(number);
    }
    if (directory != nullptr)
        (void)closedir(directory);
    std::sort(processes.begin(), processes.end());
    return processes;
}

// How far a long look at all processes has come, on a terminal; nothing stays of it.
class Progress {
  public:
    Progress(size_t all, bool shown) : m_all(all), m_shown(shown && isatty(STDERR_FILENO) == 1) {}
    ~Progress() {
        if (m_next > kFirst)
            (void)std::fputs("\r\033[K", stderr);
    }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;
    void Next() {
        m_done++;
        const int64_t now = Millis();
        if (!m_shown || now - m_start < m_next)
            return;
        (void)std::fprintf(stderr, "\rvyx-stat: %zu of %zu processes", m_done, m_all);
        m_next = now - m_start + kStep;
    }

  private:
    static constexpr int64_t kFirst = 300; // milliseconds, before which nothing is shown
    static constexpr int64_t kStep = 100;
    static int64_t Millis() {
        timespec now = {};
        (void)clock_gettime(CLOCK_MONOTONIC, &now); // it is there
        return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
    }
    size_t m_all;
    size_t m_done = 0;
    bool m_shown;
    int64_t m_start = Millis();
    int64_t m_next = kFirst;
};

// Result: how many it had to leave out.
size_t CollectEach(const std::vector<int64_t> &processes, Progress &&progress, std::vector<Report> &reports) {
    size_t closed = 0;
    for (const int64_t number : processes) {
        progress.Next();
        try {
            const auto memory = OpenProcess(number);
            if (HasLibrary(*memory))
                reports.push_back(Collect(*memory));
        } catch (const Error &) {
            closed++; // it is another user's, or has ended
        }
    }
    return closed;
}

// For the first time it says how far it is, and how many it had to leave out.
std::vector<Report> CollectAll(bool first) {
    std::vector<Report> reports;
    const std::vector<int64_t> processes = Processes();
    const size_t closed = CollectEach(processes, Progress(processes.size(), first), reports);
    if (closed > 0 && first)
        (void)std::fprintf(stderr, "vyx-stat: %zu processes may not be looked at\n", closed);
    return reports;
}

void Print(const std::vector<Report> &reports, Form form, bool clear) {
    std::string text;
    if (form == Form::Json)
        text = ToJson(reports);
    else if (form == Form::Prometheus)
        text = ToPrometheus(reports);
    else
        for (const Report &report : reports)
            text += (text.empty() ? "" : "\n") + ToText(report);
    if (clear)
        text.insert(0, "\033[H\033[J");
    (void)std::fwrite(text.data(), 1, text.size(), stdout);
    if (std::fflush(stdout) != 0)
        throw Error(std::string("cannot write: ") + std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
}

void Sleep(double seconds) {
    timespec left = {static_cast<time_t>(seconds), 0};
    left.tv_nsec = static_cast<long>((seconds - static_cast<double>(left.tv_sec)) * 1e9);
    (void)nanosleep(&left, nullptr); // a signal that does not end the program brings the next look sooner
}

int Run(const Options &options) {
    const bool clear = options.watch > 0 && options.form == Form::Text && isatty(STDOUT_FILENO) == 1;
    const auto memory = options.all ? nullptr : Open(options.target);
    for (bool first = true;; first = false) {
        std::vector<Report> reports;
        try {
            if (options.all)
                reports = CollectAll(first);
            else
                reports.push_back(Collect(*memory));
        } catch (const Ended &) {
            if (first)
                throw;
            return 0;
        }
        Print(reports, options.form, clear);
        if (options.watch == 0 || (memory != nullptr && !memory->IsLive()))
            return 0;
        Sleep(options.watch);
    }
}

} // namespace

int main(int count, char **arguments) {
    const Options options = ReadOptions(count, arguments);
    try {
        return Run(options);
    } catch (const Error &error) {
        (void)std::fprintf(stderr, "vyx-stat: %s\n", error.what());
    } catch (const std::bad_alloc &) {
        (void)std::fputs("vyx-stat: there is no memory\n", stderr);
    }
    return 1;
}
