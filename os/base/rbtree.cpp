// Red-black tree: rotation, insert rebalancing, erase with its rebalancing,
// in-order stepping, node replacement and the augmented-tree hooks.
//
// Each mirrored case pair is written once over a pair of child members
// (side, other) instead of twice with left and right swapped.

#include "os/base/kira_rbtree.h"

namespace {

using Child = struct rb_node* rb_node::*;

constexpr Child kLeft = &rb_node::rb_left;
constexpr Child kRight = &rb_node::rb_right;

inline Child Opposite(Child c) { return c == kLeft ? kRight : kLeft; }

inline bool IsBlackOrNil(const rb_node* n) { return n == nullptr || rb_is_black(n); }

inline void SetBlack(rb_node* n) { n->rb_parent_color |= RB_BLACK; }

inline void SetRed(rb_node* n) { n->rb_parent_color &= ~1UL; }

// Makes `to` take `from`'s place below `parent` (or at the root).
void ReplaceChild(rb_node* from, rb_node* to, rb_node* parent, rb_root* root) {
    if (parent == nullptr) {
        root->rb_node = to;
    } else if (parent->rb_left == from) {
        parent->rb_left = to;
    } else {
        parent->rb_right = to;
    }
}

// Lifts node's child on side `up` into node's place; node becomes that
// child's child on the other side. Colours are left alone.
void Rotate(rb_node* node, rb_root* root, Child up) {
    Child down = Opposite(up);
    rb_node* lifted = node->*up;
    rb_node* parent = rb_parent(node);

    node->*up = lifted->*down;
    if (lifted->*down != nullptr) {
        rb_set_parent(lifted->*down, node);
    }
    lifted->*down = node;
    rb_set_parent(lifted, parent);
    ReplaceChild(node, lifted, parent, root);
    rb_set_parent(node, lifted);
}

// Restores the colours after a black node was removed above `node` (which
// may be null), `parent` being node's parent.
void EraseFixup(rb_node* node, rb_node* parent, rb_root* root) {
    while (IsBlackOrNil(node) && node != root->rb_node) {
        Child side = parent->rb_left == node ? kLeft : kRight;
        Child other = Opposite(side);
        rb_node* sibling = parent->*other;
        if (rb_is_red(sibling)) {
            SetBlack(sibling);
            SetRed(parent);
            Rotate(parent, root, other);
            sibling = parent->*other;
        }
        if (IsBlackOrNil(sibling->rb_left) && IsBlackOrNil(sibling->rb_right)) {
            SetRed(sibling);
            node = parent;
            parent = rb_parent(node);
            continue;
        }
        if (IsBlackOrNil(sibling->*other)) {
            SetBlack(sibling->*side);
            SetRed(sibling);
            Rotate(sibling, root, side);
            sibling = parent->*other;
        }
        rb_set_color(sibling, rb_color(parent));
        SetBlack(parent);
        SetBlack(sibling->*other);
        Rotate(parent, root, other);
        node = root->rb_node;
        break;
    }
    if (node != nullptr) {
        SetBlack(node);
    }
}

rb_node* Extreme(rb_node* node, Child dir) {
    if (node == nullptr) {
        return nullptr;
    }
    while (node->*dir != nullptr) {
        node = node->*dir;
    }
    return node;
}

// In-order neighbour in direction `fwd` (right for next, left for prev).
rb_node* Step(const rb_node* node, Child fwd) {
    if (RB_EMPTY_NODE(node)) {
        return nullptr;
    }
    if (node->*fwd != nullptr) {
        return Extreme(node->*fwd, Opposite(fwd));
    }
    rb_node* parent;
    while ((parent = rb_parent(node)) != nullptr && node == parent->*fwd) {
        node = parent;
    }
    return parent;
}

// Recomputes node and, level by level up to the root, the sibling and the
// parent: after rotations the nodes whose subtrees changed are on this path
// or next to it.
void AugmentPath(rb_node* node, rb_augment_f func, void* data) {
    for (;;) {
        func(node, data);
        rb_node* parent = rb_parent(node);
        if (parent == nullptr) {
            return;
        }
        if (node == parent->rb_left && parent->rb_right != nullptr) {
            func(parent->rb_right, data);
        } else if (parent->rb_left != nullptr) {
            func(parent->rb_left, data);
        }
        node = parent;
    }
}

}  // namespace

