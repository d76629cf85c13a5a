#include "rows/big_malloc.h"

#include "host/main_ui.h"

#include <QtCore/QThread>

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <limits>

namespace {

constexpr int mostRounds = 50;
constexpr unsigned long pauseMilliseconds = 100;
/// A block that holds huge pages is asked for in them and begins with one, which spares most of the
/// misses in the table of pages that random lookups cost.
constexpr qint64 hugePage = 2 << 20;

std::atomic<int> livingCount{0};
std::atomic<int> successesLeft{-1};

/// Whether this call is one that a test wants to fail.
bool mustFail() {
    int left = successesLeft.load(std::memory_order_relaxed);
    while (left > 0 && !successesLeft.compare_exchange_weak(left, left - 1)) {
    }
    return left == 0;
}

/// The page in front of a block, which holds the size of both.
qint64 pageBytes() {
    static const qint64 bytes = sysconf(_SC_PAGESIZE);
    return bytes;
}

void unmap(uchar* pages, qint64 size) {
    if (size > 0)
        munmap(pages, static_cast<size_t>(size));
}

uchar* mapped(qint64 size) {
    const qint64 spare = size >= hugePage ? hugePage - pageBytes() : 0;
    void* const pages = mmap(nullptr, static_cast<size_t>(size + spare), PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED)
        return nullptr;
    auto* const begin = static_cast<uchar*>(pages);
    if (spare == 0)
        return begin;
    const qint64 gap = -qint64(reinterpret_cast<quintptr>(begin)) & (hugePage - 1);
    // Whole pages only: what is mapped ends with a page, wherever the block ends.
    const qint64 end = (gap + size + pageBytes() - 1) & -pageBytes();
    unmap(begin, gap);
    unmap(begin + end, size + spare - end);
    madvise(begin + gap, static_cast<size_t>(size), MADV_HUGEPAGE);
    return begin + gap;
}

} // namespace

uchar* bigMalloc(qint64 size) {
    if (size <= 0 || size > std::numeric_limits<qint64>::max() - 2 * hugePage)
        return nullptr;
    const bool fails = mustFail();
    const qint64 whole = size + pageBytes();
    for (int round = 0; round < mostRounds; ++round) {
        if (uchar* const pages = fails ? nullptr : mapped(whole)) {
            std::memcpy(pages, &whole, sizeof whole);
            livingCount.fetch_add(1, std::memory_order_relaxed);
            return pages + pageBytes();
        }
        if (!fails)
            QThread::msleep(pauseMilliseconds);
        MainUI::addLog(4, QStringLiteral("Warning: Big Malloc() failed. Retrying..."));
        if (fails)
            break;
    }
    return nullptr;
}

void bigFree(uchar* block) {
    if (block == nullptr)
        return;
    uchar* const pages = block - pageBytes();
    qint64 whole;
    std::memcpy(&whole, pages, sizeof whole);
    munmap(pages, static_cast<size_t>(whole));
    livingCount.fetch_sub(1, std::memory_order_relaxed);
}

int BigMallocWatch::livingBlocks() {
    return livingCount.load(std::memory_order_relaxed);
}

void BigMallocWatch::failAfter(int successes) {
    successesLeft.store(successes, std::memory_order_relaxed);
}
