// Prometheus exposition of the items' last answers: label building and
// escaping, the per-item record, the families in a fixed order, and the
// atomic textfile write.

#include "tools/runner/metrics.h"

#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace zadi_runner {

namespace {

constexpr double kMiB = 1048576.0;

double Seconds(clockid_t clock) {
    struct timespec ts;
    clock_gettime(clock, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Backslash, double quote and newline are escaped in label values.
std::string EscapeLabel(const std::string& text) {
    std::string out;
    for (char c : text) {
        out += c == '\\' ? "\\\\" : c == '"' ? "\\\"" : c == '\n' ? "\\n" : std::string(1, c);
    }
    return out;
}

// The value paired with `key`, or null.
template <size_t N>
const char* Lookup(const std::pair<const char*, const char*> (&table)[N], const std::string& key) {
    for (const auto& entry : table) {
        if (key == entry.first) {
            return entry.second;
        }
    }
    return nullptr;
}

std::string LabelName(const std::string& param) {
    // clang-format off
    static const std::pair<const char*, const char*> kKnown[] = {
        {"ProcessName", "process"}, {"Path", "path"}, {"Period", "period"}, {"ProcessMoudleId", "module"},
        {"PreCmd", "precmd"}, {"RetKeyWords", "keywords"}, {"ErrCode", "errcode"}, {"ResId", "resid"},
        {"UserData", "userdata"}, {"RecoverCmd", "recovercmd"},
    };
    // clang-format on
    if (const char* known = Lookup(kKnown, param)) {
        return known;
    }
    std::string name = "param_";
    for (char c : param) {
        name += isalnum(static_cast<unsigned char>(c)) ? static_cast<char>(tolower(c)) : '_';
    }
    return name;
}

// The runner's own switches do not tell items apart.
std::string Labels(const ConfiguredItem& item) {
    std::string labels = "item=\"" + EscapeLabel(item.item) + "\"";
    for (const Param& p : item.params) {
        if (!IsRunnerParam(p.name)) {
            labels += "," + LabelName(p.name) + "=\"" + EscapeLabel(p.value) + "\"";
        }
    }
    return labels;
}

std::string ValueFamily(const std::string& unit) {
    // clang-format off
    static const std::pair<const char*, const char*> kSuffixes[] = {
        {"%", "_percent"}, {"%core", "_percent_core"}, {"exists", "_exists"}, {"beats", "_beating"},
        {"MB", "_bytes"},  // Prometheus's base unit; the items count whole MiB
    };
    // clang-format on
    const char* suffix = Lookup(kSuffixes, unit);
    return std::string("zadi_item_value") + (suffix != nullptr ? suffix : "");
}

struct Family {
    Family(std::string family, const char* text) : name(std::move(family)), help(text) {}
    std::string name;
    const char* help;
    std::string samples;
    void Add(const std::string& labels, double value) {
        char num[64];
        snprintf(num, sizeof(num), "%.15g", value);
        samples += name + "{" + labels + "} " + num + "\n";
    }
    void AppendTo(std::string* out) const {
        if (!samples.empty()) {
            *out += "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n" + samples;
        }
    }
};

}  // namespace

void Metrics::Record(const CallRecord& rec) {
    const std::string labels = Labels(rec.state->config);
    std::lock_guard<std::mutex> lock(mutex_);
    auto e = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& x) { return x.labels == labels; });
    if (e == entries_.end()) {
        e = entries_.insert(entries_.end(), Entry{labels, rec, rec.state->info, rec.state->config.period_s, 0, -1, ""});
    }
    e->last = rec;
    if (rec.outcome == CallState::kOk) {
        e->last_ok_wall = Seconds(CLOCK_REALTIME);
        e->last_ok_mono = Seconds(CLOCK_MONOTONIC);
    }
    // Reasons stay out of the labels; the log gets each new one once.
    const std::string reason = rec.outcome == CallState::kFailed ? rec.result.reason : "";
    if (reason != e->logged_reason && !reason.empty()) {
        fprintf(stderr, "zadi_runner: %s {%s} failed: %s\n", e->info->name, labels.c_str(), reason.c_str());
    }
    e->logged_reason = reason;
}

