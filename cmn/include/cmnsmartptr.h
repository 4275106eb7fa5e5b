// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The pointer that shares objects with a CCmnRefCount, and the policies that create and destroy
/// these objects.
///
/// @code
/// #include "cmnsmartptr.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// struct Session : CCmnRefCount {};
/// CCmnSmartPtr<Session, CCmnDefaultAllocator<Session>> first(true); // creates the object
/// const auto second = first;                                        // shares it
/// std::cout << second.get()->getRefCount() << " pointers\n";        // prints 2 pointers
/// @endcode
#ifndef TARNIX_CMNSMARTPTR_H
#define TARNIX_CMNSMARTPTR_H

#include "cmnrefcount.h"

#include <memory>
#include <new>

namespace tarnix_cmn_4_4
{

/// For classes whose objects only a factory can create.
template <class T>
class CCmnNullAllocator
{
public:
    /// Creates nothing and returns null.
    static T* allocate() { return nullptr; }

    /// Destroys the object through its base, because the destructor of T may be protected.
    static void destroy(T* object) { std::unique_ptr<CCmnRefCount>{object}; }
};

/// For classes with a public default constructor.
template <class T>
class CCmnDefaultAllocator
{
public:
    /// Returns a default-constructed object with count 0, or null if the allocation fails.
    static T* allocate()
    {
        try {
            return new T;
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    /// Destroys the object through its base, as CCmnNullAllocator does.
    static void destroy(T* object) { CCmnNullAllocator<T>::destroy(object); }
};

/// Shares an object of class T, which has CCmnRefCount as a plain or virtual base, and passes it to
/// A::destroy when the count falls to 0. Only one thread at a time may use the pointers to one
/// object.
template <class T, class A>
class CCmnSmartPtr
{
public:
    /// Empty. With `create` true it holds the result of A::allocate, which may be null.
    explicit CCmnSmartPtr(bool create = false)
    {
        if (create) {
            assign(A::allocate());
        }
    }

    /// Shares the object and adds one reference.
    CCmnSmartPtr(const CCmnSmartPtr& other) : m_Object(other.m_Object)
    {
        if (m_Object != nullptr) {
            m_Object->addRef();
        }
    }

    ~CCmnSmartPtr() { release(); }

    /// Releases the current object and shares the other's.
    CCmnSmartPtr& operator=(const CCmnSmartPtr& other)
    {
        if (this != &other) {
            assign(other.m_Object);
        }
        return *this;
    }

    /// Releases the current object, then takes `object`, which may be null. Returns
    /// - the count of `object`, if it is not null;
    /// - the remaining count of the old object, if only `object` is null;
    /// - -1 if `object` is null and the pointer was empty.
    ///
    /// To assign the object that the pointer already holds, the caller needs another reference to
    /// it, because the release may destroy it.
    int assign(T* object)
    {
        const int left = release();
        m_Object = object;
        return m_Object != nullptr ? m_Object->addRef() : left;
    }

    /// Releases the object; the pointer is empty afterwards. Returns the remaining count, 0 if the
    /// object has been destroyed, -1 if the pointer was empty.
    int release()
    {
        if (m_Object == nullptr) {
            return -1;
        }
        T* const object = m_Object;
        const int left = object->release();
        if (left == 0) {
            // While the object is destroyed, another pointer may take and release it. That must not
            // make the count fall to 0 a second time.
            object->addRef();
            A::destroy(object);
        }
        m_Object = nullptr;
        return left;
    }

    /// The object, which still belongs to the pointers; null if the pointer is empty.
    T* get() const { return m_Object; }

private:
    T* m_Object = nullptr;
};

} // namespace tarnix_cmn_4_4

#endif
