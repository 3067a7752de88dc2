// Calendar, clocks and timers: the constant-time conversion against the
// year-by-year walk for every day up to past the 5000 cap, the text form,
// the two-step way back, and the timer wrappers' checks.

#include <signal.h>
#include <stdint.h>
#include <syslog.h>

#include "os/time/time_internal.h"
#include "tests/os/time/time_test_util.h"

namespace {

constexpr uint64_t kDaysToCap = 1107050;  // 1970-01-01 to 5001-01-01

bool Leap(uint32_t y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }
uint32_t YearLength(uint32_t y) { return Leap(y) ? 366 : 365; }

// The walk as the layer defines it: year by year from 1970, given up past 5000.
void WalkYears(uint64_t days, uint32_t* year, uint32_t* dayOfYear) {
    for (uint32_t y = 1970; y <= 5000; y++) {
        if (days < YearLength(y)) {
            *year = y;
            *dayOfYear = static_cast<uint32_t>(days);
            return;
        }
        days -= YearLength(y);
    }
    *year = 1970;
    *dayOfYear = 0;
}

void WalkMonths(uint32_t year, uint32_t rest, uint32_t* month, uint32_t* day) {
    static const uint32_t kLength[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    uint32_t m = 0;
    for (; m < 12; m++) {
        const uint32_t len = kLength[m] + (m == 1 && Leap(year) ? 1 : 0);
        if (len > rest) break;
        rest -= len;
    }
    *month = m + 1;
    *day = rest + 1;
}

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

TEST(Calendar, EveryDayMatchesTheYearWalkUpToPastTheCap) {
    // The reference advances one day at a time exactly as the walk would
    // answer; every few thousand days it is checked against the walk itself.
    uint32_t year = 1970, rest = 0;
    for (uint64_t d = 0; d < kDaysToCap + 800; d++) {
        uint32_t refYear = year, refDay = rest;
        if (d >= kDaysToCap) refYear = 1970, refDay = 0;
        if (d % 4099 == 0 || d + 2 >= kDaysToCap) {
            uint32_t wy, wd;
            WalkYears(d, &wy, &wd);
            ASSERT_TRUE(wy == refYear && wd == refDay) << d;
        }
        uint32_t month, day;
        WalkMonths(refYear, refDay, &month, &day);
        const uint32_t sod = static_cast<uint32_t>((d * 7919) % 86400);
        const KIRA_DATE_TIME_S r = GmTime(static_cast<int64_t>(d * 86400 + sod));
        const uint32_t weekday = static_cast<uint32_t>(d > 2 ? (d - 3) % 7 : d + 4);
        ASSERT_TRUE(r.year == refYear && r.month == month && r.day == day && r.weekday == weekday &&
                    r.hour == sod / 3600 && r.minute == sod / 60 % 60 && r.second == sod % 60)
            << "day " << d << ": " << Fields(r);
        // The steps on their own give the same.
        uint32_t sy, sd, sw, sm, smd;
        KIRA_GmTimeGetYearDays(d, &sy, &sd, &sw);
        KIRA_GmTimeGetMonthDayFromDaysOfYear(sy, sd, &sm, &smd);
        ASSERT_TRUE(sy == refYear && sd == refDay && sw == weekday && sm == month && smd == day) << "day " << d;
        if (++rest == YearLength(year)) year++, rest = 0;
    }
}

TEST(Calendar, EdgesOfTheSecondsRange) {
    struct {
        int64_t in;
        const char* want;
    } cases[] = {
        {0, "1970-1-1 0:0:0 wd 4"},
        {86399, "1970-1-1 23:59:59 wd 4"},
        {259200, "1970-1-4 0:0:0 wd 0"},
        {951782400, "2000-2-29 0:0:0 wd 2"},
        {4107542400, "2100-3-1 0:0:0 wd 1"},  // 2100 has no 29 February
        {-1, "1970-1-1 0:0:0 wd 4"},
        {INT64_MIN, "1970-1-1 0:0:0 wd 4"},
        {95649119999, "5000-12-31 23:59:59 wd 3"},
        {95649120000, "1970-1-1 0:0:0 wd 4"},  // past the cap: the weekday is still the instant's
        {95649120000 + 86400 + 3661, "1970-1-1 1:1:1 wd 5"},
        {INT64_MAX, "1970-1-1 15:30:7 wd 0"},
    };
    for (const auto& c : cases) EXPECT_EQ(Fields(GmTime(c.in)), c.want) << c.in;

    // A null instant is now; a null record is left alone.
    KIRA_DATE_TIME_S now;
    const time_t before = time(nullptr);
    KIRA_GmTime(nullptr, &now);
    struct tm g;
    gmtime_r(&before, &g);
    EXPECT_EQ(now.year, static_cast<uint32_t>(g.tm_year + 1900));
    KIRA_GmTime(&cases[0].in, nullptr);
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
    struct {
        int64_t in;
        uint32_t size;
        const char* want;
    } cases[] = {
        {0, 32, "Thu Jan   1 00:00:00 1970"},
        {0, 26, "Thu Jan   1 00:00:00 1970"},
        {0, 25, "Thu Jan   1 00:00:00 197"},
        {0, 10, "Thu Jan  "},
        {0, 1, ""},
        {951782400 + 45296, 32, "Tue Feb  29 12:34:56 2000"},
        {95649119999, 32, "Wed Dec  31 23:59:59 5000"},
        {-5, 32, "Thu Jan   1 00:00:00 1970"},
    };
    for (const auto& c : cases) {
        char buf[40];
        memset(buf, '#', sizeof(buf));
        KIRA_AscTime(&c.in, buf, c.size);
        EXPECT_STREQ(buf, c.want) << c.in << " size " << c.size;
        EXPECT_EQ(buf[c.size], '#') << "wrote past the size";
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
    struct {
        KIRA_DATE_TIME_S in;
        int64_t want;
    } cases[] = {
        {{2024, 7, 1, 12, 0, 0, 0}, 1719835200},   // summer: the fields as UTC
        {{2024, 1, 15, 8, 30, 0, 6}, 1705307400},  // winter, the weekday ignored
        // 02:30 on the spring change does not exist: mktime moves it on.
        {{2024, 3, 31, 2, 30, 0, 0}, 1711852200 + 3600},
    };
    for (const auto& c : cases) EXPECT_EQ(KIRA_mkTime(&c.in), c.want) << Fields(c.in);
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
    struct {
        int got;
        const char* message;
    } refused[] = {
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
    for (const auto& r : refused) {
        EXPECT_EQ(r.got, -22) << r.message;
        EXPECT_EQ(kt::SyslogCount(r.message, LOG_EMERG), 1) << r.message;
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
