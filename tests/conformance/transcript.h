// The transcript: one line for each call, with its result, the same on every processor.
#ifndef VYX_TESTS_TRANSCRIPT_H
#define VYX_TESTS_TRANSCRIPT_H

#include <cstdint>
#include <string>

#include <vyx/types.h>

namespace transcript {

// Adds a line to the transcript.
void Line(const char *szFormat, ...) VYX_PRINTF(1, 2);

// For what differs with the width of pointers or the order of bytes: a line of its own list, marked at its beginning
// with those of this processor, "64 little: " for one.
void LocalLine(const char *szFormat, ...) VYX_PRINTF(1, 2);

// The same sequence on every run and every processor.
uint32_t Random();
uint32_t Random(uint32_t nBelow);
int64_t Random64();

// A text in quotes, with every byte that is not printable as \xx; "null" for a null.
std::string Quoted(const char *szText);
// Bytes as hexadecimal digits.
std::string Hex(const void *pBytes, size_t nCount);

// What the library prints to standard error while a function runs, for its message texts.
std::string MessagesOf(void (*pfnRun)());

// Everything, on the started library. The lists end up in the two texts.
struct Transcript {
    std::string common;
    std::string local;
};
Transcript Take();
// Sizes and offsets of the public records and the sizes of the classes, a line each.
std::string Layout();

void Strings();
void Numbers();
void Times();
void Containers();
void Files();
void Addresses();
void Queues();
void Refusals();

} // namespace transcript

#endif
