// The error record, the reference count and its pointer, the flag lock.
#include "cmnerror.h"
#include "cmnlock.h"
#include "cmnsmartptr.h"
#include "scratch.h"

#include <climits>

using namespace tarnix_cmn_4_4;

namespace
{

TEST(Error, Key)
{
    const std::tuple<int, int, const char*, const char*> cases[] = {
        {1007, 1000, "config", "MSG_ERROR_CONFIG_0007"},
        {1000, 1000, "", "MSG_ERROR__1000"},
        {-1, 0, "Con-Fig9", "MSG_ERROR_CON-FIG9_-001"},
        {INT_MIN, INT_MAX, "x", "MSG_ERROR_X_-2147483648"}};
    for (const auto& [code, base, component, key] : cases)
        EXPECT_EQ(CCmnError(code, L"", L"", 0, L"").getMessageKey(component, base), key);
}

// Tells what its count is when it is destroyed. Only the base's destructor is public.
struct Watched : virtual CCmnRefCount {
    explicit Watched(int& count) : countAtEnd(count) {}
    int& countAtEnd;

protected:
    ~Watched() override { countAtEnd = getRefCount(); }
};

TEST(SmartPtr, ObjectLivesAsLongAsItsPointers)
{
    int countAtEnd = -1;
    {
        CCmnSmartPtr<Watched, CCmnNullAllocator<Watched>> first(true);
        EXPECT_EQ(first.assign(nullptr), -1);
        EXPECT_EQ(first.assign(new Watched(countAtEnd)), 1);
        auto second(first);
        second = *&second;
        EXPECT_EQ(first.release(), 1);
        first = second;
        EXPECT_EQ(second.assign(nullptr), 1);
        EXPECT_EQ(countAtEnd, -1);
    }
    EXPECT_EQ(countAtEnd, 1); // destroyed, and not at 0

    struct Refused : CCmnRefCount {
        Refused() { throw std::bad_alloc(); }
    };
    EXPECT_EQ((CCmnSmartPtr<Refused, CCmnDefaultAllocator<Refused>>(true).get()), nullptr);
}

TEST(Lock, OneHolderAtATime)
{
    static CCmnLock lock;
    int guarded = 0; // plain: lost updates show that the lock let two in
    onThreads(4, [&guarded](int) {
        for (int round = 0; round < 100000; lock.unlock(), ++round) {
            while (!lock.tryLock())
                std::this_thread::yield();
            ++guarded;
        }
    });
    EXPECT_EQ(guarded, 4 * 100000);
}

} // namespace
