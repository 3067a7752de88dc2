// strcpy_s, strncpy_s and their wide forms. strcpy_s is strncpy_s whose
// count never cuts the source before destMax does.

#include "safec/safec_internal.h"

extern "C" {

errno_t strcpy_s(char* strDest, size_t destMax, const char* strSrc) {
    return safec::CopyText(strDest, destMax, strSrc, destMax);
}

errno_t strncpy_s(char* strDest, size_t destMax, const char* strSrc, size_t count) {
    return safec::CopyText(strDest, destMax, strSrc, count);
}

errno_t wcscpy_s(wchar_t* strDest, size_t destMax, const wchar_t* strSrc) {
    return safec::CopyText(strDest, destMax, strSrc, destMax);
}

errno_t wcsncpy_s(wchar_t* strDest, size_t destMax, const wchar_t* strSrc, size_t count) {
    return safec::CopyText(strDest, destMax, strSrc, count);
}

}  // extern "C"
