// SPDX-License-Identifier: LicenseRef-Tarnix
// The error record, reference counting with its smart pointer, and the flag lock.
#include "cmnerror.h"
#include "cmnlock.h"
#include "cmnsmartptr.h"
#include "support/repeat.h"

#include <gtest/gtest.h>

#include <atomic>

using namespace tarnix_cmn_4_4;

TEST(Error, KeyAndNumbers)
{
    EXPECT_EQ(CCmnError(1007, L"", L"", 0, L"").getMessageKey("Con-fig9", 1000),
              "MSG_ERROR_CON-FIG9_0007");
    EXPECT_EQ(CCmnError(1000, L"", L"", 0, L"").getMessageKey("", 1000), "MSG_ERROR__1000");
    EXPECT_EQ(CCmnError(-1, L"", L"", 0, L"").getMessageKey("x", 0), "MSG_ERROR_X_-001");
    CCmnError record;
    record = CCmnError(3 + record.getCode(), L"m", L"f", 5 + record.getLine(), L"g");
    EXPECT_EQ(std::wstring(record.getMessage()) + record.getFile() + record.getFunction(), L"mfg");
    EXPECT_EQ(std::pair(record.getCode(), record.getLine()), std::pair(3, 5));
}

TEST(SmartPtr, ObjectLivesAsLongAsItsPointers)
{
    EXPECT_EQ((CCmnSmartPtr<CCmnRefCount, CCmnDefaultAllocator<CCmnRefCount>>().get()), nullptr);
    static int countAtEnd = -1;
    class Watched : public virtual CCmnRefCount // only the base's destructor is public
    {
        ~Watched() override { countAtEnd = getRefCount(); }
    };
    CCmnSmartPtr<Watched, CCmnNullAllocator<Watched>> first(true);
    EXPECT_EQ(first.assign(nullptr), -1);
    EXPECT_EQ(first.assign(new Watched), 1);
    {
        auto second(first);
        EXPECT_EQ(first.release(), 1);
        second = *&second;
        first = second;
    }
    EXPECT_EQ(countAtEnd, -1);
    EXPECT_EQ(first.assign(nullptr), 0);
    EXPECT_EQ(countAtEnd, 1); // destroyed while the count was still 1
}

// Two threads that take turns as fast as they can meet between any two steps of the lock.
TEST(Lock, OneHolderAtATime)
{
    constexpr int rounds = 5'000'000;
    static CCmnLock lock;
    std::atomic<int> ready{0};
    volatile int count = 0; // not atomic: the lock guards it
    EXPECT_FALSE(lock.isLocked());
    runOnThreads(2, [&](int) {
        for (++ready; ready < 2;)
            std::this_thread::yield();
        for (int round = 0; round < rounds; lock.unlock(), ++round) {
            while (!lock.tryLock())
                std::this_thread::yield();
            count = count + 1;
        }
    });
    EXPECT_EQ(count, 2 * rounds);
    EXPECT_TRUE(lock.tryLock());
    EXPECT_TRUE(lock.isLocked());
    EXPECT_FALSE(lock.tryLock());
    lock.unlock();
}
