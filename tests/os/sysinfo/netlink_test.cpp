// The netlink listener end to end on real sockets of a protocol user space
// may send on (the module's own protocol is absent here): which datagrams
// reach the callback, the stale-buffer quirk, argument results, and how a
// listener ends after a release or a plain close from another thread. Also
// the create fallback through a recorded modprobe.

#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <vector>

#include "os/sysinfo/kira_netlink.h"
#include "tests/os/net/net_test_util.h"
#include "tests/os/sysinfo/sysinfo_test_util.h"

using net_test::RunInOwnNetwork;
using sysinfo_test::WaitUntil;

namespace {

constexpr uint32_t kPort = 7301;

std::mutex g_seenLock;
std::vector<std::vector<unsigned char>> g_seen;  // 56 payload bytes per call

void Record(void* payload) {
    std::lock_guard<std::mutex> lock(g_seenLock);
    auto* p = static_cast<unsigned char*>(payload);
    g_seen.emplace_back(p, p + 56);
}

size_t SeenCount() {
    std::lock_guard<std::mutex> lock(g_seenLock);
    return g_seen.size();
}

// A protocol user space may send on: user sockets, or where an emulator
// refuses those, the uevent protocol (root may send on it).
int UserSocket() {
    int fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
    return fd >= 0 ? fd : socket(AF_NETLINK, SOCK_RAW, NETLINK_KOBJECT_UEVENT);
}

struct sockaddr_nl Address(uint32_t port, uint32_t groups) {
    struct sockaddr_nl a = {};
    a.nl_family = AF_NETLINK;
    a.nl_pid = port;
    a.nl_groups = groups;
    return a;
}

// The port and groups a socket is bound to.
struct sockaddr_nl BoundTo(int sock) {
    struct sockaddr_nl a = {};
    socklen_t len = sizeof(a);
    getsockname(sock, reinterpret_cast<sockaddr*>(&a), &len);
    return a;
}

// A datagram of `size` bytes: a netlink header, then `kind` and a fill byte.
void Send(int sender, uint32_t kind, size_t size, unsigned char fill) {
    std::vector<unsigned char> d(size + 1, fill);  // never a null buffer, even for 0 bytes
    struct nlmsghdr header = {};
    header.nlmsg_len = static_cast<uint32_t>(size);
    if (size >= sizeof(header)) memcpy(d.data(), &header, sizeof(header));
    if (size >= 20) memcpy(d.data() + 16, &kind, 4);
    const struct sockaddr_nl to = Address(kPort, 0);
    ASSERT_EQ(sendto(sender, d.data(), size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to)),
              static_cast<ssize_t>(size));
}

// A listener on sock in a thread of its own; the bind happens there, so
// this waits until the port and group show on the socket.
std::future<int> Listen(int sock, KIRA_NETLINK_CALLBACK callback = Record) {
    auto listener =
        std::async(std::launch::async, [sock, callback] { return KIRA_Netlink_ext3_listen(sock, kPort, callback); });
    EXPECT_TRUE(WaitUntil([sock] { return BoundTo(sock).nl_pid == kPort && BoundTo(sock).nl_groups == 1; }, 2000))
        << "listener not bound";
    return listener;
}

}  // namespace

