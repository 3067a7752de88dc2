// fscanf_s, fwscanf_s and their va_list forms: the scan engine over a
// stream, holding the stream lock for the whole scan so that another
// thread's reads cannot interleave with one record.

#include "safec/scan_engine_internal.h"
#include "safec/safec.h"

namespace {

template <typename CharT>
int ScanStream(FILE* stream, const CharT* format, va_list args) {
    if (stream == nullptr || format == nullptr) {
        return EOF;
    }
    flockfile(stream);
    safec::StreamInput<CharT> input(stream);
    const int ret = safec::ScanInput(input, format, args);
    funlockfile(stream);
    return ret;
}

}  // namespace

extern "C" {

int vfscanf_s(FILE* stream, const char* format, va_list argList) { return ScanStream<char>(stream, format, argList); }

int fscanf_s(FILE* stream, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int ret = ScanStream<char>(stream, format, args);
    va_end(args);
    return ret;
}

int vfwscanf_s(FILE* stream, const wchar_t* format, va_list argList) {
    return ScanStream<wchar_t>(stream, format, argList);
}

int fwscanf_s(FILE* stream, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const int ret = ScanStream<wchar_t>(stream, format, args);
    va_end(args);
    return ret;
}

}  // extern "C"
