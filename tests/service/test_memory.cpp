/* Both routes of the memory manager: alignment, reuse, exhaustion, blocks that other threads free. */
#include <atomic>
#include <barrier>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <vector>

#include "run_probe.h"
#include "service/memory_pool.h"

static service_memory statistics()
{
    service_memory now;
    service_memory_statistics(&now);
    return now;
}

static bool is_aligned(const void *pointer, uint64_t alignment)
{
    return reinterpret_cast<uint64_t>(pointer) % alignment == 0;
}

/* Runs the body on a thread of its own, whose pool, new or inherited from an ended thread, has no block in use. */
static void on_new_thread(void (*body)())
{
    std::thread(body).join();
}

struct failing_system { /* every request to the system fails while this lives */
    service_system_allocator before = service_system;
    failing_system()
    {
        service_system.allocate = [](uint64_t) -> void * { return nullptr; };
        service_system.resize = [](void *, uint64_t) -> void * { return nullptr; };
    }
    ~failing_system()
    {
        service_system = before;
    }
};

TEST(memory, alignment_rule_on_all_routes)
{
    const int32_t cases[][2] = {{64, 64}, {100, 64}, {128, 128}, {0, 64}, {32, 64}, {-128, 64}, {4096, 4096}, {1 << 20, 1 << 20}};
    for (const auto &[asked, wanted] : cases) {
        for (const uint64_t size : {uint64_t{1}, uint64_t{777}, uint64_t{100000}}) {
            void *blocks[] = {service_alloc(size, asked), service_alloc_direct(size, asked),
                              service_calloc(static_cast<int64_t>(size), 1, asked)};
            for (void *block : blocks) {
                ASSERT_NE(block, nullptr);
                EXPECT_TRUE(is_aligned(block, static_cast<uint64_t>(wanted))) << asked;
                std::memset(block, 0x5a, size);
                service_free(block);
            }
        }
    }
}

TEST(memory, nothing_asked_nothing_given)
{
    const service_memory before = statistics();
    EXPECT_EQ(service_alloc(0, 64), nullptr);
    EXPECT_EQ(service_calloc(0, 8, 64), nullptr);
    EXPECT_EQ(service_calloc(-1, 8, 64), nullptr);
    EXPECT_EQ(service_calloc(int64_t{1} << 40, int64_t{1} << 40, 64), nullptr) << "the product wraps";
    EXPECT_EQ(service_alloc_direct(UINT64_MAX - 20, 64), nullptr) << "the sum wraps";
    EXPECT_EQ(service_alloc(UINT64_MAX, 64), nullptr);
    EXPECT_EQ(service_realloc(nullptr, 0), nullptr);
    service_free(nullptr);
    service_free_direct(nullptr);
    EXPECT_EQ(statistics().direct_bytes, before.direct_bytes);
}

TEST(memory, direct_blocks_come_zeroed_grow_and_are_counted)
{
    const service_memory before = statistics();
    auto *block = static_cast<char *>(service_calloc(300, 10, 256));
    for (int i = 0; i < 3000; ++i) ASSERT_EQ(block[i], 0);
    EXPECT_EQ(statistics().direct_bytes - before.direct_bytes, 3000 + 256 + 16);
    std::memset(block, 7, 3000);
    block = static_cast<char *>(service_realloc(block, 500000));
    ASSERT_NE(block, nullptr);
    for (int i = 0; i < 3000; ++i) ASSERT_EQ(block[i], 7);
    std::memset(block, 8, 500000);
    {
        const failing_system failing;
        EXPECT_EQ(service_realloc(block, 1000000), nullptr);
        EXPECT_EQ(block[499999], 8) << "the old block stays after a failure";
    }
    block = static_cast<char *>(service_realloc(block, 0));
    EXPECT_NE(block, nullptr) << "new size 0 keeps the header";
    EXPECT_EQ(statistics().direct_blocks - before.direct_blocks, 1);
    service_free_direct(block);
    service_free(service_realloc(nullptr, 10));
    EXPECT_EQ(statistics().direct_bytes, before.direct_bytes);
    EXPECT_EQ(statistics().direct_blocks, before.direct_blocks);
}

TEST(memory, pool_returns_the_same_block_and_chooses_the_best_fit)
{
    on_new_thread([] {
        void *block[5];
        const uint64_t sizes[] = {1000, 3000, 2000, 2000, 500};
        const service_memory before = statistics();
        for (int i = 0; i < 5; ++i) block[i] = service_alloc(sizes[i], 64);
        EXPECT_EQ(statistics().pooled_blocks - before.pooled_blocks, 5);
        EXPECT_EQ(statistics().pooled_bytes - before.pooled_bytes, 8500);
        void *sixth = service_alloc(100, 64);
        EXPECT_EQ(statistics().direct_blocks - before.direct_blocks, 1) << "all five are in use";
        service_free(sixth);
        EXPECT_EQ(statistics().direct_blocks, before.direct_blocks);
        for (void *b : block) service_free(b);
        EXPECT_EQ(statistics().pooled_bytes, before.pooled_bytes);

        EXPECT_EQ(service_alloc(2000, 64), block[2]) << "exact capacity, the earlier of two";
        EXPECT_EQ(service_alloc(1500, 64), block[3]) << "the smallest that is larger";
        EXPECT_EQ(service_alloc(1500, 64), block[1]);
        auto *moved = static_cast<char *>(service_alloc(400, 128));
        EXPECT_LT(static_cast<uint64_t>(moved - static_cast<char *>(block[4])), 128u) << "the same block, aligned anew";
        service_free(block[1]);
        void *replaced = service_alloc(5000, 64);
        EXPECT_EQ(statistics().direct_blocks, before.direct_blocks) << "a smaller free block is replaced";
        EXPECT_EQ(service_alloc(3000, 64), block[1]) << "the earliest one, block[0], went, and no other";
        for (void *b : {block[1], block[2], block[3], static_cast<void *>(moved), replaced}) service_free(b);
        void *edge[] = {service_alloc(pool_block_limit, 64), service_alloc(pool_block_limit + 1, 64)};
        EXPECT_EQ(statistics().pooled_blocks - before.pooled_blocks, 1);
        EXPECT_EQ(statistics().direct_blocks - before.direct_blocks, 1) << "above the pool's limit";
        for (void *b : edge) service_free(b);
        EXPECT_EQ(statistics().pooled_blocks, before.pooled_blocks);
    });
}

