/// Memory for rows that are read in random order.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace velmorra {

/// Where the size is a multiple of it, memory stands in large pages, if the system has any to give:
/// else most of the time of a merge goes into finding the small ones.
inline constexpr size_t largePage = 2 << 20;

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

/// Memory for objects that need no constructor.
template <class Value>
using PageMemory = std::unique_ptr<Value[], FreeMemory>;

/// Throws std::bad_alloc.
void* allocatePages(size_t bytes);

template <class Value>
PageMemory<Value> makePageMemory(size_t count) {
    return PageMemory<Value>(static_cast<Value*>(allocatePages(count * sizeof(Value))));
}

} // namespace velmorra
