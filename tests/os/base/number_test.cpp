// Number parsing, bit maps, byte order, 64-bit division, atomic counters and the red-black tree.

#include <endian.h>

#include <random>
#include <set>
#include <thread>
#include <tuple>

#include "os/base/kira_atomic.h"
#include "os/base/kira_bitmap.h"
#include "os/base/kira_byteorder.h"
#include "os/base/kira_number.h"
#include "os/base/kira_rbtree.h"
#include "os/base/kira_system.h"
#include "tests/support/sandbox.h"

// No sign, blank or overflow handling: "" and a bare "0x" are numbers, values
// wrap modulo 2^64, and a stray character ends the value with a log line.
SANDBOX_TEST(KiraNumber, PredicateConversionsAndStrayCharacters) {
    // clang-format off
    for (auto [in, numeric, u, s] : std::initializer_list<std::tuple<const char*, int, uint64_t, int64_t>>{
             {"0x1fA", 0, 0x1fa, 0x1fa}, {"0XDEADbeef", 0, 0xdeadbeef, 0xdeadbeef}, {"", 0, 0, 0}, {"0x", 0, 0, 0},
             {"18446744073709551615", 0, UINT64_MAX, -1}, {"18446744073709551616", 0, 0, 0},
             {"0x10000000000000001", 0, 1, 1}, {"-9223372036854775808", -1, 0, INT64_MIN}, {"-0x10", -1, 0, -16},
             {"12a", -1, 12, 12}, {"1F", -1, 1, 1}, {"0x0x1", -1, 0, 0}, {" 12", -1, 0, 0}, {"--5", -1, 0, 0},
             {nullptr, -1, 0, 0}})
        EXPECT_EQ(std::make_tuple(KIRA_IsUnsignedNumbericStr(in), KIRA_StrToU64(in), KIRA_StrToS64(in)),
                  std::make_tuple(numeric, u, s)) << in;
    // clang-format on
    EXPECT_EQ(kt::SyslogCount("Not a numbric str: (", 6), 12);
    EXPECT_EQ(kt::SyslogCount("Not a numbric str: (-5).\n", 6), 1) << "the signed form logs the rest after its sign";
    char s[] = "MiXeD 0xAB-\xC4Z";
    KIRA_StrToLower(s), KIRA_StrToLower(nullptr);
    EXPECT_STREQ(s, "mixed 0xab-\xC4z");
}

// Bit maps least significant bit first; byte order against the C library (right on either endianness); division.
TEST(KiraWords, BitMapsByteOrderAndDivision) {
    unsigned char m[4] = {0, 0, 0, 0xFF};
    EXPECT_TRUE(KIRA_set_bit(9, m) == m + 1 && KIRA_set_bit(23, m) == m + 2 && KIRA_clear_bit(27, m) == m + 3);
    EXPECT_EQ(std::vector<int>(m, m + 4), (std::vector<int>{0, 0x02, 0x80, 0xF7}));
    EXPECT_EQ(KIRA_test_bit(23, m) + KIRA_test_bit(8, m), 0x80);  // the masked byte, not a boolean
    EXPECT_TRUE(!KIRA_set_bit(1, nullptr) && !KIRA_clear_bit(1, nullptr) && !KIRA_test_bit(1, nullptr));
    using T = std::tuple<uint16_t, uint32_t, uint64_t>;
    uint64_t x = 0x0102030405060708;
    EXPECT_EQ(T(BigEndianToCpu16(x), BigEndianToCpu32(x), BigEndianToCpu64(x)), T(be16toh(x), be32toh(x), be64toh(x)));
    EXPECT_EQ(T(CpuToBigEndian16(x), CpuToBigEndian32(x), CpuToBigEndian64(x)), T(htobe16(x), htobe32(x), htobe64(x)));
    EXPECT_EQ(T(LittleEndianToCpu16(x), LittleEndianToCpu32(x), LittleEndianToCpu64(x)),
              T(le16toh(x), le32toh(x), le64toh(x)));
    EXPECT_EQ(T(CpuToLittleEndian16(x), CpuToLittleEndian32(x), CpuToLittleEndian64(x)),
              T(htole16(x), htole32(x), htole64(x)));
    EXPECT_EQ(T(Swab16(x), Swab32(x), Swab64(x)), T(0x0807, 0x08070605, 0x0807060504030201));
    uint32_t rem = 99, zero = 99;  // a zero divisor gives 0 and leaves the low 32 bits
    EXPECT_EQ(KIRA_div64(UINT64_MAX, 0xFFFFFFFFu, &rem) + KIRA_div64(0x700000005ull, 0, &zero), 0x100000001ull);
    EXPECT_TRUE(rem == 0 && zero == 5 && KIRA_div64(7, 2, nullptr) == 3);
}

