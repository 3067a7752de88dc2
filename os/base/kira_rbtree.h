#ifndef OS_BASE_KIRA_RBTREE_H
#define OS_BASE_KIRA_RBTREE_H

// Intrusive red-black tree. The caller walks from the root by its own key,
// links the new node with rb_link_node and then calls rb_insert_color.
// The colour lives in the low bit of the parent pointer, so nodes must be
// at least pointer aligned. No locking: users hold their own.
//
// Augmented trees (a field per node computed from its children): after
// rb_insert_color call rb_augment_insert(node, fn, data); for erase take
// deepest = rb_augment_erase_begin(node), rb_erase, then
// rb_augment_erase_end(deepest, fn, data). fn recomputes one node from its
// children.

#include <stddef.h>

#include "os/base/kira_export.h"

#define RB_RED 0
#define RB_BLACK 1

struct rb_node {
    unsigned long rb_parent_color;
    struct rb_node* rb_right;
    struct rb_node* rb_left;
} __attribute__((aligned(sizeof(long))));

struct rb_root {
    struct rb_node* rb_node;
};

#define RB_ROOT \
    { NULL }
#define rb_entry(ptr, type, member) ((type*)((char*)(ptr)-offsetof(type, member)))

#define rb_parent(r) ((struct rb_node*)((r)->rb_parent_color & ~3UL))
#define rb_color(r) ((r)->rb_parent_color & 1UL)
#define rb_is_red(r) (!rb_color(r))
#define rb_is_black(r) (rb_color(r))

#define RB_EMPTY_ROOT(root) ((root)->rb_node == NULL)
// A node not in any tree points to itself.
#define RB_EMPTY_NODE(node) (rb_parent(node) == (node))
#define RB_CLEAR_NODE(node) ((node)->rb_parent_color = (unsigned long)(node))

static inline void rb_set_parent(struct rb_node* rb, struct rb_node* p) {
    rb->rb_parent_color = (rb->rb_parent_color & 3UL) | (unsigned long)p;
}

static inline void rb_set_color(struct rb_node* rb, unsigned long color) {
    rb->rb_parent_color = (rb->rb_parent_color & ~1UL) | color;
}

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*rb_augment_f)(struct rb_node* node, void* data);

// Puts node, red and childless, at *rb_link below parent.
KIRA_EXPORT void rb_link_node(struct rb_node* node, struct rb_node* parent, struct rb_node** rb_link);
KIRA_EXPORT void rb_insert_color(struct rb_node* node, struct rb_root* root);
KIRA_EXPORT void rb_erase(struct rb_node* node, struct rb_root* root);

KIRA_EXPORT struct rb_node* rb_first(const struct rb_root* root);
KIRA_EXPORT struct rb_node* rb_last(const struct rb_root* root);
KIRA_EXPORT struct rb_node* rb_next(const struct rb_node* node);
KIRA_EXPORT struct rb_node* rb_prev(const struct rb_node* node);

// Puts victim's replacement at its place without rebalancing: the caller
// guarantees both sort alike.
KIRA_EXPORT void rb_replace_node(struct rb_node* victim, struct rb_node* replacement, struct rb_root* root);

KIRA_EXPORT void rb_augment_insert(struct rb_node* node, rb_augment_f func, void* data);
KIRA_EXPORT struct rb_node* rb_augment_erase_begin(struct rb_node* node);
KIRA_EXPORT void rb_augment_erase_end(struct rb_node* node, rb_augment_f func, void* data);

#ifdef __cplusplus
}
#endif

#endif
