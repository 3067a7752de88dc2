// fgets over a raw descriptor: the /proc readers of every layer take lines
// this way, one open, one read for a kernel-made file, one close.

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "os/base/kira_io.h"
#include "os/base/readline_internal.h"

namespace kira {

void LineReader::Reset(int fd, ReadEnd end) {
    fd_.reset(fd);
    end_ = end;
    pos_ = 0;
    len_ = 0;
    eof_ = false;
}

bool LineReader::Open(const char* path, ReadEnd end) {
    Reset(open(path, O_RDONLY | O_CLOEXEC), end);
    return fd_.valid();
}

bool LineReader::OpenPlain(const char* path) {
    Reset(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC), ReadEnd::kUntilEof);
    struct stat st;
    if (fd_.valid() && (fstat(fd_.get(), &st) != 0 || !S_ISREG(st.st_mode))) {
        fd_.reset();
        errno = EINVAL;
    }
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

bool LineReader::ReadLine(char* buf, int size) {
    return ReadLinePiece(buf, size, [this](char* c) {
        if (pos_ == len_ && (eof_ || !Fill())) {
            return false;
        }
        *c = data_[pos_++];
        return true;
    });
}

}  // namespace kira
