// The system information layer: /proc readers on bound files, the CPU sampler, netlink, the work pool.

#include <linux/netlink.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>

#include "os/sysinfo/kira_netlink.h"
#include "os/sysinfo/kira_schedwork.h"
#include "os/sysinfo/sysinfo_internal.h"
#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

using namespace kira_sysinfo;

using Clock = std::chrono::steady_clock;
using Ints = std::vector<int>;
using Strings = std::vector<std::string>;
using U64s = std::vector<uint64_t>;

namespace {

bool WaitUntil(const std::function<bool()>& done, int timeoutMs) {
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done() && Clock::now() < end) {
        usleep(5 * 1000);
    }
    return done();
}

Strings Logged() {  // since the last call
    Strings out;
    for (const kt::SyslogLine& line : kt::SyslogLines()) {
        out.push_back(line.message);
    }
    kt::SyslogClear();
    return out;
}

// Entries under /proc/net are looked up afresh on every access, so a mount on one is never seen: the whole
// directory is covered by one holding only "dev".
void BindNetDev(const std::string& content) {
    kt::MakeDirs("/tmp/kira_net");
    kt::WriteFile("/tmp/kira_net/dev", content);
    umount2("/proc/self/net", MNT_DETACH);
    ASSERT_EQ(mount("/tmp/kira_net", "/proc/self/net", nullptr, MS_BIND, nullptr), 0);
}

// Eight processors whose physical ids fall 1, 1, 1, 1, 0, ...: the maximum is kept, but the last stepping.
std::string X86Cpuinfo(bool withCores) {
    std::string all;
    for (int n = 0; n < 8; n++) {
        all += "processor\t: " + std::to_string(n) +
               "\nmodel name\t: Kira Test CPU @ 2.10GHz  \t\nstepping\t: " + (n == 0 ? "4" : "3") +
               "\ncpu MHz\t\t: 2099.999\nphysical id\t: " + (n < 4 ? "1" : "0") + "\nsiblings\t: 8\n" +
               (withCores ? "cpu cores\t: 4\n" : "") +
               "flags\t\t: fpu vme lm constant_tsc\naddress sizes\t: 46 bits physical, 48 bits virtual\n\n";
    }
    return all;
}

constexpr uint32_t kPort = 1;  // the lowest accepted
std::mutex g_seenLock;
std::vector<std::vector<unsigned char>> g_seen;  // 56 payload bytes per call
std::atomic<pthread_t> g_listenerThread;

void Record(void* payload) {
    std::lock_guard<std::mutex> lock(g_seenLock);
    g_seen.emplace_back(static_cast<unsigned char*>(payload), static_cast<unsigned char*>(payload) + 56);
}

// User sockets, or where an emulator refuses those, the uevent protocol (root may send on it).
int UserSocket() {
    const int fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
    return fd >= 0 ? fd : socket(AF_NETLINK, SOCK_RAW, NETLINK_KOBJECT_UEVENT);
}

void Send(int sender, uint32_t kind, size_t size, unsigned char fill, bool toGroup = false) {
    std::string d(128, fill);
    memcpy(&d[16], &kind, 4);
    const struct sockaddr_nl to = {AF_NETLINK, 0, toGroup ? 0 : kPort, toGroup ? 1u : 0u};
    sendto(sender, d.data(), size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
}

bool Bound(int sock) {
    struct sockaddr_nl a = {};
    socklen_t len = sizeof(a);
    return getsockname(sock, reinterpret_cast<sockaddr*>(&a), &len) == 0 && a.nl_groups == 1;
}

std::future<int> Listen(int sock, KIRA_NETLINK_CALLBACK callback) {
    auto listener = std::async(std::launch::async, [=] {
        g_listenerThread = pthread_self();
        return KIRA_Netlink_ext3_listen(sock, kPort, callback);
    });
    EXPECT_TRUE(WaitUntil([sock] { return Bound(sock); }, 2000));
    return listener;
}

constexpr int kPosters = 4, kPerPoster = 1500, kPosted = kPosters * kPerPoster;
std::vector<KIRA_SCHED_WORK_S> g_items(kPosted + kPosted / 5);  // every fifth posted item posts one of the last
std::vector<std::atomic<int>> g_runs(g_items.size());
std::atomic<int> g_outOfOrder{0}, g_blocked{0};
std::atomic<bool> g_open{false};

int64_t Alive() { return atomic_read(&g_stSchedWorkAlive); }
int64_t Spare() { return atomic_read(&g_stSchedWorkSpare); }
bool Settled() { return Alive() == Spare() && Spare() >= 4 && Spare() <= 8; }

void RunItem(KIRA_SCHED_WORK_S* work) {
    const size_t i = work->data;
    // Taken in posting order: the poster's previous item was unlinked (poisoned) first, under the queue lock.
    if (i < kPosted && i % kPerPoster != 0 && g_items[i - 1].node.next != LIST_POISON1) {
        g_outOfOrder++;
    }
    g_runs[i]++;
    if (i < kPosted && i % 5 == 0) {
        KIRA_SchedWork(&g_items[kPosted + i / 5]);
    }
}

}  // namespace

