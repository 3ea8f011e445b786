#ifndef VYX_EXPLORE_SHORTEN_H_
#define VYX_EXPLORE_SHORTEN_H_

#include "search.h"

namespace explore {

// Takes decisions out of a schedule as long as the same kind of fault still shows, so that as few switches as possible
// are forced. Afterwards the replay has the shorter schedule's points and hash.
void Shorten(Worker &worker, Found &found);

} // namespace explore

#endif
