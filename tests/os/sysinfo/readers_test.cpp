// The /proc readers on deterministic files bound over their paths: the line
// array's counting rules, the key order and quirks of each parser, bad
// input, and one pass over the machine's real files against an independent
// reading.

#include <stdio.h>
#include <string.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "os/sysinfo/sysinfo_internal.h"
#include "tests/os/net/net_test_util.h"
#include "tests/os/sysinfo/sysinfo_test_util.h"
#include "tests/support/sandbox.h"

using sysinfo_test::BindNetDev;

namespace {

// One x86 processor block; ids and numbers vary per processor.
std::string X86Processor(int n, int physicalId, bool withCores) {
    std::ostringstream s;
    s << "processor\t: " << n << "\nvendor_id\t: KiraChip\nmodel name\t: Kira Test CPU @ 2.10GHz  \t\n"
      << "stepping\t: " << (n == 7 ? 4 : 3) << "\ncpu MHz\t\t: 2099.999\nphysical id\t: " << physicalId
      << "\nsiblings\t: 8\n"
      << (withCores ? "cpu cores\t: 4\n" : "") << "flags\t\t: fpu vme lm constant_tsc\n"
      << "address sizes\t: 46 bits physical, 48 bits virtual\n\n";
    return s.str();
}

// Physical ids fall 1, 1, 1, 1, 0, ...: the maximum must be kept, not the last.
std::string X86Cpuinfo(bool withCores) {
    std::string all;
    for (int n = 0; n < 8; n++) all += X86Processor(n, n < 4 ? 1 : 0, withCores);
    return all;
}

const char kArmCpuinfo[] =
    "processor\t: 0\nBogoMIPS\t: 100.00\nFeatures\t: fp asimd evtstrm cpuid\nCPU implementer\t: 0x41\n\n"
    "processor\t: 1\nBogoMIPS\t: 100.00\nFeatures\t: fp asimd evtstrm cpuid\nCPU implementer\t: 0x41\n\n";

struct Lines {
    SysinfoLines file;
    int rc;
    explicit Lines(const std::string& content) {
        FILE* fp = tmpfile();
        fwrite(content.data(), 1, content.size(), fp);
        rewind(fp);
        rc = read_file(fp, &file.lines, &file.count);
    }
};

}  // namespace

SANDBOX_TEST(LineArray, CountsNewLinesAndRefusesTheExtraLine) {
    std::string longLine(3000, 'x');
    Lines ok("a\n" + longLine + "\n\nlast\n");
    ASSERT_EQ(ok.rc, 0);
    ASSERT_EQ(ok.file.count, 4u);  // a line longer than a piece counts once
    EXPECT_EQ(std::string(ok.file.lines[1]), longLine + "\n");
    EXPECT_STREQ(ok.file.lines[3], "last\n");

    Lines big([] {
        std::string s;
        for (int i = 0; i < 10000; i++) s += std::to_string(i) + "\n";
        return s;
    }());
    ASSERT_EQ(big.rc, 0);
    EXPECT_EQ(big.file.count, 10000u);
    EXPECT_STREQ(big.file.lines[9999], "9999\n");

    // Not counted but read: a last line without a new line, a NUL before
    // the new line (binary files).
    const std::pair<std::string, const char*> refused[] = {{"a\nb", "too much lines to read!\n"},
                                                           {std::string("a\n\0b\nc\n", 7), "too much lines to read!\n"},
                                                           {"", "Given file empty, exit.\n"},
                                                           {"no new line", "Given file empty, exit.\n"}};
    for (const auto& [content, message] : refused) {
        kt::SyslogClear();
        Lines bad(content);
        EXPECT_EQ(bad.rc, -1);
        EXPECT_EQ(bad.file.lines, nullptr);
        EXPECT_EQ(bad.file.count, 0u);
        EXPECT_EQ(kt::SyslogCount(message, 6), 1) << message;
    }

    char** lines = reinterpret_cast<char**>(1);
    uint32_t count = 9;
    EXPECT_EQ(read_fp_to_2d_buffer(nullptr, &lines, &count), -22);
    EXPECT_EQ(read_file(nullptr, &lines, &count), -1);
    EXPECT_EQ(kt::SyslogCount("Given file pointer is NULL.\n", 6), 1);
    EXPECT_EQ(kt::SyslogCount("read_file fp is NULL.\n", 6), 1);
    free_2d_buffer(nullptr, 3);
}

