// The time layer: calendar, clocks, timers, daylight-saving periods of real and planted zones, setting the zone.

#include <syslog.h>

#include <sstream>

#include "os/time/kira_time.h"
#include "os/time/time_internal.h"
#include "os/time/zone_internal.h"
#include "tests/support/sandbox.h"

using namespace kira_time;

namespace {

constexpr char kPlanted[] = "Etc/GMT-3";  // a real zone whose cache the tests plant
constexpr char kCache[] = "/var/run/timezone_Etc_GMT-3";
struct Offset {
    int gmtoff, isdst;
    const char* abbrev;
} constexpr kStd{3600, 0, "CET"}, kDst{7200, 1, "CEST"};
KIRA_TZ_TRANSITIONS_S g_table;  // as the kernel module last received it

void FakeKernel(int answer) {
    kt::NoxSetHandler("/proc/nox/timezone", [answer](unsigned long request, void* arg) {
        if (request == KIRA_TZ_IOCTL_TRANSITIONS) {
            memcpy(&g_table, arg, sizeof(g_table));
        }
        return answer;
    });
}

// Points /etc/localtime at the zone (TZ unset); commands log into a private /dev/kmsg.
void UseZone(const std::string& zone) {
    kt::BindFileOver("/dev/kmsg", "");
    unsetenv("TZ");
    (void)unlink("/etc/localtime");
    ASSERT_EQ(symlink(("/usr/share/zoneinfo/" + zone).c_str(), "/etc/localtime"), 0) << zone;
    tzset();
    FakeKernel(0);
}

template <typename... T>
std::string Join(const T&... values) {
    std::ostringstream out;
    ((out << values << ' '), ...);
    return out.str();
}

std::string Utc(time_t t, const char* format) {
    char buf[40];
    return std::string(buf, strftime(buf, sizeof(buf), format, gmtime(&t)));
}

// The two lines of "zdump -v" for a change at a UTC date (its first second) from one offset to another.
std::string ZdumpPair(int year, int mon, int day, int hour, Offset before, Offset after) {
    struct tm date = {0, 0, hour, day, mon - 1, year - 1900, 0, 0, 0, 0, nullptr};
    std::string out;
    for (const Offset* o : {&before, &after}) {
        const time_t u = timegm(&date) - (o == &before);
        out += Join(kPlanted, "", Utc(u, "%a %b %e %T %Y UT ="), Utc(u + o->gmtoff, "%a %b %e %T %Y"), o->abbrev,
                    "isdst=" + std::to_string(o->isdst)) +
               "gmtoff=" + std::to_string(o->gmtoff) + "\n";
    }
    return out;
}

uint32_t Periods(int year, const char* zone = kPlanted) {
    KIRA_DST_CONFIG_S config = {};
    EXPECT_EQ(KIRA_show_dst_config(year, zone, &config), 0) << zone;
    return config.count;
}

tm At(time_t t) { return *localtime(&t); }

// Wall clock of an instant at an offset, as the periods give it.
std::string Wall(time_t t, long gmtoff) { return Utc(t + gmtoff, "%m-%d %T"); }

template <typename... T>
std::string Seen(const T&... needles) {
    return Join(kt::SyslogCount(needles, LOG_INFO)...);
}

}  // namespace

// Past 5000-12-31 the date is 1970-01-01, the time of day and weekday the instant's. The clocks agree.
TEST(Calendar, AgreesWithTheCLibraryUpToTheCap) {
    const uint64_t ns = KIRA_GetNanoSecond(), ms = KIRA_GetMilliSecond(), ns2 = KIRA_GetNanoSecond();
    int64_t now = -1;
    EXPECT_TRUE(ns > 0 && ns / 1000000 <= ms && ms <= ns2 / 1000000 && KIRA_GetTime(&now) == now &&
                now >= time(nullptr) - 1);
    for (int64_t d = 0; d < 1107050 + 800; d += 3) {  // 1107050 days to 5001-01-01
        const int64_t s = d * 86400 + (d * 7919) % 86400;
        const tm g = *gmtime(&s);
        const bool capped = d >= 1107050;
        KIRA_DATE_TIME_S r;
        KIRA_GmTime(&s, &r);
        uint32_t y, yd, wd, m, md;
        KIRA_GmTimeGetYearDays(d, &y, &yd, &wd);
        KIRA_GmTimeGetMonthDayFromDaysOfYear(g.tm_year + 1900, g.tm_yday, &m, &md);
        const uint32_t year = capped ? 1970 : g.tm_year + 1900, mon = g.tm_mon + 1, mday = g.tm_mday;
        ASSERT_TRUE(r.year == year && r.month == (capped ? 1 : mon) && r.day == (capped ? 1 : mday) &&
                    r.hour == g.tm_hour + 0u && r.minute == g.tm_min + 0u && r.second == g.tm_sec + 0u &&
                    r.weekday == g.tm_wday + 0u && y == year && yd == (capped ? 0 : g.tm_yday + 0u) &&
                    wd == g.tm_wday + 0u && m == mon && md == mday)
            << "day " << d;
    }
}

