#ifndef OS_BASE_KIRA_LIST_H
#define OS_BASE_KIRA_LIST_H

// Intrusive circular doubly linked list. An empty head points to itself
// both ways. Records put their list_head first. Header-only: nothing here
// is exported. Callers provide their own locking.

#include <stddef.h>

#define LIST_POISON1 ((struct list_head*)0x100100)
#define LIST_POISON2 ((struct list_head*)0x200200)

struct list_head {
    struct list_head* next;
    struct list_head* prev;
};

#define LIST_HEAD_INIT(name) \
    { &(name), &(name) }
#define LIST_HEAD(name) struct list_head name = LIST_HEAD_INIT(name)

static inline void INIT_LIST_HEAD(struct list_head* list) {
    list->next = list;
    list->prev = list;
}

static inline void __list_add(struct list_head* entry, struct list_head* prev, struct list_head* next) {
    next->prev = entry;
    entry->next = next;
    entry->prev = prev;
    prev->next = entry;
}

// Inserts right after the head (stack order).
static inline void list_add(struct list_head* entry, struct list_head* head) { __list_add(entry, head, head->next); }

// Inserts right before the head (queue order).
static inline void list_add_tail(struct list_head* entry, struct list_head* head) {
    __list_add(entry, head->prev, head);
}

static inline void __list_del(struct list_head* prev, struct list_head* next) {
    next->prev = prev;
    prev->next = next;
}

// The poison makes any later use of an unlinked node fault instead of
// silently corrupting a list.
static inline void list_del(struct list_head* entry) {
    __list_del(entry->prev, entry->next);
    entry->next = LIST_POISON1;
    entry->prev = LIST_POISON2;
}

static inline int list_empty(const struct list_head* head) { return head->next == head; }

#define list_entry(ptr, type, member) ((type*)((char*)(ptr)-offsetof(type, member)))

#define list_first_entry(ptr, type, member) list_entry((ptr)->next, type, member)

#define list_for_each(pos, head) for ((pos) = (head)->next; (pos) != (head); (pos) = (pos)->next)

// Safe against removal of pos: n holds the next node before the body runs.
#define list_for_each_safe(pos, n, head) \
    for ((pos) = (head)->next, (n) = (pos)->next; (pos) != (head); (pos) = (n), (n) = (pos)->next)

#define list_for_each_entry(pos, head, member)                                                   \
    for ((pos) = list_entry((head)->next, __typeof__(*(pos)), member); &(pos)->member != (head); \
         (pos) = list_entry((pos)->member.next, __typeof__(*(pos)), member))

#define list_for_each_entry_safe(pos, n, head, member)                    \
    for ((pos) = list_entry((head)->next, __typeof__(*(pos)), member),    \
        (n) = list_entry((pos)->member.next, __typeof__(*(pos)), member); \
         &(pos)->member != (head); (pos) = (n), (n) = list_entry((n)->member.next, __typeof__(*(n)), member))

#endif
