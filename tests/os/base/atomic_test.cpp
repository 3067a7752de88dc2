// Atomic counters: results, widths and freedom from races.

#include "os/base/kira_atomic.h"
#include "tests/os/base/base_test_util.h"

TEST(KiraAtomic, ResultsAndWidths) {
    atomic64_t v = ATOMIC64_INIT(1);
    EXPECT_EQ(atomic_dec_and_test(&v), 1);
    EXPECT_EQ(atomic_dec_and_test(&v), 0);
    EXPECT_EQ(atomic_inc_and_test(&v), 1);  // from -1
    atomic_set(&v, 10);
    atomic_add(5, &v);
    atomic_sub(2, &v);
    EXPECT_EQ(atomic_add_return(-3, &v), 10);
    EXPECT_EQ(atomic_sub_return(4, &v), 6);
    EXPECT_EQ(atomic_sub_and_test(6, &v), 1);
    atomic_inc(&v);
    atomic_dec(&v);
    EXPECT_EQ(atomic_inc_return(&v), 1);
    EXPECT_EQ(atomic_dec_return(&v), 0);

    // The counter is 64 bits, set sign-extended; *_return gives the low 32.
    atomic_set(&v, -1);
    EXPECT_EQ(v.counter, -1);
    v.counter = 0x100000005LL;
    EXPECT_EQ(atomic_inc_return(&v), 6);
    EXPECT_EQ(atomic_read(&v), 0x100000006LL);
    atomic_set(&v, 0x7FFFFFFF);
    EXPECT_EQ(atomic_add_return(1, &v), INT32_MIN);
    EXPECT_EQ(atomic_read(&v), 0x80000000LL);
    v.counter = 0x100000001LL;  // low 32 bits reach zero, the counter does not
    EXPECT_EQ(atomic_dec_and_test(&v), 0);
}

TEST(KiraAtomic, ConcurrentUpdatesLoseNothing) {
    constexpr int kRounds = 20000;
    atomic64_t v = ATOMIC64_INIT(0);
    base_test::OnThreads(4, [&v](int t) {
        for (int i = 0; i < kRounds; i++) {
            if (t % 2 == 0)
                atomic_inc(&v), atomic_add_return(2, &v);
            else
                atomic_sub(1, &v), atomic_dec_return(&v);
        }
    });
    EXPECT_EQ(atomic_read(&v), 2LL * kRounds);  // two threads +3 a round, two -2

    // A reference count released by four threads at once: one sees zero.
    for (int round = 0; round < 200; round++) {
        atomic64_t refs = ATOMIC64_INIT(4);
        atomic64_t winners = ATOMIC64_INIT(0);
        base_test::OnThreads(4, [&](int) {
            if (atomic_dec_and_test(&refs)) atomic_inc(&winners);
        });
        ASSERT_EQ(atomic_read(&winners), 1) << "round " << round;
    }
}
