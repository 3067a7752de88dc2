#ifndef OS_BASE_KIRA_IO_H
#define OS_BASE_KIRA_IO_H

// Building blocks for reading directories and /proc, shared by every layer
// above so that none keeps a copy of its own. Internal C++ (namespace kira),
// never exported.
//
// DirWalk: the entries of one directory, "." and ".." skipped, optionally
// only one kind of entry and only names a filter accepts. It owns the DIR.
//     kira::DirWalk walk(opendir("/proc"), kira::DirWalk::kDirectories, kira::IsAllDigits);
//     if (!walk) { ...errno from opendir... }
//     while (const char* name = walk.Next()) { ... }
// A typed walk relies on the file system's entry type: an entry whose type
// is unknown is skipped, as procfs, tmpfs and the usual disks always say it.
//
// ReadFd: read(2) into a buffer, retried on EINTR.
//     ssize_t n = kira::ReadFd(fd, buf, sizeof(buf), kira::ReadEnd::kShortRead);
// kShortRead is for files the kernel produces in one piece: a read that
// returns less than asked has reached the end, so the read that would only
// return 0 is saved. That holds for /proc/<pid>/cmdline, stat, status and
// limits, /proc/stat and /proc/meminfo; it does not for files made of many
// records (/proc/net/dev, /proc/diskstats, /proc/cpuinfo, directories of
// records), whose reads may stop short at a record boundary: use kUntilEof.
// kOneRead takes what one read gives (a file another process may be
// rewriting). kUntilEof reads until end of file or a full buffer. Returns
// the bytes read, or -1 with errno when the first read fails; a later failure
// returns what was read before it.
//
// LineReader: fgets over a descriptor through a private 4 KiB buffer (no
// stdio allocation, no fstat); the ReadEnd given to Open decides whether a
// short read ends the file.
//     kira::LineReader reader;
//     if (!reader.Open("/proc/self/status", kira::ReadEnd::kShortRead)) { ...errno... }
//     char line[256];
//     while (reader.Gets(line, sizeof(line))) { ... }
// For a file other users may have planted (configuration files), OpenPlain
// takes regular files only and never blocks on the open (a FIFO, a device or
// a link to one fails with EINVAL), and ReadLine returns lines by
// KIRA_readline's rules (carriage returns dropped, a long line in pieces of
// size - 1) from the same buffer.
//
// ProcPidPath: "/proc/<pid>/<leaf>" (or "/proc/<pid>" for an empty leaf)
// into the caller's buffer of the caller's size, so each caller keeps its
// own length limit.
//     char path[64];
//     if (!kira::ProcPidPath(path, sizeof(path), pid, "status")) { ...too long... }
// The pid is printed as a signed number: pass static_cast<unsigned>(pid) for
// the unsigned spelling. The text form takes a directory entry's name as it
// stands. false (errno ENAMETOOLONG, buffer empty) when the path does not fit.

#include <dirent.h>
#include <stddef.h>
#include <sys/types.h>

#include "os/base/kira_raii.h"

namespace kira {

// Every character a decimal digit; an empty name is not a number.
bool IsAllDigits(const char* name);

class DirWalk {
public:
    enum Kind { kAnyEntry, kDirectories, kRegularFiles };
    using NameFilter = bool (*)(const char* name);

    explicit DirWalk(DIR* dir, Kind kind = kAnyEntry, NameFilter filter = nullptr)
        : dir_(dir), kind_(kind), filter_(filter) {}

    explicit operator bool() const { return static_cast<bool>(dir_); }
    DIR* dir() const { return dir_.get(); }
    // Name of the next accepted entry, valid until the following call; null
    // at the end (or when the directory could not be opened).
    const char* Next();

private:
    bool Accepts(const struct dirent* entry) const;

    UniqueDir dir_;
    Kind kind_;
    NameFilter filter_;
};

enum class ReadEnd { kShortRead, kOneRead, kUntilEof };

ssize_t ReadFd(int fd, void* buf, size_t size, ReadEnd end);

class LineReader {
public:
    // False (errno set) when the file cannot be opened for reading.
    bool Open(const char* path, ReadEnd end);
    // False (errno set) unless path is a regular file opened for reading.
    bool OpenPlain(const char* path);
    // fgets(buf, count, stream): at most count-1 bytes, up to and including
    // a newline; false at end of file with nothing read, or on a read error.
    bool Gets(char* buf, int count);
    // KIRA_readline(fd, buf, size) on the buffered file.
    bool ReadLine(char* buf, int size);

private:
    bool Fill();
    void Reset(int fd, ReadEnd end);
    UniqueFd fd_;
    ReadEnd end_ = ReadEnd::kUntilEof;
    size_t pos_ = 0;
    size_t len_ = 0;
    bool eof_ = false;
    char data_[4096];
};

bool ProcPidPath(char* buf, size_t size, long long pid, const char* leaf);
bool ProcPidPath(char* buf, size_t size, const char* pidText, const char* leaf);

}  // namespace kira

#endif
