#ifndef OS_LOG_KEYED_TREE_INTERNAL_H
#define OS_LOG_KEYED_TREE_INTERNAL_H

// The group and module tables are the same kind of tree: records with their
// node first, keyed by a u32, never removed. Insertions and lookups hold the
// table's spin lock only for the walk; a record found stays valid after the
// lock is dropped because nothing is ever erased.

#include <pthread.h>
#include <stdint.h>

#include "os/base/kira_rbtree.h"
#include "os/log/log_util_internal.h"

template <typename T, uint32_t T::*Key>
class KeyedTree {
public:
    KeyedTree(rb_root* root, pthread_spinlock_t* lock) : root_(root), lock_(lock) {}

    T* Find(uint32_t key) const {
        SpinGuard hold(lock_);
        rb_node* n = root_->rb_node;
        while (n != nullptr) {
            T* rec = Entry(n);
            if (key < rec->*Key) {
                n = n->rb_left;
            } else if (key > rec->*Key) {
                n = n->rb_right;
            } else {
                return rec;
            }
        }
        return nullptr;
    }

    // False when a record with the same key is there already.
    bool Insert(T* rec) {
        SpinGuard hold(lock_);
        rb_node** link = &root_->rb_node;
        rb_node* parent = nullptr;
        while (*link != nullptr) {
            parent = *link;
            const uint32_t key = Entry(parent)->*Key;
            if (rec->*Key < key) {
                link = &parent->rb_left;
            } else if (rec->*Key > key) {
                link = &parent->rb_right;
            } else {
                return false;
            }
        }
        rb_link_node(&rec->node, parent, link);
        rb_insert_color(&rec->node, root_);
        return true;
    }

    // Ascending walk, one step per lock hold, so that a long walk doing I/O
    // never keeps inserters (and loggers) spinning.
    T* Next(T* prev) const {
        SpinGuard hold(lock_);
        rb_node* n = prev == nullptr ? rb_first(root_) : rb_next(&prev->node);
        return n == nullptr ? nullptr : Entry(n);
    }

private:
    static T* Entry(rb_node* n) { return reinterpret_cast<T*>(n); }  // the node is the first member

    rb_root* root_;
    pthread_spinlock_t* lock_;
};

#endif
