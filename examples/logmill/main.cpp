// logmill: counts the lines of a text log, with one thread that reads and several that classify.
//
//   reader --batches of lines--> bounded buffer --> workers --merge--> summary
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>
#include <vyx/frame.h>
#include <vyx/sys.h>
#include <vyx/thread.h>

#include "summary.h"
#include "worker.h"

namespace logmill {

namespace {

// Threads that are waited for at the latest when the block ends.
class Threads {
  public:
    explicit Threads(size_t count) { m_threads.reserve(count); }
    ~Threads() { WaitForAll(); }
    Threads(const Threads &) = delete;
    Threads &operator=(const Threads &) = delete;

    bool Start(VYX_THREAD_PROC routine, void *param) {
        m_threads.emplace_back();
        if (m_threads.back().Create(routine, param, 0, 0, 0, 0) == VYX_OK)
            return true;
        m_threads.pop_back();
        return false;
    }
    void WaitForAll() {
        for (VYX_Thread &thread : m_threads)
            (void)thread.Wait();
        m_threads.clear();
    }

  private:
    std::vector<VYX_Thread> m_threads;
};

// Runs the reader and the workers to their end. False if a thread could not be started.
bool RunThreads(Reader &reader, Worker &worker, BoundedBuffer &buffer, uint32_t workers) {
    Threads threads(size_t{workers} + 1);
    bool started = true;
    for (uint32_t i = 0; i < workers && started; ++i)
        started = threads.Start(Worker::Run, &worker);
    started = started && threads.Start(Reader::Run, &reader);
    if (!started)
        buffer.Cancel();
    return started;
}

int Fail(const char *what, const std::string &about) {
    VYX_OutputDebug("logmill: %s%s", what, about.c_str());
    return 1;
}

int Mill(Input &input, const Options &options) {
    BoundedBuffer buffer(options.buffer);
    if (!buffer.Usable())
        return Fail("the system grants no semaphores: ", std::strerror(errno));
    Reader reader(input, buffer, options.batchBytes);
    Tally tally;
    Worker worker{&buffer, &tally};
    const VYX_TIME_T start = VYX_TimeNow();
    if (!RunThreads(reader, worker, buffer, options.workers))
        return Fail("cannot start threads: ", std::strerror(errno));
    if (reader.Error() != 0)
        return Fail("cannot read ", options.file + ": " + std::strerror(reader.Error()));
    if (tally.failed)
        return Fail("memory is short", "");
    const int64_t elapsed = tally.done != 0 ? tally.done - start : 0;
    const bool complete = PrintSummary({options, reader.Counts(), tally.counts, elapsed, tally.working});
    if (std::fflush(stdout) != 0)
        return Fail("cannot write the summary: ", std::strerror(errno));
    if (input.Interrupted())
        return Fail("interrupted: the summary is of the part read so far", "");
    return complete ? 0 : Fail("lines were lost", "");
}

int Main(int argc, char **argv) {
    Options options;
    const Parsed parsed = ParseOptions(argc, argv, options);
    if (parsed != Parsed::Run)
        return parsed == Parsed::Help ? 0 : 2;
    Input input;
    if (!input.Open(options.file))
        return Fail("cannot read ", options.file + ": " + std::strerror(errno));
    input.CatchInterruptions();
    if (VYX_Init() != VYX_OK)
        return Fail("the library does not start", "");
    const int status = Mill(input, options);
    (void)VYX_Fini(); // always VYX_OK
    return status;
}

} // namespace

} // namespace logmill

int main(int argc, char **argv) {
    try {
        return logmill::Main(argc, argv);
    } catch (const std::exception &problem) {
        return logmill::Fail("failed: ", problem.what());
    }
}
