// Number parsing against a reference: the predicate and the conversion must
// agree, the conversion must wrap modulo 2^64 and report exactly the inputs
// that hold a stray character. syslog is replaced here so the report can be
// counted and the run stays fast.

#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "os/base/kira_number.h"

namespace {
int g_reports = 0;
}  // namespace

extern "C" void syslog(int, const char*, ...) { g_reports++; }

extern "C" void __syslog_chk(int, int, const char*, ...) { g_reports++; }

namespace {

int Digit(char c, bool hex) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (hex && c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (hex && c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// Value up to the first stray character, and whether there was one.
uint64_t Reference(const char* s, bool* stray) {
    bool hex = s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
    uint64_t v = 0;
    *stray = false;
    for (const char* p = hex ? s + 2 : s; *p; p++) {
        int d = Digit(*p, hex);
        if (d < 0) {
            *stray = true;
            break;
        }
        v = v * (hex ? 16 : 10) + static_cast<uint64_t>(d);
    }
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    const char* s = text.c_str();  // stops at an embedded NUL, as callers' strings do

    bool stray = false;
    uint64_t expected = Reference(s, &stray);
    g_reports = 0;
    uint64_t got = KIRA_StrToU64(s);
    if (got != expected || g_reports != (stray ? 1 : 0)) {
        abort();
    }
    if ((KIRA_IsUnsignedNumbericStr(s) == 0) == stray) {
        abort();
    }

    int64_t sgot = KIRA_StrToS64(s);
    if (s[0] == '-') {
        bool rest = false;
        if (static_cast<uint64_t>(sgot) != 0 - Reference(s + 1, &rest)) {
            abort();
        }
    } else if (static_cast<uint64_t>(sgot) != expected) {
        abort();
    }

    std::string lower = text.substr(0, strlen(s));
    KIRA_StrToLower(&lower[0]);
    for (size_t i = 0; i < lower.size(); i++) {
        char c = s[i];
        char want = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        if (lower[i] != want) {
            abort();
        }
    }
    return 0;
}
