// Intrusive list, and the red-black tree against std::set under random
// inserts and erases, with the colour rules and an augmented subtree count.

#include <algorithm>
#include <random>
#include <set>

#include "os/base/kira_list.h"
#include "os/base/kira_rbtree.h"
#include "tests/os/base/base_test_util.h"

namespace {

struct Rec {
    struct list_head link;
    int id;
};

std::vector<int> Ids(list_head* head) {
    std::vector<int> ids;
    Rec* r;
    list_for_each_entry(r, head, link) ids.push_back(r->id);
    return ids;
}

struct Item {
    struct rb_node node;
    int key;
    int count;  // nodes in the subtree rooted here (the augmented field)
};

Item* ItemOf(rb_node* n) { return rb_entry(n, Item, node); }
int CountOf(rb_node* n) { return n == nullptr ? 0 : ItemOf(n)->count; }

void Recount(rb_node* n, void* calls) {
    ++*static_cast<int*>(calls);
    ItemOf(n)->count = 1 + CountOf(n->rb_left) + CountOf(n->rb_right);
}

// The caller's walk by its own key: smaller to the left.
void Insert(rb_root* root, Item* item, int* calls) {
    rb_node** link = &root->rb_node;
    rb_node* parent = nullptr;
    while (*link != nullptr) {
        parent = *link;
        link = item->key < ItemOf(parent)->key ? &parent->rb_left : &parent->rb_right;
    }
    item->count = 1;
    rb_link_node(&item->node, parent, link);
    rb_insert_color(&item->node, root);
    if (calls != nullptr) rb_augment_insert(&item->node, Recount, calls);
}

void Erase(rb_root* root, Item* item, int* calls) {
    rb_node* deepest = calls != nullptr ? rb_augment_erase_begin(&item->node) : nullptr;
    rb_erase(&item->node, root);
    if (calls != nullptr) rb_augment_erase_end(deepest, Recount, calls);
}

// Black height of the subtree; records any broken rule and the keys in order.
int Check(rb_node* n, rb_node* parent, bool augmented, std::vector<int>* keys) {
    if (n == nullptr) return 1;
    int key = ItemOf(n)->key;
    EXPECT_EQ(rb_parent(n), parent) << "parent pointer of " << key;
    EXPECT_FALSE(rb_is_red(n) && (parent == nullptr || rb_is_red(parent))) << "red root or red-red at " << key;
    int left = Check(n->rb_left, n, augmented, keys);
    keys->push_back(key);
    EXPECT_EQ(left, Check(n->rb_right, n, augmented, keys)) << "black heights differ under " << key;
    EXPECT_TRUE(!augmented || ItemOf(n)->count == 1 + CountOf(n->rb_left) + CountOf(n->rb_right))
        << "stale count at " << key;
    return left + (rb_is_black(n) ? 1 : 0);
}

void VerifyTree(rb_root* root, const std::set<int>& model, bool augmented) {
    std::vector<int> inorder, forward, backward;
    Check(root->rb_node, nullptr, augmented, &inorder);
    EXPECT_EQ(inorder, std::vector<int>(model.begin(), model.end()));
    for (rb_node* n = rb_first(root); n != nullptr; n = rb_next(n)) forward.push_back(ItemOf(n)->key);
    for (rb_node* n = rb_last(root); n != nullptr; n = rb_prev(n)) backward.push_back(ItemOf(n)->key);
    std::reverse(backward.begin(), backward.end());
    EXPECT_EQ(forward, inorder);
    EXPECT_EQ(backward, inorder);
}

}  // namespace

TEST(KiraList, OrderUnlinkAndPoison) {
    EXPECT_EQ(offsetof(list_head, next), 0u);
    EXPECT_EQ(offsetof(list_head, prev), sizeof(void*));
    LIST_HEAD(head);
    EXPECT_TRUE(list_empty(&head));
    EXPECT_EQ(head.prev, &head);

    Rec r[4] = {{{}, 0}, {{}, 1}, {{}, 2}, {{}, 3}};
    list_add_tail(&r[1].link, &head);
    list_add_tail(&r[2].link, &head);
    list_add(&r[0].link, &head);
    list_add_tail(&r[3].link, &head);
    EXPECT_EQ(Ids(&head), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(head.prev, &r[3].link);
    EXPECT_EQ(list_entry(head.next, Rec, link), &r[0]);

    list_del(&r[1].link);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(r[1].link.next), 0x100100u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(r[1].link.prev), 0x200200u);
    EXPECT_EQ(Ids(&head), (std::vector<int>{0, 2, 3}));
    EXPECT_EQ(r[2].link.prev, &r[0].link);

    Rec* pos;
    Rec* n;
    list_for_each_entry_safe(pos, n, &head, link) list_del(&pos->link);
    EXPECT_TRUE(list_empty(&head));
    EXPECT_EQ(head.prev, &head);
}

TEST(RbTree, RandomInsertEraseMatchesOrderedSet) {
    for (unsigned seed = 1; seed <= 6; seed++) {
        const bool augmented = seed % 2 == 0;
        std::vector<Item> items(600);
        std::set<int> model;
        rb_root root = RB_ROOT;
        std::mt19937 rng(seed);
        int calls = 0;
        int* hook = augmented ? &calls : nullptr;
        for (int step = 0; step < 4000; step++) {
            int k = static_cast<int>(rng() % items.size());
            items[k].key = k;
            if (model.insert(k).second)
                Insert(&root, &items[k], hook);
            else
                Erase(&root, &items[k], hook), model.erase(k);
            if (step % 50 == 0 || step > 3900) VerifyTree(&root, model, augmented);
            ASSERT_FALSE(HasFailure()) << "seed " << seed << " step " << step;
        }
        for (int k : model) Erase(&root, &items[k], hook);
        EXPECT_TRUE(RB_EMPTY_ROOT(&root));
        EXPECT_EQ(calls > 0, augmented);
    }
}

TEST(RbTree, ReplaceNodeLayoutAndEdges) {
    // Parent-and-colour word first, then right, then left.
    EXPECT_EQ(offsetof(rb_node, rb_parent_color), 0u);
    EXPECT_EQ(offsetof(rb_node, rb_right), sizeof(void*));
    EXPECT_EQ(offsetof(rb_node, rb_left), 2 * sizeof(void*));

    std::vector<Item> items(64);
    rb_root root = RB_ROOT;
    EXPECT_EQ(rb_first(&root), nullptr);
    EXPECT_EQ(rb_last(&root), nullptr);
    std::set<int> model;
    for (int k = 0; k < 64; k++) {
        items[k].key = k;
        Insert(&root, &items[k], nullptr);
        model.insert(k);
    }
    EXPECT_EQ(root.rb_node->rb_parent_color, static_cast<unsigned long>(RB_BLACK));
    for (int k : {0, 31, 63, ItemOf(root.rb_node)->key}) {
        Item fresh = {};
        fresh.key = k;
        unsigned long colour = rb_color(&items[k].node);
        rb_replace_node(&items[k].node, &fresh.node, &root);
        EXPECT_EQ(rb_color(&fresh.node), colour);
        VerifyTree(&root, model, false);
        rb_replace_node(&fresh.node, &items[k].node, &root);
    }
    Item lone = {};
    RB_CLEAR_NODE(&lone.node);
    EXPECT_EQ(rb_next(&lone.node), nullptr);
    EXPECT_EQ(rb_prev(&lone.node), nullptr);
    EXPECT_EQ(rb_augment_erase_begin(&items[0].node), rb_parent(&items[0].node));  // a leaf
}