SANDBOX_TEST(Parsers, LineArrayKeysLscpuAndCpuinfo) {
    // A long line counts once; a last line without a new line (or a NUL before it) is read, not counted: refused.
    const std::pair<std::string, uint32_t> files[] = {
        {"a\n" + std::string(3000, 'x') + "\n\nlast\n", 4}, {"a\nb", 0}, {std::string("a\n\0b\nc\n", 7), 0}, {"", 0}};
    for (const auto& [content, count] : files) {
        FILE* fp = tmpfile();
        fwrite(content.data(), 1, content.size(), fp);
        rewind(fp);
        FileLines got;
        EXPECT_EQ(read_file(fp, &got.lines, &got.count), count == 0 ? -1 : 0);
        EXPECT_EQ(got.count == 0 ? "" : std::string(got.lines[1]) + got.lines[3],
                  count == 0 ? "" : std::string(3000, 'x') + "\nlast\n");
    }
    EXPECT_EQ(read_fp_to_2d_buffer(nullptr, nullptr, nullptr) + read_file(nullptr, nullptr, nullptr), -23);
    EXPECT_EQ(Logged(), (Strings{"too much lines to read!\n", "too much lines to read!\n", "Given file empty, exit.\n",
                                 "Given file pointer is NULL.\n", "read_file fp is NULL.\n"}));
    // What follows a key, trailing blanks removed but never the first character; null ("-") when nothing does.
    const std::tuple<const char*, const char*, const char*> copies[] = {
        {"x k=v \t\r\n", "k=", "v"}, {"k= \n", "k=", " "}, {"a k=", "k=", "-"}, {"k", "", "-"}, {"", "k", "-"}};
    for (const auto& [line, key, want] : copies) {
        char* got = copy_string_part_after_delim(line, key);
        EXPECT_EQ(got == nullptr ? "-" : std::string(got), want);
        free(got);
    }

    // bits, stepping (last), kHz through a float, count, sockets (max, +1 with cores), cores, threads
    const std::pair<std::string, lscpu_t> cases[] = {
        {X86Cpuinfo(false), {64, 3, 2099999, 8, 1, 0, 8}},  // without cores: siblings stay raw
        // A line is used by the first key it holds; "lm" anywhere in flags; unscannable values change nothing.
        {"flags\t\t: processor\t: 9\nflags\t\t: lahf_lm\ncpu MHz\t\t: -5\ncpu cores\t: 3\nsiblings\t: 7\n",
         {64, 0, 0, 1, 1, 3, 2}},
        {"flags\t\t: fpu\nstepping\t: 2\nstepping\t: x\nphysical id\t: x\n", {32, 2, 0, 1, 0, 0, 0}},
        {X86Cpuinfo(true), {64, 3, 2099999, 8, 2, 4, 2}},
    };
    for (const auto& [cpuinfo, want] : cases) {
        kt::BindFileOver("/proc/cpuinfo", cpuinfo);
        lscpu_t got;
        memset(&got, 0xA5, sizeof(got));
        ASSERT_EQ(KIRA_lscpu(&got), 0);
        EXPECT_EQ(memcmp(&got, &want, sizeof(got)), 0) << got.socketCount << " " << got.threadsPerCore;
    }
    cpuinfo_t d;
    ASSERT_EQ(KIRA_get_cpuinfo(&d, 5), 0);
    EXPECT_EQ(d.modelName + std::to_string(d.addressSizes), "Kira Test CPU @ 2.10GHz46");
    // Lines before any processor line belong to processor 0; a processor with only a model name and address
    // sizes is not found (but filled); the name is cut to 99 characters.
    kt::BindFileOver("/proc/cpuinfo", "model name\t: " + std::string(150, 'n') +
                                          "\nprocessor\t: 1\nmodel name\t: Only\naddress sizes\t: 40 bits\n"
                                          "processor\t: 2\ncache size\t: 1 KB\n");
    ASSERT_EQ(KIRA_get_cpuinfo(&d, 0), -1);
    EXPECT_EQ(std::string(d.modelName), std::string(99, 'n'));
    EXPECT_EQ(KIRA_get_cpuinfo(&d, 1), -1);
    EXPECT_EQ(d.modelName + std::to_string(d.addressSizes), "Only40");
    EXPECT_EQ(KIRA_get_cpuinfo(&d, 2), 0);
    EXPECT_STREQ(d.modelName, "");
}

