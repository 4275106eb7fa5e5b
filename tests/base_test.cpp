// The error record, reference counting with its smart pointer, and the flag lock.
#include "cmnerror.h"
#include "cmnlock.h"
#include "cmnsmartptr.h"
#include "support/repeat.h"

#include <gtest/gtest.h>

using namespace tarnix_cmn_4_4;

TEST(Error, Key)
{
    EXPECT_EQ(CCmnError(1007, L"", L"", 0, L"").getMessageKey("Con-fig9", 1000),
              "MSG_ERROR_CON-FIG9_0007");
    EXPECT_EQ(CCmnError(1000, L"", L"", 0, L"").getMessageKey("", 1000), "MSG_ERROR__1000");
    EXPECT_EQ(CCmnError(-1, L"", L"", 0, L"").getMessageKey("x", 0), "MSG_ERROR_X_-001");
}

TEST(SmartPtr, ObjectLivesAsLongAsItsPointers)
{
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

TEST(Lock, OneHolderAtATime)
{
    static CCmnLock lock;
    int holder = 0; // not atomic: the lock guards it
    runOnThreads(4, [&holder](int thread) {
        for (int round = 0; round < 50000; lock.unlock(), ++round) {
            while (!lock.tryLock())
                std::this_thread::yield();
            holder = thread;
            std::this_thread::yield();
            EXPECT_EQ(holder, thread);
        }
    });
}
