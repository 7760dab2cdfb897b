// Child processes: every work runs once, its result is its status, and failures are counted.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <vector>

using namespace tarvik;

namespace {

struct Tally {
    std::vector<int> done; // per index: 0 not reported, 1 ok, 2 failed
};

int Work(int index, void*) { return index % 3 == 0 ? 1 : 0; } // in the child: its own copy of everything

void Done(int index, bool ok, void* context)
{
    Tally& t = *static_cast<Tally*>(context);
    EXPECT_EQ(t.done[size_t(index)], 0) << "reported twice: " << index;
    t.done[size_t(index)] = ok ? 1 : 2;
}

} // namespace

TEST(PlatformProcessTest, RunsEveryWorkOnceAndCountsFailures)
{
    const struct {
        int count, parallel;
    } cases[] = {{0, 2}, {1, 1}, {7, 1}, {7, 3}, {7, 20}, {5, 0}};
    for (const auto& c : cases) {
        Tally t;
        t.done.assign(size_t(c.count), 0);
        const int failed = PlatformRunChildren(c.count, c.parallel, Work, Done, &t);
        EXPECT_EQ(failed, (c.count + 2) / 3) << c.count << " " << c.parallel;
        for (int i = 0; i < c.count; i++) EXPECT_EQ(t.done[size_t(i)], i % 3 == 0 ? 2 : 1) << i;
    }
}

// A child that dies takes the rest of its share with it: those works count as failed, once.
TEST(PlatformProcessTest, WorksOfADeadChildFail)
{
    Tally t;
    t.done.assign(9, 0);
    auto dies = [](int index, void*) -> int {
        if (index == 4) _exit(0);
        return 0;
    };
    EXPECT_EQ(PlatformRunChildren(9, 2, dies, Done, &t), 3); // the share 0 2 4 6 8 ends at 4
    for (int i = 0; i < 9; i++) EXPECT_EQ(t.done[size_t(i)], i >= 4 && i % 2 == 0 ? 2 : 1) << i;
}
