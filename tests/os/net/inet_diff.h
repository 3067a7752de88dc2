#ifndef TESTS_OS_NET_INET_DIFF_H
#define TESTS_OS_NET_INET_DIFF_H

// The address parsers against the C library's inet_pton: a generator of
// address-like texts and a comparison that accepts only the listed, known
// differences. Shared by the differential test and the fuzz target.

#include <arpa/inet.h>
#include <string.h>

#include <random>
#include <string>

#include "os/net/kira_net.h"

namespace inet_diff {

// Known difference: a single colon after the last group is not refused, so
// "1::2:" reads as "1::2" where the C library refuses it. Listed only when
// the text without that colon parses to the same bytes in the C library.
inline bool TrailingColonLeniency(const std::string& text, const unsigned char* ours) {
    if (text.size() < 2 || text.back() != ':' || !isxdigit(static_cast<unsigned char>(text[text.size() - 2]))) {
        return false;
    }
    unsigned char theirs[16];
    return inet_pton(AF_INET6, text.substr(0, text.size() - 1).c_str(), theirs) == 1 && memcmp(ours, theirs, 16) == 0;
}

// Empty when both parsers agree on text (result, and bytes when valid) or
// differ only as listed above; otherwise what differs. A refused text must
// leave the output untouched.
inline std::string Compare(const std::string& text) {
    constexpr unsigned char kUntouched = 0xA5;
    unsigned char ours[16];
    unsigned char theirs[16];
    for (int family : {AF_INET, AF_INET6}) {
        const size_t size = family == AF_INET ? 4 : 16;
        memset(ours, kUntouched, sizeof ours);
        memset(theirs, 0, sizeof theirs);
        int mine = family == AF_INET ? KIRA_inet_pton4(text.c_str(), ours) : KIRA_inet_pton6(text.c_str(), ours);
        int libc = inet_pton(family, text.c_str(), theirs);
        const char* name = family == AF_INET ? "pton4" : "pton6";
        if (mine == 0) {
            for (unsigned char b : ours) {
                if (b != kUntouched) return std::string(name) + " wrote its output for a refused text";
            }
        }
        if (mine == libc && (mine != 1 || memcmp(ours, theirs, size) == 0)) continue;
        if (family == AF_INET6 && mine == 1 && libc == 0 && TrailingColonLeniency(text, ours)) continue;
        return std::string(name) + " gives " + std::to_string(mine) + ", the C library " + std::to_string(libc);
    }
    return "";
}

inline int Pick(std::mt19937& rng, int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); }

// Mixes of hexadecimal groups (some over-long), single and double colons,
// dotted parts (some over 255 or with leading zeros), IPv4 tails and a few
// stray characters.
inline std::string TokenSoup(std::mt19937& rng) {
    static const char kHex[] = "0123456789abcdefABCDEF";
    static const char kStray[] = " gx/%-\t";
    std::string text;
    for (int tokens = 1 + Pick(rng, 12); tokens > 0; tokens--) {
        switch (Pick(rng, 9)) {
            case 0:
            case 1:
            case 2:
                for (int n = 1 + Pick(rng, Pick(rng, 8) == 0 ? 6 : 4); n > 0; n--) text += kHex[Pick(rng, 22)];
                break;
            case 3:
            case 4:
                text += ':';
                break;
            case 5:
                text += "::";
                break;
            case 6:
                text += Pick(rng, 4) == 0 ? kStray[Pick(rng, sizeof kStray - 1)] : '.';
                break;
            case 7:
                text += (Pick(rng, 6) == 0 ? "0" : "") + std::to_string(Pick(rng, 300));
                break;
            default:
                for (int i = 0; i < 4; i++)
                    text += (i ? "." : "") + std::to_string(Pick(rng, 4) ? Pick(rng, 256) : 300);
                break;
        }
    }
    return text;
}

// A valid address (zero runs, either notation, sometimes an IPv4 tail) with
// up to two edits: near misses are where parsers disagree.
inline std::string NearAddress(std::mt19937& rng) {
    unsigned char bytes[16];
    for (unsigned char& b : bytes) b = static_cast<unsigned char>(Pick(rng, 3) == 0 ? 0 : rng());
    const int zeroFrom = Pick(rng, 16);
    memset(bytes + zeroFrom, 0, static_cast<size_t>(Pick(rng, 17 - zeroFrom)));
    if (Pick(rng, 4) == 0) memcpy(bytes, "\0\0\0\0\0\0\0\0\0\0\xff\xff", 12);
    char text[INET6_ADDRSTRLEN];
    inet_ntop(AF_INET6, bytes, text, sizeof text);
    std::string s = text;
    for (int edits = Pick(rng, 3); edits > 0 && !s.empty(); edits--) {
        const size_t at = static_cast<size_t>(Pick(rng, static_cast<int>(s.size()) + 1));
        switch (Pick(rng, 3)) {
            case 0:
                s.insert(at, 1, ":.0aF"[Pick(rng, 5)]);
                break;
            case 1:
                s.erase(at == s.size() ? at - 1 : at, 1);
                break;
            default:
                s += ':';
                break;
        }
    }
    return s;
}

inline std::string RandomText(std::mt19937& rng) { return Pick(rng, 2) ? TokenSoup(rng) : NearAddress(rng); }

}  // namespace inet_diff

#endif
