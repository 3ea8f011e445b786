/* Every header of libvyx. */
#ifndef VYX_VYX_H
#define VYX_VYX_H

#include <vyx/container.h>
#include <vyx/frame.h>
#include <vyx/log.h>
#include <vyx/msg.h>
#include <vyx/net.h>
#include <vyx/pool.h>
#include <vyx/string.h>
#include <vyx/sync.h>
#include <vyx/sys.h>
#include <vyx/thread.h>
#include <vyx/time.h>
#include <vyx/types.h>

#endif
