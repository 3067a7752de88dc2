// Zone and daylight saving: refused input, the zdump cache, planted cache
// files of every shape (bad ones included), the query functions and
// KIRA_GetTimeZone.

#include <sys/stat.h>
#include <syslog.h>

#include <tuple>
#include <utility>
#include <vector>

#include "tests/os/time/time_test_util.h"

namespace {

using time_test::Offset;
using time_test::ZdumpPair;

constexpr Offset kStd{3600, 0, "CET"};
constexpr Offset kDst{7200, 1, "CEST"};
// A real zone whose cache the tests plant (the zone file must exist).
constexpr char kPlanted[] = "Etc/GMT-3";

int64_t Utc(int year, int mon, int day, int hour = 0) {
    struct tm t = {0, 0, hour, day, mon - 1, year - 1900, 0, 0, 0, 0, nullptr};
    return timegm(&t);
}

void Plant(const std::string& text) { kt::WriteFile(time_test::CachePath(kPlanted), text); }

bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

uint32_t PeriodCount(int year, const std::string& zone) {
    KIRA_DST_CONFIG_S config = {};
    EXPECT_EQ(KIRA_show_dst_config(year, zone.c_str(), &config), 0) << zone;
    return config.count;
}

// clang-format off
const char* const kHostileNames[] = {
    "", "/etc/passwd", "../../etc/passwd", "Europe/../Europe/Berlin", "Europe//Berlin", "Europe/Berlin;touch /tmp/x",
    "Europe/Berlin x", "$(touch /tmp/x)", "Europe/Berlin`id`", "Europe/Berlin'", "Europe/Berlin|id", "Europe/",
};
// clang-format on

}  // namespace

SANDBOX_TEST(DstConfig, BadInputIsRefusedAndRunsNothing) {
    time_test::PrivateKernelLog();
    unlink("/var/run/timezone_Europe_Berlin");  // a cache the host may hold
    kt::FakeCommand zdump("zdump");
    KIRA_DST_CONFIG_S config = {};
    const std::tuple<int, const char*, KIRA_DST_CONFIG_S*, const char*> cases[] = {
        {1969, "Europe/Berlin", &config, "this year 1969 not in [1970, 2037]\n"},
        {2038, "Europe/Berlin", &config, "this year 2038 not in [1970, 2037]\n"},
        {2024, nullptr, &config, "KIRA_show_dst_config: The pointor is NULL\n"},
        {2024, "Europe/Berlin", nullptr, "KIRA_show_dst_config: The pointor is NULL\n"},
        {2024, "Nowhere/Land", &config, "file /usr/share/zoneinfo/Nowhere/Land not exist\n"},
    };
    for (const auto& [year, zone, out, message] : cases) {
        kt::SyslogClear();
        EXPECT_EQ(KIRA_show_dst_config(year, zone, out), -1) << message;
        EXPECT_EQ(kt::SyslogCount(message, LOG_INFO), 1) << message;
    }
    for (const char* zone : kHostileNames) {
        kt::SyslogClear();
        EXPECT_EQ(KIRA_show_dst_config(2024, zone, &config), -1) << zone;
        EXPECT_EQ(kt::SyslogCount(std::string("file /usr/share/zoneinfo/") + zone + " not exist\n"), 1) << zone;
    }
    EXPECT_TRUE(zdump.Calls().empty());
    EXPECT_FALSE(Exists("/tmp/x"));
    EXPECT_FALSE(Exists("/var/run/timezone_Europe_Berlin"));
    EXPECT_EQ(config.count, 0u);
}

SANDBOX_TEST(DstConfig, CacheIsMadeOnceAndAFailedDumpLeavesNone) {
    time_test::PrivateKernelLog();
    time_test::UseZone("UTC");
    {
        kt::FakeCommand zdump("zdump", 1);
        EXPECT_EQ(PeriodCount(2024, kPlanted), 0u);
        EXPECT_EQ(kt::SyslogCount("zdump fail 256.\n", LOG_INFO), 1);
        EXPECT_EQ(zdump.Calls().size(), 1u);
        EXPECT_FALSE(Exists(time_test::CachePath(kPlanted)));
    }
    // A planted cache is taken as it is, and never refreshed.
    kt::FakeCommand zdump("zdump");
    Plant(ZdumpPair(kPlanted, Utc(2024, 3, 31, 1), kStd, kDst) + ZdumpPair(kPlanted, Utc(2024, 10, 27, 1), kDst, kStd));
    EXPECT_EQ(PeriodCount(2024, kPlanted), 1u);
    EXPECT_EQ(PeriodCount(2025, kPlanted), 0u);
    EXPECT_TRUE(zdump.Calls().empty());
    // The cache lies beside the directory (the planted file was found there).
    EXPECT_TRUE(Exists("/var/run/timezone"));
}

