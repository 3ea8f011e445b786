// Threads that are cancelled in every call of the library that blocks or holds something, before it and in it.
#ifndef VYX_TORTURE_CANCELLATION_H
#define VYX_TORTURE_CANCELLATION_H

#include <cstdint>
#include <string>

namespace torture {

// Makes what the calls use; copies are made in the folder.
void BeginCancellation(const std::string &folder);
// Cancels a thread in each of the calls. The result is how many; lines that the log took are counted apart, and each time.
int64_t CancelInEveryCall();
int64_t LinesOfCancelled();
// Compares what was given with what was taken, and gives everything back.
void EndCancellation();

} // namespace torture

#endif