// Each *_return gives the low 32 bits of the 64-bit counter, each *_and_test looks at all 64; set sign-extends.
TEST(KiraAtomic, ResultsAndWidths) {
    atomic64_t v = ATOMIC64_INIT(1);
    // clang-format off
    const std::vector<long long> got = {
        atomic_dec_and_test(&v), atomic_dec_and_test(&v), atomic_inc_and_test(&v),
        (atomic_set(&v, 10), atomic_add(5, &v), atomic_sub(2, &v), atomic_add_return(-3, &v)), atomic_sub_return(4, &v),
        atomic_sub_and_test(6, &v), (atomic_inc(&v), atomic_dec(&v), atomic_inc_return(&v)), atomic_dec_return(&v),
        (atomic_set(&v, -1), v.counter), (v.counter = 0x17FFFFFFF, atomic_add_return(1, &v)), atomic_read(&v),
        (v.counter = 0x100000001, atomic_dec_and_test(&v))};
    // clang-format on
    EXPECT_EQ(got, (std::vector<long long>{1, 0, 1, 10, 6, 1, 1, 0, -1, INT32_MIN, 0x180000000, 0}));
}

// Two threads add 3 a round, two take 2; a count released by all four at once reaches zero for exactly one of them.
TEST(KiraAtomic, ConcurrentUpdatesLoseNothing) {
    atomic64_t v = ATOMIC64_INIT(0), refs = ATOMIC64_INIT(4), winners = ATOMIC64_INIT(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20000; i++) {
                t % 2 == 0 ? atomic_inc(&v) : atomic_sub(1, &v);
                (void)(t % 2 == 0 ? atomic_add_return(2, &v) : atomic_dec_return(&v));
            }
            if (atomic_dec_and_test(&refs)) {
                atomic_inc(&winners);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::make_pair(atomic_read(&v), atomic_read(&winners)), std::make_pair(int64_t{40000}, int64_t{1}));
}

struct TreeItem {
    rb_node node;
    int key, count;  // count: nodes in the subtree rooted here, the augmented field
};
static TreeItem* ItemOf(rb_node* n) { return rb_entry(n, TreeItem, node); }
static int CountOf(rb_node* n) { return n == nullptr ? 0 : ItemOf(n)->count; }
static void Recount(rb_node* n, void*) { ItemOf(n)->count = 1 + CountOf(n->rb_left) + CountOf(n->rb_right); }

// Black height of the subtree; any broken rule fails; the keys go in order.
static int Check(rb_node* n, rb_node* parent, std::vector<int>* keys) {
    if (n == nullptr) {
        return 1;
    }
    const int key = ItemOf(n)->key, left = Check(n->rb_left, n, keys);
    EXPECT_TRUE(rb_parent(n) == parent && !(rb_is_red(n) && (parent == nullptr || rb_is_red(parent))) &&
                ItemOf(n)->count == 1 + CountOf(n->rb_left) + CountOf(n->rb_right))
        << "parent, colour or count at " << key;
    keys->push_back(key);
    EXPECT_EQ(left, Check(n->rb_right, n, keys)) << "black heights differ under " << key;
    return left + (rb_is_black(n) ? 1 : 0);
}

// Against std::set under random inserts and erases, with the colour rules and an augmented subtree count.
TEST(RbTree, RandomInsertEraseAgainstOrderedSet) {
    std::vector<TreeItem> items(500);
    std::set<int> model;
    rb_root root = RB_ROOT;
    auto verify = [&] {
        std::vector<int> in, fwd, back;
        Check(root.rb_node, nullptr, &in);
        for (rb_node* n = rb_first(&root); n != nullptr; n = rb_next(n)) {
            fwd.push_back(ItemOf(n)->key);
        }
        for (rb_node* n = rb_last(&root); n != nullptr; n = rb_prev(n)) {
            back.insert(back.begin(), ItemOf(n)->key);
        }
        EXPECT_TRUE(in == std::vector<int>(model.begin(), model.end()) && fwd == in && back == in);
    };
    std::mt19937 rng(1);
    for (int step = 0; step < 8000 && !HasFailure(); step++) {
        TreeItem* it = &items[rng() % items.size()];
        it->key = static_cast<int>(it - items.data());
        if (model.insert(it->key).second) {
            rb_node **link = &root.rb_node, *parent = nullptr;  // the caller's walk by its own key
            while (*link) {
                parent = *link, link = it->key < ItemOf(parent)->key ? &parent->rb_left : &parent->rb_right;
            }
            it->count = 1;
            rb_link_node(&it->node, parent, link);
            rb_insert_color(&it->node, &root);
            rb_augment_insert(&it->node, Recount, nullptr);
        } else {
            rb_node* deepest = rb_augment_erase_begin(&it->node);
            rb_erase(&it->node, &root);
            rb_augment_erase_end(deepest, Recount, nullptr);
            model.erase(it->key);
        }
        if (step % 40 == 0) {
            verify();
        }
    }
    TreeItem fresh = *ItemOf(root.rb_node);  // takes the place and the colour, without rebalancing
    rb_replace_node(root.rb_node, &fresh.node, &root);
    verify();
}
