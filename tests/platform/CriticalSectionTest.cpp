#include "framework/platform/CriticalSection.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

namespace Orvan::Framework::Platform {
namespace {

// The logger takes its lock again while it holds it (a target logging its own
// failure): the owner may re-enter, and each entry needs its own leave.
TEST(CriticalSectionTest, TheOwnerReentersAndOthersWaitUntilTheLastLeave) {
    CriticalSection section;
    section.lock();
    ASSERT_TRUE(section.try_lock());
    bool otherGotIt = true;
    std::thread([&] { otherGotIt = section.try_lock(); }).join();
    EXPECT_FALSE(otherGotIt);
    section.unlock();
    std::thread([&] { otherGotIt = section.try_lock(); }).join();
    EXPECT_FALSE(otherGotIt) << "one leave of two released the section";
    section.unlock();
    std::thread([&] {
        otherGotIt = section.try_lock();
        if (otherGotIt) {
            section.unlock();
        }
    }).join();
    EXPECT_TRUE(otherGotIt);
}

TEST(CriticalSectionTest, ThreadsNeverInterleaveInside) {
    CriticalSection section;
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    long counter = 0;  // deliberately not atomic
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                std::lock_guard<CriticalSection> hold(section);
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, long{kThreads} * kRounds);
}

}  // namespace
}  // namespace Orvan::Framework::Platform
