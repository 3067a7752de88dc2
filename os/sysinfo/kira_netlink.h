#ifndef OS_SYSINFO_KIRA_NETLINK_H
#define OS_SYSINFO_KIRA_NETLINK_H

// Listener for the file system module's notifications on netlink protocol
// 28, multicast group 1. A notification is a datagram (at most 72 bytes are
// read) whose payload, right after the 16-byte netlink header, starts with
// the u32 0x0AE32014.
//
// Stopping a listener: call KIRA_Netlink_ext3_release on its socket from
// another thread. The listener then returns 0 promptly, without waiting for
// another datagram. A plain close() is not enough: on Linux a thread blocked
// in a receive keeps the socket alive (and keeps receiving on it) until a
// datagram arrives, and shutdown() is not supported on netlink sockets; the
// listener therefore waits in poll() together with a wake-up descriptor
// that the release signals, and receives only when data is ready. The
// socket is closed under a lock that the listener also holds around each
// receive, so a descriptor number reused after the release is never read.
// A plain close() from another thread ends the listener only when the next
// datagram arrives (it is not passed on). Release each listened socket
// exactly once.

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KIRA_NETLINK_EXT3_PROTOCOL 28
#define KIRA_NETLINK_EXT3_GROUP 1
#define KIRA_NETLINK_EXT3_MAGIC 0x0AE32014u

// Results of KIRA_Netlink_ext3_listen.
#define KIRA_NETLINK_RELEASED 0
#define KIRA_NETLINK_BAD_SOCKET (-2)
#define KIRA_NETLINK_NO_CALLBACK (-3)
#define KIRA_NETLINK_BIND_FAILED (-4)
#define KIRA_NETLINK_NO_MEMORY (-5)
#define KIRA_NETLINK_RECV_FAILED (-6)
#define KIRA_NETLINK_BAD_PORT (-7)

// Called with the address of the payload (the magic value first). The
// buffer is not cleared between datagrams: a datagram shorter than 20 bytes
// shows the previous payload again.
typedef void (*KIRA_NETLINK_CALLBACK)(void* payload);

// A raw netlink socket of protocol 28; when the module is missing it runs
// "modprobe ext3" and "modprobe ext4" and tries once more. -1 on failure.
KIRA_EXPORT int KIRA_Netlink_ext3_create(void);
// Binds the socket to portId and group 1 and passes each notification to
// callback until the socket is released (0). Otherwise: -2 negative socket,
// -7 port id 0, -3 null callback, -4 bind failed, -5 no memory (buffer or
// wake-up descriptor), -6 the wait or receive failed, a signal included.
KIRA_EXPORT int KIRA_Netlink_ext3_listen(int32_t sock, uint32_t portId, KIRA_NETLINK_CALLBACK callback);
// Closes the socket and wakes its listener; close's result. A negative
// descriptor is returned unchanged.
KIRA_EXPORT int KIRA_Netlink_ext3_release(int32_t sock);

#ifdef __cplusplus
}
#endif

#endif
