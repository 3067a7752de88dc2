// strcat_s, strncat_s and their wide forms.

#include "safec/safec_internal.h"

extern "C" {

errno_t strcat_s(char* strDest, size_t destsz, const char* strSrc) {
    return safec::AppendText(strDest, destsz, strSrc, destsz);
}

errno_t strncat_s(char* strDest, size_t destsz, const char* strSrc, size_t count) {
    return safec::AppendText(strDest, destsz, strSrc, count);
}

errno_t wcscat_s(wchar_t* strDest, size_t destsz, const wchar_t* strSrc) {
    return safec::AppendText(strDest, destsz, strSrc, destsz);
}

errno_t wcsncat_s(wchar_t* strDest, size_t destsz, const wchar_t* strSrc, size_t count) {
    return safec::AppendText(strDest, destsz, strSrc, count);
}

}  // extern "C"
