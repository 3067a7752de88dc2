#ifndef SAFEC_SCAN_FIELD_INTERNAL_H
#define SAFEC_SCAN_FIELD_INTERNAL_H

// Bounded output of the scanner's text fields (%s, %c, %[), converting
// between narrow and wide text where the directive asks for the other type.

#include <limits.h>
#include <stddef.h>
#include <wchar.h>

namespace safec {

enum class PutResult { kOk, kNoRoom, kBadChar };

// Writes one text field into the caller's buffer of `size` elements,
// keeping room for the terminator when the field has one. A null buffer
// (suppressed field) swallows everything.
template <typename InT, typename OutT>
class FieldWriter {
public:
    FieldWriter(OutT* buffer, size_t size, bool terminated)
        : buffer_(buffer), size_(size), capacity_(terminated ? (size > 0 ? size - 1 : 0) : size) {}

    PutResult Put(InT c) { return buffer_ == nullptr ? PutResult::kOk : Convert(c); }
    bool Complete() const { return buffer_ == nullptr || mbsinit(&state_) != 0; }
    void Terminate() {
        if (buffer_ != nullptr) {
            buffer_[used_] = 0;
        }
    }
    void Empty() {
        if (buffer_ != nullptr && size_ > 0) {
            buffer_[0] = 0;
        }
    }

private:
    PutResult Store(OutT c) {
        if (used_ >= capacity_) {
            return PutResult::kNoRoom;
        }
        buffer_[used_++] = c;
        return PutResult::kOk;
    }
    PutResult Convert(char c);     // narrow input
    PutResult Convert(wchar_t c);  // wide input

    OutT* buffer_;
    size_t size_;
    size_t capacity_;
    size_t used_ = 0;
    mbstate_t state_{};
};

template <>
inline PutResult FieldWriter<char, char>::Convert(char c) {
    return Store(c);
}

template <>
inline PutResult FieldWriter<wchar_t, wchar_t>::Convert(wchar_t c) {
    return Store(c);
}

// Multibyte input, one byte at a time, into wide characters.
template <>
inline PutResult FieldWriter<char, wchar_t>::Convert(char c) {
    wchar_t wc = 0;
    const size_t r = mbrtowc(&wc, &c, 1, &state_);
    if (r == static_cast<size_t>(-2)) {
        return PutResult::kOk;
    }
    if (r == static_cast<size_t>(-1)) {
        return PutResult::kBadChar;
    }
    return Store(wc);
}

// Wide input into multibyte text; a character is stored whole or not at all.
template <>
inline PutResult FieldWriter<wchar_t, char>::Convert(wchar_t c) {
    char bytes[MB_LEN_MAX];
    const size_t n = wcrtomb(bytes, c, &state_);
    if (n == static_cast<size_t>(-1)) {
        return PutResult::kBadChar;
    }
    if (n > capacity_ - used_) {
        return PutResult::kNoRoom;
    }
    for (size_t i = 0; i < n; ++i) {
        buffer_[used_++] = bytes[i];
    }
    return PutResult::kOk;
}

}  // namespace safec

#endif
