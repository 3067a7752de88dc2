// Intrusive list: layout, insertion order, unlinking with poison.

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "gtest/gtest.h"
#include "os/base/kira_list.h"

namespace {

struct Rec {
    struct list_head link;
    int id;
};

std::vector<int> Ids(list_head* head)
{
    std::vector<int> ids;
    Rec* r;
    list_for_each_entry(r, head, link) ids.push_back(r->id);
    return ids;
}

}  // namespace

TEST(KiraList, OrderUnlinkAndPoison)
{
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
