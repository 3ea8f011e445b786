// The sender: streams a file to a collector.
#ifndef LOGMILL_SENDER_H
#define LOGMILL_SENDER_H

#include "options.h"

namespace logmill {

// The exit status: 0 if the collector says that it has stored every line, otherwise 1, with the reason on standard
// error.
int Send(const Options &options);

} // namespace logmill

#endif
