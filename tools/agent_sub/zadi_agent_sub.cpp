// Substitute for the agent's error-report service.
//
// In order: the report store (a live set guarded by one mutex), the failure
// plan read from ZADI_AGENT_SUB_FAIL or set by the control calls, the one-line
// rendering of a sent report, the five imported functions, then the control
// interface.

#include "zadi_agent_sub.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "safec/safec.h"

#define SUB_EXPORT __attribute__((visibility("default")))

struct tagZADI_ERRREPORT_S {
    ZADI_PRIMARY_KEY_S key;
    std::vector<std::pair<std::string, std::string>> params;
};

namespace {

struct FailPlan {
    int nth = 0;    // as in ZADI_AgentSubFailCall
    int calls = 0;  // calls of this kind since load or reset
};

struct SubState {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    std::set<const ZADI_ERRREPORT_S*> live;
    FailPlan plan[ZADI_SUB_CALL_BUTT];
    int sent = 0;
    std::string lastLine;
    ZADI_PRIMARY_KEY_S lastKey{};
    std::string outPath;
    bool envRead = false;
};

SubState& State() {
    static SubState state;
    return state;
}

class Locked {
public:
    Locked() { pthread_mutex_lock(&State().lock); }
    ~Locked() { pthread_mutex_unlock(&State().lock); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
};

int CallFromName(const std::string& name) {
    static const char* const kNames[ZADI_SUB_CALL_BUTT] = {"create", "addparam", "getkey", "send"};
    for (int i = 0; i < ZADI_SUB_CALL_BUTT; ++i) {
        if (name == kNames[i]) {
            return i;
        }
    }
    return -1;
}

void ParseFailPlan(SubState& s, const char* text) {
    std::string all(text);
    size_t pos = 0;
    while (pos <= all.size()) {
        size_t comma = all.find(',', pos);
        if (comma == std::string::npos) {
            comma = all.size();
        }
        std::string item = all.substr(pos, comma - pos);
        size_t eq = item.find('=');
        int call = CallFromName(item.substr(0, eq));
        if (call >= 0) {
            s.plan[call].nth = (eq == std::string::npos) ? -1 : atoi(item.c_str() + eq + 1);
        } else if (!item.empty()) {
            fprintf(stderr, "zadi_agent_sub: unknown failure '%s' ignored\n", item.c_str());
        }
        pos = comma + 1;
    }
}

// Caller holds the lock.
void ReadEnvironment(SubState& s) {
    const char* out = getenv("ZADI_AGENT_SUB_OUT");
    s.outPath = (out != nullptr) ? out : "";
    const char* fail = getenv("ZADI_AGENT_SUB_FAIL");
    if (fail != nullptr) {
        ParseFailPlan(s, fail);
    }
    s.envRead = true;
}

SubState& Ready() {
    SubState& s = State();
    if (!s.envRead) {
        ReadEnvironment(s);
    }
    return s;
}

// Caller holds the lock. Counts the call and says whether it must fail.
bool ShouldFail(int call) {
    FailPlan& p = Ready().plan[call];
    ++p.calls;
    if (p.nth < 0) {
        return true;
    }
    if (p.nth > 0 && p.calls == p.nth) {
        p.nth = 0;
        return true;
    }
    return false;
}

// Names, values and texts may hold anything; keep the record on one line.
void AppendQuoted(std::string& line, const char* text) {
    line += '"';
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != '\0'; ++p) {
        if (*p == '"' || *p == '\\') {
            line += '\\';
            line += static_cast<char>(*p);
        } else if (*p < 0x20 || *p == 0x7f) {
            char esc[8];
            (void)snprintf_s(esc, sizeof(esc), sizeof(esc) - 1, "\\x%02X", *p);
            line += esc;
        } else {
            line += static_cast<char>(*p);
        }
    }
    line += '"';
}

std::string RenderReport(const ZADI_ERRREPORT_S* rpt, const char* desc) {
    char head[96];
    (void)snprintf_s(head, sizeof(head), sizeof(head) - 1,
                     "errrpt errCode=0x%08X resType=0x%04X rptType=%u resId=", rpt->key.errCode,
                     static_cast<unsigned>(rpt->key.resType), static_cast<unsigned>(rpt->key.rptType));
    std::string line(head);
    char resId[sizeof(rpt->key.resId) + 1] = {0};
    (void)memcpy_s(resId, sizeof(resId), rpt->key.resId, sizeof(rpt->key.resId));
    AppendQuoted(line, resId);
    line += " desc=";
    AppendQuoted(line, desc);
    line += " params={";
    for (size_t i = 0; i < rpt->params.size(); ++i) {
        if (i != 0) {
            line += ", ";
        }
        line += rpt->params[i].first;
        line += '=';
        AppendQuoted(line, rpt->params[i].second.c_str());
    }
    line += '}';
    return line;
}

void Emit(const std::string& path, const std::string& line) {
    std::string rec = line + "\n";
    int fd = STDERR_FILENO;
    if (!path.empty()) {
        fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (fd < 0) {
            fprintf(stderr, "zadi_agent_sub: cannot open %s\n", path.c_str());
            fd = STDERR_FILENO;
        }
    }
    // One write per record keeps lines from concurrent senders whole.
    ssize_t n = write(fd, rec.data(), rec.size());
    (void)n;
    if (fd != STDERR_FILENO) {
        close(fd);
    }
}

bool IsLive(const ZADI_ERRREPORT_S* rpt) { return rpt != nullptr && State().live.count(rpt) != 0; }

}  // namespace

