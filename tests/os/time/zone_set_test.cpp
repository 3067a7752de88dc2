// Changing the zone and the clocks: the link, the clock settings file, the
// backup script shipped with the library, the hardware clock commands and
// the table handed to the kernel, with every failure on the way.

#include <sys/stat.h>
#include <syslog.h>

#include <tuple>
#include <utility>

#include "tests/os/time/time_test_util.h"

namespace {

constexpr char kClock[] = "/etc/sysconfig/clock";
constexpr char kBackupCopy[] = "/startup_disk/conf/conf_local/os_backup/etc/sysconfig/clock";
const std::string kClockText = "ZONE=x\nDEFAULT_TIMEZONE=\"Asia/Tokyo\"\nTIMEZONE=\"JST\"\nUTC=true\n";

std::string LinkTarget() {
    char buf[256] = {};
    return readlink("/etc/localtime", buf, sizeof(buf) - 1) > 0 ? buf : "";
}

// The node as the platform sets it up: the clock file and the backup script.
void InstallNode() {
    time_test::PrivateKernelLog();
    time_test::UseZone("Asia/Tokyo");
    kt::MakeDirs("/etc/sysconfig");
    kt::WriteFile(kClock, kClockText);
    kt::MakeDirs("/ZUK/script");
    kt::WriteFile("/ZUK/script/os_conf_backup.sh", kt::ReadFile(KIRA_SOURCE_DIR "/tools/scripts/os_conf_backup.sh"),
                  0755);
}

// The abbreviation now in force, as "date" prints it.
std::string Abbreviation() {
    tzset();
    const time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    return local.tm_zone;
}

}  // namespace

SANDBOX_TEST(SetTimeZone, LinksEditsBacksUpAndTellsTheKernel) {
    InstallNode();
    time_test::KernelTable kernel;
    // With the zone's cache made beforehand no zdump truncates /dev/kmsg
    // after the backup has written to it.
    KIRA_DST_CONFIG_S config = {};
    ASSERT_EQ(KIRA_show_dst_config(2024, "Europe/Berlin", &config), 0);
    ASSERT_EQ(KIRA_SetTimeZone("Europe/Berlin"), 0);
    EXPECT_EQ(LinkTarget(), "/usr/share/zoneinfo/Europe/Berlin");
    // The shell takes the double quotes off the zone name.
    EXPECT_EQ(kt::ReadFile(kClock),
              "ZONE=x\nDEFAULT_TIMEZONE=Europe/Berlin\nTIMEZONE=" + Abbreviation() + "\nUTC=true\n");
    EXPECT_NE(access("/var/nox/time_tmp", F_OK), 0);
    EXPECT_EQ(kt::ReadFile(kBackupCopy), kt::ReadFile(kClock));
    EXPECT_EQ(kt::ReadFile("/dev/kmsg"), "<6>os_conf_backup: saved /etc/sysconfig/clock\n");
    EXPECT_EQ(kernel.requests, 1);
    EXPECT_GT(kernel.table.count, 100u);
    kernel.answer = 5;  // a positive answer of the kernel is handed back
    EXPECT_EQ(KIRA_SetTimeZone("Asia/Kathmandu"), 5);
    EXPECT_EQ(kernel.table.count, 2u);  // +05:30 from before 1970, +05:45 from 1986
}