extern "C" {

KIRA_EXPORT void rb_link_node(rb_node* node, rb_node* parent, rb_node** rb_link) {
    node->rb_parent_color = reinterpret_cast<unsigned long>(parent);
    node->rb_left = nullptr;
    node->rb_right = nullptr;
    *rb_link = node;
}

KIRA_EXPORT void rb_insert_color(rb_node* node, rb_root* root) {
    rb_node* parent;
    while ((parent = rb_parent(node)) != nullptr && rb_is_red(parent)) {
        // A red parent is never the root, so the grandparent exists.
        rb_node* gparent = rb_parent(parent);
        Child side = parent == gparent->rb_left ? kLeft : kRight;
        Child other = Opposite(side);
        rb_node* uncle = gparent->*other;
        if (uncle != nullptr && rb_is_red(uncle)) {
            SetBlack(uncle);
            SetBlack(parent);
            SetRed(gparent);
            node = gparent;
            continue;
        }
        if (parent->*other == node) {
            Rotate(parent, root, other);
            rb_node* tmp = parent;
            parent = node;
            node = tmp;
        }
        SetBlack(parent);
        SetRed(gparent);
        Rotate(gparent, root, side);
    }
    SetBlack(root->rb_node);
}

KIRA_EXPORT void rb_erase(rb_node* node, rb_root* root) {
    rb_node* child;
    rb_node* parent;
    unsigned long color;

    if (node->rb_left != nullptr && node->rb_right != nullptr) {
        // Two children: the in-order successor takes node's place, colour
        // included; the successor's old position is what loses a node.
        rb_node* old = node;
        node = Extreme(node->rb_right, kLeft);
        ReplaceChild(old, node, rb_parent(old), root);
        child = node->rb_right;
        parent = rb_parent(node);
        color = rb_color(node);
        if (parent == old) {
            parent = node;
        } else {
            if (child != nullptr) {
                rb_set_parent(child, parent);
            }
            parent->rb_left = child;
            node->rb_right = old->rb_right;
            rb_set_parent(old->rb_right, node);
        }
        node->rb_parent_color = old->rb_parent_color;
        node->rb_left = old->rb_left;
        rb_set_parent(old->rb_left, node);
    } else {
        child = node->rb_left != nullptr ? node->rb_left : node->rb_right;
        parent = rb_parent(node);
        color = rb_color(node);
        if (child != nullptr) {
            rb_set_parent(child, parent);
        }
        ReplaceChild(node, child, parent, root);
    }
    if (color == RB_BLACK) {
        EraseFixup(child, parent, root);
    }
}

KIRA_EXPORT rb_node* rb_first(const rb_root* root) { return Extreme(root->rb_node, kLeft); }

KIRA_EXPORT rb_node* rb_last(const rb_root* root) { return Extreme(root->rb_node, kRight); }

KIRA_EXPORT rb_node* rb_next(const rb_node* node) { return Step(node, kRight); }

KIRA_EXPORT rb_node* rb_prev(const rb_node* node) { return Step(node, kLeft); }

KIRA_EXPORT void rb_replace_node(rb_node* victim, rb_node* replacement, rb_root* root) {
    ReplaceChild(victim, replacement, rb_parent(victim), root);
    if (victim->rb_left != nullptr) {
        rb_set_parent(victim->rb_left, replacement);
    }
    if (victim->rb_right != nullptr) {
        rb_set_parent(victim->rb_right, replacement);
    }
    *replacement = *victim;
}

// Call after rb_insert_color: starts below the node, which rotations may
// have given children.
KIRA_EXPORT void rb_augment_insert(rb_node* node, rb_augment_f func, void* data) {
    if (node->rb_left != nullptr) {
        node = node->rb_left;
    } else if (node->rb_right != nullptr) {
        node = node->rb_right;
    }
    AugmentPath(node, func, data);
}

// Call before rb_erase: the deepest node whose subtree the erase changes,
// to be handed to rb_augment_erase_end afterwards.
KIRA_EXPORT rb_node* rb_augment_erase_begin(rb_node* node) {
    if (node->rb_left == nullptr && node->rb_right == nullptr) {
        return rb_parent(node);
    }
    if (node->rb_right == nullptr) {
        return node->rb_left;
    }
    if (node->rb_left == nullptr) {
        return node->rb_right;
    }
    rb_node* deepest = rb_next(node);
    if (deepest->rb_right != nullptr) {
        return deepest->rb_right;
    }
    if (rb_parent(deepest) != node) {
        return rb_parent(deepest);
    }
    return deepest;
}

KIRA_EXPORT void rb_augment_erase_end(rb_node* node, rb_augment_f func, void* data) {
    if (node != nullptr) {
        AugmentPath(node, func, data);
    }
}

}  // extern "C"