// The stat counters from the sixth character; a disk's tenth value from two characters after "name ", so a
// short first counter shifts the fields; a device's bytes from two characters after "name:", so the first digit
// of a long count is lost. Then nulls and empty names, each allocation and open failing in turn, sub-allocation.
SANDBOX_TEST(Readers, CountersBadArgumentsAndEveryAllocationAndOpenFailing) {
    processor_stat_t s;
    for (const auto& [stat, rc, want] :
         {std::tuple{"cpu  1 2 3 4 5 6 7 8 9 10000000000\n", 0, U64s{1, 2, 3, 4, 5, 6, 7, 8, 9, 10000000000}},
          {"cpu 1 2 3\n", -1, U64s(10, 0)},
          {"", -1, U64s(10, 0)}}) {
        kt::BindFileOver("/proc/stat", stat);
        memset(&s, 0xA5, sizeof(s));
        EXPECT_EQ(KIRA_get_all_processor_stats(&s), rc) << stat;
        EXPECT_EQ(U64s(&s.user, &s.user + 10), want) << stat;
    }
    kt::BindFileOver("/proc/diskstats",
                     "   8       0 xsda 999 2 3 4 5 6 7 8 9 555 11\n"
                     "   8      16 sdb 123456 2 3 4 5 6 7 8 9 777 888 12 13 14 15 16 17\n"
                     "   8      32 sdc 12 2 3 4 5 6 7 8 9 777 888 12\n");
    BindNetDev(
        "    lo:    1000      10    0    0    0     0          0         0     2000   20 0 0 0 0 0 0\n"
        "   kd0:123456789 5 0 0 0 0 0 0 987654321 6 0 0 0 0 0 0\n"
        "  xkd1: 77 1 0 0 0 0 0 0 88 1 0 0 0 0 0 0\n");
    // The name, the disk's result and busy time, the device's result, bytes in and out (tails of names match).
    // clang-format off
    const std::tuple<const char*, int, uint64_t, int, uint64_t, uint64_t> names[] = {
        {"sdb", 0, 777, -1, 0, 0}, {"sdc", 0, 888, -1, 0, 0}, {"sda", 0, 555, -1, 0, 0},
        {"lo", -1, 0, 0, 1000, 2000}, {"kd0", -1, 0, 0, 23456789, 987654321}, {"kd1", -1, 0, 0, 77, 88}};
    // clang-format on
    for (const auto& [name, diskRc, busy, devRc, rx, tx] : names) {
        disk_stats_t d{12345};
        netdev_info_t n{9, 9, 9};
        EXPECT_EQ(Ints({KIRA_get_disk_stats(name, &d), KIRA_get_netdev_info(name, &n)}), Ints({diskRc, devRc}));
        EXPECT_EQ(U64s({d.ioBusyMs, n.rxBytes, n.txBytes, n.speed}), U64s({busy, rx, tx, 0})) << name;
    }
    netdev_info_t nd{1, 2, 3};
    disk_stats_t ds{4};
    EXPECT_EQ(Ints({KIRA_lscpu(nullptr), KIRA_get_cpuinfo(nullptr, 0), KIRA_get_all_processor_stats(nullptr),
                    KIRA_get_netdev_info(nullptr, &nd), KIRA_get_netdev_info("", &nd),
                    KIRA_get_disk_stats("sda", nullptr), KIRA_get_disk_stats("", &ds)}),
              Ints(7, -22));
    EXPECT_EQ(nd.rxBytes + nd.txBytes + nd.speed + ds.ioBusyMs, 0u);
    EXPECT_EQ(Logged(),
              (Strings{"lscpu_t is NULL in KIRA_lscpu!\n", "cpuinfo is NULL in KIRA_get_cpuinfo!\n",
                       "processor_stat is NULL in KIRA_get_all_processor_stats!\n",
                       "Argument NULL in KIRA_get_netdev_info\n", "netdev_name_info is empty!\n",
                       "Argument NULL in KIRA_get_disk_stats!\n", "disk_name is empty in KIRA_get_disk_stats!\n"}));
    kt::BindFileOver("/proc/cpuinfo", X86Cpuinfo(true));
    kt::BindFileOver("/proc/stat", "cpu  1 2 3 4 5 6 7 8 9 10\n");
    kt::BindFileOver("/proc/diskstats", "   8 0 sda 123 2 3 4 5 6 7 8 9 10 11\n");
    // What each reader gives (-1 on failure): the failures are caught, never passed off as figures.
    int rc[4];
    auto readAll = [&] {
        cpuinfo_t c;
        rc[0] = KIRA_get_cpuinfo(&c, 3) == 0 ? static_cast<int>(c.addressSizes) : -1;
        rc[1] = KIRA_get_all_processor_stats(&s) == 0 ? static_cast<int>(s.idle) : -1;
        rc[2] = KIRA_get_disk_stats("sda", &ds) == 0 ? static_cast<int>(ds.ioBusyMs) : -1;
        void* block = KIRA_MallocSubStandard(424, 64, "f", 1, 0);
        rc[3] = block != nullptr ? 1 : -1;
        KIRA_FreeSub(block, "f", 1);
    };
    readAll();
    const Ints normal(rc, rc + 4);
    std::set<std::string> messages;
    for (kt::Fault kind : {kt::Fault::kAlloc, kt::Fault::kOpen}) {
        kt::FaultWalk(kind, kt::FaultMode::kFail, readAll, [&](int) {
            for (int i = 0; i < 4; i++) {
                EXPECT_TRUE(rc[i] == normal[i] || rc[i] == -1) << i << ": " << rc[i];
            }
            for (const std::string& m : Logged()) {
                messages.insert(m);
            }
        });
    }
    EXPECT_EQ(messages,
              (std::set<std::string>{"Failed to allocate memory for pre_line_buffer.\n", "Failed to allocate memory.\n",
                                     "Failed to open /proc/cpuinfo file.\n", "Failed to read /proc/cpuinfo!\n",
                                     "Failed to read /proc/diskstats!\n", "Failed to open /proc/diskstats file.\n",
                                     "Failed to malloc disk_new_name!\n", "Failed to open /proc/stat file.\n",
                                     "Malloc memory fails. PID: (424), size: (64), type: (5).\n"}));
    EXPECT_EQ(KIRA_MallocSubStandard(0, 16, "f", 1, 0), KIRA_MallocSubStandard(1, 0, "f", 1, 0));  // both null
}

