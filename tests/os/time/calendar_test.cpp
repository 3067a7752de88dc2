// Calendar, clocks and timers: the conversion against the C library for
// every day up to past the 5000 cap, the text form, the two-step way back,
// and the timer wrappers' checks.

#include <signal.h>
#include <stdint.h>
#include <syslog.h>

#include <tuple>
#include <utility>

#include "os/time/time_internal.h"
#include "tests/os/time/time_test_util.h"

namespace {

constexpr uint64_t kDaysToCap = 1107050;  // 1970-01-01 to 5001-01-01

KIRA_DATE_TIME_S GmTime(int64_t s) {
    KIRA_DATE_TIME_S r;
    memset(&r, 0xAB, sizeof(r));
    KIRA_GmTime(&s, &r);
    return r;
}

std::string Fields(const KIRA_DATE_TIME_S& r) {
    char buf[96];
    snprintf(buf, sizeof(buf), "%u-%u-%u %u:%u:%u wd %u", r.year, r.month, r.day, r.hour, r.minute, r.second,
             r.weekday);
    return buf;
}

}  // namespace

// Past the year 5000 the date reads 1970-01-01; weekday and time stay the instant's.
TEST(Calendar, EveryDayMatchesTheCLibraryUpToPastTheCap) {
    for (uint64_t d = 0; d < kDaysToCap + 800; d++) {
        const time_t t = static_cast<time_t>(d * 86400 + (d * 7919) % 86400);
        struct tm g;
        gmtime_r(&t, &g);
        const bool capped = d >= kDaysToCap;
        auto u = [](int v) { return static_cast<uint32_t>(v); };
        const uint32_t yday = capped ? 0 : u(g.tm_yday), wday = u(g.tm_wday), mday = capped ? 1 : u(g.tm_mday);
        const uint32_t year = capped ? 1970 : u(g.tm_year + 1900), month = capped ? 1 : u(g.tm_mon + 1);
        const KIRA_DATE_TIME_S want = {year, month, mday, u(g.tm_hour), u(g.tm_min), u(g.tm_sec), wday};
        const KIRA_DATE_TIME_S r = GmTime(t);
        ASSERT_EQ(memcmp(&r, &want, sizeof(r)), 0) << "day " << d << ": " << Fields(r) << " want " << Fields(want);
        // The steps on their own give the same.
        uint32_t sy, sd, sw, sm, smd;
        KIRA_GmTimeGetYearDays(d, &sy, &sd, &sw);
        KIRA_GmTimeGetMonthDayFromDaysOfYear(sy, sd, &sm, &smd);
        ASSERT_TRUE(sy == year && sd == yday && sw == wday && sm == month && smd == mday) << "day " << d;
    }
}

TEST(Calendar, EdgesOfTheSecondsRange) {
    const std::pair<int64_t, const char*> cases[] = {
        {0, "1970-1-1 0:0:0 wd 4"},
        {86399, "1970-1-1 23:59:59 wd 4"},
        {-1, "1970-1-1 0:0:0 wd 4"},
        {INT64_MIN, "1970-1-1 0:0:0 wd 4"},
        {95649119999, "5000-12-31 23:59:59 wd 3"},
        {95649120000, "1970-1-1 0:0:0 wd 4"},  // past the cap: the weekday is still the instant's
        {95649120000 + 86400 + 3661, "1970-1-1 1:1:1 wd 5"},
        {INT64_MAX, "1970-1-1 15:30:7 wd 0"},
    };
    for (const auto& [in, want] : cases) EXPECT_EQ(Fields(GmTime(in)), want) << in;

    // A null instant is now; a null record is left alone.
    KIRA_DATE_TIME_S now;
    const time_t before = time(nullptr);
    KIRA_GmTime(nullptr, &now);
    struct tm g;
    gmtime_r(&before, &g);
    EXPECT_EQ(now.year, static_cast<uint32_t>(g.tm_year + 1900));
    KIRA_GmTime(&cases[0].first, nullptr);
}

TEST(Calendar, StepsLeaveOutputsAloneWhenOneIsNull) {
    uint32_t a = 77, b = 77, c = 77;
    KIRA_GmTimeGetYearDays(100, &a, &b, nullptr);
    KIRA_GmTimeGetMonthDayFromDaysOfYear(2000, 59, &a, nullptr);
    KIRA_GmTimeGetHourMinSec(3661, &a, &b, nullptr);
    EXPECT_TRUE(a == 77 && b == 77 && c == 77);
    // A day past the year's end walks through all twelve months.
    KIRA_GmTimeGetMonthDayFromDaysOfYear(2001, 365, &a, &b);
    EXPECT_TRUE(a == 13 && b == 1) << a << " " << b;
    KIRA_GmTimeGetMonthDayFromDaysOfYear(2000, 365, &a, &b);
    EXPECT_TRUE(a == 12 && b == 31);
    KIRA_GmTimeGetHourMinSec(200000, &a, &b, &c);  // hours wrap at 24
    EXPECT_TRUE(a == 7 && b == 33 && c == 20);
}