TEST(LineArray, CopyAfterKeyTrimsButKeepsTheFirstCharacter) {
    // The line, the key, and the copy (null: none).
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"cpu MHz\t\t: 2400.000\n", "cpu MHz\t\t: ", "2400.000"},
        {"xx key=value \t\r\n", "key=", "value"},  // found anywhere in the line
        {"key=\n", "key=", "\n"},                  // the first character stays
        {"key= \n", "key=", " "},
        {"a key=", "key=", nullptr},  // nothing after the key
        {"abc", "zz", nullptr},
        {"", "k", nullptr},
        {"k", "", nullptr},
        {nullptr, "k", nullptr},
        {"k", nullptr, nullptr},
    };
    for (const auto& [line, key, want] : cases) {
        char* got = copy_string_part_after_delim(line, key);
        if (want == nullptr) {
            EXPECT_EQ(got, nullptr) << (line ? line : "(null)");
        } else {
            EXPECT_STREQ(got, want);
        }
        free(got);
    }
}

SANDBOX_TEST(Lscpu, KeysMaximaAndTheDeliberateAsymmetry) {
    const std::pair<std::string, lscpu_t> cases[] = {
        // bits, stepping (last), kHz through a float, count, sockets (max 1, +1), cores, threads
        {X86Cpuinfo(true), {64, 4, 2099999, 8, 2, 4, 2}},
        // Without cores: the highest id stays, siblings stay raw.
        {X86Cpuinfo(false), {64, 4, 2099999, 8, 1, 0, 8}},
        {kArmCpuinfo, {0, 0, 0, 2, 0, 0, 0}},
        // A line is used by the first key it holds; "lm" anywhere in flags.
        {"flags\t\t: processor\t: 9\nflags\t\t: lahf_lm\ncpu MHz\t\t: -5\ncpu cores\t: 3\nsiblings\t: 7\n",
         {64, 0, 0, 1, 1, 3, 2}},
        {"flags\t\t: fpu\nstepping\t: 2\nstepping\t: x\n", {32, 2, 0, 1, 0, 0, 0}},
    };
    for (const auto& [cpuinfo, want] : cases) {
        kt::BindFileOver("/proc/cpuinfo", cpuinfo);
        lscpu_t got;
        memset(&got, 0xA5, sizeof(got));
        ASSERT_EQ(KIRA_lscpu(&got), 0);
        EXPECT_EQ(memcmp(&got, &want, sizeof(got)), 0)
            << got.addressBits << " " << got.stepping << " " << got.frequencyKHz << " " << got.cpuCount << " "
            << got.socketCount << " " << got.coresPerSocket << " " << got.threadsPerCore;
    }
}

SANDBOX_TEST(Cpuinfo, OneProcessorsDescription) {
    kt::BindFileOver("/proc/cpuinfo", X86Cpuinfo(true));
    cpuinfo_t d;
    ASSERT_EQ(KIRA_get_cpuinfo(&d, 5), 0);
    EXPECT_EQ(d.addressSizes, 46u);
    EXPECT_STREQ(d.modelName, "Kira Test CPU @ 2.10GHz");
    EXPECT_EQ(KIRA_get_cpuinfo(&d, 8), -1);
    EXPECT_EQ(d.addressSizes, 0u);

    kt::BindFileOver("/proc/cpuinfo", kArmCpuinfo);
    EXPECT_EQ(KIRA_get_cpuinfo(&d, 1), 0);
    EXPECT_STREQ(d.modelName, "");

    // Lines before any processor line belong to processor 0; a processor
    // with only a model name and address sizes is not found (but filled);
    // the name is cut to 99 characters.
    kt::BindFileOver("/proc/cpuinfo", "model name\t: " + std::string(150, 'n') +
                                          "\nprocessor\t: 1\nmodel name\t: Only\naddress sizes\t: 40 bits\n"
                                          "processor\t: 2\ncache size\t: 1 KB\n");
    ASSERT_EQ(KIRA_get_cpuinfo(&d, 0), -1);
    EXPECT_EQ(std::string(d.modelName), std::string(99, 'n'));
    EXPECT_EQ(KIRA_get_cpuinfo(&d, 1), -1);
    EXPECT_STREQ(d.modelName, "Only");
    EXPECT_EQ(d.addressSizes, 40u);
    EXPECT_EQ(KIRA_get_cpuinfo(&d, 2), 0);
}

