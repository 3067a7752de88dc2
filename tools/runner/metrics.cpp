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

namespace zr {

namespace {

constexpr double kMiB = 1048576.0;

double WallSeconds() {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

double MonoSeconds() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
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

std::string LabelName(const std::string& param) {
    // clang-format off
    static const std::pair<const char*, const char*> kKnown[] = {
        {"ProcessName", "process"}, {"Path", "path"}, {"Period", "period"}, {"ProcessMoudleId", "module"},
        {"PreCmd", "precmd"}, {"RetKeyWords", "keywords"}, {"ErrCode", "errcode"}, {"ResId", "resid"},
        {"UserData", "userdata"}, {"RecoverCmd", "recovercmd"},
    };
    // clang-format on
    for (const auto& k : kKnown) {
        if (param == k.first) {
            return k.second;
        }
    }
    std::string name = "param_";
    for (char c : param) {
        name += isalnum(static_cast<unsigned char>(c)) ? static_cast<char>(tolower(c)) : '_';
    }
    return name;
}

// The runner's own switches do not tell items apart.
bool IsRunnerParam(const std::string& name) { return name == "ErrRpt" || name == "ErrRptUserData"; }

std::string Labels(const ItemState& state) {
    std::string labels = "item=\"" + EscapeLabel(state.config.item) + "\"";
    for (const Param& p : state.config.params) {
        if (!IsRunnerParam(p.name)) {
            labels += "," + LabelName(p.name) + "=\"" + EscapeLabel(p.value) + "\"";
        }
    }
    return labels;
}

std::string UnitSuffix(const std::string& unit) {
    if (unit == "%") return "_percent";
    if (unit == "%core") return "_percent_core";
    if (unit == "MB") return "_bytes";  // Prometheus's base unit; the items count whole MiB
    if (unit == "exists") return "_exists";
    if (unit == "beats") return "_beating";
    return "";
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

Metrics::Entry* Metrics::Find(const std::string& labels) {
    for (Entry& e : entries_) {
        if (e.labels == labels) {
            return &e;
        }
    }
    return nullptr;
}

void Metrics::Record(RunnerEnv& env, const CallRecord& rec) {
    const std::string labels = Labels(*rec.state);
    std::lock_guard<std::mutex> lock(mutex_);
    Entry* e = Find(labels);
    if (e == nullptr) {
        entries_.emplace_back();
        e = &entries_.back();
        e->item = rec.state->config.item;
        e->labels = labels;
        e->info = rec.state->info;
        e->period_s = rec.state->config.period_s;
    }
    e->last = rec;
    if (rec.outcome == CallState::kOk) {
        e->last_ok_wall = WallSeconds();
        e->last_ok_mono = MonoSeconds();
    }
    // Reasons stay out of the labels; the log gets each new one once.
    const std::string reason = rec.outcome == CallState::kFailed ? rec.result.reason : "";
    if (reason != e->logged_reason && !reason.empty()) {
        fprintf(env.err, "zadi_runner: %s {%s} failed: %s\n", e->item.c_str(), labels.c_str(), reason.c_str());
        fflush(env.err);
    }
    e->logged_reason = reason;
}

void Metrics::SetCensus(const std::vector<std::pair<int, int>>& rss_mb_and_pid) {
    std::lock_guard<std::mutex> lock(mutex_);
    census_.assign(rss_mb_and_pid.begin(),
                   rss_mb_and_pid.begin() + static_cast<long>(std::min(kCensusTop, rss_mb_and_pid.size())));
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
    const double now = MonoSeconds();
    std::lock_guard<std::mutex> lock(mutex_);
    for (const Entry& e : entries_) {
        const CallRecord& r = e.last;
        // Overdue: no figure for two periods and a margin for slow calls.
        const bool fresh = r.outcome == CallState::kOk && now - e.last_ok_mono <= 2.0 * e.period_s + 5.0;
        ok.Add(e.labels, r.outcome == CallState::kFailed ? 0 : 1);
        if (e.info->match != Match::kNone) {
            matched.Add(e.labels, r.outcome == CallState::kNoMatch ? 0 : 1);
        }
        duration.Add(e.labels, r.elapsed_ms / 1000.0);
        if (e.last_ok_wall > 0) {
            success.Add(e.labels, e.last_ok_wall);
        }
        if (!fresh) {
            continue;
        }
        const std::string name = "zadi_item_value" + UnitSuffix(e.info->unit);
        auto family = std::find_if(values.begin(), values.end(), [&](const Family& f) { return f.name == name; });
        if (family == values.end()) {
            values.push_back(
                Family{name, e.info->unit[0] == '\0' ? "the item's figure" : "the item's figure, unit in the name"});
            family = values.end() - 1;
        }
        family->Add(e.labels, std::string(e.info->unit) == "MB" ? r.value * kMiB : r.value);
        if (e.info->reports_pid) {
            pid.Add(e.labels, r.result.pid);
        }
        if (e.item == "ProcessHeartBeat") {
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

}  // namespace zr
