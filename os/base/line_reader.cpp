// fgets over a raw descriptor: the /proc readers of every layer take lines
// this way, one open, one read for a kernel-made file, one close.

#include <fcntl.h>

#include "os/base/kira_io.h"

namespace kira {

bool LineReader::Open(const char* path, ReadEnd end) {
    fd_.reset(open(path, O_RDONLY | O_CLOEXEC));
    end_ = end;
    pos_ = 0;
    len_ = 0;
    eof_ = false;
    return fd_.valid();
}

bool LineReader::Fill() {
    const ssize_t got = ReadFd(fd_.get(), data_, sizeof(data_), end_ == ReadEnd::kShortRead ? end_ : ReadEnd::kOneRead);
    if (got <= 0) {
        eof_ = true;
        return false;
    }
    pos_ = 0;
    len_ = static_cast<size_t>(got);
    eof_ = end_ == ReadEnd::kShortRead && len_ < sizeof(data_);
    return true;
}

bool LineReader::Gets(char* buf, int count) {
    if (count <= 0 || !fd_.valid()) {
        return false;
    }
    // As fgets: room for the terminator only means nothing is read.
    if (count == 1) {
        buf[0] = '\0';
        return true;
    }
    int n = 0;
    while (n < count - 1) {
        if (pos_ == len_ && (eof_ || !Fill())) {
            break;
        }
        const char c = data_[pos_++];
        buf[n++] = c;
        if (c == '\n') {
            break;
        }
    }
    if (n == 0) {
        return false;
    }
    buf[n] = '\0';
    return true;
}

}  // namespace kira