extern "C" {

SUB_EXPORT ZADI_ERRREPORT_S* ZADI_CreateErrRptSub(ZADI_PRIMARY_KEY_S* pKey) {
    Locked guard;
    if (ShouldFail(ZADI_SUB_CALL_CREATE) || pKey == nullptr) {
        return nullptr;
    }
    ZADI_ERRREPORT_S* rpt = new ZADI_ERRREPORT_S;
    rpt->key = *pKey;
    State().live.insert(rpt);
    return rpt;
}

SUB_EXPORT int ZADI_AddParamToErrRptSub(const ZADI_ERRREPORT_S* errRpt, char* name, char* value) {
    Locked guard;
    if (ShouldFail(ZADI_SUB_CALL_ADDPARAM) || !IsLive(errRpt) || name == nullptr || value == nullptr) {
        return -1;
    }
    const_cast<ZADI_ERRREPORT_S*>(errRpt)->params.emplace_back(name, value);
    return 0;
}

SUB_EXPORT int ZADI_GetPrimaryKeySub(const ZADI_ERRREPORT_S* errRpt, ZADI_PRIMARY_KEY_S* key) {
    Locked guard;
    if (ShouldFail(ZADI_SUB_CALL_GETKEY) || !IsLive(errRpt) || key == nullptr) {
        return -1;
    }
    *key = errRpt->key;
    return 0;
}

SUB_EXPORT int ZADI_SendErrReportSub(const ZADI_ERRREPORT_S* errRpt, const char* desc, va_list args) {
    char text[512] = {0};
    if (desc != nullptr) {
        (void)vsnprintf_s(text, sizeof(text), sizeof(text) - 1, desc, args);
    }
    std::string line;
    std::string path;
    {
        Locked guard;
        if (ShouldFail(ZADI_SUB_CALL_SEND) || !IsLive(errRpt)) {
            return -1;
        }
        SubState& s = State();
        line = RenderReport(errRpt, text);
        s.lastLine = line;
        s.lastKey = errRpt->key;
        ++s.sent;
        path = s.outPath;
    }
    Emit(path, line);
    return 0;
}

SUB_EXPORT void ZADI_DestoryErrRptSub(const ZADI_ERRREPORT_S* errRpt) {
    Locked guard;
    if (errRpt == nullptr) {
        return;
    }
    if (State().live.erase(errRpt) == 0) {
        fprintf(stderr, "zadi_agent_sub: destroy of unknown report %p\n", static_cast<const void*>(errRpt));
        return;
    }
    delete errRpt;
}

SUB_EXPORT void ZADI_AgentSubReset(void) {
    Locked guard;
    SubState& s = State();
    for (FailPlan& p : s.plan) {
        p = FailPlan();
    }
    s.sent = 0;
    s.lastLine.clear();
    s.lastKey = ZADI_PRIMARY_KEY_S{};
    ReadEnvironment(s);
}

SUB_EXPORT void ZADI_AgentSubFailCall(int call, int nth) {
    if (call < 0 || call >= ZADI_SUB_CALL_BUTT) {
        return;
    }
    Locked guard;
    FailPlan& p = Ready().plan[call];
    p.nth = nth;
    p.calls = 0;
}

SUB_EXPORT void ZADI_AgentSubSetOutput(const char* path) {
    Locked guard;
    Ready().outPath = (path != nullptr) ? path : "";
}

SUB_EXPORT int ZADI_AgentSubLiveReports(void) {
    Locked guard;
    return static_cast<int>(State().live.size());
}

SUB_EXPORT int ZADI_AgentSubSentReports(void) {
    Locked guard;
    return State().sent;
}

SUB_EXPORT int ZADI_AgentSubCallCount(int call) {
    if (call < 0 || call >= ZADI_SUB_CALL_BUTT) {
        return -1;
    }
    Locked guard;
    return State().plan[call].calls;
}

SUB_EXPORT int ZADI_AgentSubLastSent(char* buf, size_t size) {
    Locked guard;
    const SubState& s = State();
    if (s.sent == 0 || buf == nullptr || s.lastLine.size() >= size) {
        return -1;
    }
    if (strcpy_s(buf, size, s.lastLine.c_str()) != 0) {
        return -1;
    }
    return static_cast<int>(s.lastLine.size());
}

SUB_EXPORT int ZADI_AgentSubLastSentKey(ZADI_PRIMARY_KEY_S* key) {
    Locked guard;
    const SubState& s = State();
    if (s.sent == 0 || key == nullptr) {
        return -1;
    }
    *key = s.lastKey;
    return 0;
}

}  // extern "C"
