// The error record, the reference count and its pointer, the flag lock, the traceable base.
#include "cmnerror.h"
#include "cmnlock.h"
#include "cmntraceable.h"

#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

TEST(Error, Key)
{
    const struct {
        int code;
        int base;
        const char* component;
        const char* key;
    } cases[] = {
        {1007, 1000, "config", "MSG_ERROR_CONFIG_0007"},
        {7, 1000, "config", "MSG_ERROR_CONFIG_0007"},
        {1000, 1000, "Con-Fig9", "MSG_ERROR_CON-FIG9_1000"},
        {12345, 1000, "config", "MSG_ERROR_CONFIG_11345"},
        {7, 1000, "", "MSG_ERROR__0007"},
        {-1, 0, "x", "MSG_ERROR_X_-001"},
        {-1, -5, "x", "MSG_ERROR_X_0004"},
        {INT_MIN, INT_MAX, "x", "MSG_ERROR_X_-2147483648"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CCmnError(c.code, L"", L"", 0, L"").getMessageKey(c.component, c.base), c.key);
}

// Tells what its count is when it is destroyed. Only the base's destructor is public.
class Watched : public virtual CCmnRefCount
{
public:
    explicit Watched(int& countAtEnd) : m_CountAtEnd(countAtEnd) {}

protected:
    ~Watched() override { m_CountAtEnd = getRefCount(); }

private:
    int& m_CountAtEnd;
};

TEST(SmartPtr, ObjectLivesAsLongAsItsPointers)
{
    using Pointer = CCmnSmartPtr<Watched, CCmnNullAllocator<Watched>>;
    int countAtEnd = -1;
    {
        Pointer first(true);
        EXPECT_EQ(first.get(), nullptr);
        EXPECT_EQ(first.assign(nullptr), -1);
        EXPECT_EQ(first.release(), -1);
        EXPECT_EQ(first.assign(new Watched(countAtEnd)), 1);
        Pointer second(first);
        EXPECT_EQ(second.get()->getRefCount(), 2);
        second = *&second;
        EXPECT_EQ(first.release(), 1);
        first = second;
        EXPECT_EQ(second.assign(nullptr), 1);
        EXPECT_EQ(countAtEnd, -1);
    }
    EXPECT_EQ(countAtEnd, 1); // destroyed, and not at 0

    CCmnRefCount source;
    source.addRef();
    CCmnRefCount copy(source); // has the source's count, and so outlives a pointer to it
    CCmnSmartPtr<CCmnRefCount, CCmnDefaultAllocator<CCmnRefCount>> surplus(true);
    EXPECT_EQ(surplus.assign(&copy), 2);
    EXPECT_EQ(surplus.assign(nullptr), 1);
}

TEST(SmartPtr, RefusedMemoryGivesAnEmptyPointer)
{
    struct Refused : CCmnRefCount {
        Refused() { throw std::bad_alloc(); }
    };
    EXPECT_EQ((CCmnSmartPtr<Refused, CCmnDefaultAllocator<Refused>>(true).get()), nullptr);
}

TEST(Lock, OneHolderAtATime)
{
    static CCmnLock lock;
    lock.unlock();
    EXPECT_TRUE(lock.tryLock());
    EXPECT_FALSE(lock.tryLock());
    EXPECT_TRUE(lock.isLocked());
    lock.unlock();

    int guarded = 0; // plain: lost updates show that the lock let two in
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&guarded] {
            for (int round = 0; round < 2000; ++round) {
                while (!lock.tryLock())
                    std::this_thread::yield();
                ++guarded;
                lock.unlock();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(guarded, 4 * 2000);
}

TEST(Traceable, CopiesShareTheLogAndAnEmptyPointerDropsIt)
{
    using LogPtr = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;
    struct Traced : CCmnTraceable {
        CCmnTraceLog* log() const { return m_TraceLog.get(); }
    };
    const LogPtr log(true);
    Traced first;
    EXPECT_EQ(first.log(), nullptr);
    first.setTraceLog(log);
    const Traced second(first);
    EXPECT_EQ(second.log(), log.get());
    first.setTraceLog(LogPtr());
    EXPECT_EQ(first.log(), nullptr);
    EXPECT_EQ(log.get()->getRefCount(), 2);
}

} // namespace
