// Owners for comAlloc'd arrays and library objects: freed on scope exit unless released.
#pragma once

#include <climits>
#include <cstddef>

#include "common/com.h"

namespace kwil {

// n elements of T from comAlloc; null (after the "Allocation error" line) on failure or overflow.
template <class T> T* comAllocN(const KwilHandle* handle, long n)
{
    if (n < 0 || n > LONG_MAX / static_cast<long>(sizeof(T))) {
        return static_cast<T*>(comErrNull(handle, "Allocation error"));
    }
    return static_cast<T*>(comAlloc(handle, n * static_cast<long>(sizeof(T))));
}

// An owned array of n elements of T.
template <class T> class ComBuf {
  public:
    ComBuf(const KwilHandle* handle, long n) : handle_(handle), p_(comAllocN<T>(handle, n)) {}
    ~ComBuf() { comFree(handle_, p_); }
    ComBuf(const ComBuf&) = delete;
    ComBuf& operator=(const ComBuf&) = delete;
    explicit operator bool() const { return p_ != nullptr; }
    T& operator[](long i) const { return p_[i]; }
    T* get() const { return p_; }
    T* release()
    {
        T* p = p_;
        p_ = nullptr;
        return p;
    }

  private:
    const KwilHandle* handle_;
    T* p_;
};

// An owned library object, released with its own deleter Free(handle, object).
template <class T, void (*Free)(KwilHandle*, T*)> class ComOwn {
  public:
    ComOwn(KwilHandle* handle, T* p) : handle_(handle), p_(p) {}
    ~ComOwn()
    {
        if (p_)
            Free(handle_, p_);
    }
    ComOwn(const ComOwn&) = delete;
    ComOwn& operator=(const ComOwn&) = delete;
    explicit operator bool() const { return p_ != nullptr; }
    T* operator->() const { return p_; }
    T& operator*() const { return *p_; }
    T* get() const { return p_; }
    T* release()
    {
        T* p = p_;
        p_ = nullptr;
        return p;
    }
    void reset(T* p)
    {
        if (p_)
            Free(handle_, p_);
        p_ = p;
    }

  private:
    KwilHandle* handle_;
    T* p_;
};

} // namespace kwil
