// Printing calls: a readable table per round, or one JSON object per call.

#include <stdint.h>
#include <string.h>
#include <time.h>

#include "tools/runner/runner.h"

namespace zr {

bool IsFaultMarker(float value) {
    uint32_t bits;
    memcpy(&bits, &value, sizeof(bits));
    return bits == 0x00800000u;
}

namespace {

std::string ParamsText(const ItemState& state) {
    std::string text;
    for (const Param& p : state.config.params) {
        if (!text.empty()) {
            text += ", ";
        }
        text += p.value;
    }
    return text.empty() ? "-" : text;
}

std::string ValueText(const CallRecord& rec) {
    if (IsFaultMarker(rec.value)) {
        return "(no value)";
    }
    const ItemInfo* info = FindItemInfo(rec.state->config.item);
    char buf[64];
    snprintf(buf, sizeof(buf), "%.2f %s", static_cast<double>(rec.value), info != nullptr ? info->unit : "");
    return buf;
}

bool ReportsPid(const CallRecord& rec) {
    const ItemInfo* info = FindItemInfo(rec.state->config.item);
    return info != nullptr && info->reports_pid;
}

std::string Clip(const std::string& text, size_t width) {
    return text.size() <= width ? text : text.substr(0, width - 3) + "...";
}

void JsonString(FILE* out, const std::string& text) {
    fputc('"', out);
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                fputs("\\\"", out);
                break;
            case '\\':
                fputs("\\\\", out);
                break;
            case '\n':
                fputs("\\n", out);
                break;
            case '\r':
                fputs("\\r", out);
                break;
            case '\t':
                fputs("\\t", out);
                break;
            default:
                if (c < 0x20) {
                    fprintf(out, "\\u%04x", c);
                } else {
                    fputc(c, out);
                }
        }
    }
    fputc('"', out);
}

std::string ReasonText(const CallRecord& rec) {
    // The reason is only meaningful for a failed call.
    if (rec.result.result != -1) {
        return "";
    }
    return std::string(rec.result.reason, strnlen(rec.result.reason, sizeof(rec.result.reason)));
}

}  // namespace

void PrintRoundHeader(FILE* out, unsigned long round) {
    const time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &tm);
    fprintf(out, "\nround %lu  %s\n", round, stamp);
}

void PrintTableHeader(FILE* out) {
    fprintf(out, "%-36s %-32s %14s %6s %7s  %s\n", "ITEM", "PARAMETERS", "VALUE", "RESULT", "PID", "REASON");
}

void PrintTableRow(FILE* out, const CallRecord& rec) {
    const std::string pid = ReportsPid(rec) ? std::to_string(rec.result.pid) : "-";
    fprintf(out, "%-36s %-32s %14s %6d %7s  %s\n", rec.state->config.item.c_str(),
            Clip(ParamsText(*rec.state), 32).c_str(), ValueText(rec).c_str(), rec.result.result, pid.c_str(),
            ReasonText(rec).c_str());
}

void PrintJson(FILE* out, const CallRecord& rec) {
    const ItemInfo* info = FindItemInfo(rec.state->config.item);
    fprintf(out, "{\"round\":%lu,\"item\":", rec.round);
    JsonString(out, rec.state->config.item);
    fputs(",\"params\":{", out);
    bool first = true;
    for (const Param& p : rec.state->config.params) {
        if (!first) {
            fputc(',', out);
        }
        first = false;
        JsonString(out, p.name);
        fputc(':', out);
        JsonString(out, p.value);
    }
    fputs("},\"value\":", out);
    if (IsFaultMarker(rec.value)) {
        fputs("null", out);
    } else {
        fprintf(out, "%.6g", static_cast<double>(rec.value));
    }
    fputs(",\"unit\":", out);
    JsonString(out, info != nullptr ? info->unit : "");
    fprintf(out, ",\"fault_marker\":%s,\"result\":%d,\"reason\":", IsFaultMarker(rec.value) ? "true" : "false",
            rec.result.result);
    JsonString(out, ReasonText(rec));
    if (ReportsPid(rec)) {
        fprintf(out, ",\"pid\":%d", rec.result.pid);
    } else {
        fputs(",\"pid\":null", out);
    }
    fprintf(out, ",\"hangflowid\":%u,\"elapsed_ms\":%.3f}\n", rec.result.hangflowid, rec.elapsed_ms);
}

}  // namespace zr
