// The wildcard matcher of the FuzzyMatch items ('?' one character, '*' any
// run). Its quirks are relied on by existing configurations: the pattern is
// anchored only until the first partial match, after which a mismatch
// restarts the pattern one character further on.

#include <string.h>

#include "plugin/linux/zadi_linux_plugin.h"

namespace {

bool OnlyStarsFrom(const char* pattern, int j, int length) {
    for (; j < length; ++j) {
        if (pattern[j] != '*') {
            return false;
        }
    }
    return true;
}

}  // namespace

bool ZADI_Linux_Plugin::str_fuzzy_match(const char* str, const char* pattern) {
    if (str == nullptr || pattern == nullptr) {
        return false;
    }
    const int strLen = static_cast<int>(strlen(str));
    const int patLen = static_cast<int>(strlen(pattern));
    int i = 0;
    int j = 0;
    int restart = 0;  // pattern position just after the last '*'
    while (i < strLen && j < patLen) {
        if (pattern[j] == '?') {
            ++i;
            ++j;
        } else if (pattern[j] == '*') {
            ++j;
            restart = j;
        } else if (str[i] == pattern[j]) {
            ++i;
            ++j;
        } else {
            if (i == 0 && j == 0) {
                return false;
            }
            i = i + (restart - j) + 1;
            j = restart;
        }
    }
    if (j < patLen) {
        return OnlyStarsFrom(pattern, j, patLen);
    }
    return i == strLen || (patLen > 0 && pattern[patLen - 1] == '*');
}
