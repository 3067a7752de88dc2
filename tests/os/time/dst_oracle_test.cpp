// The periods and the kernel table of real zones, 1970 to 2037, against what
// the C library's own zone code says (localtime_r over every year). With
// this distribution's zone database the two agree on every zone-year here,
// two periods in a year (Casablanca), negative daylight saving and changed
// standard offsets included: a database update that parts them fails here
// until the difference is understood.

#include <algorithm>
#include <vector>

#include "tests/os/time/time_test_util.h"

namespace {

// clang-format off
const char* const kZones[] = {
    "Europe/Berlin", "America/New_York", "America/St_Johns", "America/Santiago", "America/Sao_Paulo",
    "Australia/Sydney", "Australia/Lord_Howe", "Asia/Kolkata", "Asia/Kathmandu", "Asia/Tehran",
    "Africa/Casablanca", "Pacific/Chatham", "UTC",
};
// clang-format on

struct State {
    int isdst;
    long gmtoff;
    bool operator!=(const State& o) const { return isdst != o.isdst || gmtoff != o.gmtoff; }
};

State At(time_t t) {
    struct tm tm;
    localtime_r(&t, &tm);
    return {tm.tm_isdst, tm.tm_gmtoff};
}

// The first second after lo whose state differs from lo's (one change in
// between).
time_t Bisect(time_t lo, time_t hi) {
    const State s = At(lo);
    while (hi - lo > 1) {
        const time_t mid = lo + (hi - lo) / 2;
        (At(mid) != s ? hi : lo) = mid;
    }
    return hi;
}

// Every change of state in (from, to], looked for in steps of three hours.
std::vector<time_t> Changes(time_t from, time_t to) {
    std::vector<time_t> out;
    State s = At(from);
    for (time_t t = from; t < to;) {
        const time_t next = std::min<time_t>(t + 3 * 3600, to);
        const State n = At(next);
        if (n != s) out.push_back(Bisect(t, next));
        s = n;
        t = next;
    }
    return out;
}

std::string WallText(time_t instant, long gmtoff) {
    const time_t wall = instant + gmtoff;
    struct tm g;
    gmtime_r(&wall, &g);
    char buf[32];
    strftime(buf, sizeof(buf), "%m-%d %H:%M:%S", &g);
    return buf;
}

time_t YearBound(int year, bool end) {
    struct tm t = {};
    t.tm_year = year - 1900, t.tm_mon = end ? 11 : 0, t.tm_mday = end ? 31 : 1;
    t.tm_hour = end ? 23 : 0, t.tm_min = t.tm_sec = end ? 59 : 0;
    t.tm_isdst = -1;
    return mktime(&t);
}

std::string Describe(const KIRA_DST_PERIOD_S& p) {
    return std::to_string(p.begin) + ".." + std::to_string(p.end) + " " + p.beginText + " / " + p.endText + " " +
           std::to_string(p.gmtoff) + " " + std::to_string(p.offsetMinutes) + "min";
}

// The daylight-saving stretches of a year as the C library sees them, in the
// layer's form.
std::vector<std::string> OraclePeriods(int year, const std::vector<time_t>& changes) {
    const time_t yb = YearBound(year, false), ye = YearBound(year, true);
    std::vector<std::string> out;
    auto add = [&](time_t begin, time_t end, bool carried, bool runsOn) {
        KIRA_DST_PERIOD_S p = {};
        p.begin = begin, p.end = end;
        const long before = At(begin - 1).gmtoff;
        snprintf(p.beginText, sizeof(p.beginText), "%s", carried ? "01-01 00:00:00" : WallText(begin, before).c_str());
        snprintf(p.endText, sizeof(p.endText), "%s",
                 runsOn ? "12-31 23:59:59" : WallText(end, At(end - 1).gmtoff).c_str());
        // A stretch carried into the year takes its shift from the change
        // that began it, in an earlier year.
        time_t start = begin;
        if (carried) {
            for (auto it = std::upper_bound(changes.begin(), changes.end(), yb); it != changes.begin(); --it) {
                start = *(it - 1);
                if (At(start).isdst > 0 && At(start - 1).isdst <= 0) break;
            }
        }
        p.gmtoff = static_cast<int32_t>(!carried ? At(begin).gmtoff : runsOn ? At(start).gmtoff : At(end - 1).gmtoff);
        p.offsetMinutes = static_cast<int32_t>((At(start).gmtoff - At(start - 1).gmtoff) / 60);
        out.push_back(Describe(p));
    };
    bool in = At(yb).isdst > 0;
    time_t begin = yb;
    bool carried = in;
    for (time_t t : changes) {
        if (t <= yb || t > ye) continue;
        const bool dst = At(t).isdst > 0;
        if (dst && !in) begin = t, carried = false, in = true;
        if (!dst && in) add(begin, t, carried, false), in = false;
    }
    if (in) add(begin, ye, carried, true);
    return out;
}

}  // namespace

SANDBOX_TEST(DstOracle, PeriodsAndKernelTableOfRealZones) {
    time_test::PrivateKernelLog();
    for (const char* zone : kZones) {
        time_test::UseZone(zone);
        const std::vector<time_t> changes = Changes(-86400 * 400, 2145916799 + 86400L * 400);
        for (int year = KIRA_DST_FIRST_YEAR; year <= KIRA_DST_LAST_YEAR; year++) {
            KIRA_DST_CONFIG_S config = {};
            ASSERT_EQ(KIRA_show_dst_config(year, zone, &config), 0);
            std::vector<std::string> got;
            for (uint32_t i = 0; i < config.count; i++) got.push_back(Describe(config.periods[i]));
            EXPECT_EQ(got, OraclePeriods(year, changes)) << zone << " " << year;
        }

        // The kernel's table: the offset in force at 0, then every change of
        // offset up to 2037 and the first one after.
        time_test::KernelTable kernel;
        ASSERT_EQ(sync_timezone_to_kernel(), 0) << zone;
        std::vector<std::pair<int64_t, int32_t>> want{{0, static_cast<int32_t>(At(0).gmtoff)}};
        for (time_t t : changes) {
            if (t > 0 && At(t).gmtoff != At(t - 1).gmtoff) {
                want.push_back({t, static_cast<int32_t>(At(t).gmtoff)});
                if (t > 2145916799) break;
            }
        }
        std::vector<std::pair<int64_t, int32_t>> got;
        for (uint32_t i = 0; i < kernel.table.count; i++) {
            got.push_back({kernel.table.entries[i].time, kernel.table.entries[i].gmtoff});
            EXPECT_EQ(kernel.table.entries[i].reserved, 0);
        }
        // A zone that never changed has no line in its cache: no entry at all.
        if (got.empty() && want.size() == 1) continue;
        ASSERT_FALSE(got.empty()) << zone;
        EXPECT_LE(got[0].first, 0) << zone;
        got[0].first = 0;  // only the newest change at or before 0 is kept
        EXPECT_EQ(got, want) << zone;
        EXPECT_EQ(kernel.table.reserved, 0u);
    }
}
