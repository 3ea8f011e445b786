// The network stage of the library's start, and what the network files share.
#ifndef VYX_NET_NET_INTER_H
#define VYX_NET_NET_INTER_H

#include <vyx/net.h>

VYX_BEGIN_DECLS

// Start: SIGPIPE is ignored from now on, so that writing to a closed connection fails instead of ending the
// process. Stop: nothing; the signal stays ignored. Both return 0.
int32_t VYX_InitNetwork_Inter(void);
int32_t VYX_FiniNetwork_Inter(void);

// Parse a text into 4 or 16 bytes, which are written on success only. Result: 1, or 0 if the text is malformed. A
// null pointer gives -1 in the first and 0 in the second.
int32_t VYX_InetPton4_Inter(const char *szText, uint8_t *pOut4);
int32_t VYX_InetPton6_Inter(const char *szText, uint8_t *pOut16);

// Prints a dotted quad if iSize is at least its length, in which the zero behind it does not count; no pointer may be null.
// Result: szOut, or null.
char *VYX_InetNtop4(const uint8_t *pBytes4, char *szOut, int32_t iSize);

// What the platform is told of a record's length: 16 for IPv4, 28 for anything else.
socklen_t VYX_AddrLength_Inter(const VYX_ADDR_T *pAddr);

VYX_END_DECLS

#endif
