// Failures of the platform on demand, in all of the process.
#ifndef VYX_TESTS_LOG_FAULTS_H
#define VYX_TESTS_LOG_FAULTS_H

#include <atomic>

namespace faults {

extern std::atomic<bool> noMemory; // operator new fails
extern std::atomic<bool> noThread; // pthread_create fails

} // namespace faults

#endif
