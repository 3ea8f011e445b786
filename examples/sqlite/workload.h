// The same work for every way of running SQLite: what it finds is summed up in one number, so that two ways can be
// compared.
#ifndef SQLITE_WORKLOAD_H
#define SQLITE_WORKLOAD_H

#include <cstdint>
#include <functional>
#include <sqlite3.h>
#include <stdexcept>
#include <string>

namespace sqlite_vyx {

// What SQLite said of a call that failed.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A connection. Its calls throw Failure.
class Database {
  public:
    explicit Database(const std::string &file);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    // How long it waits for the locks of others; a minute if nothing else is said.
    void SetPatience(int milliseconds);
    // Does it; SQLite's code.
    int Try(const std::string &sql);
    void Do(const std::string &sql);
    // Does it with one number bound.
    void Do(const std::string &sql, int64_t number);
    // Adds all rows to a sum in which their order counts.
    void Sum(const std::string &sql, uint64_t &sum);
    int64_t Number(const std::string &sql);

  private:
    void Fail(const std::string &what) const;
    sqlite3 *m_handle = nullptr;
};

// Works on the database in the file, which is made. Each part of the work is told with the time it took.
// Result: the sum over all that was found.
uint64_t Work(const std::string &file, int64_t rows,
              const std::function<void(const char *part, int64_t microseconds)> &tell);

} // namespace sqlite_vyx

#endif
