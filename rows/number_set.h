/// NumberSet: numbers in one flat array, each in a slot of its own size.
///
/// Open addressing with linear probing; 0 marks a free slot, and is kept beside the array itself. A
/// lookup is one load that misses the caches. Lookups from several threads are fine as long as
/// nobody adds anything.
#pragma once

#include "rows/big_malloc.h"
#include "rows/key_table.h"

template <class Number>
class NumberSet {
public:
    enum class Outcome { Added, Present, NoMemory };

    NumberSet() = default;
    NumberSet(const NumberSet&) = delete;
    NumberSet& operator=(const NumberSet&) = delete;
    ~NumberSet() { giveBack(slots_); }

    Outcome add(Number number) {
        if (contains(number))
            return Outcome::Present;
        if (number == 0) {
            hasZero_ = true;
            return Outcome::Added;
        }
        if (count_ >= mostNumbers_ && !grow())
            return Outcome::NoMemory;
        enter(number);
        ++count_;
        return Outcome::Added;
    }

    bool contains(Number number) const {
        if (number == 0 || slots_ == nullptr)
            return number == 0 && hasZero_;
        quint64 i = KeyTable::hashOf(number) & mask_;
        while (slots_[i] != number && slots_[i] != 0)
            i = (i + 1) & mask_;
        return slots_[i] == number;
    }

    qint64 bytes() const {
        return slots_ == nullptr ? 0 : qint64(mask_ + 1) * qint64(sizeof(Number));
    }

private:
    bool grow() {
        Number* const old = slots_;
        const quint64 oldSize = old == nullptr ? 0 : mask_ + 1;
        const quint64 size = oldSize == 0 ? firstSlots : 2 * oldSize;
        uchar* const block = bigMalloc(qint64(size * sizeof(Number)));
        if (block == nullptr)
            return false;
        slots_ = static_cast<Number*>(static_cast<void*>(block));
        mask_ = size - 1;
        mostNumbers_ = size / 4 * 3;
        for (quint64 i = 0; i < oldSize; ++i) {
            if (old[i] != 0)
                enter(old[i]);
        }
        giveBack(old);
        return true;
    }

    void enter(Number number) {
        quint64 i = KeyTable::hashOf(number) & mask_;
        while (slots_[i] != 0)
            i = (i + 1) & mask_;
        slots_[i] = number;
    }

    static void giveBack(Number* slots) { bigFree(static_cast<uchar*>(static_cast<void*>(slots))); }

    static constexpr quint64 firstSlots = 512;

    Number* slots_ = nullptr;
    quint64 mask_ = 0;
    quint64 count_ = 0;
    quint64 mostNumbers_ = 0;
    bool hasZero_ = false;
};
