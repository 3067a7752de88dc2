#ifndef TOOLS_RUNNER_METRICS_H
#define TOOLS_RUNNER_METRICS_H

// The last answer of every configured item, and of the memory census, in
// Prometheus's text exposition format (0.0.4). Labels are the item's name
// and its configured parameters, never pids or reasons, so the number of
// series is fixed by the configuration. A value is served only while it is
// fresh: a failed, priming, unmatched or overdue call leaves only its ok,
// matched and last-success series.

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tools/runner/item_call.h"

namespace zadi_runner {

class Metrics {
public:
    static constexpr size_t kCensusTop = 5;

    // Keeps the item's outcome; a failure is logged once per change of reason.
    void Record(const CallRecord& rec);
    // Largest resident sets first, at most kCensusTop of them.
    void SetCensus(const std::vector<std::pair<int, int>>& rss_mb_and_pid);
    // Forgets every item (the configuration was read again).
    void Clear();
    std::string Exposition() const;

private:
    struct Entry {
        std::string labels;  // `item="...",process="..."`
        CallRecord last;
        const ItemInfo* info;
        unsigned period_s;
        double last_ok_wall = 0;   // seconds since 1970 of the last ok call, 0 never
        double last_ok_mono = -1;  // monotonic seconds of the same
        std::string logged_reason;
    };

    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
    std::vector<std::pair<int, int>> census_;
};

// Writes the exposition to DIR/zadi.prom through a temporary file in DIR
// renamed into place, as the node exporter's textfile collector expects.
bool WriteTextfile(const std::string& dir, const std::string& text, std::string* error);

}  // namespace zadi_runner

#endif