SANDBOX_TEST(SetTimeZone, FailuresKeepWhatTheyMust) {
    InstallNode();
    struct {
        const char* zone;
        const char* setup;  // shell command run first
        int answer;         // of the kernel; 1000: no kernel device
        const char* link;   // the link afterwards
        const char* message;
        int ret;
    } cases[] = {
        {nullptr, "", 0, "Asia/Tokyo", "Input timezone name pointor is NULL.\n", -1},
        {"Nowhere/Land", "", 0, "Asia/Tokyo", "file /usr/share/zoneinfo/Nowhere/Land not exist\n", -1},
        {"Europe/Berlin;touch /tmp/x", "", 0, "Asia/Tokyo", "file /usr/share/zoneinfo/Europe/Berlin;touch", -1},
        {"../../etc/passwd", "", 0, "Asia/Tokyo", "not exist\n", -1},
        {"Europe/Berlin", "mv /etc/sysconfig/clock /tmp/c", 0, "Asia/Tokyo", "file /etc/sysconfig/clock not exist\n",
         -1},
        // The link stays changed when a later step fails.
        {"Europe/Berlin", "mv /tmp/c /etc/sysconfig/clock && rm /ZUK/script/os_conf_backup.sh", 0, "Europe/Berlin",
         "KIRA_SetTimeZone: KIRA_system fail, 32512, /usr/share/zoneinfo/Europe/Berlin\n", -1},
        {"UTC", "cp " KIRA_SOURCE_DIR "/tools/scripts/os_conf_backup.sh /ZUK/script/", 1000, "UTC",
         "sync_timezone_to_kernel: KIRA_open fail, -1\n", -1},
        {"Europe/Paris", "", -3, "Europe/Paris", "sync_timezone_to_kernel: ioctl fail, -3\n", -1},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(system(c.setup), 0) << c.setup;
        std::unique_ptr<time_test::KernelTable> kernel;
        if (c.answer != 1000) {
            kernel.reset(new time_test::KernelTable);
            kernel->answer = c.answer;
        }
        kt::SyslogClear();
        EXPECT_EQ(KIRA_SetTimeZone(c.zone), c.ret) << c.message;
        EXPECT_EQ(LinkTarget(), std::string("/usr/share/zoneinfo/") + c.link) << c.message;
        EXPECT_EQ(kt::SyslogCount(c.message, LOG_INFO), 1) << c.message;
    }
    EXPECT_NE(access("/tmp/x", F_OK), 0);
}

SANDBOX_TEST(SetTime, RangeHardwareClockCommandsAndKernel) {
    time_test::PrivateKernelLog();
    time_test::UseZone("UTC");
    kt::FakeCommand hwclock("hwclock");
    time_test::KernelTable kernel;
    // The instant, and the date handed to hwclock (null: refused).
    const std::pair<int64_t, const char*> cases[] = {
        {0, nullptr},
        {-1, nullptr},
        {3124224000, nullptr},
        {3124223999, "--date=12/31/68 23:59:59 -0"},
        {1, "--date=01/01/70 00:00:01 -0"},
        {951782400 + 45296, "--date=02/29/00 12:34:56 -0"},
    };
    for (const auto& [t, date] : cases) {
        kt::SyslogClear();
        const size_t before = hwclock.Calls().size();
        EXPECT_EQ(KIRA_SetTime(&t), date != nullptr ? 0 : -1) << t;
        const auto calls = hwclock.Calls();
        if (date == nullptr) {
            EXPECT_EQ(kt::SyslogCount("Input time param is error.\n", LOG_INFO), 1);
            EXPECT_EQ(calls.size(), before);
            continue;
        }
        ASSERT_EQ(calls.size(), before + 2);
        EXPECT_EQ(calls[before], (std::vector<std::string>{"--set", "--utc", date}));
        EXPECT_EQ(calls[before + 1], (std::vector<std::string>{"--utc", "--hctosys"}));
    }
    EXPECT_EQ(KIRA_SetTime(nullptr), -1);
    EXPECT_EQ(kernel.requests, 3);
}

