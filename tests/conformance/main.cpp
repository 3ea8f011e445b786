// Prints the transcript of some thousands of calls whose results depend on nothing but their arguments: a difference
// from the recorded one is a processor or a platform on which the library behaves otherwise.
//   transcript [--local | --layout]
#include <cstdio>
#include <cstring>
#include <vyx/frame.h>

#include "transcript.h"

int main(int argc, char **argv) {
    const char *szWhat = argc > 1 ? argv[1] : "";
    if (VYX_Init() != VYX_OK)
        return 1;
    const transcript::Transcript all = transcript::Take();
    const std::string text = std::strcmp(szWhat, "--local") == 0    ? all.local
                             : std::strcmp(szWhat, "--layout") == 0 ? transcript::Layout()
                                                                    : all.common;
    (void)std::fputs(text.c_str(), stdout);
    return VYX_Fini() == VYX_OK && std::fflush(stdout) == 0 ? 0 : 1;
}