SANDBOX_TEST(ProcessorStats, TenCountersFromTheSixthCharacter) {
    processor_stat_t s;
    kt::BindFileOver("/proc/stat", "cpu  1 2 3 4 5 6 7 8 9 10000000000\ncpu0 9 9 9 9 9 9 9 9 9 9\n");
    ASSERT_EQ(KIRA_get_all_processor_stats(&s), 0);
    const uint64_t ten[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10000000000};
    EXPECT_EQ(memcmp(&s, ten, sizeof(s)), 0) << s.user << " " << s.steal << " " << s.guest_nice;
    kt::BindFileOver("/proc/stat", "cpu  11 12 13\n");
    ASSERT_EQ(KIRA_get_all_processor_stats(&s), 0);
    EXPECT_EQ(s.system, 13u);
    EXPECT_EQ(s.idle, 0u);
    for (const char* bad : {"cpu 1 2 3 4 5 6 7 8 9 10\n", "", "\n"}) {
        kt::BindFileOver("/proc/stat", bad);
        memset(&s, 0xA5, sizeof(s));
        EXPECT_EQ(KIRA_get_all_processor_stats(&s), -1) << bad;
        EXPECT_EQ(s.user + s.guest_nice, 0u);
    }
}

SANDBOX_TEST(Diskstats, KeyTenthValueAndShortCounterShift) {
    kt::BindFileOver("/proc/diskstats",
                     "   8       0 xsda 999 2 3 4 5 6 7 8 9 555 11\n"
                     "   8      16 sdb 123456 2 3 4 5 6 7 8 9 777 888 12 13 14 15 16 17\n"
                     "   8      32 sdc 12 2 3 4 5 6 7 8 9 777 888 12\n"
                     "   8      48 sdd 5 2 3 4 5 6 7 8 9 777 888 12\n");
    const std::tuple<const char*, int, uint64_t> cases[] = {
        {"sdb", 0, 777}, {"sdc", 0, 888}, {"sdd", 0, 888}, {"sda", 0, 555}, {"sde", -1, 0}};
    for (const auto& [name, rc, busy] : cases) {
        disk_stats_t s{12345};
        EXPECT_EQ(KIRA_get_disk_stats(name, &s), rc) << name;
        EXPECT_EQ(s.ioBusyMs, busy) << name;
    }
}

SANDBOX_TEST(Netdev, FirstNameColonAndTheTwoCharacterSkip) {
    BindNetDev(
        "Inter-|   Receive                            |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes\n"
        "    lo:    1000      10    0    0    0     0          0         0     2000   20 0 0 0 0 0 0\n"
        "   kd0:123456789 5 0 0 0 0 0 0 987654321 6 0 0 0 0 0 0\n"
        "  xkd1: 77 1 0 0 0 0 0 0 88 1 0 0 0 0 0 0\n");
    const std::tuple<const char*, int, uint64_t, uint64_t> cases[] = {
        {"lo", 0, 1000, 2000},
        {"kd0", 0, 23456789, 987654321},  // first digit lost
        {"kd1", 0, 77, 88},               // the tail of a longer name
        {"kd2", -1, 0, 0}};
    for (const auto& [name, rc, rx, tx] : cases) {
        netdev_info_t s{9, 9, 9};
        EXPECT_EQ(KIRA_get_netdev_info(name, &s), rc) << name;
        EXPECT_EQ(s.rxBytes, rx) << name;
        EXPECT_EQ(s.txBytes, tx) << name;
        EXPECT_EQ(s.speed, 0u) << name;  // no such device
    }
}