SANDBOX_TEST(SetTime, EachFailingStepIsReported) {
    time_test::PrivateKernelLog();
    time_test::UseZone("UTC");
    const int64_t t = 1700000000;
    // The stand-in's body, whether the kernel device is there, the message.
    const std::tuple<const char*, bool, const char*> cases[] = {
        {"exit 2", true, "Set RTC failed, return value is 512.\n"},
        {"case \"$*\" in *hctosys*) exit 3;; esac", true,
         "Sync time from RTC to system failed, return value is 768.\n"},
        {"exit 0", false, "sync_timezone_to_kernel: KIRA_open fail, -1\n"},
    };
    kt::MakeDirs("/tmp/hw");
    setenv("PATH", (std::string("/tmp/hw:") + getenv("PATH")).c_str(), 1);
    for (const auto& [hwclock, withKernel, message] : cases) {
        kt::WriteFile("/tmp/hw/hwclock", std::string("#!/bin/sh\n") + hwclock + "\n", 0755);
        std::unique_ptr<time_test::KernelTable> kernel(withKernel ? new time_test::KernelTable : nullptr);
        kt::SyslogClear();
        EXPECT_EQ(KIRA_SetTime(&t), -1) << message;
        EXPECT_EQ(kt::SyslogCount(message, LOG_INFO), 1) << message;
    }
}

SANDBOX_TEST(KernelTable, PlantedCacheStopsAtCapacity) {
    time_test::PrivateKernelLog();
    time_test::UseZone("Etc/GMT-3");
    time_test::KernelTable kernel;
    std::string text = time_test::ZdumpNullPair("Etc/GMT-3");
    for (int i = 0; i < 700; i++) {
        text += time_test::ZdumpPair("Etc/GMT-3", 1000000 + i * 86400, {i % 2 == 0 ? 0 : 60, 0, "A"},
                                     {i % 2 == 0 ? 60 : 0, 0, "B"});
    }
    kt::WriteFile(time_test::CachePath("Etc/GMT-3"), text);
    EXPECT_EQ(sync_timezone_to_kernel(), 0);
    ASSERT_EQ(kernel.table.count, 544u);
    // The first line itself (after low) opens the table.
    EXPECT_EQ(kernel.table.entries[0].time, 1000000 - 1);
    EXPECT_EQ(kernel.table.entries[543].time, 1000000 + 542 * 86400);
    EXPECT_EQ(kt::SyslogCount("read_timezone_file: more than 544 transitions, rest ignored", LOG_INFO), 1);

    // Garbage stops the reading where it is; an empty cache gives an empty table.
    kt::WriteFile(time_test::CachePath("Etc/GMT-3"),
                  time_test::ZdumpPair("Etc/GMT-3", 5, {0, 0, "A"}, {60, 0, "B"}) + "\n" +
                      time_test::ZdumpPair("Etc/GMT-3", 99, {60, 0, "B"}, {0, 0, "A"}));
    EXPECT_EQ(sync_timezone_to_kernel(), -1);
    EXPECT_EQ(kt::SyslogCount("read_timezone_file: read_dst_line fail, (\n)\n", LOG_INFO), 1);
    EXPECT_EQ(kt::SyslogCount("sync_timezone_to_kernel: read_timezone_file fail, -1\n", LOG_INFO), 1);
    kt::WriteFile(time_test::CachePath("Etc/GMT-3"), "");
    EXPECT_EQ(sync_timezone_to_kernel(), 0);
    EXPECT_EQ(kernel.table.count, 0u);
    kt::WriteFile(time_test::CachePath("Etc/GMT-3"),
                  time_test::CrLfAt126(time_test::ZdumpPair("Etc/GMT-3", 5, {0, 0, "A"}, {60, 0, "B"})));
    EXPECT_EQ(sync_timezone_to_kernel(), 0);
    EXPECT_EQ(kernel.table.count, 2u);
    // A failed dump leaves no cache to read.
    kt::FakeCommand zdump("zdump", 1);
    time_test::UseZone("Etc/GMT+5");
    kt::SyslogClear();
    EXPECT_EQ(sync_timezone_to_kernel(), -1);
    EXPECT_EQ(kt::SyslogCount("sync_timezone_to_kernel: read_timezone_file fail, -1\n", LOG_INFO), 1);
    (void)unlink("/etc/localtime");
    EXPECT_EQ(sync_timezone_to_kernel(), -1);
}
