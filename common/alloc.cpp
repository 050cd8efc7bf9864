// Memory: malloc and free behind one pair (large blocks on huge-page boundaries), with a test
// switch that makes an allocation fail.
#include "common/com.h"

#include <atomic>
#include <cstdlib>

#include <sys/mman.h>

namespace {

std::atomic<long> allocCount{0}; // comAlloc calls so far
std::atomic<long> failAt{0};     // value of allocCount whose call fails; 0: none
std::atomic<long> liveCount{0};  // blocks handed out and not freed

// Blocks of a huge page or more start on a huge-page boundary and are offered to the kernel for
// transparent huge pages: the arrays of a large system are written right after they are
// allocated, and each of their 4 KiB pages would otherwise cost a fault of its own (most of the
// time of a first ILU factorisation of a large matrix on a virtual machine). The block keeps its
// size: only the whole huge pages inside it can become huge.
constexpr size_t HUGE_PAGE = size_t{2} << 20;

void* allocate(size_t size)
{
    if (size < HUGE_PAGE)
        return malloc(size > 0 ? size : 1);
    void* p = nullptr;
    if (posix_memalign(&p, HUGE_PAGE, size) != 0)
        return nullptr;
#ifdef MADV_HUGEPAGE
    madvise(p, size / HUGE_PAGE * HUGE_PAGE, MADV_HUGEPAGE); // advice only
#endif
    return p;
}

} // namespace

void* comAlloc(const KwilHandle* handle, long size)
{
    const long n = ++allocCount;
    long target = failAt.load();
    if (target != 0 && n == target) {
        failAt.compare_exchange_strong(target, 0);
        return comErrNull(handle, "Allocation error");
    }
    void* p = size >= 0 ? allocate(static_cast<size_t>(size)) : nullptr;
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