SANDBOX_TEST(Readers, BadArgumentsAndBadFiles) {
    const std::pair<int, const char*> nulls[] = {
        {KIRA_lscpu(nullptr), "lscpu_t is NULL in KIRA_lscpu!\n"},
        {KIRA_get_cpuinfo(nullptr, 0), "cpuinfo is NULL in KIRA_get_cpuinfo!\n"},
        {KIRA_get_all_processor_stats(nullptr), "processor_stat is NULL in KIRA_get_all_processor_stats!\n"},
        {KIRA_get_netdev_info(nullptr, nullptr), "Argument NULL in KIRA_get_netdev_info\n"},
        {KIRA_get_netdev_info("", nullptr), "Argument NULL in KIRA_get_netdev_info\n"},
        {KIRA_get_disk_stats("sda", nullptr), "Argument NULL in KIRA_get_disk_stats!\n"},
    };
    for (const auto& [rc, message] : nulls) {
        EXPECT_EQ(rc, -22) << message;
        EXPECT_EQ(kt::SyslogCount(message, 6), message == nulls[4].second ? 2 : 1) << message;
    }
    netdev_info_t nd{1, 2, 3};
    EXPECT_EQ(KIRA_get_netdev_info("", &nd), -22);
    EXPECT_EQ(nd.rxBytes + nd.txBytes + nd.speed, 0u);
    disk_stats_t ds{4};
    EXPECT_EQ(KIRA_get_disk_stats("", &ds), -22);
    EXPECT_EQ(ds.ioBusyMs, 0u);
    EXPECT_EQ(kt::SyslogCount("netdev_name_info is empty!\n", 6), 1);
    EXPECT_EQ(kt::SyslogCount("disk_name is empty in KIRA_get_disk_stats!\n", 6), 1);

    // Empty and binary files: read failures with the path, zeroed records.
    for (const std::string& content : {std::string(), std::string("\0\1\2\n\3", 5)}) {
        kt::SyslogClear();
        for (const char* path : {"/proc/cpuinfo", "/proc/diskstats"}) kt::BindFileOver(path, content);
        BindNetDev(content);
        lscpu_t l;
        memset(&l, 0xA5, sizeof(l));
        EXPECT_EQ(KIRA_lscpu(&l), -1);
        EXPECT_EQ(l.cpuCount + l.addressBits, 0u);
        cpuinfo_t c;
        EXPECT_EQ(KIRA_get_cpuinfo(&c, 0), -1);
        EXPECT_EQ(KIRA_get_netdev_info("lo", &nd), -1);
        EXPECT_EQ(KIRA_get_disk_stats("sda", &ds), -1);
        EXPECT_EQ(kt::SyslogCount("Failed to read /proc/cpuinfo!\n", 6), 2);
        EXPECT_EQ(kt::SyslogCount("Failed to read /proc/net/dev!\n", 6), 1);
        EXPECT_EQ(kt::SyslogCount("Failed to read /proc/diskstats!\n", 6), 1);
    }
}

namespace {

int CountLinesStartingWith(const char* path, const std::string& prefix) {
    std::ifstream in(path);
    int n = 0;
    for (std::string line; std::getline(in, line);) n += line.compare(0, prefix.size(), prefix) == 0;
    return n;
}

// Byte counters of one device read by hand: the fields after the colon.
std::pair<uint64_t, uint64_t> HandReadNetdev(const std::string& name) {
    std::ifstream in("/proc/net/dev");
    for (std::string line; std::getline(in, line);) {
        const size_t colon = line.find(':');
        std::istringstream head(line.substr(0, colon)), fields(line.substr(colon + 1));
        std::string device;
        uint64_t v[9] = {};
        if (colon == std::string::npos || !(head >> device) || device != name) continue;
        for (auto& x : v) fields >> x;
        return {v[0], v[8]};
    }
    return {0, 0};
}

}  // namespace