SANDBOX_TEST(Sampler, ArithmeticStatLinePeriodAndStop) {
    EXPECT_EQ(KIRA_GetCpuUsage(), 0);
    // Idle and total deltas, the figure: no time passed leaves it; truncated; the product wraps in 64 bits.
    for (const auto& [idle, total, usage] :
         {std::tuple{250ull, 1000ull, 75}, {5ull, 0ull, 75}, {1ull, 3ull, 66}, {0ull, 1ull << 62, 0}}) {
        KIRA_UpdateCpuUsage(idle, total);
        EXPECT_EQ(KIRA_GetCpuUsage(), usage) << total;
    }
    // The first figure is the average since boot (steal and guests not counted), then one comes every second;
    // four counters are enough, three too few (the figure stays).
    kt::BindFileOver("/proc/stat", "cpu  100 0 0 900 0 0 0 5 6 7\n");
    ASSERT_EQ(KIRA_SysInfoInit(), 0);
    EXPECT_TRUE(WaitUntil([] { return KIRA_GetCpuUsage() == 10; }, 500));
    kt::BindFileOver("/proc/stat", "cpu  800 0 50 1150\n");
    EXPECT_TRUE(WaitUntil([] { return KIRA_GetCpuUsage() == 75; }, 1200));  // the next second's figure
    kt::BindFileOver("/proc/stat", "cpu  1 1 1\n");
    usleep(1200 * 1000);
    auto start = Clock::now();
    KIRA_SysInfoExit();
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(200));
    EXPECT_EQ(KIRA_SysInfoExitFlag() * 100 + KIRA_GetCpuUsage(), 75);
    start = Clock::now();
    KIRA_SysInfoExit();  // no sampler left to answer
    const auto waited = Clock::now() - start;
    EXPECT_TRUE(waited >= std::chrono::milliseconds(2990) && waited < std::chrono::milliseconds(3300));
    EXPECT_EQ(kt::SyslogCount("Sysinfo thread exited abnormal.\n", 6) * 10 + KIRA_SysInfoExitFlag(), 11);
    EXPECT_TRUE(KIRA_GetMemUsage() > 0 && KIRA_GetMemUsage() <= 100) << KIRA_GetMemUsage();
}

