/// @file
/// The pointer that drives CCmnRefCount, and the policies that make and destroy its objects.
#ifndef TARNIX_CMNSMARTPTR_H
#define TARNIX_CMNSMARTPTR_H

#include "cmnrefcount.h"

#include <memory>
#include <new>

namespace tarnix_cmn_4_4
{

/// For classes that only a factory can make.
template <class T>
class CCmnNullAllocator
{
public:
    /// Null.
    static T* allocate() { return nullptr; }

    /// Through the base, whose destructor is public: that of T may be protected.
    static void destroy(T* object) { std::unique_ptr<CCmnRefCount>{object}; }
};

/// For classes that anybody can make.
template <class T>
class CCmnDefaultAllocator
{
public:
    /// A default-constructed object with count 0; null when memory is refused.
    static T* allocate()
    {
        try {
            return new T;
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    /// Through the base, as CCmnNullAllocator does.
    static void destroy(T* object) { CCmnNullAllocator<T>::destroy(object); }
};

/// Shares an object of class T, which has CCmnRefCount as a plain or a virtual base, and hands it
/// to A::destroy when the count falls to 0. All pointers to one object belong to one thread at a
/// time.
template <class T, class A>
class CCmnSmartPtr
{
public:
    /// Empty, or with `create` the holder of what A::allocate gives, which may be null.
    explicit CCmnSmartPtr(bool create = false)
    {
        if (create) {
            assign(A::allocate());
        }
    }

    /// One reference more; the object is shared.
    CCmnSmartPtr(const CCmnSmartPtr& other) : m_Object(other.m_Object)
    {
        if (m_Object != nullptr) {
            m_Object->addRef();
        }
    }

    ~CCmnSmartPtr() { release(); }

    /// Lets go of the object that is held and shares the other's.
    CCmnSmartPtr& operator=(const CCmnSmartPtr& other)
    {
        if (this != &other) {
            assign(other.m_Object);
        }
        return *this;
    }

    /// Lets go of the object that is held and takes `object`, which may be null. Returns the count
    /// of the new object; without one, the count left on the old object; -1 when there was none
    /// either. To assign the object that the pointer holds already, the caller needs another
    /// reference to it: the first step may destroy it.
    int assign(T* object)
    {
        const int left = release();
        m_Object = object;
        return m_Object != nullptr ? m_Object->addRef() : left;
    }

    /// Lets go of the object and is empty then. Returns the count left, 0 when the object has been
    /// destroyed, -1 when the pointer was empty.
    int release()
    {
        if (m_Object == nullptr) {
            return -1;
        }
        T* const object = m_Object;
        const int left = object->release();
        if (left == 0) {
            /// A pointer that is taken and dropped while the object is destroyed must not make the
            /// count fall to 0 a second time.
            object->addRef();
            A::destroy(object);
        }
        m_Object = nullptr;
        return left;
    }

    /// The object, still owned by its pointers; null when empty.
    T* get() const { return m_Object; }

private:
    T* m_Object = nullptr;
};

} // namespace tarnix_cmn_4_4

#endif
