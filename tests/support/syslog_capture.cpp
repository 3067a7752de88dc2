// Capture of what the sandboxed body (and its children) send to /dev/log.
//
// The datagrams are kept raw in shared memory and parsed when asked for.
// The body's parent, which only supervises it, drains the socket as soon as
// anything arrives: just 10 unread datagrams may queue before glibc's
// syslog() blocks. The body drains it too, under the same process-shared
// lock, before reading the capture, so a line whose syslog() call has
// returned is always seen. The body itself stays single-threaded.

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "os/base/kira_raii.h"
#include "tests/support/sandbox_internal.h"

namespace kt {
namespace {

constexpr const char* kLogSocket = "/dev/log";
constexpr size_t kMaxDatagram = 65536;
constexpr size_t kStoreBytes = 8u << 20;  // untouched pages cost nothing
constexpr int kQuietMs = 2;
constexpr int kMaxQuietRounds = 500;
constexpr int kNoPidfdPollMs = 2;

// Records: a 32-bit length, then the datagram as received.
struct Store {
    pthread_mutex_t mu;  // process-shared; guards the fields below and every receive
    size_t used;         // bytes of records in data
    unsigned dropped;    // datagrams that did not fit
    char data[1];
};

constexpr size_t kCapacity = kStoreBytes - offsetof(Store, data);

// Set up by each sandbox; one started from a sandboxed body replaces the
// enclosing one's.
Store* g_store = nullptr;
int g_fd = -1;

class StoreLock {
public:
    explicit StoreLock(Store* s) : s_(s) { pthread_mutex_lock(&s_->mu); }
    ~StoreLock() { pthread_mutex_unlock(&s_->mu); }
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

private:
    Store* s_;
};

// Caller holds the lock. Returns the bytes now stored.
size_t DrainLocked(Store* s, int fd) {
    for (;;) {
        const bool fits = kCapacity - s->used >= sizeof(uint32_t) + kMaxDatagram;
        char* slot = s->data + s->used;
        char discard[64];
        ssize_t n = fits ? ::recv(fd, slot + sizeof(uint32_t), kMaxDatagram, MSG_DONTWAIT)
                         : ::recv(fd, discard, sizeof discard, MSG_DONTWAIT);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) break;
        if (!fits) {
            ++s->dropped;
            continue;
        }
        const uint32_t len = static_cast<uint32_t>(n);
        memcpy(slot, &len, sizeof len);
        s->used += sizeof len + len;
    }
    return s->used;
}

size_t Drain() {
    StoreLock lock(g_store);
    return DrainLocked(g_store, g_fd);
}

// Waits until nothing new arrives for a short moment, for lines sent by
// processes or threads that have not been waited for.
void WaitQuiet() {
    size_t seen = Drain();
    for (int round = 0; round < kMaxQuietRounds; ++round) {
        struct pollfd p = {g_fd, POLLIN, 0};
        int ready = ::poll(&p, 1, kQuietMs);
        size_t now = Drain();
        if (ready == 0 && now == seen) return;
        seen = now;
    }
}

Store* NewStore() {
    void* mem = ::mmap(nullptr, kStoreBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (mem == MAP_FAILED) return nullptr;
    Store* s = static_cast<Store*>(mem);
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(&s->mu, &attr);
    pthread_mutexattr_destroy(&attr);
    return s;
}

bool IsDigits(const std::string& s, size_t from, size_t to) {
    if (from >= to) return false;
    for (size_t i = from; i < to; ++i) {
        if (s[i] < '0' || s[i] > '9') return false;
    }
    return true;
}

// "Mmm dd hh:mm:ss " (the day padded with a space below 10).
bool IsTimestampAt(const std::string& s, size_t pos) {
    return s.size() - pos >= 16 && s[pos + 3] == ' ' && s[pos + 6] == ' ' && s[pos + 9] == ':' && s[pos + 12] == ':' &&
           s[pos + 15] == ' ';
}

std::string IdentWithoutPid(std::string tag) {
    size_t open = tag.rfind('[');
    if (!tag.empty() && tag.back() == ']' && open != std::string::npos && IsDigits(tag, open + 1, tag.size() - 1))
        tag.resize(open);
    return tag;
}

}  // namespace

namespace internal {

SyslogLine ParseSyslogDatagram(const char* data, size_t len) {
    const std::string s(data, len);
    SyslogLine line{-1, "", ""};
    size_t pos = 0;
    size_t close = s.find('>');
    if (!s.empty() && s[0] == '<' && close != std::string::npos && IsDigits(s, 1, close)) {
        line.priority = atoi(s.c_str() + 1) & 7;
        pos = close + 1;
    }
    if (IsTimestampAt(s, pos)) pos += 16;
    size_t colon = s.find(": ", pos);
    if (colon == std::string::npos) {
        line.message = s.substr(pos);
        return line;
    }
    line.ident = IdentWithoutPid(s.substr(pos, colon - pos));
    line.message = s.substr(colon + 2);
    return line;
}

bool StartSyslogCapture(std::string* error) {
    ::unlink(kLogSocket);
    kira::UniqueFd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, kLogSocket, strlen(kLogSocket) + 1);
    if (!fd.valid() || ::bind(fd.get(), reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) != 0) {
        *error = ErrnoText("bind /dev/log");
        return false;
    }
    ::chmod(kLogSocket, 0666);
    Store* store = NewStore();
    if (store == nullptr) {
        *error = ErrnoText("mmap the syslog store");
        return false;
    }
    g_store = store;
    g_fd = fd.release();
    return true;
}

int DrainSyslogUntilExit(pid_t body) {
    kira::UniqueFd pidfd(static_cast<int>(::syscall(SYS_pidfd_open, body, 0)));
    for (;;) {
        struct pollfd fds[2] = {{g_fd, POLLIN, 0}, {pidfd.get(), POLLIN, 0}};
        // Without a pidfd the body's end is noticed by polling in short steps.
        int ready = ::poll(fds, pidfd.valid() ? 2 : 1, pidfd.valid() ? -1 : kNoPidfdPollMs);
        if (ready > 0 && (fds[0].revents & POLLIN) != 0) Drain();
        int status = 0;
        if (::waitpid(body, &status, WNOHANG) == body) return status;
    }
}

}  // namespace internal

std::vector<SyslogLine> SyslogLines() {
    std::vector<SyslogLine> lines;
    if (!internal::RequireSandbox("SyslogLines")) return lines;
    WaitQuiet();
    StoreLock lock(g_store);
    if (g_store->dropped != 0)
        ADD_FAILURE() << "syslog capture full: " << g_store->dropped << " datagrams were dropped";
    for (size_t pos = 0; pos < g_store->used;) {
        uint32_t len = 0;
        memcpy(&len, g_store->data + pos, sizeof len);
        lines.push_back(internal::ParseSyslogDatagram(g_store->data + pos + sizeof len, len));
        pos += sizeof len + len;
    }
    return lines;
}

void SyslogClear() {
    if (!internal::RequireSandbox("SyslogClear")) return;
    StoreLock lock(g_store);
    DrainLocked(g_store, g_fd);
    g_store->used = 0;
}

int SyslogCount(const std::string& needle, int priority) {
    int count = 0;
    for (const SyslogLine& line : SyslogLines()) {
        if (line.message.find(needle) != std::string::npos && (priority < 0 || line.priority == priority)) ++count;
    }
    return count;
}

}  // namespace kt
