// Printing calls: the table (its header, a row per call and a note under a
// row without a figure), then the JSON record and its writer. Only a call in
// state "ok" shows a figure; the others say why there is none.

#include "tools/runner/report.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace zadi_runner {

namespace {

std::string HostName() {
    char name[256] = {0};
    return gethostname(name, sizeof(name) - 1) == 0 ? name : "";
}

const char* StateName(CallState state) {
    static const char* const kNames[] = {"ok", "priming", "no_match", "failed"};
    return kNames[static_cast<int>(state)];
}

std::string ParamsText(const ItemState& state) {
    std::string text;
    for (const Param& p : state.config.params) {
        text += (text.empty() ? "" : ", ") + p.name + "=" + p.value;
    }
    return text;
}

std::string ValueText(const CallRecord& rec) {
    const std::string unit = rec.state->info->unit;
    const bool one = rec.value == 1.0f;
    if (rec.outcome != CallState::kOk) {
        return "-";
    } else if (unit == "exists") {
        return one ? "1 running" : "0 not running";
    } else if (unit == "beats") {
        return one ? "1 beating" : "0 hung";
    }
    char buf[64];
    snprintf(buf, sizeof(buf), "%.2f %s", static_cast<double>(rec.value), unit.c_str());
    return buf;
}

bool ShowsPid(const CallRecord& rec) { return rec.state->info->reports_pid && rec.outcome == CallState::kOk; }

// The reason is only meaningful for a failed call.
std::string ReasonText(const CallRecord& rec) {
    const char* reason = rec.result.reason;
    return rec.result.result != -1 ? "" : std::string(reason, strnlen(reason, sizeof(rec.result.reason)));
}

// What a person needs to read a row without a figure.
std::string Note(const CallRecord& rec) {
    const Match match = rec.state->info->match;
    switch (rec.outcome) {
        case CallState::kFailed:
            return "reason: " + ReasonText(rec);
        case CallState::kPriming:
            return "first sample stored; figures start with the next call";
        case CallState::kNoMatch:
            return match == Match::kExact    ? "no process has exactly this command line"
                   : match == Match::kPrefix ? "no process's command line starts with this"
                                             : "no process's command line matches this pattern";
        case CallState::kOk:
            break;
    }
    return "";
}

void PrintTableRow(const CallRecord& rec) {
    std::string state = StateName(rec.outcome);
    std::replace(state.begin(), state.end(), '_', ' ');
    const std::string pid = ShowsPid(rec) ? std::to_string(rec.result.pid) : "-";
    printf("%-36s %16s  %-8s %7s  %s\n", rec.state->config.item.c_str(), ValueText(rec).c_str(), state.c_str(),
           pid.c_str(), ParamsText(*rec.state).c_str());
    const std::string note = Note(rec);
    if (!note.empty()) {
        printf("    %s\n", note.c_str());
    }
}

// The fault marker (ZADI_FAULT_MARKER_BITS) rather than a figure.
bool IsFaultMarker(float value) {
    uint32_t bits;
    memcpy(&bits, &value, sizeof(bits));
    return bits == ZADI_FAULT_MARKER_BITS;
}

void PrintJson(const CallRecord& rec) {
    JsonLine line;
    line.Int("round", static_cast<long long>(rec.round))
        .Str("item", rec.state->config.item)
        .Params("params", rec.state->config.params)
        .Str("state", StateName(rec.outcome));
    rec.outcome == CallState::kOk ? line.Num("value", rec.value) : line.Null("value");
    line.Str("unit", rec.state->info->unit);
    IsFaultMarker(rec.value) ? line.Null("returned") : line.Num("returned", rec.value);
    line.Int("result", rec.result.result).Str("reason", ReasonText(rec));
    ShowsPid(rec) ? line.Int("pid", rec.result.pid) : line.Null("pid");
    line.Int("hangflowid", rec.result.hangflowid).Num("elapsed_ms", rec.elapsed_ms);
}

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += {'\\', static_cast<char>(c)};
        } else if (c == '\n') {
            out += "\\n";
        } else if (c < 0x20) {
            char escaped[8];
            snprintf(escaped, sizeof(escaped), "\\u%04x", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

}  // namespace

void PrintRoundHeader(unsigned long round) {
    const time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &tm);
    printf("\nround %lu  %s  %s\n", round, stamp, HostName().c_str());
}

void PrintTableHeader() { printf("%-36s %16s  %-8s %7s  %s\n", "ITEM", "VALUE", "STATE", "PID", "PARAMETERS"); }

void PrintCall(const RunnerEnv& env, const CallRecord& rec) {
    env.options.json ? PrintJson(rec) : PrintTableRow(rec);
    fflush(stdout);
}

JsonLine::JsonLine() {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    struct tm tm;
    gmtime_r(&ts.tv_sec, &tm);
    char stamp[40];
    const size_t n = strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%S", &tm);
    snprintf(stamp + n, sizeof(stamp) - n, ".%03ldZ", ts.tv_nsec / 1000000);
    static const std::string host = HostName();
    text_ = "{\"time\":" + JsonString(stamp);
    Str("host", host);
}

JsonLine::~JsonLine() { fputs((text_ + "}\n").c_str(), stdout); }

JsonLine& JsonLine::Raw(const char* key, const std::string& json) {
    text_ += "," + JsonString(key) + ":" + json;
    return *this;
}

JsonLine& JsonLine::Str(const char* key, const std::string& value) { return Raw(key, JsonString(value)); }

JsonLine& JsonLine::Num(const char* key, double value) {
    char num[32];
    snprintf(num, sizeof(num), "%.6g", value);
    return Raw(key, num);
}

JsonLine& JsonLine::Params(const char* key, const std::vector<Param>& params) {
    std::string object;
    for (const Param& p : params) {
        object += (object.empty() ? "" : ",") + JsonString(p.name) + ":" + JsonString(p.value);
    }
    return Raw(key, "{" + object + "}");
}

}  // namespace zadi_runner
