// logmill: collects the lines of logs from many senders over TCP into rotating log files.
//
//   sender --TCP--> connection, on a thread of a fixed pool --batches--> priority queue --> store --> log service
#include <exception>
#include <vyx/frame.h>
#include <vyx/sys.h>

#include "collector.h"
#include "sender.h"

namespace logmill {

namespace {

int Main(int argc, char **argv) {
    Options options;
    const Command command = ParseOptions(argc, argv, options);
    if (command == Command::Help || command == Command::Wrong)
        return command == Command::Help ? 0 : 2;
    if (command == Command::Collect)
        EndEvent::BlockSignals();
    if (VYX_Init() != VYX_OK) {
        VYX_OutputDebug("logmill: the library does not start");
        return 1;
    }
    const int status = command == Command::Collect ? Collector(options).Run() : Send(options);
    (void)VYX_Fini(); // always VYX_OK
    return status;
}

} // namespace

} // namespace logmill

int main(int argc, char **argv) {
    try {
        return logmill::Main(argc, argv);
    } catch (const std::exception &problem) {
        VYX_OutputDebug("logmill: failed: %s", problem.what());
        return 1;
    }
}