SANDBOX_TEST(DstConfig, DamagedCacheFilesNeverOverrun) {
    time_test::PrivateKernelLog();
    time_test::UseZone("UTC");
    std::string many = time_test::ZdumpNullPair(kPlanted);
    for (int i = 0; i < 12; i++) {
        many +=
            ZdumpPair(kPlanted, Utc(2024, 1 + i, 2), kStd, kDst) + ZdumpPair(kPlanted, Utc(2024, 1 + i, 9), kDst, kStd);
    }
    const std::string good = ZdumpPair(kPlanted, Utc(2024, 3, 31, 1), kStd, kDst);
    const std::string tail = ZdumpPair(kPlanted, Utc(2024, 10, 27, 1), kDst, kStd);
    const std::tuple<std::string, size_t, const char*> cases[] = {
        {many, 8, "read_dst_file: more than 8 dst periods in 2024, rest ignored"},
        {"\n\n" + good + tail, 0, "get_dst_begin: read_dst_line fail, (\n)\n"},
        {good + "\n\n", 1, "get_dst_end: read_dst_line fail, (\n)\n"},
        {"garbage line\nmore garbage\n" + good + tail, 1, "read_dst_line: sscanf_s fail, 1, garbage line\n"},
        // A partial line is taken as read: its year stays 2024 + 1900, which ends the search.
        {good.substr(0, 45) + "\n" + good.substr(0, 45) + "\n" + good + tail, 0, "read_dst_line: sscanf_s fail, 10, "},
        {std::string(500, 'x') + "\n" + good + tail, 1, "read_dst_line: sscanf_s fail, 0, xxx"},
        {good + tail.substr(0, tail.size() / 2), 1, nullptr},  // cut short
        {time_test::CrLfAt126(good + tail), 1, nullptr},
        {"", 0, nullptr},
    };
    for (const auto& [text, periods, message] : cases) {
        Plant(text);
        kt::SyslogClear();
        EXPECT_EQ(PeriodCount(2024, kPlanted), periods) << text;
        if (message != nullptr) {
            EXPECT_GE(kt::SyslogCount(message, LOG_INFO), 1) << message;
        }
    }
}

SANDBOX_TEST(DstQuery, ShapesOfThisYear) {
    time_test::PrivateKernelLog();
    time_test::UseZone("UTC");
    const int y = get_this_year();
    const std::string none = ZdumpPair(kPlanted, Utc(y, 5, 1), kStd, {10800, 0, "X"});
    const std::string north =
        ZdumpPair(kPlanted, Utc(y, 3, 31, 1), kStd, kDst) + ZdumpPair(kPlanted, Utc(y, 10, 27, 1), kDst, kStd);
    const std::string southEnd = ZdumpPair(kPlanted, Utc(y + 1, 4, 6, 16), kDst, kStd);
    const std::string south = ZdumpPair(kPlanted, Utc(y - 1, 10, 5, 16), kStd, kDst) +
                              ZdumpPair(kPlanted, Utc(y, 4, 6, 16), kDst, kStd) +
                              ZdumpPair(kPlanted, Utc(y, 10, 5, 16), kStd, {5400, 1, "HALF"}) + southEnd;
    const std::string intoNext = ZdumpPair(kPlanted, Utc(y, 10, 5, 16), kStd, kDst) + southEnd;
    const std::string twoInYear =
        north + ZdumpPair(kPlanted, Utc(y, 11, 2), kStd, kDst) + ZdumpPair(kPlanted, Utc(y, 11, 9), kDst, kStd);
    struct {
        std::string cache;
        int ret;
        const char* begin;
        const char* end;
        uint32_t offset;
        int32_t flag;  // 7: left as the caller set it
        int32_t hasDst;
        const char* message;
    } cases[] = {
        {none, 0, "00-00 00:00:00", "00-00 00:00:00", 0, 7, 0, nullptr},
        {north, 0, "03-31 02:00:00", "10-27 03:00:00", 60, 0, 1, nullptr},
        {south, 0, "10-05 17:00:00", "04-06 18:00:00", 30, 7, 1, nullptr},
        {intoNext, 0, "10-05 17:00:00", "04-06 18:00:00", 60, 7, 1, nullptr},
        {twoInYear, -1, "##############", "##############", 99, 7, 1,
         "KIRA_QueryDstConfInfoForRegion: more dst time in one year, 2\n"},
    };
    for (const auto& c : cases) {
        Plant(c.cache);
        kt::SyslogClear();
        char begin[20], end[20];
        memset(begin, '#', sizeof(begin));
        memset(end, '#', sizeof(end));
        uint32_t offset = 99;
        int32_t flag = 7, hasDst = 7;
        EXPECT_EQ(KIRA_QueryDstConfInfoForRegion(kPlanted, begin, end, &offset, &flag), c.ret) << c.begin;
        EXPECT_EQ(std::string(begin, 15), std::string(c.begin) + "#");
        EXPECT_EQ(std::string(end, 15), std::string(c.end) + "#");
        EXPECT_EQ(offset, c.offset) << c.begin;
        EXPECT_EQ(flag, c.flag) << c.begin;
        EXPECT_EQ(KIRA_QueryDstForRegion(kPlanted, &hasDst), 0);
        EXPECT_EQ(hasDst, c.hasDst) << c.begin;
        if (c.message != nullptr) {
            EXPECT_EQ(kt::SyslogCount(c.message, LOG_INFO), 1) << c.message;
        }
    }
    // The current zone's form, and bad input.
    time_test::UseZone(kPlanted);
    Plant(north);
    char begin[14], end[14];
    uint32_t offset = 0;
    int32_t flag = 7;
    EXPECT_EQ(KIRA_QueryDstConfInfo(begin, end, &offset, &flag), 0);
    EXPECT_EQ(std::string(begin, 14) + std::string(end, 14), "03-31 02:00:0010-27 03:00:00");
    kt::SyslogClear();
    EXPECT_EQ(KIRA_QueryDstConfInfoForRegion(nullptr, begin, end, &offset, &flag), -1);
    EXPECT_EQ(KIRA_QueryDstConfInfoForRegion(kPlanted, begin, end, nullptr, &flag), -1);
    EXPECT_EQ(KIRA_QueryDstConfInfoForRegion(kPlanted, begin, end, &offset, nullptr), -1);
    EXPECT_EQ(KIRA_QueryDstConfInfo(begin, nullptr, &offset, &flag), -1);
    EXPECT_EQ(kt::SyslogCount("Input param is NULL.", LOG_INFO), 4);
    EXPECT_EQ(KIRA_QueryDstForRegion(kPlanted, nullptr), -1);
    EXPECT_EQ(kt::SyslogCount("KIRA_QueryDstForRegion: The pointor is NULL\n", LOG_INFO), 1);
    EXPECT_EQ(KIRA_QueryDstForRegion("Nowhere", &flag), -1);
    EXPECT_EQ(kt::SyslogCount("KIRA_QueryDstForRegion: KIRA_show_dst_config fail, -1\n", LOG_INFO), 1);
    EXPECT_EQ(KIRA_QueryDstConfInfoForRegion("Nowhere", begin, end, &offset, &flag), -1);
    EXPECT_EQ(kt::SyslogCount("KIRA_QueryDstConfInfoForRegion: KIRA_show_dst_config fail, -1\n", LOG_INFO), 1);
    (void)unlink("/etc/localtime");
    EXPECT_EQ(KIRA_QueryDstConfInfo(begin, end, &offset, &flag), -1);
}

