#ifndef TOOLS_RUNNER_REPORT_H
#define TOOLS_RUNNER_REPORT_H

// How calls are shown: a table per round, or one JSON record a call (each
// opened with the time and the host), and prose kept out of the records.

#include <string>
#include <vector>

#include "tools/runner/item_call.h"
#include "tools/runner/runner_env.h"

namespace zadi_runner {

void PrintRoundHeader(unsigned long round);
void PrintTableHeader();
// A table row or a JSON record, as the options ask.
void PrintCall(const RunnerEnv& env, const CallRecord& rec);

// One JSON object on one line of standard output, written when the writer
// goes out of scope.
class JsonLine {
public:
    JsonLine();
    ~JsonLine();
    JsonLine(const JsonLine&) = delete;
    JsonLine& operator=(const JsonLine&) = delete;
    JsonLine& Str(const char* key, const std::string& value);
    JsonLine& Num(const char* key, double value);
    JsonLine& Int(const char* key, long long value) { return Raw(key, std::to_string(value)); }
    JsonLine& Null(const char* key) { return Raw(key, "null"); }
    JsonLine& Bool(const char* key, bool value) { return Raw(key, value ? "true" : "false"); }
    JsonLine& Params(const char* key, const std::vector<Param>& params);

private:
    JsonLine& Raw(const char* key, const std::string& json);
    std::string text_;
};

}  // namespace zadi_runner

#endif
