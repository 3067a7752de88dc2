// Printing calls: a readable table per round, or one JSON object per call.
// Only a call in state "ok" shows a figure; the others say why there is none.

#include <stdarg.h>
#include <stdint.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "tools/runner/runner.h"

namespace zr {

bool IsFaultMarker(float value) {
    uint32_t bits;
    memcpy(&bits, &value, sizeof(bits));
    return bits == ZADI_FAULT_MARKER_BITS;
}

std::string HostName() {
    char name[256] = {0};
    return gethostname(name, sizeof(name) - 1) == 0 ? name : "";
}

void Say(RunnerEnv& env, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vfprintf(env.options.json ? env.err : env.out, fmt, ap);
    va_end(ap);
}

namespace {

std::string ParamsText(const ItemState& state) {
    std::string text;
    for (const Param& p : state.config.params) {
        text += (text.empty() ? "" : ", ") + p.name + "=" + p.value;
    }
    return text;
}

std::string ValueText(const CallRecord& rec) {
    if (rec.outcome != CallState::kOk) {
        return "-";
    }
    const std::string unit = rec.state->info->unit;
    const bool one = rec.value == 1.0f;
    if (unit == "exists") {
        return one ? "1 running" : "0 not running";
    }
    if (unit == "beats") {
        return one ? "1 beating" : "0 hung";
    }
    char buf[64];
    snprintf(buf, sizeof(buf), "%.2f %s", static_cast<double>(rec.value), unit.c_str());
    return buf;
}

bool ShowsPid(const CallRecord& rec) { return rec.state->info->reports_pid && rec.outcome == CallState::kOk; }

std::string ReasonText(const CallRecord& rec) {
    // The reason is only meaningful for a failed call.
    if (rec.result.result != -1) {
        return "";
    }
    return std::string(rec.result.reason, strnlen(rec.result.reason, sizeof(rec.result.reason)));
}

// What a person needs to read a row without a figure.
std::string Note(const CallRecord& rec) {
    switch (rec.outcome) {
        case CallState::kFailed:
            return "reason: " + ReasonText(rec);
        case CallState::kPriming:
            return "first sample stored; figures start with the next call";
        case CallState::kNoMatch:
            switch (rec.state->info->match) {
                case Match::kExact:
                    return "no process has exactly this command line";
                case Match::kPrefix:
                    return "no process's command line starts with this";
                default:
                    return "no process's command line matches this pattern";
            }
        case CallState::kOk:
            break;
    }
    return "";
}

void JsonString(FILE* out, const std::string& text) {
    fputc('"', out);
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            fputc('\\', out);
            fputc(c, out);
        } else if (c == '\n') {
            fputs("\\n", out);
        } else if (c < 0x20) {
            fprintf(out, "\\u%04x", c);
        } else {
            fputc(c, out);
        }
    }
    fputc('"', out);
}

}  // namespace

JsonLine::JsonLine(FILE* out) : out_(out) {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    struct tm tm;
    gmtime_r(&ts.tv_sec, &tm);
    char stamp[40];
    const size_t n = strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%S", &tm);
    snprintf(stamp + n, sizeof(stamp) - n, ".%03ldZ", ts.tv_nsec / 1000000);
    static const std::string host = HostName();
    fputs("{\"time\":", out_);
    JsonString(out_, stamp);
    Str("host", host);
}

JsonLine::~JsonLine() { fputs("}\n", out_); }

void JsonLine::Key(const char* key) {
    fputc(',', out_);
    JsonString(out_, key);
    fputc(':', out_);
}

JsonLine& JsonLine::Str(const char* key, const std::string& value) {
    Key(key);
    JsonString(out_, value);
    return *this;
}

JsonLine& JsonLine::Num(const char* key, double value) {
    Key(key);
    fprintf(out_, "%.6g", value);
    return *this;
}

JsonLine& JsonLine::Int(const char* key, long long value) {
    Key(key);
    fprintf(out_, "%lld", value);
    return *this;
}

JsonLine& JsonLine::Null(const char* key) {
    Key(key);
    fputs("null", out_);
    return *this;
}

JsonLine& JsonLine::Bool(const char* key, bool value) {
    Key(key);
    fputs(value ? "true" : "false", out_);
    return *this;
}

JsonLine& JsonLine::Params(const char* key, const std::vector<Param>& params) {
    Key(key);
    fputc('{', out_);
    for (size_t i = 0; i < params.size(); ++i) {
        fputs(i == 0 ? "" : ",", out_);
        JsonString(out_, params[i].name);
        fputc(':', out_);
        JsonString(out_, params[i].value);
    }
    fputc('}', out_);
    return *this;
}

void PrintRoundHeader(FILE* out, unsigned long round) {
    const time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &tm);
    fprintf(out, "\nround %lu  %s  %s\n", round, stamp, HostName().c_str());
}

void PrintTableHeader(FILE* out) {
    fprintf(out, "%-36s %16s  %-8s %7s  %s\n", "ITEM", "VALUE", "STATE", "PID", "PARAMETERS");
}

void PrintTableRow(FILE* out, const CallRecord& rec) {
    std::string state = StateName(rec.outcome);
    std::replace(state.begin(), state.end(), '_', ' ');
    const std::string pid = ShowsPid(rec) ? std::to_string(rec.result.pid) : "-";
    fprintf(out, "%-36s %16s  %-8s %7s  %s\n", rec.state->config.item.c_str(), ValueText(rec).c_str(), state.c_str(),
            pid.c_str(), ParamsText(*rec.state).c_str());
    const std::string note = Note(rec);
    if (!note.empty()) {
        fprintf(out, "    %s\n", note.c_str());
    }
}

void PrintJson(FILE* out, const CallRecord& rec) {
    JsonLine line(out);
    line.Int("round", static_cast<long long>(rec.round))
        .Str("item", rec.state->config.item)
        .Params("params", rec.state->config.params)
        .Str("state", StateName(rec.outcome));
    if (rec.outcome == CallState::kOk) {
        line.Num("value", rec.value);
    } else {
        line.Null("value");
    }
    line.Str("unit", rec.state->info->unit);
    if (IsFaultMarker(rec.value)) {
        line.Null("returned");
    } else {
        line.Num("returned", rec.value);
    }
    line.Int("result", rec.result.result).Str("reason", ReasonText(rec));
    if (ShowsPid(rec)) {
        line.Int("pid", rec.result.pid);
    } else {
        line.Null("pid");
    }
    line.Int("hangflowid", rec.result.hangflowid).Num("elapsed_ms", rec.elapsed_ms);
}

void PrintCall(RunnerEnv& env, const CallRecord& rec) {
    if (env.options.json) {
        PrintJson(env.out, rec);
    } else {
        PrintTableRow(env.out, rec);
    }
    fflush(env.out);
}

}  // namespace zr