// On real sockets of a protocol user space may send on (the module's own is absent): which datagrams reach the
// callback, the stale-buffer quirk, the prompt stop on release, the ends with -6, argument and other failures.
TEST(Netlink, NotificationsReleaseMinusSixAndArguments) {
    kt::RunSandboxed(
        [] {
            const int sender = UserSocket(), other = UserSocket(), small = 1, fds = kt::OpenFdCount();
            int sock = UserSocket();
            auto listener = Listen(sock, Record);
            Send(sender, KIRA_NETLINK_EXT3_MAGIC, 24, 0x11);
            Send(sender, 0x12345678, 24, 0x22);                // not a notification
            Send(sender, KIRA_NETLINK_EXT3_MAGIC, 100, 0x33);  // cut to 72 bytes
            Send(sender, 0, 16, 0x44);                         // header only: the last payload again
            EXPECT_TRUE(WaitUntil([] { return std::lock_guard<std::mutex>(g_seenLock), g_seen.size() == 3; }, 2000));
            usleep(50 * 1000);
            const auto start = Clock::now();
            EXPECT_EQ(KIRA_Netlink_ext3_release(sock), 0);
            ASSERT_EQ(listener.wait_for(std::chrono::seconds(2)), std::future_status::ready);
            EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(500));
            // The socket and the listener's wake-up descriptor closed.
            EXPECT_EQ(Ints({listener.get(), kt::OpenFdCount()}), Ints({0, fds}));
            ASSERT_EQ(g_seen.size(), 3u);
            EXPECT_EQ(Ints({g_seen[0][0], g_seen[0][3], g_seen[0][4], g_seen[0][8], g_seen[1][55]}),
                      Ints({0x14, 0x0A, 0x11, 0, 0x33}));  // the magic first; the buffer cleared once, up front
            EXPECT_EQ(g_seen[2], g_seen[1]);

            // An overrun queue (group datagrams faster than the callback takes them) fails the next receive;
            // a signal whose handler does not restart calls ends the wait the same way.
            sock = UserSocket();
            setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
            listener = Listen(sock, [](void*) { usleep(100 * 1000); });
            for (int i = 0; i < 200; i++) {
                Send(sender, KIRA_NETLINK_EXT3_MAGIC, 64, 0, true);
            }
            bool ended = listener.wait_for(std::chrono::seconds(3)) == std::future_status::ready;
            KIRA_Netlink_ext3_release(sock);
            EXPECT_EQ(Ints({ended, listener.get()}), Ints({true, -6}));
            struct sigaction action = {};
            action.sa_handler = [](int) {};
            ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
            sock = UserSocket();
            listener = Listen(sock, Record);
            ended = false;  // until one signal lands inside the wait rather than before it
            for (int i = 0; i < 40 && !ended; ++i) {
                ended = !pthread_kill(g_listenerThread, SIGUSR1) &&
                        listener.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
            }
            KIRA_Netlink_ext3_release(sock);
            EXPECT_EQ(Ints({ended, listener.get()}), Ints({true, -6}));

            sock = UserSocket();
            const struct sockaddr_nl taken = {AF_NETLINK, 0, kPort, 0};
            ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr*>(&taken), sizeof(taken)), 0);
            kt::FaultArm({kt::Fault::kAlloc, 1});  // no memory for the buffer
            EXPECT_EQ(
                Ints({KIRA_Netlink_ext3_listen(-1, kPort, Record), KIRA_Netlink_ext3_listen(sock, 0, Record),
                      KIRA_Netlink_ext3_listen(sock, kPort, nullptr), KIRA_Netlink_ext3_listen(sock, kPort, Record),
                      KIRA_Netlink_ext3_listen(sock, kPort + 1, Record), KIRA_Netlink_ext3_release(sock),
                      KIRA_Netlink_ext3_release(sock), KIRA_Netlink_ext3_release(-5), kt::FaultDisarm()}),
                Ints({-2, -7, -3, -4, -5, 0, -1, -5, true}));
            EXPECT_EQ(kt::SyslogCount("[KIRA_Netlink_ext3_listen]Bind socket failed, errno: 98.\n", 3), 1);
        },
        {true});
}