void Metrics::SetCensus(const std::vector<std::pair<int, int>>& rss_mb_and_pid) {
    std::lock_guard<std::mutex> lock(mutex_);
    census_.assign(rss_mb_and_pid.begin(), rss_mb_and_pid.begin() + std::min(kCensusTop, rss_mb_and_pid.size()));
}

void Metrics::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

std::string Metrics::Exposition() const {
    std::vector<Family> values;
    Family ok{"zadi_item_ok", "1 when the item's last call succeeded (result 0), 0 when it failed (reason in the log)"};
    Family matched{"zadi_item_matched", "1 when a process answered to the item's ProcessName at its last call, else 0"};
    Family duration{"zadi_item_duration_seconds", "duration of the item's last call"};
    Family success{"zadi_item_last_success_timestamp_seconds", "when the item last answered with a figure"};
    Family pid{"zadi_item_pid", "pid of the process the item's last figure belongs to"};
    Family hang{"zadi_heartbeat_hang", "1 when the process's heartbeat stopped at the last check, else 0"};
    Family census_rss{"zadi_census_rss_bytes", "resident memory of the largest processes, by rank (whole MiB)"};
    Family census_pid{"zadi_census_pid", "pid of the process at that rank of the memory census"};
    const double now = Seconds(CLOCK_MONOTONIC);
    std::lock_guard<std::mutex> lock(mutex_);
    for (const Entry& e : entries_) {
        const CallRecord& r = e.last;
        ok.Add(e.labels, r.outcome == CallState::kFailed ? 0 : 1);
        if (e.info->match != Match::kNone) {
            matched.Add(e.labels, r.outcome == CallState::kNoMatch ? 0 : 1);
        }
        duration.Add(e.labels, r.elapsed_ms / 1000.0);
        if (e.last_ok_wall > 0) {
            success.Add(e.labels, e.last_ok_wall);
        }
        // Overdue: no figure for two periods and a margin for slow calls.
        if (r.outcome != CallState::kOk || now - e.last_ok_mono > 2.0 * e.period_s + 5.0) {
            continue;
        }
        const std::string name = ValueFamily(e.info->unit);
        auto family = std::find_if(values.begin(), values.end(), [&](const Family& f) { return f.name == name; });
        if (family == values.end()) {
            family = values.insert(
                values.end(),
                Family(name, *e.info->unit == '\0' ? "the item's figure" : "the item's figure, unit in the name"));
        }
        family->Add(e.labels, std::string(e.info->unit) == "MB" ? r.value * kMiB : r.value);
        if (e.info->reports_pid) {
            pid.Add(e.labels, r.result.pid);
        }
        if (std::string(e.info->name) == "ProcessHeartBeat") {
            hang.Add(e.labels, r.value == 0.0f ? 1 : 0);
        }
    }
    for (size_t i = 0; i < census_.size(); ++i) {
        const std::string rank = "rank=\"" + std::to_string(i + 1) + "\"";
        census_rss.Add(rank, census_[i].first * kMiB);
        census_pid.Add(rank, census_[i].second);
    }
    std::string out;
    for (const Family& f : values) {
        f.AppendTo(&out);
    }
    for (const Family* f : {&ok, &matched, &duration, &success, &pid, &hang, &census_rss, &census_pid}) {
        f->AppendTo(&out);
    }
    return out;
}

bool WriteTextfile(const std::string& dir, const std::string& text, std::string* error) {
    const std::string final_path = dir + "/zadi.prom";
    const std::string tmp = dir + "/.zadi.prom." + std::to_string(getpid());
    FILE* f = fopen(tmp.c_str(), "w");
    if (f == nullptr) {
        *error = "cannot write " + tmp + ": " + strerror(errno);
        return false;
    }
    const bool written = fwrite(text.data(), 1, text.size(), f) == text.size();
    if (fclose(f) != 0 || !written || rename(tmp.c_str(), final_path.c_str()) != 0) {
        *error = "cannot write " + final_path + ": " + strerror(errno);
        unlink(tmp.c_str());
        return false;
    }
    return true;
}

}  // namespace zadi_runner
