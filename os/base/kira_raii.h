#ifndef OS_BASE_KIRA_RAII_H
#define OS_BASE_KIRA_RAII_H

// Tiny owners for descriptors, streams, directories, heap blocks and lists
// of heap records, so that every early return releases what was acquired.
// Internal only: the exported interface stays plain C.

#include <dirent.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "os/base/kira_list.h"

namespace kira {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& o) noexcept : fd_(o.release()) {}
    UniqueFd& operator=(UniqueFd&& o) noexcept {
        if (this != &o) {
            reset(o.release());
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    // close() is never retried: on Linux the descriptor is gone even on EINTR.
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// Closer is any function taking the pointer (its result is ignored).
template <typename T, auto Closer>
class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(T* p) : p_(p) {}
    ~UniqueHandle() { reset(); }
    UniqueHandle(UniqueHandle&& o) noexcept : p_(o.release()) {}
    UniqueHandle& operator=(UniqueHandle&& o) noexcept {
        if (this != &o) {
            reset(o.release());
        }
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    T* get() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    T* release() {
        T* p = p_;
        p_ = nullptr;
        return p;
    }
    void reset(T* p = nullptr) {
        if (p_ != nullptr) {
            Closer(p_);
        }
        p_ = p;
    }

private:
    T* p_ = nullptr;
};

inline int FreeBlock(void* p) {
    ::free(p);
    return 0;
}

using UniqueFile = UniqueHandle<FILE, ::fclose>;
using UniqueDir = UniqueHandle<DIR, ::closedir>;
using UniqueBlock = UniqueHandle<void, FreeBlock>;

// Unlinks and frees every entry of a list whose records start with their
// list_head and came from malloc; the head itself is not reset.
inline void FreeListEntries(struct list_head* head) {
    struct list_head* pos;
    struct list_head* next;
    list_for_each_safe(pos, next, head) {
        list_del(pos);
        ::free(pos);
    }
}

// A list of such records that owns them: whatever is still linked when it
// goes is freed. The head lives inside the holder, so it does not move.
class HeapList {
public:
    HeapList() { INIT_LIST_HEAD(&head_); }
    ~HeapList() { FreeListEntries(&head_); }
    HeapList(const HeapList&) = delete;
    HeapList& operator=(const HeapList&) = delete;

    struct list_head* get() { return &head_; }

private:
    struct list_head head_;
};

// Holds a lock for the scope: Lock/Unlock are the pthread pair.
template <typename L, int (*Lock)(L*), int (*Unlock)(L*)>
class ScopedLock {
public:
    explicit ScopedLock(L* lock) : lock_(lock) { (void)Lock(lock_); }
    ~ScopedLock() { (void)Unlock(lock_); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    L* lock_;
};

using SpinGuard = ScopedLock<pthread_spinlock_t, ::pthread_spin_lock, ::pthread_spin_unlock>;
using MutexGuard = ScopedLock<pthread_mutex_t, ::pthread_mutex_lock, ::pthread_mutex_unlock>;

}  // namespace kira

#endif