TEST(memory, exhaustion_costs_one_place_and_stays_null)
{
    on_new_thread([] {
        service_free(service_alloc(64, 64)); /* the pool stands before the system fails */
        const service_memory before = statistics();
        {
            const failing_system failing;
            EXPECT_EQ(service_alloc_direct(100, 64), nullptr);
            EXPECT_EQ(service_calloc(10, 10, 64), nullptr);
            EXPECT_EQ(service_alloc(pool_block_limit, 4096), nullptr) << "larger than whatever an inherited pool holds";
        }
        EXPECT_EQ(statistics().pooled_blocks, before.pooled_blocks) << "the place holds no block";
        for (int i = 0; i < 8; ++i) {
            void *block = service_alloc(70000, 64);
            EXPECT_NE(block, nullptr);
            service_free(block);
        }
    });
}

TEST(memory, blocks_go_back_to_the_pool_of_the_thread_that_took_them)
{
    void *mine = service_alloc(12345, 64);
    std::thread([mine] { service_free(mine); }).join();
    EXPECT_EQ(service_alloc(12345, 64), mine);
    service_free(mine);
}

/* Owners take blocks while others free them; the contents must never be shared by two holders. */
TEST(memory, blocks_change_hands_between_threads)
{
    constexpr int rounds = 2000, threads = 4;
    std::atomic<uint64_t *> exchange[threads] = {};
    std::atomic<int> faults{0};
    std::vector<std::thread> crew;
    for (int t = 0; t < threads; ++t) {
        crew.emplace_back([&, t] {
            for (uint64_t i = 0; i < rounds; ++i) {
                const uint64_t words = 16 + i * 7 % 512;
                auto *block = static_cast<uint64_t *>(service_alloc(words * 8, 64));
                const uint64_t mark = static_cast<uint64_t>(t) << 32 | i;
                block[0] = words;
                for (uint64_t k = 1; k < words; ++k) block[k] = mark;
                uint64_t *other = exchange[(i + static_cast<uint64_t>(t)) % threads].exchange(block);
                if (other == nullptr) continue;
                for (uint64_t k = 2; k < other[0]; ++k) faults += other[k] != other[1] ? 1 : 0;
                service_free(other);
            }
        });
    }
    for (std::thread &worker : crew) worker.join();
    for (std::atomic<uint64_t *> &left : exchange) service_free(left.load());
    EXPECT_EQ(faults.load(), 0);
}

/* One thread more than there are places: it must work, without a pool. Runs last, since it fills the table of this process. */
struct crowd {
    std::barrier<> all_hold{pool_places + 1};
    std::atomic<int64_t> failures{0};
};
static void *crowd_member(void *shared)
{
    auto *c = static_cast<crowd *>(shared);
    void *block = service_alloc(64, 64);
    if (block == nullptr) ++c->failures;
    c->all_hold.arrive_and_wait(); /* the starter reads the statistics between the two meetings */
    c->all_hold.arrive_and_wait();
    service_free(block);
    return nullptr;
}

TEST(memory_with_a_crowd, thread_1025_gets_direct_blocks)
{
    const service_memory before = statistics();
    crowd c;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 128 * 1024);
    std::vector<pthread_t> members(pool_places);
    for (pthread_t &member : members) ASSERT_EQ(pthread_create(&member, &attributes, crowd_member, &c), 0);
    c.all_hold.arrive_and_wait();
    const service_memory held = statistics();
    EXPECT_EQ(held.pooled_blocks - before.pooled_blocks + held.direct_blocks - before.direct_blocks, pool_places);
    EXPECT_GE(held.direct_blocks - before.direct_blocks, 1) << "this thread has a place already";
    EXPECT_EQ(service_pool_count(), pool_places);
    c.all_hold.arrive_and_wait();
    for (const pthread_t member : members) pthread_join(member, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(c.failures.load(), 0);
    EXPECT_EQ(statistics().direct_bytes, before.direct_bytes);
    EXPECT_EQ(statistics().pooled_bytes, before.pooled_bytes);
}

TEST(memory_environment, presence_alone_switches_the_pool_off)
{
    const auto memory_of = [](const std::vector<std::string> &environment) { return run_probe(PROBE_REAL, environment, "memory").output; };
    EXPECT_EQ(memory_of({}), "pooled=1 direct=0");
    EXPECT_EQ(memory_of({"WKL_MM_DISABLE=0"}), "pooled=0 direct=1");
    EXPECT_EQ(memory_of({"WKL_DISABLE_FAST_MM=1"}), "pooled=0 direct=1");
    EXPECT_EQ(memory_of({"WKL_DISABLE_FAST_MM=" + std::string(300, 'x')}), "pooled=0 direct=1");
}