// Text cut to the buffer; null arguments; month 13; the record read back as local time, in local seconds.
TEST(Calendar, TextEdgesStepsAndTheWayBack) {
    for (const auto& [in, size, want] : {std::tuple<int64_t, uint32_t, std::string>{0, 26, "Thu Jan   1 00:00:00 1970"},
                                         {951782400 + 45296, 25, "Tue Feb  29 12:34:56 200"},
                                         {INT64_MIN, 1, ""},
                                         {95649119999, 32, "Wed Dec  31 23:59:59 5000"},
                                         {95649120000 + 3661, 32, "Thu Jan   1 01:01:01 1970"},
                                         {INT64_MAX, 32, "Sun Jan   1 15:30:07 1970"}}) {
        std::string buf(40, '#');
        KIRA_AscTime(&in, buf.data(), size);
        EXPECT_EQ(buf.c_str() + buf.substr(size, 1), want + "#") << in;
    }
    char buf[8] = "keep";
    const int64_t zero = 0;
    KIRA_AscTime(nullptr, buf, sizeof(buf));
    KIRA_AscTime(&zero, nullptr, 8);
    KIRA_AscTime(&zero, buf, 0);
    uint32_t a = 77, b = 77, c = 0;
    KIRA_GmTimeGetMonthDayFromDaysOfYear(2000, 59, &a, nullptr);
    KIRA_GmTimeGetMonthDayFromDaysOfYear(2001, 365, &b, &c);
    EXPECT_EQ(Join(buf, a, b, c), "keep 77 13 1 ");
    setenv("TZ", "Europe/Berlin", 1);
    const KIRA_DATE_TIME_S in[] = {{2024, 7, 1, 12, 0, 0, 0}, {2024, 1, 15, 8, 30, 0, 6}, {2024, 3, 31, 2, 30, 0, 0}};
    EXPECT_EQ(Join(KIRA_mkTime(&in[0]), KIRA_mkTime(&in[1]), KIRA_mkTime(&in[2]), KIRA_mkTime(nullptr)),
              "1719835200 1705307400 1711855800 0 ");
}

// A refused call logs at emergency priority and never reaches the C library, which answers an accepted one.
SANDBOX_TEST(Timer, ChecksArgumentsThenPassesThrough) {
    struct sigevent ev = {};
    timer_t id = reinterpret_cast<timer_t>(12345);
    for (const auto& [got, message] :
         {std::pair<int, const char*>{KIRA_timer_create(0, nullptr, &id),
                                      "Argument NULL in KIRA_timer_create, evp: (nil), timerid: 0x"},
          {KIRA_timer_create(4, &ev, &id), "Argument clockid: 4 is out of range in KIRA_timer_create!\n"},
          {KIRA_timer_create(-1, &ev, &id), "Argument clockid: -1 is out of range in KIRA_timer_create!\n"},
          {KIRA_timer_delete(nullptr), "Argument NULL in KIRA_timer_delete, timerid: (nil)!\n"},
          {KIRA_timer_settime(id, 0, nullptr, nullptr), "new_value: (nil)!\n"},
          {KIRA_timer_gettime(id, nullptr), "curr_value: (nil)!\n"},
          {KIRA_timer_getoverrun(nullptr), "Argument NULL in KIRA_timer_getoverrun, timerid: (nil)!\n"}}) {
        EXPECT_EQ(got * 10 + kt::SyslogCount(message, LOG_EMERG), -219) << message;  // -22, said once
    }
    EXPECT_EQ(KIRA_timer_delete(id) * 100 + static_cast<int>(kt::SyslogLines().size()), -93);
}

