// The scanf engine. In order: outcomes of one directive; the field cursor
// (a field's current character and how many more its width allows); the
// Scanner with its directive loop and one method per conversion family
// (integers, floating point, text fields, %n); the instantiations for
// string and stream inputs. Directive parsing is in scan_directive.cpp, bounded
// field output in scan_field_internal.h.

#include "safec/scan_engine_internal.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>

#include "safec/scan_chars_internal.h"
#include "safec/scan_field_internal.h"
#include "safec/scan_directive_internal.h"

namespace safec {
namespace {

enum class Outcome {
    kAssigned,  // field stored and counted
    kSkipped,   // suppressed conversion completed
    kNoted,     // %n, %% or a literal: no conversion
    kMismatch,  // matching failure: stop, keep the count
    kInputEnd,  // input failure: stop, EOF if nothing converted yet
    kNoRoom,    // text field too big for its buffer: stop
};

enum class TextKind { kString, kChars, kSet };

// The character of a field under examination; `have` is false once the
// input or the field's width is exhausted.
template <typename CharT>
struct Cursor {
    CharT c = 0;
    bool have = false;
    size_t left = 0;
};

// Floating text longer than this is refused rather than cut.
constexpr size_t kFloatTextMax = 512;

struct FloatText {
    char text[kFloatTextMax + 1];
    size_t length = 0;
    bool overflowed = false;
    void Append(unsigned long c) {
        if (length < kFloatTextMax) {
            text[length++] = static_cast<char>(c);
        } else {
            overflowed = true;
        }
    }
    bool Whole(const char* end) const { return !overflowed && length > 0 && end == text + length; }
};

template <typename CharT>
bool IsSign(CharT c) {
    return c == '+' || c == '-';
}

template <typename CharT, typename Input>
class Scanner {
public:
    Scanner(Input& input, va_list args) : input_(input) { va_copy(args_, args); }
    ~Scanner() { va_end(args_); }
    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;

    int Run(const CharT* format);

private:
    int Stop(Outcome outcome) const { return (outcome == Outcome::kInputEnd && !converted_) ? EOF : assigned_; }

    // Field reading: Begin takes the first character (false at input end),
    // Advance the next within the width, Release pushes back the one that
    // ended the field.
    bool Begin(size_t width, Cursor<CharT>* cur) {
        cur->left = width;
        Advance(cur);
        return cur->have;
    }
    void Advance(Cursor<CharT>* cur) {
        cur->have = cur->left != 0 && input_.Next(&cur->c);
        if (cur->have) {
            --cur->left;
        }
    }
    void Release(const Cursor<CharT>& cur) {
        if (cur.have) {
            input_.Unget(cur.c);
        }
    }
    void Keep(Cursor<CharT>* cur, FloatText* text) {
        text->Append(Code(cur->c));
        Advance(cur);
    }

    void SkipSpace();
    Outcome MatchLiteral(CharT expected);
    Outcome Convert(const Directive<CharT>& directive);
    Outcome ScanInteger(const Directive<CharT>& directive, int base, bool isSigned);
    Outcome ScanFloat(const Directive<CharT>& directive);
    bool CollectWord(const char* word, Cursor<CharT>* cur, FloatText* text);
    void CollectNan(Cursor<CharT>* cur, FloatText* text);
    void CollectNumber(Cursor<CharT>* cur, FloatText* text);
    bool CollectDigits(int base, Cursor<CharT>* cur, FloatText* text);
    Outcome ScanText(const Directive<CharT>& directive, TextKind kind);
    template <typename OutT>
    Outcome ScanTextInto(const Directive<CharT>& directive, TextKind kind, OutT* buffer, size_t size);
    bool Accepts(const Directive<CharT>& directive, TextKind kind, CharT c) const;
    Outcome StoreCount(const Directive<CharT>& directive);
    Outcome StoreInteger(const Directive<CharT>& directive, unsigned long long bits);
    Outcome StoreFloat(const Directive<CharT>& directive, const FloatText& text);
    template <typename T>
    Outcome StoreParsed(const Directive<CharT>& directive, const FloatText& text, T (*parse)(const char*, char**));

