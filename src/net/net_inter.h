// The network stage of the library's start.
#ifndef VYX_NET_NET_INTER_H
#define VYX_NET_NET_INTER_H

#include <vyx/types.h>

VYX_BEGIN_DECLS

// Start: SIGPIPE is ignored from now on, so that writing to a closed connection fails instead of ending the
// process. Stop: nothing; the signal stays ignored. Both return 0.
int32_t VYX_InitNetwork_Inter(void);
int32_t VYX_FiniNetwork_Inter(void);

VYX_END_DECLS

#endif
