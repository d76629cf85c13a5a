#include "rows/key_table.h"

#include "rows/big_malloc.h"

#include <random>

namespace {

std::array<quint64, 2> randomSeeds() {
    std::random_device device;
    const auto word = [&] { return (quint64(device()) << 32) | device(); };
    // A factor must be odd, or its low bits are lost.
    return {word(), word() | 1};
}

} // namespace

const std::array<quint64, 2> KeyTable::processSeeds = randomSeeds();

bool KeyTable::enterSlots(quint64 size) {
    uchar* const block = bigMalloc(qint64(size * sizeof(Slot)));
    if (block == nullptr)
        return false;
    slots_ = reinterpret_cast<Slot*>(static_cast<void*>(block));
    mask_ = size - 1;
    mostKeys_ = qint64(size / 4 * 3);
    return true;
}

void KeyTable::freeSlots(Slot* slots) {
    bigFree(static_cast<uchar*>(static_cast<void*>(slots)));
}

void KeyTable::release() {
    freeSlots(slots_);
    slots_ = nullptr;
    mask_ = 0;
    count_ = 0;
    mostKeys_ = 0;
}
