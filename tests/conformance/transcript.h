// The transcript: one line for each call, with its result, the same on every processor.
#ifndef VYX_TESTS_TRANSCRIPT_H
#define VYX_TESTS_TRANSCRIPT_H

#include <cstdint>
#include <string>

#include <vyx/types.h>

namespace transcript {

// Begins a part of the transcript: a line with its name. The random sequence begins anew, so that a change in one part
// leaves the others as they are.
void Section(const std::string &name);
// Adds a line to the transcript.
void Line(const char *szFormat, ...) VYX_PRINTF(1, 2);

// The same sequence after a part's beginning, on every run and every processor.
uint32_t Random();
uint32_t Random(uint32_t nBelow);
int64_t Random64();

// A text in quotes, with every byte that is not printable as \xx; "null" for a null.
std::string Quoted(const char *szText);
// Bytes as hexadecimal digits.
std::string Hex(const void *pBytes, size_t nCount);

// All parts, on the started library.
std::string Take();

void Times();
void Files();
void Refusals();

} // namespace transcript

#endif