TEST(RealFiles, PlausibleAgainstAnIndependentReading) {
    processor_stat_t s;
    ASSERT_EQ(KIRA_get_all_processor_stats(&s), 0);
    EXPECT_GT(s.user + s.system + s.idle, 0u);
    lscpu_t l;
    ASSERT_EQ(KIRA_lscpu(&l), 0);
    EXPECT_GE(l.cpuCount, static_cast<uint32_t>(CountLinesStartingWith("/proc/cpuinfo", "processor")));
    EXPECT_EQ(KIRA_GetCpuNumber(), sysconf(_SC_NPROCESSORS_ONLN));
    cpuinfo_t c;
    EXPECT_EQ(KIRA_get_cpuinfo(&c, 0), 0);
    int mem = KIRA_GetMemUsage();
    EXPECT_GT(mem, 0);
    EXPECT_LE(mem, 100);
    netdev_info_t n;
    EXPECT_EQ(KIRA_get_netdev_info("lo", &n), 0);
}

TEST(Netdev, RealVethPairCountersAndLinkSpeed) {
    net_test::RunInOwnNetwork([] {
        ASSERT_EQ(system("ip link add kv0 type veth peer name kv1 && ip link set kv0 up && ip link set kv1 up"), 0);
        netdev_info_t before0, before1;
        ASSERT_EQ(KIRA_get_netdev_info("kv0", &before0), 0);
        ASSERT_EQ(KIRA_get_netdev_info("kv1", &before1), 0);
        // What veth reports; an emulator that does not pass the driver
        // query on leaves the speed at 0, silently.
        struct ifreq probe = {};
        uint32_t settings[11] = {1};
        strcpy(probe.ifr_name, "kv0");
        probe.ifr_data = reinterpret_cast<char*>(settings);
        int inet = socket(AF_INET, SOCK_DGRAM, 0);
        const uint64_t speed = ioctl(inet, SIOCETHTOOL, &probe) == 0 ? 10000 : 0;
        close(inet);
        EXPECT_EQ(before0.speed, speed);

        // Frames sent before the pair has its carrier are dropped without
        // an error: wait until both ends run.
        for (const char* end : {"kv0", "kv1"}) {
            struct ifreq flags = {};
            strcpy(flags.ifr_name, end);
            int fd = socket(AF_INET, SOCK_DGRAM, 0);
            for (int i = 0; i < 300 && (ioctl(fd, SIOCGIFFLAGS, &flags) != 0 || !(flags.ifr_flags & IFF_RUNNING)); i++)
                usleep(10 * 1000);
            close(fd);
            ASSERT_TRUE(flags.ifr_flags & IFF_RUNNING) << end << " never got its carrier";
        }

        // Raw frames sent out of kv0 arrive on kv1.
        int sock = socket(AF_PACKET, SOCK_RAW, 0);
        ASSERT_GE(sock, 0);
        struct sockaddr_ll to = {};
        to.sll_family = AF_PACKET;
        to.sll_ifindex = static_cast<int>(if_nametoindex("kv0"));
        to.sll_halen = 6;
        memset(to.sll_addr, 0xff, 6);
        unsigned char frame[1000] = {};
        memset(frame, 0xff, 6);
        frame[12] = 0x88;  // a local experimental ether type
        frame[13] = 0xb5;
        for (int i = 0; i < 20; i++)
            ASSERT_EQ(sendto(sock, frame, sizeof(frame), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)),
                      static_cast<ssize_t>(sizeof(frame)));
        close(sock);
        usleep(100 * 1000);

        netdev_info_t after0, after1;
        auto hand0 = HandReadNetdev("kv0");
        ASSERT_EQ(KIRA_get_netdev_info("kv0", &after0), 0);
        ASSERT_EQ(KIRA_get_netdev_info("kv1", &after1), 0);
        auto hand1 = HandReadNetdev("kv1");
        EXPECT_GE(after0.txBytes - before0.txBytes, 20000u);
        EXPECT_GE(after1.rxBytes - before1.rxBytes, 20000u);
        EXPECT_LE(hand0.second, after0.txBytes);
        EXPECT_LE(after1.rxBytes, hand1.first);
        EXPECT_EQ(after1.speed, speed);
    });
}
