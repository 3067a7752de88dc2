// Parsing of scan directives (flags, width, length, conversion, %[ sets)
// and the %[ membership test, for narrow and wide formats.

#include "safec/scan_spec_internal.h"

#include <string.h>

#include "safec/scan_chars_internal.h"

namespace safec {
namespace {

// Widths beyond this are taken as "no limit"; no field can be that long.
constexpr size_t kWidthCap = 1u << 30;

template <typename CharT>
const CharT* ParseLength(const CharT* p, Length* length) {
    switch (*p) {
        case 'h':
            if (p[1] == 'h') {
                *length = Length::kHH;
                return p + 2;
            }
            *length = Length::kH;
            return p + 1;
        case 'l':
            if (p[1] == 'l') {
                *length = Length::kLL;
                return p + 2;
            }
            *length = Length::kL;
            return p + 1;
        case 'q': *length = Length::kLL; return p + 1;
        case 'j': *length = Length::kJ; return p + 1;
        case 'z': *length = Length::kZ; return p + 1;
        case 't': *length = Length::kT; return p + 1;
        case 'L': *length = Length::kBigL; return p + 1;
        default: return p;
    }
}

// A ']' right after '[' or '[^' is a member, not the end of the set.
template <typename CharT>
const CharT* ParseSet(const CharT* p, Spec<CharT>* spec) {
    if (*p == '^') {
        spec->setNegated = true;
        ++p;
    }
    spec->setBegin = p;
    if (*p == ']') ++p;
    while (*p != 0 && *p != ']') ++p;
    if (*p == 0) return nullptr;
    spec->setEnd = p;
    return p + 1;
}

template <typename CharT>
bool IsConversion(CharT c) {
    static const char kConversions[] = "diouxXpnfFeEgGaAsc[%";
    return c != 0 && Code(c) < 128 && strchr(kConversions, static_cast<int>(c)) != nullptr;
}

}  // namespace

template <typename CharT>
const CharT* ParseSpec(const CharT* p, Spec<CharT>* spec) {
    if (*p == '%') {
        spec->conversion = '%';
        return p + 1;
    }
    if (*p == '*') {
        spec->suppress = true;
        ++p;
    }
    for (; *p >= '0' && *p <= '9'; ++p) {
        if (spec->width < kWidthCap) spec->width = spec->width * 10 + static_cast<size_t>(*p - '0');
    }
    if (spec->width >= kWidthCap) spec->width = 0;
    p = ParseLength(p, &spec->length);
    if (!IsConversion(*p)) return nullptr;
    spec->conversion = *p;
    if (*p == '[') return ParseSet(p + 1, spec);
    return p + 1;
}

// "a-z" is a range unless the '-' is first or last in the set.
template <typename CharT>
bool InSet(const Spec<CharT>& spec, CharT c) {
    bool found = false;
    for (const CharT* p = spec.setBegin; p < spec.setEnd && !found; ++p) {
        if (p + 2 < spec.setEnd && p[1] == '-') {
            found = Code(p[0]) <= Code(c) && Code(c) <= Code(p[2]);
            p += 2;
        } else {
            found = *p == c;
        }
    }
    return found != spec.setNegated;
}

template const char* ParseSpec(const char*, Spec<char>*);
template const wchar_t* ParseSpec(const wchar_t*, Spec<wchar_t>*);
template bool InSet(const Spec<char>&, char);
template bool InSet(const Spec<wchar_t>&, wchar_t);

}  // namespace safec
