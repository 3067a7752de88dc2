// One walk over every function that allocates: the Nth allocation of the
// calling thread fails, for N = 1, 2, ... until a call sees no failure.
// Each failed call must give the failure result with a zeroed record (or,
// where the C library absorbs the failure, exactly the normal result) and
// leave nothing allocated; the messages the layer names for allocation
// failures must show up. Leaks are LeakSanitizer's to find (sanitizer stage).

#include <linux/netlink.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>

#include "os/sysinfo/kira_netlink.h"
#include "os/sysinfo/kira_schedwork.h"
#include "os/sysinfo/sysinfo_internal.h"
#include "tests/os/sysinfo/sysinfo_test_util.h"
#include "tests/support/fault_inject.h"

namespace {

// A call under test: runs armed and reports its result and output record
// without allocating.
struct Outcome {
    int rc = 0;
    unsigned char record[128] = {};
    size_t size = 0;
    bool operator==(const Outcome& o) const { return rc == o.rc && memcmp(record, o.record, sizeof(record)) == 0; }
};

template <typename T>
Outcome Capture(int rc, const T& record) {
    Outcome o;
    o.rc = rc;
    o.size = sizeof(T);
    memcpy(o.record, &record, sizeof(T));
    return o;
}

// A call that fills a record of type T through fill(&record).
template <typename T, typename F>
std::function<Outcome()> Into(F fill) {
    return [fill] {
        T r;
        return Capture(fill(&r), r);
    };
}

bool IsFailure(const Outcome& o, int failRc) {
    for (size_t i = 0; i < o.size; i++)
        if (o.record[i] != 0) return false;
    return o.rc == failRc;
}

Outcome RunArmed(kt::Fault kind, int n, const std::function<Outcome()>& call, bool* injected) {
    kt::FaultArm({kind, n, kt::FaultMode::kFail, false});
    Outcome o = call();
    *injected = kt::FaultDisarm();
    return o;
}

std::set<std::string> g_messages;  // logged during failed calls

// Walks every allocation and every stream open of call (C library calls
// that allocate inside the library are beyond reach).
void Walk(const char* name, int failRc, const std::function<Outcome()>& call) {
    const Outcome normal = call();
    for (kt::Fault kind : {kt::Fault::kAlloc, kt::Fault::kOpen}) {
        for (int n = 1; n < 500; n++) {
            kt::SyslogClear();
            bool injected = false;
            Outcome o = RunArmed(kind, n, call, &injected);
            if (!injected) {
                EXPECT_TRUE(o == normal) << name;
                break;
            }
            EXPECT_TRUE(IsFailure(o, failRc) || o == normal)
                << name << ": " << kt::FaultName(kind) << " " << n << " failing gives rc " << o.rc;
            for (const auto& line : kt::SyslogLines()) g_messages.insert(line.message);
        }
    }
}

const char kCpuinfo[] =
    "processor\t: 0\nmodel name\t: Kira\nstepping\t: 1\ncpu MHz\t\t: 1000.0\nphysical id\t: 0\n"
    "siblings\t: 2\ncpu cores\t: 1\nflags\t\t: lm\naddress sizes\t: 40 bits\n\n";

}  // namespace

SANDBOX_TEST(AllocFailure, EveryAllocationOfEveryFunction) {
    kt::BindFileOver("/proc/cpuinfo", kCpuinfo);
    kt::BindFileOver("/proc/stat", "cpu  1 2 3 4 5 6 7 8 9 10\n");
    kt::BindFileOver("/proc/diskstats", "   8 0 sda 123 2 3 4 5 6 7 8 9 10 11\n");
    sysinfo_test::BindNetDev("h\nh\n  kd0: 12 1 0 0 0 0 0 0 34 1 0 0 0 0 0 0\n");
    // The first log line of a process loads what syslog keeps for good.
    EXPECT_EQ(KIRA_lscpu(nullptr), -22);

    Walk("KIRA_lscpu", -1, Into<lscpu_t>([](lscpu_t* r) { return KIRA_lscpu(r); }));
    Walk("KIRA_get_cpuinfo", -1, Into<cpuinfo_t>([](cpuinfo_t* r) { return KIRA_get_cpuinfo(r, 0); }));
    Walk("KIRA_get_all_processor_stats", -1,
         Into<processor_stat_t>([](processor_stat_t* r) { return KIRA_get_all_processor_stats(r); }));
    Walk("KIRA_get_netdev_info", -1,
         Into<netdev_info_t>([](netdev_info_t* r) { return KIRA_get_netdev_info("kd0", r); }));
    Walk("KIRA_get_disk_stats", -1, Into<disk_stats_t>([](disk_stats_t* r) { return KIRA_get_disk_stats("sda", r); }));
    Walk("read_file", -1, [] {
        FILE* fp = fopen("/proc/cpuinfo", "r");
        char** l = nullptr;
        uint32_t count = 0;
        int rc = read_file(fp, &l, &count);
        free_2d_buffer(l, count);
        return Capture(rc, count);
    });
    Walk("KIRA_MallocSubStandard", 0, [] {
        void* p = KIRA_MallocSubStandard(424, 64, "f", 1, 0);
        KIRA_FreeSub(p, "f", 1);
        return Capture(p != nullptr ? 1 : 0, 0);
    });
    for (const char* m : {"Failed to allocate memory for pre_line_buffer.\n", "Failed to allocate memory.\n",
                          "Failed to open /proc/cpuinfo file.\n", "Failed to read /proc/diskstats!\n",
                          "Failed to malloc disk_new_name!\n", "read_file fp is NULL.\n",
                          "Malloc memory fails. PID: (424), size: (64), type: (5).\n"})
        EXPECT_EQ(g_messages.count(m), 1u) << m;

    int sock = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    bool injected = false;
    Outcome listen = RunArmed(
        kt::Fault::kAlloc, 1, [sock] { return Capture(KIRA_Netlink_ext3_listen(sock, 99, [](void*) {}), 0); },
        &injected);
    EXPECT_EQ(listen.rc, -5);
    EXPECT_EQ(KIRA_Netlink_ext3_release(sock), 0);
}
