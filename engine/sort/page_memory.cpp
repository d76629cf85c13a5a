#include "engine/sort/page_memory.h"

#include <algorithm>
#include <new>
#include <sys/mman.h>

namespace velmorra {

void* allocatePages(size_t bytes) {
    const bool large = bytes > 0 && bytes % largePage == 0;
    void* const memory =
        large ? std::aligned_alloc(largePage, bytes) : std::malloc(std::max<size_t>(bytes, 1));
    if (memory == nullptr)
        throw std::bad_alloc();
    if (large)
        ::madvise(memory, bytes, MADV_HUGEPAGE);
    return memory;
}

} // namespace velmorra
