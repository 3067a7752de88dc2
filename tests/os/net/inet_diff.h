#ifndef TESTS_OS_NET_INET_DIFF_H
#define TESTS_OS_NET_INET_DIFF_H

// The address parsers against the C library's inet_pton; shared with the fuzz target.

#include <arpa/inet.h>
#include <ctype.h>
#include <string.h>

#include <string>

#include "os/net/kira_net.h"

namespace inet_diff {

// Empty when both parsers agree on text (and on the bytes), else what differs; a refused text must leave the
// output untouched. Kept on purpose: a colon after the last group is not refused ("1::2:" reads as "1::2").
inline std::string Compare(const char* text) {
    for (int family : {AF_INET, AF_INET6}) {
        unsigned char ours[16], theirs[16] = {};
        memset(ours, 0xA5, sizeof ours);
        const int mine = family == AF_INET ? KIRA_inet_pton4(text, ours) : KIRA_inet_pton6(text, ours);
        const int libc = inet_pton(family, text, theirs);
        const size_t size = family == AF_INET ? 4 : 16, len = strlen(text);
        if (mine == 0 && std::string(ours, ours + 16) != std::string(16, '\xA5')) {
            return "a refused text was written";
        }
        if (mine == libc && (mine != 1 || memcmp(ours, theirs, size) == 0)) {
            continue;
        }
        if (size == 16 && mine == 1 && len >= 2 && text[len - 1] == ':' &&
            isxdigit(static_cast<unsigned char>(text[len - 2])) &&
            inet_pton(AF_INET6, std::string(text, len - 1).c_str(), theirs) == 1 && memcmp(ours, theirs, 16) == 0) {
            continue;
        }
        return "family " + std::to_string(family) + ": " + std::to_string(mine) + ", the C library " +
               std::to_string(libc);
    }
    return "";
}

}  // namespace inet_diff

#endif