// Periods and kernel table of real zones, 1970 to 2037, against the C library every six hours: bounds are
// changes, texts the wall clock at them, a shift carried into a year the one that began it.
SANDBOX_TEST(DstOracle, RealZonesAgreeWithTheCLibrary) {
    const std::map<std::string, std::string> literal = {
        {"America/Santiago 2015", "1420081200 1451617199 01-01 00:00:00 12-31 23:59:59 -10800 60 "},
        {"Europe/Berlin", "2153350800"}};
    for (const char* zone : {"Europe/Berlin", "America/New_York", "America/St_Johns", "America/Santiago",
                             "America/Sao_Paulo", "Australia/Sydney", "Australia/Lord_Howe", "Asia/Kolkata",
                             "Asia/Kathmandu", "Asia/Tehran", "Africa/Casablanca", "Pacific/Chatham", "UTC"}) {
        UseZone(zone);
        KIRA_DST_PERIOD_S last = {};  // of the year before
        for (int year = KIRA_DST_FIRST_YEAR; year <= KIRA_DST_LAST_YEAR; year++) {
            const std::string key = zone + (" " + std::to_string(year));
            KIRA_DST_CONFIG_S config = {};
            ASSERT_EQ(KIRA_show_dst_config(year, zone, &config), 0) << key;
            for (uint32_t i = 0; i < config.count; i++) {
                const KIRA_DST_PERIOD_S& p = config.periods[i];
                const bool carried = At(p.begin - 1).tm_isdst > 0, runsOn = At(p.end).tm_isdst > 0;
                const std::string got = Join(p.begin, p.end, p.beginText, p.endText, p.gmtoff, p.offsetMinutes);
                EXPECT_TRUE(
                    (i > 0 || !literal.count(key) || literal.at(key) == got) && At(p.begin).tm_isdst > 0 &&
                    At(p.end - 1).tm_isdst > 0 && p.beginText == Wall(p.begin, At(p.begin - !carried).tm_gmtoff) &&
                    p.endText == Wall(p.end, At(p.end - !runsOn).tm_gmtoff) &&
                    p.gmtoff == (carried ? runsOn ? last.gmtoff : At(p.end - 1).tm_gmtoff : At(p.begin).tm_gmtoff) &&
                    (p.offsetMinutes ==
                         (carried ? last.offsetMinutes : (At(p.begin).tm_gmtoff - At(p.begin - 1).tm_gmtoff) / 60) ||
                     (carried && year == 1970)))
                    << key << ": " << got;
                last = p;
            }
            struct tm jan1 = {0, 0, 0, 1, 0, year - 1900, 0, 0, -1, 0, nullptr};
            for (time_t t = mktime(&jan1); At(t).tm_year == year - 1900; t += 6 * 3600) {
                bool in = false;
                for (uint32_t i = 0; i < config.count; i++) {
                    in |= config.periods[i].begin <= t && t < config.periods[i].end;
                }
                ASSERT_EQ(in, At(t).tm_isdst > 0) << key << " " << Wall(t, 0);
            }
        }
        // In force at 0, every change to 2037 and the first after; a zone that never changed has no entry.
        ASSERT_EQ(sync_timezone_to_kernel(), 0);
        EXPECT_TRUE(g_table.count > 0 ? g_table.entries[0].time <= 0 : std::string(zone) == "UTC");
        EXPECT_TRUE(!literal.count(zone) ||
                    std::to_string(g_table.entries[g_table.count - 1].time) == literal.at(zone));
        for (uint32_t t = 0, i = 0; g_table.count > 0 && t <= 2145916799u; t += 6 * 3600) {
            while (i + 1 < g_table.count && g_table.entries[i + 1].time <= t) {
                i++;
            }
            ASSERT_EQ(g_table.entries[i].gmtoff, At(t).tm_gmtoff) << zone << " " << t;
        }
    }
}

