#ifndef OS_BASE_READLINE_INTERNAL_H
#define OS_BASE_READLINE_INTERNAL_H

// KIRA_readline's rules over any source of bytes, shared by the byte-at-a-
// time reader and the buffered one: a line with its newline, carriage
// returns dropped, a longer line in pieces of size - 1; false at the end.
// next(&c) yields the following byte, false at end of file or on error.

namespace kira {

template <typename NextByte>
bool ReadLinePiece(char* buf, int size, NextByte next) {
    if (size <= 0 || buf == nullptr) {
        return false;
    }
    int pos = 0;
    int accepted = 0;
    while (pos < size - 1) {
        if (!next(&buf[pos])) {
            buf[pos] = '\0';
            break;
        }
        if (buf[pos] == '\n') {
            buf[pos + 1] = '\0';
            accepted++;
            break;
        }
        // A carriage return is overwritten by the next byte.
        if (buf[pos] != '\r') {
            accepted++;
            pos++;
        }
    }
    buf[size - 1] = '\0';
    return accepted != 0;
}

}  // namespace kira

#endif