    Input& input_;
    va_list args_;
    int assigned_ = 0;
    bool converted_ = false;
};

template <typename CharT, typename Input>
int Scanner<CharT, Input>::Run(const CharT* format) {
    const CharT* f = format;
    while (*f != 0) {
        Outcome outcome;
        if (IsSpace(*f)) {
            while (IsSpace(*f)) {
                ++f;
            }
            SkipSpace();
            continue;
        }
        if (*f != '%') {
            outcome = MatchLiteral(*f++);
        } else {
            Directive<CharT> directive;
            f = ParseDirective(f + 1, &directive);
            if (f == nullptr) {
                return assigned_;
            }
            outcome = Convert(directive);
        }
        switch (outcome) {
            case Outcome::kAssigned:
                ++assigned_;
                converted_ = true;
                break;
            case Outcome::kSkipped:
                converted_ = true;
                break;
            case Outcome::kNoted:
                break;
            default:
                return Stop(outcome);
        }
    }
    return assigned_;
}

template <typename CharT, typename Input>
void Scanner<CharT, Input>::SkipSpace() {
    CharT c;
    while (input_.Next(&c)) {
        if (!IsSpace(c)) {
            input_.Unget(c);
            return;
        }
    }
}

template <typename CharT, typename Input>
Outcome Scanner<CharT, Input>::MatchLiteral(CharT expected) {
    CharT c;
    if (!input_.Next(&c)) {
        return Outcome::kInputEnd;
    }
    if (c == expected) {
        return Outcome::kNoted;
    }
    input_.Unget(c);
    return Outcome::kMismatch;
}

template <typename CharT, typename Input>
Outcome Scanner<CharT, Input>::Convert(const Directive<CharT>& directive) {
    switch (directive.conversion) {
        case 'n':
            return StoreCount(directive);
        case 'c':
            return ScanText(directive, TextKind::kChars);
        case '[':
            return ScanText(directive, TextKind::kSet);
        default:
            break;
    }
    SkipSpace();
    switch (directive.conversion) {
        case '%':
            return MatchLiteral('%');
        case 's':
            return ScanText(directive, TextKind::kString);
        case 'd':
            return ScanInteger(directive, 10, true);
        case 'i':
            return ScanInteger(directive, 0, true);
        case 'u':
            return ScanInteger(directive, 10, false);
        case 'o':
            return ScanInteger(directive, 8, false);
        case 'x':
        case 'X':
        case 'p':
            return ScanInteger(directive, 16, false);
        default:
            return ScanFloat(directive);
    }
}

// Base 0 (%i) takes the base from the prefix. After "0x" without a hex
// digit the value is 0 and the "0x" stays consumed: only one character can
// be pushed back into a stream.
template <typename CharT, typename Input>
Outcome Scanner<CharT, Input>::ScanInteger(const Directive<CharT>& directive, int base, bool isSigned) {
    Cursor<CharT> cur;
    if (!Begin(directive.width != 0 ? directive.width : SIZE_MAX, &cur)) {
        return Outcome::kInputEnd;
    }
    const bool negative = cur.c == '-';
    if (IsSign(cur.c)) {
        Advance(&cur);
    }
    bool sawDigit = false;
    if (cur.have && cur.c == '0' && (base == 0 || base == 16)) {
        sawDigit = true;
        Advance(&cur);
        if (cur.have && Lower(cur.c) == 'x') {
            base = 16;
            Advance(&cur);
        } else if (base == 0) {
            base = 8;
        }
    }
    if (base == 0) {
        base = 10;
    }
    const unsigned long long ubase = static_cast<unsigned long long>(base);
    unsigned long long value = 0;
    bool overflow = false;
    for (; cur.have && DigitValue(cur.c) < base; Advance(&cur)) {
        const unsigned long long digit = static_cast<unsigned long long>(DigitValue(cur.c));
        sawDigit = true;
        if (value > (ULLONG_MAX - digit) / ubase) {
            overflow = true;
        }
        value = value * ubase + digit;
    }
    Release(cur);
    if (!sawDigit) {
        return Outcome::kMismatch;
    }
    // Out-of-range values saturate as strtoll/strtoull do, then the store
    // keeps the low bits of the target type.
    if (isSigned) {
        const unsigned long long limit = negative ? 1ULL + LLONG_MAX : static_cast<unsigned long long>(LLONG_MAX);
        if (overflow || value > limit) {
            value = limit;
        }
    } else if (overflow) {
        return StoreInteger(directive, ULLONG_MAX);
    }
    return StoreInteger(directive, negative ? 0ULL - value : value);
}

// Collects the longest prefix of a floating-point number, then lets the C
// library convert it; a prefix that is not a whole number ("1e+") is a
// matching failure.
template <typename CharT, typename Input>
Outcome Scanner<CharT, Input>::ScanFloat(const Directive<CharT>& directive) {
    Cursor<CharT> cur;
    if (!Begin(directive.width != 0 ? directive.width : SIZE_MAX, &cur)) {
        return Outcome::kInputEnd;
    }
    FloatText text;
    if (IsSign(cur.c)) {
        Keep(&cur, &text);
    }
    if (cur.have && Lower(cur.c) == 'i') {
        if (CollectWord("inf", &cur, &text)) {
            CollectWord("inity", &cur, &text);
        }
    } else if (cur.have && Lower(cur.c) == 'n') {
        CollectNan(&cur, &text);
    } else {
        CollectNumber(&cur, &text);
    }
    Release(cur);
    text.text[text.length] = 0;
    return StoreFloat(directive, text);
}

// Keeps the characters of `word` (lower case) while the input matches
// them; true when the whole word matched.
template <typename CharT, typename Input>
bool Scanner<CharT, Input>::CollectWord(const char* word, Cursor<CharT>* cur, FloatText* text) {
    for (; *word != 0; ++word) {
        if (!cur->have || Lower(cur->c) != static_cast<CharT>(*word)) {
            return false;
        }
        Keep(cur, text);
    }
    return true;
}

// "nan" with an optional "(letters, digits, underscores)".
template <typename CharT, typename Input>
void Scanner<CharT, Input>::CollectNan(Cursor<CharT>* cur, FloatText* text) {
    if (!CollectWord("nan", cur, text) || !cur->have || cur->c != '(') {
        return;
    }
    Keep(cur, text);
    while (cur->have && (cur->c == '_' || DigitValue(cur->c) < 36)) {
        Keep(cur, text);
    }
    if (cur->have && cur->c == ')') {
        Keep(cur, text);
    }
}

// Digits, an optional point and digits, and an exponent (p for hex).
template <typename CharT, typename Input>
void Scanner<CharT, Input>::CollectNumber(Cursor<CharT>* cur, FloatText* text) {
    int base = 10;
    bool sawDigit = false;
    if (cur->have && cur->c == '0') {
        sawDigit = true;
        Keep(cur, text);
        if (cur->have && Lower(cur->c) == 'x') {
            base = 16;
            Keep(cur, text);
        }
    }
    sawDigit = CollectDigits(base, cur, text) || sawDigit;
    if (cur->have && cur->c == '.') {
        Keep(cur, text);
        sawDigit = CollectDigits(base, cur, text) || sawDigit;
    }
    if (!sawDigit || !cur->have || Lower(cur->c) != (base == 16 ? 'p' : 'e')) {
        return;
    }
    Keep(cur, text);
    if (cur->have && IsSign(cur->c)) {
        Keep(cur, text);
    }
    CollectDigits(10, cur, text);
}

template <typename CharT, typename Input>
bool Scanner<CharT, Input>::CollectDigits(int base, Cursor<CharT>* cur, FloatText* text) {
    bool any = false;
    while (cur->have && DigitValue(cur->c) < base) {
        Keep(cur, text);
        any = true;
    }
    return any;
}

template <typename CharT, typename Input>
Outcome Scanner<CharT, Input>::ScanText(const Directive<CharT>& directive, TextKind kind) {
    // Narrow scanning stores char unless 'l' asks for wide; wide scanning
    // stores wchar_t only with 'l'.
    const bool wideOut = directive.length == Length::kL;
    if (directive.suppress) {
        return wideOut ? ScanTextInto<wchar_t>(directive, kind, nullptr, 0)
                       : ScanTextInto<char>(directive, kind, nullptr, 0);
    }
    void* buffer = va_arg(args_, void*);
    const size_t size = va_arg(args_, unsigned int);
    if (buffer == nullptr) {
        return Outcome::kMismatch;
    }
    if (wideOut) {
        return ScanTextInto(directive, kind, static_cast<wchar_t*>(buffer), size);
    }
    return ScanTextInto(directive, kind, static_cast<char*>(buffer), size);
}

template <typename CharT, typename Input>
bool Scanner<CharT, Input>::Accepts(const Directive<CharT>& directive, TextKind kind, CharT c) const {
    switch (kind) {
        case TextKind::kString:
            return !IsSpace(c);
        case TextKind::kSet:
            return InSet(directive, c);
        default:
            return true;
    }
}

template <typename CharT, typename Input>
template <typename OutT>
Outcome Scanner<CharT, Input>::ScanTextInto(const Directive<CharT>& directive, TextKind kind, OutT* buffer,
                                            size_t size) {
    FieldWriter<CharT, OutT> out(buffer, size, kind != TextKind::kChars);
    const size_t width = directive.width != 0 ? directive.width : (kind == TextKind::kChars ? 1 : SIZE_MAX);
    Cursor<CharT> cur;
    if (!Begin(width, &cur)) {
        return Outcome::kInputEnd;
    }
    size_t taken = 0;
    for (; cur.have && Accepts(directive, kind, cur.c); Advance(&cur), ++taken) {
        const PutResult put = out.Put(cur.c);
        if (put == PutResult::kNoRoom) {
            out.Empty();
            return Outcome::kNoRoom;
        }
        // A refused field leaves no unterminated remains behind.
        if (put == PutResult::kBadChar) {
            out.Empty();
            return Outcome::kMismatch;
        }
    }
    Release(cur);
    if (taken == 0) {
        return Outcome::kMismatch;
    }
    // %c needs all of its width; the input ended before.
    if (kind == TextKind::kChars && taken != width) {
        return Outcome::kInputEnd;
    }
    if (!out.Complete()) {
        out.Empty();
        return Outcome::kMismatch;
    }
    if (kind != TextKind::kChars) {
        out.Terminate();
    }
    return directive.suppress ? Outcome::kSkipped : Outcome::kAssigned;
}

template <typename CharT, typename Input>
Outcome Scanner<CharT, Input>::StoreCount(const Directive<CharT>& directive) {
    if (directive.suppress) {
        return Outcome::kNoted;
    }
    const Outcome stored = StoreInteger(directive, input_.Consumed());
    return stored == Outcome::kAssigned ? Outcome::kNoted : stored;
}

template <typename CharT, typename Input>
Outcome Scanner<CharT, Input>::StoreInteger(const Directive<CharT>& directive, unsigned long long bits) {
    if (directive.suppress) {
        return Outcome::kSkipped;
    }
    void* target = va_arg(args_, void*);
    if (target == nullptr) {
        return Outcome::kMismatch;
    }
    if (directive.conversion == 'p') {
        *static_cast<void**>(target) = reinterpret_cast<void*>(static_cast<uintptr_t>(bits));
        return Outcome::kAssigned;
    }
    switch (directive.length) {
        case Length::kHH:
            *static_cast<unsigned char*>(target) = static_cast<unsigned char>(bits);
            break;
        case Length::kH:
            *static_cast<unsigned short*>(target) = static_cast<unsigned short>(bits);
            break;
        case Length::kNone:
            *static_cast<unsigned int*>(target) = static_cast<unsigned int>(bits);
            break;
        case Length::kL:
            *static_cast<unsigned long*>(target) = static_cast<unsigned long>(bits);
            break;
        case Length::kJ:
            *static_cast<uintmax_t*>(target) = static_cast<uintmax_t>(bits);
            break;
        case Length::kZ:
            *static_cast<size_t*>(target) = static_cast<size_t>(bits);
            break;
        case Length::kT:
            *static_cast<ptrdiff_t*>(target) = static_cast<ptrdiff_t>(bits);
            break;
        default:
            *static_cast<unsigned long long*>(target) = bits;
            break;
    }
    return Outcome::kAssigned;
}

// The target type follows the length: none float, l double, L long double.
template <typename CharT, typename Input>
Outcome Scanner<CharT, Input>::StoreFloat(const Directive<CharT>& directive, const FloatText& text) {
    switch (directive.length) {
        case Length::kL:
            return StoreParsed<double>(directive, text, strtod);
        case Length::kBigL:
            return StoreParsed<long double>(directive, text, strtold);
        default:
            return StoreParsed<float>(directive, text, strtof);
    }
}

template <typename CharT, typename Input>
template <typename T>
Outcome Scanner<CharT, Input>::StoreParsed(const Directive<CharT>& directive, const FloatText& text,
                                           T (*parse)(const char*, char**)) {
    char* end = nullptr;
    const T value = parse(text.text, &end);
    if (!text.Whole(end)) {
        return Outcome::kMismatch;
    }
    if (directive.suppress) {
        return Outcome::kSkipped;
    }
    T* target = va_arg(args_, T*);
    if (target == nullptr) {
        return Outcome::kMismatch;
    }
    *target = value;
    return Outcome::kAssigned;
}

}  // namespace

template <typename CharT, typename Input>
int ScanInput(Input& input, const CharT* format, va_list args) {
    Scanner<CharT, Input> scanner(input, args);
    return scanner.Run(format);
}

template int ScanInput<char, StringInput<char>>(StringInput<char>&, const char*, va_list);
template int ScanInput<wchar_t, StringInput<wchar_t>>(StringInput<wchar_t>&, const wchar_t*, va_list);
template int ScanInput<char, StreamInput<char>>(StreamInput<char>&, const char*, va_list);
template int ScanInput<wchar_t, StreamInput<wchar_t>>(StreamInput<wchar_t>&, const wchar_t*, va_list);

}  // namespace safec
