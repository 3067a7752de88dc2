// sscanf_s, swscanf_s and their va_list forms: the scan engine over a text.

#include "safec/scan_engine_internal.h"
#include "safec/safec.h"

namespace {

template <typename CharT>
int ScanText(const CharT* buffer, const CharT* format, va_list args) {
    if (buffer == nullptr || format == nullptr) {
        return EOF;
    }
    safec::StringInput<CharT> input(buffer);
    return safec::ScanInput(input, format, args);
}

}  // namespace

extern "C" {

int vsscanf_s(const char* buffer, const char* format, va_list argList) { return ScanText(buffer, format, argList); }

int sscanf_s(const char* buffer, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int ret = ScanText(buffer, format, args);
    va_end(args);
    return ret;
}

int vswscanf_s(const wchar_t* buffer, const wchar_t* format, va_list argList) {
    return ScanText(buffer, format, argList);
}

int swscanf_s(const wchar_t* buffer, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const int ret = ScanText(buffer, format, args);
    va_end(args);
    return ret;
}

}  // extern "C"