SANDBOX_TEST(TimeZone, ReportsTheStandardOffsetNameAndAbbreviation) {
    // Each zone and its standard offset.
    const std::pair<const char*, const char*> cases[] = {{"America/St_Johns", "-03:30"},
                                                         {"Asia/Kathmandu", "+05:45"},
                                                         {"Europe/Berlin", "+01:00"},
                                                         {"Australia/Sydney", "+10:00"},
                                                         {"UTC", "+00:00"},
                                                         {"America/Sao_Paulo", "-03:00"}};
    for (const auto& [zone, standard] : cases) {
        time_test::UseZone(zone);
        char offset[32] = "", name[64] = "", abbrev[32] = "";
        ASSERT_EQ(KIRA_GetTimeZone(offset, name, abbrev), 0);
        const time_t now = time(nullptr);
        struct tm local;
        localtime_r(&now, &local);
        EXPECT_STREQ(offset, standard);
        EXPECT_STREQ(name, zone);
        EXPECT_STREQ(abbrev, local.tm_zone);
        EXPECT_EQ(KIRA_GetTimeZone(nullptr, nullptr, nullptr), 0);
    }
    // In summer the winter offset is reported.
    time_test::UseZone("Europe/Berlin");
    struct tm summer = {};
    summer.tm_year = 124, summer.tm_mon = 6, summer.tm_mday = 1, summer.tm_hour = 12, summer.tm_isdst = -1;
    mktime(&summer);
    EXPECT_EQ(summer.tm_isdst, 1);
    EXPECT_EQ(get_gmt_offset(&summer), 3600);
    EXPECT_EQ(summer.tm_gmtoff, 7200) << "the caller's record is not changed";
    EXPECT_EQ(KIRA_GetLocalTimeFromUtcTime(1719835200), 1719835200 + 7200);
    EXPECT_EQ(KIRA_GetDSTTimeFromUtcTime(1705307400), 1705307400 + 3600);
    int64_t local = 0;
    EXPECT_EQ(KIRA_GetDSTTime(&local), 0);
    EXPECT_NEAR(static_cast<double>(local), static_cast<double>(KIRA_GetLocalTime(nullptr)), 2);

    (void)unlink("/etc/localtime");
    char name[64];
    EXPECT_EQ(KIRA_GetTimeZone(nullptr, name, nullptr), -1);
    EXPECT_EQ(kt::SyslogCount("get_timezone_name: readlink -1\n", LOG_INFO), 1);
}
