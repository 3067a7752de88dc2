// strtok_s and wcstok_s.

#include "safec/safec_internal.h"

extern "C" {

char* strtok_s(char* strToken, const char* strDelimit, char** context) {
    return safec::NextToken(strToken, strDelimit, context);
}

wchar_t* wcstok_s(wchar_t* strToken, const wchar_t* strDelimit, wchar_t** context) {
    return safec::NextToken(strToken, strDelimit, context);
}

}  // extern "C"
