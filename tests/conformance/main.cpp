// Writes the transcript of some thousands of calls whose results depend on nothing but their arguments: a difference
// from the recorded one is a processor or a platform on which the library behaves otherwise.
//   transcript common|local|layout FILE
#include <cstdio>
#include <cstring>
#include <vyx/frame.h>

#include "transcript.h"

int main(int argc, char **argv) {
    if (argc != 3 || VYX_Init() != VYX_OK)
        return 2;
    const transcript::Transcript all = transcript::Take();
    const std::string text = std::strcmp(argv[1], "local") == 0    ? all.local
                             : std::strcmp(argv[1], "layout") == 0 ? transcript::Layout()
                                                                   : all.common;
    FILE *pFile =
        std::fopen(argv[2], "w"); // not standard output, where the library has something to say as well
    if (pFile == nullptr)
        return 1;
    const bool bWritten = std::fputs(text.c_str(), pFile) >= 0;
    return std::fclose(pFile) == 0 && bWritten && VYX_Fini() == VYX_OK ? 0 : 1;
}