// Names outside the zone alphabet (a shell sees them) are refused; a failed dump's output removed; a cache,
// planted or made, never refreshed and kept beside the directory (whose name it extends).
SANDBOX_TEST(DstConfig, RefusedNamesCacheRulesAndDamagedCaches) {
    UseZone("UTC");
    for (const char* name : {"Bad;x", "Za_z-0+9.A"}) {
        kt::WriteFile(std::string("/usr/share/zoneinfo/") + name, "");
    }
    {
        kt::FakeCommand zdump("zdump", 1, "half");
        KIRA_DST_CONFIG_S config = {};
        EXPECT_EQ(KIRA_show_dst_config(1969, "UTC", &config) + KIRA_show_dst_config(2038, "UTC", &config) +
                      KIRA_show_dst_config(2024, nullptr, &config) + KIRA_show_dst_config(2024, "UTC", nullptr),
                  -4);
        for (const char* zone : {"Nowhere/Land", "", "/etc/passwd", "../../etc/passwd", "Europe/../Europe/Berlin",
                                 "Europe//Berlin", "Europe/Berlin;touch /tmp/x", "Europe/Berlin x", "$(touch /tmp/x)",
                                 "Europe/Berlin`id`", "Europe/Berlin'", "Europe/Berlin|id", "Europe/", "Bad;x"}) {
            EXPECT_EQ(KIRA_show_dst_config(2024, zone, &config), -1) << zone;
            EXPECT_EQ(Seen(std::string("file /usr/share/zoneinfo/") + zone + " not exist\n"), "1 ") << zone;
        }
        EXPECT_EQ(Periods(2024, "Za_z-0+9.A") + Periods(2024), 0u);
        EXPECT_EQ(zdump.Calls(), (std::vector<std::vector<std::string>>{{"-v", "Za_z-0+9.A"}, {"-v", kPlanted}}));
    }
    EXPECT_EQ(Seen("this year 1969 not in [1970, 2037]\n", "this year 2038 not in [1970, 2037]\n",
                   "KIRA_show_dst_config: The pointor is NULL\n", "zdump fail 256.\n") +
                  std::to_string(access("/tmp/x", F_OK) + access("/var/run/timezone_Za_z-0+9.A", F_OK)),
              "1 1 2 2 -2");
    const std::string nulls = std::string(kPlanted) + "  -9223372036854775808 = NULL\n" + kPlanted + "  -1 = NULL\n",
                      good = ZdumpPair(2024, 3, 31, 1, kStd, kDst), tail = ZdumpPair(2024, 10, 27, 1, kDst, kStd);
    kt::FakeCommand zdump("zdump");
    kt::WriteFile(kCache, good + tail);
    EXPECT_EQ(Periods(2024) * 10 + Periods(2025) + zdump.Calls().size(), 10u);
    // Damaged caches never overrun; CR LF lines padded to 126 read the same (a kept CR would split them).
    UseZone(kPlanted);
    std::string many = nulls, crlf, table = nulls;
    for (int i = 0; i < 24; i++) {
        many += ZdumpPair(2024, 1 + i / 2, 2 + 7 * (i % 2), 0, i % 2 ? kDst : kStd, i % 2 ? kStd : kDst);
    }
    for (size_t pos = 0, nl; (nl = (good + tail).find('\n', pos)) != std::string::npos; pos = nl + 1) {
        std::string line = (good + tail).substr(pos, nl - pos);
        crlf += line.insert(line.find(' '), 126 - line.size(), ' ') + "\r\n";
    }
    for (const auto& [text, periods, message] :
         {std::tuple<std::string, uint32_t, std::string>{
              many, 8, "read_dst_file: more than 8 dst periods in 2024, rest ignored"},
          {"\n\n" + good + tail, 0, "get_dst_begin: read_dst_line fail, (\n)\n"},
          {good + "\n\n", 1, "get_dst_end: read_dst_line fail, (\n)\n"},
          // A partial line is taken as read: its year stays 2024 + 1900, which ends the search.
          {good.substr(0, 45) + "\n" + good.substr(0, 45) + "\n" + good + tail, 0,
           "read_dst_line: sscanf_s fail, 10, "},
          {crlf, 1, ""},
          {"", 0, ""}}) {
        kt::WriteFile(kCache, text);
        kt::SyslogClear();
        const uint32_t got = Periods(2024);  // and the fault said, when there is one
        EXPECT_EQ(got + (message.empty() || kt::SyslogCount(message, LOG_INFO) ? 0 : 100), periods) << text;
    }
    // The table: the first line at or after low opens it; garbage stops the reading.
    for (int i = 0; i < 700; i++) {
        table += ZdumpPair(1970, 1, 12 + i, 13, {60 * (i % 2), 0, "A"}, {60 - 60 * (i % 2), 0, "B"});
    }
    for (const auto& [text, want] :
         {std::pair<std::string, std::string>{table, Join(0, 544, 997199, 997200 + 542 * 86400)},
          {crlf, Join(0, 3, 1711846799, 1711846800)},
          {good + "\n" + tail, Join(-1, 3, 1711846799, 1711846800)}}) {
        kt::WriteFile(kCache, text);
        const int ret = sync_timezone_to_kernel();
        EXPECT_EQ(Join(ret, g_table.count, g_table.entries[0].time, g_table.entries[text == table ? 543 : 1].time),
                  want);
    }
    EXPECT_EQ(Seen("read_timezone_file: more than 544 transitions, rest ignored",
                   "read_timezone_file: read_dst_line fail, (\n)\n", "ioctl fail"),
              "1 1 0 ");
}

