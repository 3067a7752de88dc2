// The netlink listener for the file system module's notifications: socket
// creation with the module-loading fallback, the listen loop, and the
// release that stops it.
//
// A thread blocked in a receive does not notice a close() of its socket
// from another thread (and shutdown() is refused on netlink sockets), so
// each listener registers itself with a wake-up descriptor. The listener
// waits in poll() on both, and receives only under the registry lock after
// checking that its socket was not released; the release closes the socket
// and signals the wake-up under the same lock.

#include <errno.h>
#include <linux/netlink.h>
#include <poll.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "os/base/kira_list.h"
#include "os/base/kira_raii.h"
#include "os/base/kira_system.h"
#include "os/sysinfo/kira_netlink.h"

namespace {

constexpr size_t kReceiveSize = 72;
constexpr size_t kHeaderSize = 16;
constexpr socklen_t kAddressLength = 12;

struct Listener {
    struct list_head node;
    int fd;
    int wake;  // -1 until the listener is ready to wait
    bool released;
};

LIST_HEAD(g_stListeners);
pthread_mutex_t g_stListenerLock = PTHREAD_MUTEX_INITIALIZER;

// A listener's entry in the registry; it owns the wake-up descriptor, which
// is closed only after the entry is gone so a release never signals a
// closed (or reused) descriptor.
class Registration {
public:
    explicit Registration(int fd) : record_{{nullptr, nullptr}, fd, -1, false} {
        kira::MutexGuard guard(&g_stListenerLock);
        list_add_tail(&record_.node, &g_stListeners);
    }
    ~Registration() {
        {
            kira::MutexGuard guard(&g_stListenerLock);
            list_del(&record_.node);
        }
        if (record_.wake >= 0) {
            (void)close(record_.wake);
        }
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    Listener* record() { return &record_; }
    // Takes the wake-up descriptor; true when the socket was released before.
    bool ArmWake(int wake) {
        kira::MutexGuard guard(&g_stListenerLock);
        record_.wake = wake;
        return record_.released;
    }

private:
    Listener record_;
};

// 0, or the errno of the failed bind.
int BindToGroup(int fd, uint32_t portId) {
    struct sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = portId;
    address.nl_groups = KIRA_NETLINK_EXT3_GROUP;
    kira::MutexGuard guard(&g_stListenerLock);
    return bind(fd, reinterpret_cast<struct sockaddr*>(&address), kAddressLength) == 0 ? 0 : errno;
}

// Returns the receive's result with its errno, or 0 with EBADF once the
// socket was released (the same outcome a receive on a closed descriptor
// has).
ssize_t ReceiveUnlessReleased(Listener* self, struct msghdr* message, int* error) {
    kira::MutexGuard guard(&g_stListenerLock);
    if (self->released) {
        *error = EBADF;
        return 0;
    }
    ssize_t got = recvmsg(self->fd, message, MSG_DONTWAIT);
    // An empty datagram ends the loop too; no stale errno decides how.
    *error = got < 0 ? errno : 0;
    return got;
}

// The loop proper: 0 once released, -6 when a receive fails otherwise.
int ReceiveNotifications(Listener* self, unsigned char* buffer, KIRA_NETLINK_CALLBACK callback) {
    struct iovec vector = {buffer, kReceiveSize};
    struct msghdr message = {};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    int error = 0;
    for (;;) {
        struct pollfd waits[2] = {{self->fd, POLLIN, 0}, {self->wake, POLLIN, 0}};
        // A signal ends the loop like any failed receive (poll is never
        // restarted): a caller may stop its listener thread that way.
        if (poll(waits, 2, -1) < 0) {
            error = errno;
            break;
        }
        ssize_t got = ReceiveUnlessReleased(self, &message, &error);
        if (got < 0 && (error == EAGAIN || error == EWOULDBLOCK)) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        // The buffer is not cleared between datagrams, as callers have
        // always seen it: a short datagram shows the previous payload.
        uint32_t kind = 0;
        memcpy(&kind, buffer + kHeaderSize, sizeof(kind));
        if (kind == KIRA_NETLINK_EXT3_MAGIC) {
            callback(buffer + kHeaderSize);
        }
    }
    return error == EBADF ? KIRA_NETLINK_RELEASED : KIRA_NETLINK_RECV_FAILED;
}

}  // namespace

extern "C" {

KIRA_EXPORT int KIRA_Netlink_ext3_create(void) {
    int fd = socket(AF_NETLINK, SOCK_RAW, KIRA_NETLINK_EXT3_PROTOCOL);
    if (fd >= 0) {
        return fd;
    }
    int status = KIRA_Execute("modprobe ext3");
    if (status != 0) {
        syslog(LOG_ERR, "[KIRA_Netlink_ext3_create]Modprobe ext3.ko failed: %d.\n", status);
    }
    status = KIRA_Execute("modprobe ext4");
    if (status != 0) {
        syslog(LOG_ERR, "[KIRA_Netlink_ext3_create]Modprobe ext4.ko failed: %d.\n", status);
    }
    fd = socket(AF_NETLINK, SOCK_RAW, KIRA_NETLINK_EXT3_PROTOCOL);
    if (fd < 0) {
        int error = errno;
        syslog(LOG_ERR, "[KIRA_Netlink_ext3_create]Create socket failed: %d, errno: %d.\n", fd, error);
        return -1;
    }
    return fd;
}

KIRA_EXPORT int KIRA_Netlink_ext3_listen(int32_t sock, uint32_t portId, KIRA_NETLINK_CALLBACK callback) {
    if (sock < 0) {
        return KIRA_NETLINK_BAD_SOCKET;
    }
    if (portId < 1) {
        return KIRA_NETLINK_BAD_PORT;
    }
    if (callback == nullptr) {
        return KIRA_NETLINK_NO_CALLBACK;
    }
    Registration registration(sock);
    Listener* self = registration.record();
    int bindError = BindToGroup(sock, portId);
    if (bindError != 0) {
        syslog(LOG_ERR, "[KIRA_Netlink_ext3_listen]Bind socket failed, errno: %d.\n", bindError);
        return KIRA_NETLINK_BIND_FAILED;
    }
    // The whole buffer is cleared once, never between datagrams.
    kira::UniqueBlock buffer(calloc(1, kReceiveSize));
    int wake = buffer ? eventfd(0, EFD_CLOEXEC) : -1;
    if (wake < 0) {
        return KIRA_NETLINK_NO_MEMORY;
    }
    if (registration.ArmWake(wake)) {
        return KIRA_NETLINK_RELEASED;
    }
    return ReceiveNotifications(self, static_cast<unsigned char*>(buffer.get()), callback);
}

KIRA_EXPORT int KIRA_Netlink_ext3_release(int32_t sock) {
    if (sock < 0) {
        return sock;
    }
    kira::MutexGuard guard(&g_stListenerLock);
    int result = close(sock);
    struct list_head* pos;
    list_for_each(pos, &g_stListeners) {
        Listener* listener = list_entry(pos, Listener, node);
        if (listener->fd == sock && !listener->released) {
            listener->released = true;
            if (listener->wake >= 0) {
                (void)eventfd_write(listener->wake, 1);
            }
        }
    }
    return result;
}

}  // extern "C"
