#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "log_bench.h"

namespace {

// As its documentation has it: the default queue of 8192 lines, one thread, callers wait where there is no room.
class Spdlog {
  public:
    explicit Spdlog(const std::string &folder)
        : m_pLogger(spdlog::basic_logger_mt<spdlog::async_factory>("bench", folder + "/log.txt")) {}
    ~Spdlog() {
        m_pLogger.reset();
        spdlog::shutdown(); // returns when the queue is empty
    }
    Spdlog(const Spdlog &) = delete;
    Spdlog &operator=(const Spdlog &) = delete;

    void Write(int iThread, int n) {
        m_pLogger->log(spdlog::source_loc{"log_bench.cpp", 42, ""}, spdlog::level::info,
                       "thread {} writes line {} of many", iThread, n);
    }

  private:
    std::shared_ptr<spdlog::logger> m_pLogger;
};

const int kRegistered = RegisterLogger<Spdlog>("spdlog", 0.9);

} // namespace