// Null items and null handlers are dropped (with a message), using no thread; the stress (ThreadSanitizer
// runs it too); blocked handlers stop at 64 threads; idle pools settle with 4 to 8 spare threads.
SANDBOX_TEST(SchedWork, NullItemsStressAndTheSixtyFourThreadCap) {
    ASSERT_EQ(KIRA_SchedWorkInit(), 0);
    KIRA_SCHED_WORK_S orphan = {4242, {}, 0, nullptr};
    EXPECT_EQ(KIRA_SchedWork(nullptr) + KIRA_SchedWork(&orphan), 0);
    EXPECT_TRUE(WaitUntil([] { return kt::SyslogCount("Null sched work data handler, PID = (4242).\n", 6); }, 2000));
    EXPECT_EQ(Alive() * 10 + Spare(), 44);  // four started, all spare: a dropped item uses no thread
    // Several posters and handlers that post: every item run once, in posting order.
    for (size_t i = 0; i < g_items.size(); i++) {
        g_items[i] = {0, {}, i, RunItem};
    }
    std::vector<std::thread> posters;
    for (int p = 0; p < kPosters; p++) {
        posters.emplace_back([p] {
            for (int i = 0; i < kPerPoster; i++) {
                KIRA_SchedWork(&g_items[p * kPerPoster + i]);
            }
        });
    }
    for (auto& t : posters) {
        t.join();
    }
    auto notOnce = [] { return std::count_if(g_runs.begin(), g_runs.end(), [](auto& n) { return n.load() != 1; }); };
    ASSERT_TRUE(WaitUntil([&] { return notOnce() == 0; }, 60000)) << notOnce() << " items not run once";
    usleep(50 * 1000);
    EXPECT_EQ(notOnce() + g_outOfOrder.load(), 0);
    std::vector<KIRA_SCHED_WORK_S> blocked(100, {0, {}, 0, [](KIRA_SCHED_WORK_S*) {
                                                     g_blocked++;
                                                     while (!g_open) {
                                                         usleep(1000);
                                                     }
                                                 }});
    for (auto& w : blocked) {
        KIRA_SchedWork(&w);
    }
    ASSERT_TRUE(WaitUntil([] { return g_blocked.load() == 64 && Alive() == 64 && Spare() == 0; }, 20000))
        << g_blocked.load() << " blocked, " << Alive() << " alive, " << Spare() << " spare";
    usleep(100 * 1000);
    EXPECT_EQ(KIRA_CreateSchedWorkThread(), 0);  // at the cap, topping up starts nothing and is no failure
    EXPECT_EQ(g_blocked.load() * 100 + Alive(), 6464);
    g_open = true;
    EXPECT_TRUE(WaitUntil([] { return g_blocked.load() == 100 && Settled(); }, 20000))
        << g_blocked.load() << " blocked, " << Alive() << " alive, " << Spare() << " spare";
    EXPECT_EQ(kt::SyslogCount("Create sched work thread fail."), 0);
}
