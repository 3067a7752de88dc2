// Reading /proc files: an fgets-compatible line reader over a private buffer
// (one open, one or two reads, one close; no allocation, no fstat), and the
// parsers of single stat, status and limits lines.

#include <fcntl.h>
#include <unistd.h>

#include "plugin/linux/common_plugin_internal.h"

namespace zadi {

bool LineReader::Open(const char* path) {
    fd_.reset(open(path, O_RDONLY | O_CLOEXEC));
    pos_ = 0;
    len_ = 0;
    eof_ = false;
    return fd_.valid();
}

bool LineReader::Fill() {
    ssize_t got;
    do {
        got = read(fd_.get(), data_, sizeof(data_));
    } while (got < 0 && errno == EINTR);
    if (got <= 0) {
        eof_ = true;
        return false;
    }
    pos_ = 0;
    len_ = static_cast<size_t>(got);
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

FirstLine ReadFirstLine(const char* path, char* buf, int size) {
    LineReader reader;
    if (!reader.Open(path)) {
        return FirstLine::kOpenFailed;
    }
    return reader.Gets(buf, size) ? FirstLine::kOk : FirstLine::kEmpty;
}

bool OpenPidFile(LineReader& reader, char (&path)[kPidPathSize], const char* format, int pid) {
    if (snprintf_s(path, kPidPathSize, kPidPathSize - 1, format, pid) < 0) {
        errno = ENAMETOOLONG;
        return false;
    }
    return reader.Open(path);
}

StatLineRead ReadStatLine(const char* path, kira::UniqueBlock& block) {
    constexpr int kStatLineSize = 1024;
    block.reset(malloc(kStatLineSize));
    if (!block) {
        return StatLineRead::kNoMemory;
    }
    char* line = static_cast<char*>(block.get());
    line[0] = '\0';
    return ReadFirstLine(path, line, kStatLineSize) == FirstLine::kOpenFailed ? StatLineRead::kOpenFailed
                                                                              : StatLineRead::kOk;
}

unsigned long long ParseStatLineTicks(const char* line) {
    unsigned long long utime = 0;
    unsigned long long stime = 0;
    const char* fields = ZADI_Linux_Plugin::get_items(line, 14);
    if (fields != nullptr) {
        (void)sscanf_s(fields, "%llu %llu", &utime, &stime);
    }
    return utime + stime;
}

int ParseStatusKb(const char* line) {
    int kb = 0;
    (void)sscanf_s(line, "%*s %d", &kb);
    return kb;
}

int ParseLimitSoft(const char* line) {
    int soft = 0;
    (void)sscanf_s(line, "%*s %*s %*s %d", &soft);
    return soft;
}

}  // namespace zadi
