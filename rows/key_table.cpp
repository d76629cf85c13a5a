#include "rows/key_table.h"

#include "rows/big_malloc.h"

#include <cstring>
#include <random>

namespace {

quint64 load(const uchar* bytes, size_t size) {
    quint64 word = 0;
    std::memcpy(&word, bytes, size);
    return word;
}

std::array<quint64, 2> randomSeeds() {
    std::random_device device;
    const auto word = [&] { return (quint64(device()) << 32) | device(); };
    // A factor must be odd, or its low bits are lost.
    return {word(), word() | 1};
}

} // namespace

const std::array<quint64, 2> KeyTable::processSeeds = randomSeeds();

quint64 KeyTable::hashOf(const uchar* bytes, size_t size) {
    constexpr quint64 odd = 0x9E3779B97F4A7C15ull;
    quint64 hash = seeds()[0] ^ size;
    while (size > 16) {
        hash = mixed(hash ^ load(bytes, 8), seeds()[1] ^ load(bytes + 8, 8));
        bytes += 16;
        size -= 16;
    }
    quint64 tail = 0;
    if (size >= 8) {
        // Two words that overlap cover every length from 8 to 16.
        tail = load(bytes + size - 8, 8);
        hash ^= load(bytes, 8);
    } else {
        hash ^= load(bytes, size);
    }
    return mixed(hash * odd, seeds()[1] ^ tail);
}

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
