#ifndef SAFEC_SCAN_ENGINE_INTERNAL_H
#define SAFEC_SCAN_ENGINE_INTERNAL_H

// The scanf engine shared by sscanf_s, fscanf_s and the wide forms. It is a
// template over the character type and an input that hands out one
// character at a time and takes back at most the last one.

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <wchar.h>

namespace safec {

// A NUL-terminated text; reading stops at the terminator and never passes it.
template <typename CharT>
class StringInput {
public:
    explicit StringInput(const CharT* text) : next_(text) {}
    bool Next(CharT* c) {
        if (*next_ == 0) {
            return false;
        }
        *c = *next_++;
        ++consumed_;
        return true;
    }
    void Unget(CharT) {
        --next_;
        --consumed_;
    }
    size_t Consumed() const { return consumed_; }

private:
    const CharT* next_;
    size_t consumed_ = 0;
};

inline bool ReadStream(FILE* stream, char* c) {
    const int ch = getc_unlocked(stream);
    *c = static_cast<char>(ch);
    return ch != EOF;
}
inline bool ReadStream(FILE* stream, wchar_t* c) {
    const wint_t ch = fgetwc(stream);
    *c = static_cast<wchar_t>(ch);
    return ch != WEOF;
}
inline void UnreadStream(FILE* stream, char c) { ungetc(static_cast<unsigned char>(c), stream); }
inline void UnreadStream(FILE* stream, wchar_t c) { ungetwc(static_cast<wint_t>(c), stream); }

// A byte or wide stream; the caller holds the stream lock for the whole
// scan. The stream's own push-back keeps the one character given back.
template <typename CharT>
class StreamInput {
public:
    explicit StreamInput(FILE* stream) : stream_(stream) {}
    bool Next(CharT* c) {
        if (!ReadStream(stream_, c)) {
            return false;
        }
        ++consumed_;
        return true;
    }
    void Unget(CharT c) {
        UnreadStream(stream_, c);
        --consumed_;
    }
    size_t Consumed() const { return consumed_; }

private:
    FILE* stream_;
    size_t consumed_ = 0;
};

// Returns the number of fields assigned, or EOF when the input ends before
// the first conversion completes. Instantiated for the four inputs above.
template <typename CharT, typename Input>
int ScanInput(Input& input, const CharT* format, va_list args);

}  // namespace safec

#endif
