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
inline bool TrailingColonLeniency(const char* text, const unsigned char* ours) {
    const size_t len = strlen(text);
    if (len < 2 || text[len - 1] != ':' || !isxdigit(static_cast<unsigned char>(text[len - 2]))) return false;
    unsigned char theirs[16];
    return inet_pton(AF_INET6, std::string(text, len - 1).c_str(), theirs) == 1 && memcmp(ours, theirs, 16) == 0;
}

// Empty when both parsers agree on text (result, and bytes when valid) or
// differ only as listed above; otherwise what differs. A refused text must
// leave the output untouched.
inline std::string Compare(const char* text) {
    constexpr unsigned char kUntouched = 0xA5;
    unsigned char ours[16];
    unsigned char theirs[16];
    for (int family : {AF_INET, AF_INET6}) {
        const size_t size = family == AF_INET ? 4 : 16;
        memset(ours, kUntouched, sizeof ours);
        memset(theirs, 0, sizeof theirs);
        int mine = family == AF_INET ? KIRA_inet_pton4(text, ours) : KIRA_inet_pton6(text, ours);
        int libc = inet_pton(family, text, theirs);
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
// dotted parts (some over 255 or with leading zeros), IPv4 tails and stray
// characters.
inline std::string TokenSoup(std::mt19937& rng) {
    static const char* const kTokens[] = {
        "0",         "7",        "a",  "F",  "12", "ff", "abc", "1234", "dEaD", "12345",   "00000",   ":",
        ":",         ":",        "::", "::", ".",  ".",  "01",  "255",  "256",  "1.2.3.4", "0.0.0.0", "255.255.255.255",
        "1.2.3.256", "01.2.3.4", " ",  "g",  "%"};
    std::string text;
    for (int n = 1 + Pick(rng, 12); n > 0; n--) text += kTokens[Pick(rng, sizeof kTokens / sizeof kTokens[0])];
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
    std::string s = inet_ntop(AF_INET6, bytes, text, sizeof text);
    for (int edits = Pick(rng, 3); edits > 0; edits--) {
        const size_t at = static_cast<size_t>(Pick(rng, static_cast<int>(s.size()) + 1));
        const int edit = Pick(rng, 3);
        s = edit == 0 ? s.insert(at, 1, ":.0aF"[Pick(rng, 5)]) : edit == 1 ? s.erase(at, 1) : s + ':';
    }
    return s;
}

inline std::string RandomText(std::mt19937& rng) { return Pick(rng, 2) ? TokenSoup(rng) : NearAddress(rng); }

}  // namespace inet_diff

#endif
