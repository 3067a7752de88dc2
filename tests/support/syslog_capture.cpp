// Capture of what the sandboxed process (and its children) send to
// /dev/log, kept as glibc sent it and parsed when asked for.
//
// Only 10 unread datagrams may queue before glibc's syslog() blocks, so a
// thread drains the socket as soon as anything arrives (a full store drops
// further datagrams). Readers drain it too, under the same lock, so a line
// whose syslog() returned is always seen.

#include <errno.h>
#include <poll.h>
#include <stddef.h>
#include <stdint.h>
#include <pthread.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "tests/support/sandbox_internal.h"

namespace kt {
namespace {

constexpr int kQuietMs = 2;
constexpr int kMaxQuietRounds = 500;

constexpr size_t kStoreBytes = 16u << 20;  // untouched pages cost nothing
constexpr size_t kMaxDatagram = 65536;

// Records of a 32-bit length and the datagram, in memory shared with child
// copies of the process (which read the same socket) and mapped once, so
// the reader never allocates: a test may take the address space away.
struct Store {
    pthread_mutex_t mu;  // process-shared; guards used and data, and every receive
    size_t used;
    char data[1];
};
constexpr size_t kCapacity = kStoreBytes - offsetof(Store, data);
Store* g_store = nullptr;
int g_fd = -1;

struct Locked {
    Locked() { pthread_mutex_lock(&g_store->mu); }
    ~Locked() { pthread_mutex_unlock(&g_store->mu); }
};

// Returns the bytes stored.
size_t Drain() {
    Locked hold;
    for (;;) {
        char* slot = g_store->data + g_store->used;
        const bool fits = kCapacity - g_store->used >= sizeof(uint32_t) + kMaxDatagram;
        const ssize_t n = recv(g_fd, fits ? slot + sizeof(uint32_t) : nullptr, fits ? kMaxDatagram : 0, MSG_DONTWAIT);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 || !fits) {
            return g_store->used;
        }
        const uint32_t len = static_cast<uint32_t>(n);
        memcpy(slot, &len, sizeof len);
        g_store->used += sizeof len + len;
    }
}

std::atomic<bool> g_draining{false};

[[noreturn]] void DrainForever() {
    g_draining.store(true);
    struct pollfd p = {g_fd, POLLIN, 0};
    for (;;) {
        poll(&p, 1, -1);
        Drain();
    }
}

// Waits until nothing new arrives for a short moment.
void WaitQuiet() {
    size_t seen = Drain();
    for (int round = 0; round < kMaxQuietRounds; ++round) {
        struct pollfd p = {g_fd, POLLIN, 0};
        const int ready = poll(&p, 1, kQuietMs);
        const size_t now = Drain();
        if (ready == 0 && now == seen) {
            return;
        }
        seen = now;
    }
}

// glibc's form: "<PRI>Mmm dd hh:mm:ss ident[pid]: text"; the time stamp
// holds no ": ".
SyslogLine Parse(const std::string& s) {
    const size_t close = s.find('>'), colon = s.find(": ", close == std::string::npos ? 0 : close);
    const int priority = !s.empty() && s[0] == '<' && close != std::string::npos ? atoi(s.c_str() + 1) & 7 : -1;
    return {priority, colon == std::string::npos ? s : s.substr(colon + 2)};
}

}  // namespace

namespace internal {

bool StartSyslogCapture() {
    struct sockaddr_un addr = {AF_UNIX, "/dev/log"};
    unlink(addr.sun_path);
    g_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    void* store = mmap(nullptr, kStoreBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (!Done(g_fd >= 0 && bind(g_fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) == 0 &&
                  chmod(addr.sun_path, 0666) == 0 && store != MAP_FAILED,
              "bind /dev/log")) {
        return false;
    }
    g_store = static_cast<Store*>(store);
    pthread_mutexattr_t shared;
    pthread_mutexattr_init(&shared);
    pthread_mutexattr_setpshared(&shared, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(&g_store->mu, &shared);
    // A fork while the thread is still starting would leave the child a
    // lock of the sanitizers' allocator that nobody there will release.
    std::thread(DrainForever).detach();
    while (!g_draining.load()) {
        sched_yield();
    }
    // A connection to the host's log socket made earlier would bypass the
    // capture; the next syslog() connects to ours.
    closelog();
    return true;
}

}  // namespace internal

std::vector<SyslogLine> SyslogLines() {
    std::vector<SyslogLine> lines;
    if (!internal::RequireSandbox("SyslogLines")) {
        return lines;
    }
    WaitQuiet();
    Locked hold;
    for (size_t pos = 0; pos < g_store->used;) {
        uint32_t len = 0;
        memcpy(&len, g_store->data + pos, sizeof len);
        lines.push_back(Parse(std::string(g_store->data + pos + sizeof len, len)));
        pos += sizeof len + len;
    }
    return lines;
}

void SyslogClear() {
    if (!internal::RequireSandbox("SyslogClear")) {
        return;
    }
    Drain();  // what was sent before this call goes too
    Locked hold;
    g_store->used = 0;
}

int SyslogCount(const std::string& needle, int priority) {
    const std::vector<SyslogLine> lines = SyslogLines();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const SyslogLine& line) {
        return line.message.find(needle) != std::string::npos && (priority < 0 || line.priority == priority);
    }));
}

}  // namespace kt
