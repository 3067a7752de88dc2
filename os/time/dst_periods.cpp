// Daylight-saving periods of a zone in one year, found in its zdump cache.
//
// The cache lists every change as a pair of lines (last second before it,
// first second of it). get_dst_begin walks the pairs up to the asked year,
// carrying whether daylight time was in force when the year began;
// get_dst_end goes on from there to the end of the period.

#include <string.h>
#include <syslog.h>

#include "os/time/zone_internal.h"
#include "safec/safec.h"

using namespace kira_time;

namespace kira_time {

namespace {

constexpr char kYearBeginText[] = "01-01 00:00:00";
constexpr char kYearEndText[] = "12-31 23:59:59";

struct Pair {
    KIRA_DST_LINE_S a;
    KIRA_DST_LINE_S b;
};

enum class PairRead { kEnd, kFailed, kPair };

// The next pair that is not "= NULL"; parses both lines.
PairRead NextPair(kira::LineReader* reader, const char* caller, Pair* pair) {
    char a[KIRA_DST_LINE_SIZE];
    char b[KIRA_DST_LINE_SIZE];
    for (;;) {
        if (!reader->ReadLine(a, sizeof(a)) || !reader->ReadLine(b, sizeof(b))) {
            return PairRead::kEnd;
        }
        if (strstr(a, "= NULL") != nullptr) {
            continue;
        }
        if (read_dst_line(a, &pair->a) < 0) {
            syslog(LOG_INFO, "%s: read_dst_line fail, (%s)\n", caller, a);
            return PairRead::kFailed;
        }
        (void)read_dst_line(b, &pair->b);
        return PairRead::kPair;
    }
}

bool StartsDaylight(const Pair& p) { return p.a.isdst == 0 && p.b.isdst != 0; }
bool EndsDaylight(const Pair& p) { return p.a.isdst != 0 && p.b.isdst == 0; }
int YearOf(const Pair& p) { return p.a.utc.tm_year + 1900; }

void FormatWallTime(const struct tm& t, char* text, size_t size) {
    (void)snprintf_s(text, size, size - 1, "%02d-%02d %02d:%02d:%02d", t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min,
                     t.tm_sec);
}

void SetText(char* text, size_t size, const char* value) { (void)strcpy_s(text, size, value); }

}  // namespace

time_t get_this_year_begin(int year) {
    struct tm t = {};
    t.tm_year = year - 1900;
    t.tm_mday = 1;
    t.tm_isdst = -1;
    return mktime(&t);
}

time_t get_this_year_end(int year) {
    struct tm t = {};
    t.tm_year = year - 1900;
    t.tm_mon = 11;
    t.tm_mday = 31;
    t.tm_hour = 23;
    t.tm_min = 59;
    t.tm_sec = 59;
    t.tm_isdst = -1;
    return mktime(&t);
}

// 0: the period begins this year and its end is still to be found; 1: the
// period is complete; negative: no (further) period.
int get_dst_begin(kira::LineReader* reader, int year, KIRA_DST_PERIOD_S* period) {
    bool carried = false;
    Pair saved = {};
    Pair p;
    for (;;) {
        const PairRead got = NextPair(reader, "get_dst_begin", &p);
        if (got != PairRead::kPair) {
            return -1;
        }
        const int y = YearOf(p);
        if (y < year) {
            if (StartsDaylight(p)) {
                saved = p;
                carried = true;
            } else if (EndsDaylight(p)) {
                carried = false;
            }
            continue;
        }
        if (y > year) {
            if (!carried) {
                return -1;
            }
            // Daylight time all year long.
            SetText(period->beginText, sizeof(period->beginText), kYearBeginText);
            SetText(period->endText, sizeof(period->endText), kYearEndText);
            period->offsetMinutes = (saved.b.gmtoff - saved.a.gmtoff) / 60;
            period->gmtoff = saved.b.gmtoff;
            period->begin = get_this_year_begin(year);
            period->end = get_this_year_end(year);
            return 1;
        }
        if (!carried && StartsDaylight(p)) {
            FormatWallTime(p.a.local, period->beginText, sizeof(period->beginText));
            period->offsetMinutes = (p.b.gmtoff - p.a.gmtoff) / 60;
            period->gmtoff = p.b.gmtoff;
            period->begin = timegm(&p.b.utc);
            return 0;
        }
        if (carried && EndsDaylight(p)) {
            SetText(period->beginText, sizeof(period->beginText), kYearBeginText);
            FormatWallTime(p.a.local, period->endText, sizeof(period->endText));
            period->offsetMinutes = (saved.b.gmtoff - saved.a.gmtoff) / 60;
            period->gmtoff = p.a.gmtoff;
            period->begin = get_this_year_begin(year);
            period->end = timegm(&p.b.utc);
            return 1;
        }
    }
}

void get_dst_end(kira::LineReader* reader, int year, KIRA_DST_PERIOD_S* period) {
    Pair p;
    while (NextPair(reader, "get_dst_end", &p) == PairRead::kPair) {
        if (YearOf(p) != year) {
            // Daylight time runs past the end of the year.
            SetText(period->endText, sizeof(period->endText), kYearEndText);
            period->end = get_this_year_end(year);
            return;
        }
        if (EndsDaylight(p)) {
            FormatWallTime(p.a.local, period->endText, sizeof(period->endText));
            period->end = timegm(&p.b.utc);
            return;
        }
    }
}

int read_dst_file(const char* path, int year, KIRA_DST_CONFIG_S* config) {
    kira::LineReader reader;
    if (!reader.Open(path, kira::ReadEnd::kUntilEof)) {
        return -1;
    }
    uint32_t i = 0;
    for (;; i++) {
        KIRA_DST_PERIOD_S spare = {};
        KIRA_DST_PERIOD_S* period = i < KIRA_DST_MAX_PERIODS ? &config->periods[i] : &spare;
        const int r = get_dst_begin(&reader, year, period);
        if (r < 0) {
            break;
        }
        if (i == KIRA_DST_MAX_PERIODS) {
            // A damaged or planted cache; real zones stay far below this.
            syslog(LOG_INFO, "%s: more than %d dst periods in %d, rest ignored, (%s)\n", __func__, KIRA_DST_MAX_PERIODS,
                   year, path);
            break;
        }
        if (r == 0) {
            get_dst_end(&reader, year, period);
        }
    }
    config->count = i;
    return 0;
}

}  // namespace kira_time

extern "C" KIRA_EXPORT int KIRA_show_dst_config(int year, const char* zone, KIRA_DST_CONFIG_S* config) {
    if (zone == nullptr || config == nullptr) {
        syslog(LOG_INFO, "%s: The pointor is NULL\n", __func__);
        return -1;
    }
    if (year < KIRA_DST_FIRST_YEAR || year > KIRA_DST_LAST_YEAR) {
        syslog(LOG_INFO, "this year %d not in [%d, %d]\n", year, KIRA_DST_FIRST_YEAR, KIRA_DST_LAST_YEAR);
        return -1;
    }
    char path[KIRA_TIME_PATH_SIZE];
    if (zone_file_path(zone, path, sizeof(path)) != 0) {
        return -1;
    }
    if (zdump_timezone(zone, path, sizeof(path)) == 0) {
        (void)read_dst_file(path, year, config);
    }
    return 0;
}
