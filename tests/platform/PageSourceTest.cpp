#include "framework/platform/PageSource.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

namespace Orvan::Framework::Platform {
namespace {

TEST(PageSourceTest, PagesAreAlignedDistinctAndReused) {
    auto& source = PageSource::Instance();
    std::vector<void*> pages;
    std::set<uintptr_t> seen;
    // More than one reservation's worth, so a second block is cut.
    for (size_t i = 0; i < PageSource::kPagesPerReservation + 3; ++i) {
        void* page = source.AcquirePage();
        ASSERT_NE(page, nullptr);
        auto address = reinterpret_cast<uintptr_t>(page);
        EXPECT_EQ(address % PageSource::kPageSize, 0u);
        EXPECT_TRUE(seen.insert(address).second);
        std::memset(page, 0xA5, PageSource::kPageSize);  // the whole page is usable
        pages.push_back(page);
    }
    size_t reserved = source.ReservedBytes();
    EXPECT_EQ(reserved % PageSource::kReservationSize, 0u);
    for (void* page : pages) {
        source.ReleasePage(page);
    }
    size_t freeAfterRelease = source.FreePages();
    for (size_t i = 0; i < pages.size(); ++i) {
        pages[i] = source.AcquirePage();
        EXPECT_EQ(seen.count(reinterpret_cast<uintptr_t>(pages[i])), 1u);
    }
    EXPECT_EQ(source.ReservedBytes(), reserved);
    EXPECT_EQ(source.FreePages(), freeAfterRelease - pages.size());
    for (void* page : pages) {
        source.ReleasePage(page);
    }
}

TEST(PageSourceTest, ConcurrentCallersNeverShareAPage) {
    auto& source = PageSource::Instance();
    constexpr int kThreads = 4;
    constexpr int kPages = 200;
    std::vector<std::vector<void*>> taken(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&source, &mine = taken[t], t] {
            for (int round = 0; round < 3; ++round) {
                for (int i = 0; i < kPages; ++i) {
                    void* page = source.AcquirePage();
                    *static_cast<int*>(page) = t;
                    mine.push_back(page);
                }
                for (void* page : mine) {
                    EXPECT_EQ(*static_cast<int*>(page), t);
                }
                if (round < 2) {
                    for (void* page : mine) {
                        source.ReleasePage(page);
                    }
                    mine.clear();
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::set<void*> all;
    for (auto& pages : taken) {
        for (void* page : pages) {
            EXPECT_TRUE(all.insert(page).second);
            source.ReleasePage(page);
        }
    }
}

}  // namespace
}  // namespace Orvan::Framework::Platform
