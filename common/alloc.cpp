// Memory: malloc and free behind one pair, with a test switch that makes an allocation fail.
#include "common/com.h"

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<long> allocCount{0}; // comAlloc calls so far
std::atomic<long> failAt{0};     // value of allocCount whose call fails; 0: none
std::atomic<long> liveCount{0};  // blocks handed out and not freed

} // namespace

void* comAlloc(const KwilHandle* handle, long size)
{
    const long n = ++allocCount;
    long target = failAt.load();
    if (target != 0 && n == target) {
        failAt.compare_exchange_strong(target, 0);
        return comErrNull(handle, "Allocation error");
    }
    void* p = size >= 0 ? malloc(size > 0 ? static_cast<size_t>(size) : 1) : nullptr;
    if (p == nullptr)
        return comErrNull(handle, "Allocation error");
    ++liveCount;
    return p;
}

void comFree(const KwilHandle*, void* ptr)
{
    if (ptr == nullptr)
        return;
    --liveCount;
    free(ptr);
}

void comTestFailAlloc(long n)
{
    failAt = n > 0 ? allocCount.load() + n : 0;
}

long comTestAllocCount()
{
    return allocCount.load();
}

long comTestLiveAllocs()
{
    return liveCount.load();
}