TEST(Calendar, AscTimeTextIsCutToTheBuffer) {
    const std::tuple<int64_t, uint32_t, const char*> cases[] = {
        {0, 32, "Thu Jan   1 00:00:00 1970"},
        {0, 26, "Thu Jan   1 00:00:00 1970"},
        {0, 25, "Thu Jan   1 00:00:00 197"},
        {0, 1, ""},
        {951782400 + 45296, 32, "Tue Feb  29 12:34:56 2000"},
        {95649119999, 32, "Wed Dec  31 23:59:59 5000"},
        {-5, 32, "Thu Jan   1 00:00:00 1970"},
    };
    for (const auto& [in, size, want] : cases) {
        char buf[40];
        memset(buf, '#', sizeof(buf));
        KIRA_AscTime(&in, buf, size);
        EXPECT_STREQ(buf, want) << in << " size " << size;
        EXPECT_EQ(buf[size], '#') << "wrote past the size";
    }
    char buf[8] = "keep";
    KIRA_AscTime(nullptr, buf, sizeof(buf));  // not "now" here
    EXPECT_STREQ(buf, "keep");
    const int64_t zero = 0;
    KIRA_AscTime(&zero, nullptr, 8);
    KIRA_AscTime(&zero, buf, 0);
    EXPECT_STREQ(buf, "keep");
}

SANDBOX_TEST(Calendar, MkTimeReadsTheRecordAsLocalAndGivesLocalSeconds) {
    time_test::UseZone("Europe/Berlin");
    const std::pair<KIRA_DATE_TIME_S, int64_t> cases[] = {
        {{2024, 7, 1, 12, 0, 0, 0}, 1719835200},   // summer: the fields as UTC
        {{2024, 1, 15, 8, 30, 0, 6}, 1705307400},  // winter, the weekday ignored
        // 02:30 on the spring change does not exist: mktime moves it on.
        {{2024, 3, 31, 2, 30, 0, 0}, 1711852200 + 3600},
    };
    for (const auto& [in, want] : cases) EXPECT_EQ(KIRA_mkTime(&in), want) << Fields(in);
    EXPECT_EQ(KIRA_mkTime(nullptr), 0);
}

TEST(Clock, MonotonicReadersAgree) {
    const uint64_t ns = KIRA_GetNanoSecond();
    const uint64_t ms = KIRA_GetMilliSecond();
    const uint64_t ns2 = KIRA_GetNanoSecond();
    EXPECT_GT(ns, 0u);
    EXPECT_TRUE(ns / 1000000 <= ms && ms <= ns2 / 1000000);
    int64_t t = -1;
    EXPECT_EQ(KIRA_GetTime(&t), t);
    EXPECT_NEAR(static_cast<double>(t), static_cast<double>(time(nullptr)), 2);
    EXPECT_GE(KIRA_GetTime(nullptr), t);
}

SANDBOX_TEST(Timer, ChecksArgumentsThenPassesThrough) {
    struct sigevent ev = {};
    ev.sigev_notify = SIGEV_NONE;
    timer_t first = nullptr, id = nullptr;
    struct itimerspec value = {}, old = {};
    // The kernel's first timer of a process may have the id zero, which the
    // wrappers refuse: use a second one.
    ASSERT_EQ(KIRA_timer_create(CLOCK_MONOTONIC, &ev, &first), 0);
    ASSERT_EQ(KIRA_timer_create(CLOCK_MONOTONIC, &ev, &id), 0);
    ASSERT_NE(id, nullptr);
    kt::SyslogClear();
    const std::pair<int, const char*> refused[] = {
        {KIRA_timer_create(0, nullptr, &id), "Argument NULL in KIRA_timer_create, evp: (nil), timerid: 0x"},
        {KIRA_timer_create(9, &ev, nullptr), "Argument NULL in KIRA_timer_create, evp: 0x"},
        {KIRA_timer_create(4, &ev, &id), "Argument clockid: 4 is out of range in KIRA_timer_create!\n"},
        {KIRA_timer_create(-1, &ev, &id), "Argument clockid: -1 is out of range in KIRA_timer_create!\n"},
        {KIRA_timer_delete(nullptr), "Argument NULL in KIRA_timer_delete, timerid: (nil)!\n"},
        {KIRA_timer_settime(nullptr, 0, &value, nullptr), "Argument NULL in KIRA_timer_settime, timerid: (nil), "},
        {KIRA_timer_settime(id, 0, nullptr, &old), "new_value: (nil)!\n"},
        {KIRA_timer_gettime(nullptr, &value), "Argument NULL in KIRA_timer_gettime, timerid: (nil), curr_value: 0x"},
        {KIRA_timer_gettime(id, nullptr), "curr_value: (nil)!\n"},
        {KIRA_timer_getoverrun(nullptr), "Argument NULL in KIRA_timer_getoverrun, timerid: (nil)!\n"},
    };
    for (const auto& [got, message] : refused) {
        EXPECT_EQ(got, -22) << message;
        EXPECT_EQ(kt::SyslogCount(message, LOG_EMERG), 1) << message;
    }
    EXPECT_EQ(kt::SyslogLines().size(), sizeof(refused) / sizeof(refused[0]));

    value.it_value.tv_sec = 100;
    EXPECT_EQ(KIRA_timer_settime(id, 0, &value, nullptr), 0);
    EXPECT_EQ(KIRA_timer_gettime(id, &old), 0);
    EXPECT_GT(old.it_value.tv_sec, 90);
    EXPECT_EQ(KIRA_timer_getoverrun(id), 0);
    EXPECT_EQ(KIRA_timer_delete(id), 0);
    // The C library's own failure comes back unchanged.
    EXPECT_EQ(KIRA_timer_getoverrun(id), -1);
    EXPECT_EQ(KIRA_timer_delete(id), -1);
    if (first != nullptr) {
        EXPECT_EQ(KIRA_timer_delete(first), 0);
    }
}
