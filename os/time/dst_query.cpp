// What a region's daylight saving looks like this year, in the short form
// the node's other components ask for: 14-byte unterminated texts.

#include <string.h>
#include <syslog.h>

#include "os/time/zone_internal.h"
#include "safec/safec.h"

using namespace kira_time;

namespace kira_time {

namespace {

constexpr size_t kQueryTextSize = 14;
constexpr char kNoDstText[] = "00-00 00:00:00";

void CopyQueryText(char* dest, const char* text) { (void)memcpy_s(dest, kQueryTextSize, text, kQueryTextSize); }

bool StartsAtYearBegin(const KIRA_DST_PERIOD_S& p) { return strcmp(p.beginText, "01-01 00:00:00") == 0; }
bool EndsAtYearEnd(const KIRA_DST_PERIOD_S& p) { return strcmp(p.endText, "12-31 23:59:59") == 0; }

}  // namespace

}  // namespace kira_time

extern "C" {

KIRA_EXPORT int KIRA_QueryDstForRegion(const char* zone, int32_t* flag) {
    if (zone == nullptr || flag == nullptr) {
        syslog(LOG_INFO, "%s: The pointor is NULL\n", __func__);
        return -1;
    }
    KIRA_DST_CONFIG_S config = {};
    const int ret = KIRA_show_dst_config(get_this_year(), zone, &config);
    if (ret != 0) {
        syslog(LOG_INFO, "%s: KIRA_show_dst_config fail, %d\n", __func__, ret);
        return -1;
    }
    *flag = config.count != 0 ? 1 : 0;
    return 0;
}

KIRA_EXPORT int KIRA_QueryDstConfInfoForRegion(const char* zone, char* begin, char* end, uint32_t* offset,
                                               int32_t* flag) {
    if (zone == nullptr || begin == nullptr || end == nullptr || offset == nullptr || flag == nullptr) {
        syslog(LOG_INFO, "Input param is NULL.");
        return -1;
    }
    const int year = get_this_year();
    KIRA_DST_CONFIG_S config = {};
    int ret = KIRA_show_dst_config(year, zone, &config);
    if (ret != 0) {
        syslog(LOG_INFO, "%s: KIRA_show_dst_config fail, %d\n", __func__, ret);
        return -1;
    }
    const KIRA_DST_PERIOD_S* crossing = nullptr;  // the period that runs into next year
    if (config.count == 0) {
        CopyQueryText(begin, kNoDstText);
        CopyQueryText(end, kNoDstText);
        *offset = 0;
        return 0;
    } else if (config.count == 2 && StartsAtYearBegin(config.periods[0]) && EndsAtYearEnd(config.periods[1])) {
        crossing = &config.periods[1];
    } else if (config.count == 1 && EndsAtYearEnd(config.periods[0])) {
        crossing = &config.periods[0];
    } else if (config.count == 1) {
        CopyQueryText(begin, config.periods[0].beginText);
        CopyQueryText(end, config.periods[0].endText);
        *offset = static_cast<uint32_t>(config.periods[0].offsetMinutes);
        // The flag is written for this shape alone; the others keep the
        // caller's value.
        *flag = 0;
        return 0;
    } else {
        syslog(LOG_INFO, "%s: more dst time in one year, %u\n", __func__, config.count);
        return -1;
    }
    CopyQueryText(begin, crossing->beginText);
    *offset = static_cast<uint32_t>(crossing->offsetMinutes);
    KIRA_DST_CONFIG_S next = {};
    ret = KIRA_show_dst_config(year + 1, zone, &next);
    if (ret != 0) {
        syslog(LOG_INFO, "%s: KIRA_show_dst_config next year fail, %d\n", __func__, ret);
        return -1;
    }
    CopyQueryText(end, next.periods[0].endText);
    return 0;
}

KIRA_EXPORT int KIRA_QueryDstConfInfo(char* begin, char* end, uint32_t* offset, int32_t* flag) {
    char zone[KIRA_ZONE_NAME_SIZE];
    if (get_timezone_name(zone, sizeof(zone)) != 0) {
        return -1;
    }
    return KIRA_QueryDstConfInfoForRegion(zone, begin, end, offset, flag);
}

}  // extern "C"