SANDBOX_TEST(DstQuery, ShapesOfThisYear) {
    UseZone("UTC");
    const int y = get_this_year();
    const std::string north = ZdumpPair(y, 3, 31, 1, kStd, kDst) + ZdumpPair(y, 10, 27, 1, kDst, kStd),
                      southEnd = ZdumpPair(y + 1, 4, 6, 16, kDst, kStd);
    // Return, begin and end (14 bytes, what follows untouched), offset, flag (7: untouched), daylight saving.
    for (const auto& [cache, want] :
         {std::pair<std::string, std::string>{ZdumpPair(y, 5, 1, 0, kStd, {10800, 0, "X"}),
                                              "0 00-00 00:00:00#00-00 00:00:00# 0 7 0 "},
          {north, "0 03-31 02:00:00#10-27 03:00:00# 60 0 1 "},
          {ZdumpPair(y, 10, 5, 16, kStd, kDst) + southEnd, "0 10-05 17:00:00#04-06 18:00:00# 60 7 1 "},
          {north + ZdumpPair(y, 11, 2, 0, kStd, kDst) + ZdumpPair(y, 11, 9, 0, kDst, kStd),
           "-1 ############################## 99 7 1 "}}) {
        kt::WriteFile(kCache, cache);
        std::string texts(30, '#');
        uint32_t offset = 99;
        int32_t flag = 7, hasDst = 7;
        const int ret = KIRA_QueryDstConfInfoForRegion(kPlanted, texts.data(), texts.data() + 15, &offset, &flag);
        EXPECT_EQ(KIRA_QueryDstForRegion(kPlanted, &hasDst), 0);
        EXPECT_EQ(Join(ret, texts, offset, flag, hasDst), want);
    }
    (void)unlink("/etc/localtime");
    EXPECT_EQ(KIRA_QueryDstForRegion(kPlanted, nullptr) + KIRA_QueryDstConfInfo(nullptr, nullptr, nullptr, nullptr),
              -2);
    EXPECT_EQ(Seen("KIRA_QueryDstConfInfoForRegion: more dst time in one year, 2\n",
                   "KIRA_QueryDstForRegion: The pointor is NULL\n"),
              "1 1 ");
}

