#ifndef SAFEC_SCAN_DIRECTIVE_INTERNAL_H
#define SAFEC_SCAN_DIRECTIVE_INTERNAL_H

// One parsed %-directive of a scan format.

#include <stddef.h>

namespace safec {

enum class Length { kNone, kHH, kH, kL, kLL, kJ, kZ, kT, kBigL };

template <typename CharT>
struct Directive {
    bool suppress = false;
    size_t width = 0;  // 0: none given
    Length length = Length::kNone;
    CharT conversion = 0;
    bool setNegated = false;
    const CharT* setBegin = nullptr;  // %[ members, between [ (or ^) and ]
    const CharT* setEnd = nullptr;
};

// Parses the directive after '%'; returns the position after it, or null
// for a malformed or unsupported directive.
template <typename CharT>
const CharT* ParseDirective(const CharT* p, Directive<CharT>* directive);

// Whether c belongs to the %[ set of directive (negation applied).
template <typename CharT>
bool InSet(const Directive<CharT>& directive, CharT c);

}  // namespace safec

#endif
