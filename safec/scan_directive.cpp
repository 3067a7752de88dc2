// Parsing of scan directives (flags, width, length, conversion, %[ sets)
// and the %[ membership test, for narrow and wide formats.

#include "safec/scan_directive_internal.h"

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
        case 'q':
            *length = Length::kLL;
            return p + 1;
        case 'j':
            *length = Length::kJ;
            return p + 1;
        case 'z':
            *length = Length::kZ;
            return p + 1;
        case 't':
            *length = Length::kT;
            return p + 1;
        case 'L':
            *length = Length::kBigL;
            return p + 1;
        default:
            return p;
    }
}

// A ']' right after '[' or '[^' is a member, not the end of the set.
template <typename CharT>
const CharT* ParseSet(const CharT* p, Directive<CharT>* directive) {
    if (*p == '^') {
        directive->setNegated = true;
        ++p;
    }
    directive->setBegin = p;
    if (*p == ']') {
        ++p;
    }
    while (*p != 0 && *p != ']') {
        ++p;
    }
    if (*p == 0) {
        return nullptr;
    }
    directive->setEnd = p;
    return p + 1;
}

template <typename CharT>
bool IsConversion(CharT c) {
    static const char kConversions[] = "diouxXpnfFeEgGaAsc[%";
    return c != 0 && Code(c) < 128 && strchr(kConversions, static_cast<int>(c)) != nullptr;
}

}  // namespace

template <typename CharT>
const CharT* ParseDirective(const CharT* p, Directive<CharT>* directive) {
    if (*p == '%') {
        directive->conversion = '%';
        return p + 1;
    }
    if (*p == '*') {
        directive->suppress = true;
        ++p;
    }
    for (; *p >= '0' && *p <= '9'; ++p) {
        if (directive->width < kWidthCap) {
            directive->width = directive->width * 10 + static_cast<size_t>(*p - '0');
        }
    }
    if (directive->width >= kWidthCap) {
        directive->width = 0;
    }
    p = ParseLength(p, &directive->length);
    if (!IsConversion(*p)) {
        return nullptr;
    }
    directive->conversion = *p;
    if (*p == '[') {
        return ParseSet(p + 1, directive);
    }
    return p + 1;
}

// "a-z" is a range unless the '-' is first or last in the set.
template <typename CharT>
bool InSet(const Directive<CharT>& directive, CharT c) {
    bool found = false;
    for (const CharT* p = directive.setBegin; p < directive.setEnd && !found; ++p) {
        if (p + 2 < directive.setEnd && p[1] == '-') {
            found = Code(p[0]) <= Code(c) && Code(c) <= Code(p[2]);
            p += 2;
        } else {
            found = *p == c;
        }
    }
    return found != directive.setNegated;
}

template const char* ParseDirective(const char*, Directive<char>*);
template const wchar_t* ParseDirective(const wchar_t*, Directive<wchar_t>*);
template bool InSet(const Directive<char>&, char);
template bool InSet(const Directive<wchar_t>&, wchar_t);

}  // namespace safec