TEST(Netlink, NotificationsReachTheCallbackUntilReleased) {
    RunInOwnNetwork([] {
        int sock = UserSocket();
        int sender = UserSocket();
        ASSERT_GE(sock, 0);
        auto listener = Listen(sock);
        Send(sender, KIRA_NETLINK_EXT3_MAGIC, 24, 0x11);
        Send(sender, 0x12345678, 24, 0x22);                // not a notification
        Send(sender, KIRA_NETLINK_EXT3_MAGIC, 100, 0x33);  // cut to 72 bytes
        Send(sender, 0, 16, 0x44);                         // header only: the last payload again
        ASSERT_TRUE(WaitUntil([] { return SeenCount() == 3; }, 2000)) << SeenCount();
        usleep(50 * 1000);

        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(KIRA_Netlink_ext3_release(sock), 0);
        ASSERT_EQ(listener.wait_for(std::chrono::seconds(2)), std::future_status::ready) << "listener still blocked";
        EXPECT_EQ(listener.get(), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
        EXPECT_EQ(fcntl(sock, F_GETFD), -1);

        std::lock_guard<std::mutex> lock(g_seenLock);
        ASSERT_EQ(g_seen.size(), 3u);
        const uint32_t magic = KIRA_NETLINK_EXT3_MAGIC;
        EXPECT_EQ(memcmp(g_seen[0].data(), &magic, 4), 0);
        EXPECT_EQ(g_seen[0][4], 0x11);
        EXPECT_EQ(g_seen[0][8], 0);  // cleared once before the first datagram
        EXPECT_EQ(g_seen[1][55], 0x33);
        EXPECT_EQ(g_seen[2], g_seen[1]);
        close(sender);
    });
}

TEST(Netlink, PlainCloseEndsTheListenerOnlyAtTheNextDatagram) {
    RunInOwnNetwork([] {
        int sock = UserSocket();
        int sender = UserSocket();
        auto listener = Listen(sock);
        usleep(50 * 1000);  // into the wait
        close(sock);
        EXPECT_EQ(listener.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
        Send(sender, KIRA_NETLINK_EXT3_MAGIC, 24, 0x55);
        ASSERT_EQ(listener.wait_for(std::chrono::seconds(2)), std::future_status::ready);
        EXPECT_EQ(listener.get(), 0);
        EXPECT_EQ(SeenCount(), 0u);  // the last datagram is not passed on
        close(sender);
    });
}

// Kernels refuse empty netlink datagrams, but an overrun of the receive
// queue (group datagrams faster than the callback takes them) makes the
// next receive fail with ENOBUFS.
TEST(Netlink, AReceiveFailureEndsTheListenerWithMinusSix) {
    RunInOwnNetwork([] {
        int sock = UserSocket();
        int sender = UserSocket();
        int small = 1;
        setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
        auto listener = Listen(sock, [](void*) { usleep(100 * 1000); });
        const struct sockaddr_nl group = Address(0, 1);
        unsigned char d[64] = {};
        uint32_t magic = KIRA_NETLINK_EXT3_MAGIC;
        memcpy(d + 16, &magic, 4);
        for (int i = 0; i < 200; i++)
            sendto(sender, d, sizeof(d), 0, reinterpret_cast<const sockaddr*>(&group), sizeof(group));
        bool ended = listener.wait_for(std::chrono::seconds(3)) == std::future_status::ready;
        KIRA_Netlink_ext3_release(sock);
        ASSERT_TRUE(ended);
        EXPECT_EQ(listener.get(), -6);
        close(sender);
    });
}

// A component may stop its listener thread with a signal whose handler does
// not restart calls: the wait ends, as a failed receive.
TEST(Netlink, ASignalWithoutRestartEndsTheListenerWithMinusSix) {
    RunInOwnNetwork([] {
        struct sigaction action = {}, previous = {};
        action.sa_handler = [](int) {};
        ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);
        int sock = UserSocket();
        std::promise<pthread_t> self;
        auto listener = std::async(std::launch::async, [&] {
            self.set_value(pthread_self());
            return KIRA_Netlink_ext3_listen(sock, kPort, Record);
        });
        pthread_t thread = self.get_future().get();
        ASSERT_TRUE(WaitUntil([sock] { return BoundTo(sock).nl_groups == 1; }, 2000));
        // Until one signal lands inside the wait rather than before it.
        bool ended = false;
        for (int i = 0; i < 40 && !ended; ++i) {
            pthread_kill(thread, SIGUSR1);
            ended = listener.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
        }
        KIRA_Netlink_ext3_release(sock);
        EXPECT_TRUE(ended);
        EXPECT_EQ(listener.get(), -6);
        sigaction(SIGUSR1, &previous, nullptr);
    });
}

TEST(Netlink, ArgumentsBindFailuresAndRelease) {
    RunInOwnNetwork([] {
        int sock = UserSocket();
        int other = UserSocket();
        EXPECT_EQ(KIRA_Netlink_ext3_listen(-1, kPort, Record), -2);
        EXPECT_EQ(KIRA_Netlink_ext3_listen(sock, 0, Record), -7);
        EXPECT_EQ(KIRA_Netlink_ext3_listen(sock, kPort, nullptr), -3);
        EXPECT_EQ(BoundTo(sock).nl_pid, 0u) << "bound although the arguments were refused";

        const struct sockaddr_nl taken = Address(kPort, 0);
        ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr*>(&taken), sizeof(taken)), 0);
        EXPECT_EQ(KIRA_Netlink_ext3_listen(sock, kPort, Record), -4);
        EXPECT_EQ(kt::SyslogCount("[KIRA_Netlink_ext3_listen]Bind socket failed, errno: 98.\n", 3), 1);
        EXPECT_EQ(KIRA_Netlink_ext3_release(sock), 0);
        EXPECT_EQ(KIRA_Netlink_ext3_listen(sock, kPort + 1, Record), -4);  // released before listening
        EXPECT_EQ(KIRA_Netlink_ext3_release(sock), -1);
        EXPECT_EQ(KIRA_Netlink_ext3_release(-5), -5);
        close(other);
    });
}

SANDBOX_TEST(Netlink, CreateFallsBackToModprobeTwice) {
    int probe = socket(AF_NETLINK, SOCK_RAW, KIRA_NETLINK_EXT3_PROTOCOL);
    if (probe >= 0) {
        close(probe);
        int fd = KIRA_Netlink_ext3_create();
        EXPECT_GE(fd, 0);
        close(fd);
        GTEST_SKIP() << "protocol 28 is available here: the fallback cannot be reached";
    }
    int error = errno;
    kt::FakeCommand modprobe("modprobe", 1);
    EXPECT_EQ(KIRA_Netlink_ext3_create(), -1);
    std::vector<std::vector<std::string>> want = {{"ext3"}, {"ext4"}};
    EXPECT_EQ(modprobe.Calls(), want);
    EXPECT_EQ(kt::SyslogCount("[KIRA_Netlink_ext3_create]Modprobe ext3.ko failed: 256.\n", 3), 1);
    EXPECT_EQ(kt::SyslogCount("[KIRA_Netlink_ext3_create]Modprobe ext4.ko failed: 256.\n", 3), 1);
    EXPECT_EQ(kt::SyslogCount(
                  "[KIRA_Netlink_ext3_create]Create socket failed: -1, errno: " + std::to_string(error) + ".\n", 3),
              1);
    kt::FakeCommand quiet("modprobe", 0);
    EXPECT_EQ(KIRA_Netlink_ext3_create(), -1);
    EXPECT_EQ(kt::SyslogCount("Modprobe"), 2);
}
