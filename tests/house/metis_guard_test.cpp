/* The graph partitioner as the library calls it: repeatable under threads, and an allocation that fails is a code and nothing else. */
#include "bisect.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "service/service.h"

namespace
{
/* A grid of side by side vertices with diagonals, so that separators are not unique and random numbers matter. */
plain_graph grid(int64_t side)
{
    plain_graph graph;
    graph.start.push_back(0);
    for (int64_t y = 0; y < side; ++y)
        for (int64_t x = 0; x < side; ++x) {
            for (int64_t dy = -1; dy <= 1; ++dy)
                for (int64_t dx = -1; dx <= 1; ++dx) {
                    const int64_t u = x + dx, v = y + dy;
                    if ((dx != 0 || dy != 0) && u >= 0 && v >= 0 && u < side && v < side) graph.target.push_back(v * side + u);
                }
            graph.start.push_back(static_cast<int64_t>(graph.target.size()));
        }
    return graph;
}

bool separates(const plain_graph &graph, const vertex_marks &marks, int64_t left, int64_t right)
{
    for (size_t i = 0; i + 1 < graph.start.size(); ++i)
        for (int64_t p = graph.start[i]; p < graph.start[i + 1]; ++p)
            if (marks[i] == left && marks[static_cast<size_t>(graph.target[static_cast<size_t>(p)])] == right) return false;
    return true;
}

/* The system allocator of the services, counted, and told to fail once at a given request. */
service_system_allocator genuine;
std::atomic<int64_t> blocks_in_use{0};
std::atomic<int64_t> requests{0};
std::atomic<int64_t> failing_request{0};

bool fails_now()
{
    return ++requests == failing_request;
}

void *counted_allocate(uint64_t size)
{
    if (fails_now()) return nullptr;
    void *pointer = genuine.allocate(size);
    if (pointer != nullptr) ++blocks_in_use;
    return pointer;
}

void *counted_resize(void *pointer, uint64_t size)
{
    if (fails_now()) return nullptr;
    return genuine.resize(pointer, size);
}

void counted_release(void *pointer)
{
    if (pointer != nullptr) --blocks_in_use;
    genuine.release(pointer);
}

class metis_guard : public ::testing::TestWithParam<const metis_jobs *>
{
  protected:
    void SetUp() override
    {
        service_free_direct(service_alloc_direct(64, 64)); /* the memory manager settles itself before it is counted */
        genuine = service_system;
        blocks_in_use = 0;
        requests = 0;
        failing_request = 0;
        service_system = {counted_allocate, counted_resize, counted_release};
    }
    void TearDown() override
    {
        service_system = genuine;
        EXPECT_EQ(blocks_in_use, 0) << "a block of the partitioner was left behind";
    }
};

TEST_P(metis_guard, two_threads_at_once_find_what_one_after_the_other_finds)
{
    const plain_graph graphs[2] = {grid(90), grid(75)};
    vertex_marks alone[2], together[2];
    for (int i : {0, 1}) {
        ASSERT_EQ(GetParam()->bisect(nullptr, graphs[i], 11 + i, alone[i]), 0);
        EXPECT_TRUE(separates(graphs[i], alone[i], 0, 1));
        EXPECT_GT(std::count(alone[i].begin(), alone[i].end(), 0), 1000);
        EXPECT_GT(std::count(alone[i].begin(), alone[i].end(), 1), 1000);
    }
    for (int round = 0; round < 5; ++round) {
        std::thread other([&] { GetParam()->bisect(nullptr, graphs[1], 12, together[1]); });
        GetParam()->bisect(nullptr, graphs[0], 11, together[0]);
        other.join();
        EXPECT_EQ(together[0], alone[0]);
        EXPECT_EQ(together[1], alone[1]);
    }
    bool seed_matters = false;
    for (int64_t seed = 12; seed < 20; ++seed) {
        GetParam()->bisect(nullptr, graphs[0], seed, together[0]);
        seed_matters = seed_matters || together[0] != alone[0];
    }
    EXPECT_TRUE(seed_matters) << "the seed does not reach the generator";
}

TEST_P(metis_guard, halves_split_by_one_thread_are_ordered_and_freed_by_two)
{
    const plain_graph graph = grid(100);
    vertex_marks serial, parallel;
    ASSERT_EQ(GetParam()->dissect(graph, false, serial), 0);
    ASSERT_EQ(GetParam()->dissect(graph, true, parallel), 0);
    EXPECT_EQ(serial, parallel);
    EXPECT_TRUE(separates(graph, serial, 0, 1));
    EXPECT_TRUE(separates(graph, serial, 3, 4));
    for (int64_t left : {0, 1, 2})
        for (int64_t right : {3, 4, 5}) EXPECT_TRUE(separates(graph, serial, left, right));
}

TEST_P(metis_guard, each_allocation_may_fail)
{
    const plain_graph graph = grid(24);
    using marked_job = int64_t (*)(const metis_jobs *, const plain_graph &, vertex_marks &);
    const marked_job jobs[] = {
        [](const metis_jobs *j, const plain_graph &g, vertex_marks &m) { return j->bisect(nullptr, g, 5, m); },
        [](const metis_jobs *j, const plain_graph &g, vertex_marks &m) { return j->order(nullptr, g, 5, m); },
        [](const metis_jobs *j, const plain_graph &g, vertex_marks &m) { return j->kway(nullptr, g, 5, m); },
        [](const metis_jobs *j, const plain_graph &g, vertex_marks &m) { return j->dissect(g, true, m); },
    };
    for (marked_job job : jobs) {
        vertex_marks whole, marks;
        requests = 0;
        failing_request = 0;
        ASSERT_EQ(job(GetParam(), graph, whole), 0);
        const int64_t count = requests;
        ASSERT_GT(count, 20);
        for (int64_t k = 1; k <= count; k += 1 + count / 400) {
            requests = 0;
            failing_request = k;
            ASSERT_EQ(job(GetParam(), graph, marks), -2) << "request " << k << " of " << count;
            ASSERT_EQ(blocks_in_use, 0) << "request " << k << " of " << count;
        }
        failing_request = 0;
        ASSERT_EQ(job(GetParam(), graph, marks), 0);
        EXPECT_EQ(marks, whole) << "a failure left a trace in the next call";
    }
}

TEST_P(metis_guard, ordering_is_a_bijection_also_for_graphs_without_edges)
{
    plain_graph lonely;
    lonely.start.assign(51, 0);
    for (const plain_graph &graph : {grid(40), lonely}) {
        vertex_marks marks;
        ASSERT_EQ(GetParam()->order(nullptr, graph, 3, marks), 0);
        std::sort(marks.begin(), marks.end());
        for (size_t i = 0; i < marks.size(); ++i) ASSERT_EQ(marks[i], static_cast<int64_t>(i));
    }
}

INSTANTIATE_TEST_SUITE_P(width, metis_guard, ::testing::Values(&metis_jobs_64, &metis_jobs_32),
                         [](const auto &width_of) { return width_of.index == 0 ? "64_bits" : "32_bits"; });

TEST(metis_guard_frames, an_inner_guard_catches_first_and_gives_the_random_numbers_back)
{
    struct record {
        int64_t inner;
        uint64_t expected, drawn;
    } seen{};
    const auto inner = [](void *) {
        wkl_metis_gk_randint64();
        wkl_metis_malloc(100);
        wkl_metis_leave();
    };
    static void (*const inner_work)(void *) = inner;
    const auto draw_twice = [](void *argument) {
        wkl_metis_gk_randint64();
        static_cast<record *>(argument)->expected = wkl_metis_gk_randint64();
    };
    const auto outer = [](void *argument) {
        record *r = static_cast<record *>(argument);
        wkl_metis_gk_randint64();
        r->inner = wkl_metis_guard(nullptr, 99, inner_work, nullptr);
        r->drawn = wkl_metis_gk_randint64();
    };
    ASSERT_EQ(wkl_metis_guard(nullptr, 5, draw_twice, &seen), 0);
    ASSERT_EQ(wkl_metis_guard(nullptr, 5, outer, &seen), 0);
    EXPECT_EQ(seen.inner, -2);
    EXPECT_EQ(seen.drawn, seen.expected);
}

TEST(metis_guard_frames, a_block_that_grows_keeps_its_content_and_its_arena)
{
    wkl_metis_arena arena;
    wkl_metis_arena_open(&arena);
    const auto grow = [](void *) {
        char *first = static_cast<char *>(wkl_metis_malloc(5));
        char *second = static_cast<char *>(wkl_metis_calloc(5, 1));
        std::fill(first, first + 5, 'x');
        first = static_cast<char *>(wkl_metis_realloc(first, 1 << 20));
        if (std::count(first, first + 5, 'x') != 5 || second[4] != 0) wkl_metis_leave();
        wkl_metis_free(second);
    };
    EXPECT_EQ(wkl_metis_guard(&arena, 1, grow, nullptr), 0);
    EXPECT_EQ(arena.block_count, 1);
    const auto too_large = [](void *) { wkl_metis_realloc(wkl_metis_malloc(8), SIZE_MAX - 100); };
    EXPECT_EQ(wkl_metis_guard(&arena, 1, too_large, nullptr), -2);
    EXPECT_EQ(arena.block_count, 2) << "a block whose growth failed stays with its arena";
    wkl_metis_arena_close(&arena);
    EXPECT_EQ(arena.block_count, 0);
}
} // namespace