// Link, clock file (quotes taken off), backup, kernel told; a failing step keeps the link as far as it got.
SANDBOX_TEST(SetZoneAndTime, LinksEditsBacksUpRunsHwclockAndTellsTheKernel) {
    const char kClock[] = "/etc/sysconfig/clock";
    UseZone("Asia/Tokyo");
    const char kBackup[] = "cp " KIRA_SOURCE_DIR "/tools/scripts/os_conf_backup.sh /ZUK/script/";
    ASSERT_EQ(system((std::string("mkdir -p /etc/sysconfig /ZUK/script && ") + kBackup).c_str()), 0);
    kt::WriteFile(kClock, "ZONE=x\nDEFAULT_TIMEZONE=\"Asia/Tokyo\"\nTIMEZONE=\"JST\"\nUTC=true\n");
    Periods(2024, "Europe/Berlin");  // with the cache made first no zdump truncates /dev/kmsg after the backup
    ASSERT_EQ(KIRA_SetTimeZone("Europe/Berlin"), 0);
    tzset();
    EXPECT_EQ(kt::ReadFile(kClock), "ZONE=x\nDEFAULT_TIMEZONE=Europe/Berlin\nTIMEZONE=" +
                                        std::string(At(time(nullptr)).tm_zone) + "\nUTC=true\n");
    EXPECT_EQ(kt::ReadFile("/dev/kmsg") + std::to_string(access("/var/nox/time_tmp", F_OK)),
              "<6>os_conf_backup: saved /etc/sysconfig/clock\n-1");
    EXPECT_TRUE(kt::NoxOpenCount("/proc/nox/timezone") == 1 && g_table.count > 100u);
    FakeKernel(5);
    EXPECT_EQ(KIRA_SetTimeZone("Asia/Kathmandu"), 5);
    for (const auto& [zone, setup, answer, link, message] :
         {std::tuple<const char*, const char*, int, std::string, std::string>{
              "Europe/Berlin", "mv /etc/sysconfig/clock /tmp/c", 0, "Asia/Kathmandu",
              "file /etc/sysconfig/clock not exist\n"},
          {"Europe/Berlin", "mv /tmp/c /etc/sysconfig/clock && rm /ZUK/script/os_conf_backup.sh", 0, "Europe/Berlin",
           "KIRA_SetTimeZone: KIRA_system fail, 32512, /usr/share/zoneinfo/Europe/Berlin\n"},
          {"UTC", kBackup, 1000, "UTC", "sync_timezone_to_kernel: KIRA_open fail, -1\n"},
          {"America/St_Johns", "", -3, "America/St_Johns", "sync_timezone_to_kernel: ioctl fail, -3\n"}}) {
        ASSERT_EQ(system(setup), 0) << setup;
        answer == 1000 ? kt::NoxRemove("/proc/nox/timezone") : FakeKernel(answer);  // 1000: no device
        kt::SyslogClear();
        EXPECT_EQ(KIRA_SetTimeZone(zone), -1) << message;
        char target[256] = {};
        EXPECT_EQ(std::string(target, std::max<ssize_t>(0, readlink("/etc/localtime", target, 255))) + Seen(message),
                  "/usr/share/zoneinfo/" + link + "1 ");
    }
    char offset[32] = "", name[64] = "", abbrev[32] = "";
    tzset();
    EXPECT_EQ(KIRA_GetTimeZone(offset, name, abbrev) + KIRA_GetTimeZone(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(Join(offset, name, abbrev), Join("-03:30", "America/St_Johns", At(time(nullptr)).tm_zone));
    setenv("TZ", "Europe/Berlin", 1);
    struct tm summer = {0, 0, 12, 1, 6, 124, 0, 0, -1, 0, nullptr};
    mktime(&summer);
    EXPECT_EQ(Join(get_gmt_offset(&summer), KIRA_GetLocalTimeFromUtcTime(1719835200) - 1719835200), "3600 7200 ");
    // 1 <= time < 2069: the hardware clock set (two year digits), the system clock read back, the kernel told.
    FakeKernel(0);
    {
        kt::FakeCommand hwclock("hwclock");
        std::string got;
        for (int64_t t : {0L, -1L, 3124224000L, 3124223999L, 1L, 951782400L + 45296}) {
            got += std::to_string(KIRA_SetTime(&t));
        }
        for (const auto& call : hwclock.Calls()) {
            got += " " + Join(call[0], call[1], call.size() > 2 ? call[2] : "");
        }
        EXPECT_EQ(got,
                  "-1-1-1000 --set --utc --date=12/31/68 23:59:59 -0  --utc --hctosys   --set --utc --date=01/01/70 "
                  "00:00:01 -0  --utc --hctosys   --set --utc --date=02/29/00 12:34:56 -0  --utc --hctosys  ");
    }
    kt::FakeCommand hwclock("hwclock", 0, "", "--hctosys");
    const int64_t t = 1700000000;
    EXPECT_EQ(KIRA_SetTime(&t) + KIRA_SetTime(nullptr), -2);
    EXPECT_EQ(Seen("Input time param is error.\n", "Sync time from RTC to system failed, return value is 256.\n") +
                  std::to_string(kt::NoxOpenCount("/proc/nox/timezone")),
              "4 1 6");  // the device opened by every call that got as far
}
