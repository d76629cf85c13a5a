/// KeyTable: from keys to the places where they stand, in one flat array.
///
/// Open addressing with linear probing over slots of 8 bytes: the address of a place, and above it
/// 16 bits of the key's hash, which tell nearly all keys apart. A lookup is one load that misses
/// the caches, and a second one at the place, where what belongs to the key stands too. Nothing
/// about the order of the slots may reach a result: it differs from process to process.
///
/// The caller says what a hit is, and never puts in a key that is there. Lookups from several
/// threads are fine as long as nobody puts anything in.
#pragma once

#include <QtCore/QtGlobal>

#include <array>
#include <cstring>

class KeyTable {
public:
    /// The address that is kept has 48 bits, which is what processes are given.
    class Slot {
    public:
        uchar* place() const { return reinterpret_cast<uchar*>(bits_ & ~tagBits); }
        void setPlace(const uchar* place) {
            bits_ = (bits_ & tagBits) | reinterpret_cast<quintptr>(place);
        }

    private:
        friend KeyTable;
        quint64 bits_; ///< 0: the slot is free
    };

    KeyTable() = default;
    KeyTable(const KeyTable&) = delete;
    KeyTable& operator=(const KeyTable&) = delete;
    ~KeyTable() { release(); }

    /// The hash of a number.
    static quint64 hashOf(quint64 word) { return mixed(word ^ seeds()[0], seeds()[1]); }

    /// The hash of `size` bytes.
    static quint64 hashOf(const uchar* bytes, size_t size);

    /// Whether `size` bytes are the same; without a call for texts of a few words.
    static bool isSame(const uchar* a, const uchar* b, size_t size);

    /// The slot with this hash for whose place `isHit(place)` says yes, or null.
    template <class IsHit>
    Slot* find(quint64 hash, IsHit isHit) const {
        if (slots_ == nullptr)
            return nullptr;
        for (quint64 i = hash & mask_;; i = (i + 1) & mask_) {
            Slot& slot = slots_[i];
            if (slot.bits_ == 0)
                return nullptr;
            if (((slot.bits_ ^ hash) & tagBits) == 0 && isHit(slot.place()))
                return &slot;
        }
    }

    /// Asks for the slot of a hash that will soon be sought.
    void prefetch(quint64 hash) const { __builtin_prefetch(slots_ + (hash & mask_)); }

    /// Puts a key in that isn't there. `hashAt` gives the hash of the key at a place; it is called
    /// when the table grows. False when memory fails.
    template <class HashAt>
    bool put(quint64 hash, const uchar* place, HashAt hashAt) {
        if (count_ >= mostKeys_ && !grow(hashAt))
            return false;
        Slot slot;
        slot.bits_ = hash & tagBits;
        slot.setPlace(place);
        enter(slot, hash);
        ++count_;
        return true;
    }

    /// Calls `visit` with each place, in no order that means anything.
    template <class Visit>
    void forEach(Visit visit) const {
        for (quint64 i = 0; slots_ != nullptr && i <= mask_; ++i) {
            if (slots_[i].bits_ != 0)
                visit(slots_[i].place());
        }
    }

    qint64 count() const { return count_; }
    qint64 bytes() const {
        return slots_ == nullptr ? 0 : qint64(mask_ + 1) * qint64(sizeof(Slot));
    }
    void release();

private:
    /// Both halves of the product, folded: every bit of the result hangs on every bit of the key.
    static quint64 mixed(quint64 a, quint64 b) {
        __extension__ using Wide = unsigned __int128;
        const Wide product = Wide(a) * b;
        return quint64(product) ^ quint64(product >> 64);
    }

    template <class Word = quint64>
    static quint64 word(const uchar* bytes) {
        Word value;
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }

    /// Chosen anew in each process, so that no file can be made of keys that collide.
    static const std::array<quint64, 2>& seeds() { return processSeeds; }

    /// The keys are read again, wherever they stand: ahead of time, so that the loads overlap.
    template <class HashAt>
    bool grow(HashAt hashAt) {
        constexpr quint64 ahead = 16;
        Slot* const old = slots_;
        const quint64 oldSize = old == nullptr ? 0 : mask_ + 1;
        if (!enterSlots(oldSize == 0 ? firstSlots : 2 * oldSize))
            return false;
        for (quint64 i = 0; i < oldSize; ++i) {
            __builtin_prefetch(old[(i + ahead) % oldSize].place());
            if (old[i].bits_ != 0)
                enter(old[i], hashAt(old[i].place()));
        }
        freeSlots(old);
        return true;
    }

    void enter(Slot slot, quint64 hash) {
        quint64 i = hash & mask_;
        while (slots_[i].bits_ != 0)
            i = (i + 1) & mask_;
        slots_[i] = slot;
    }

    bool enterSlots(quint64 size);
    static void freeSlots(Slot* slots);

    static constexpr quint64 tagBits = quint64(0xFFFF) << 48;
    static constexpr quint64 firstSlots = 512;
    static const std::array<quint64, 2> processSeeds;

    Slot* slots_ = nullptr;
    quint64 mask_ = 0;
    qint64 count_ = 0;
    qint64 mostKeys_ = 0;
};

inline quint64 KeyTable::hashOf(const uchar* bytes, size_t size) {
    constexpr quint64 odd = 0x9E3779B97F4A7C15ull;
    quint64 hash = seeds()[0] ^ size;
    while (size > 16) {
        hash = mixed(hash ^ word(bytes), seeds()[1] ^ word(bytes + 8));
        bytes += 16;
        size -= 16;
    }
    // Two loads that overlap cover every length from their size to twice as much.
    quint64 tail = 0;
    if (size >= 8) {
        hash ^= word(bytes);
        tail = word(bytes + size - 8);
    } else if (size >= 4) {
        hash ^= word<quint32>(bytes);
        tail = word<quint32>(bytes + size - 4);
    } else if (size > 0) {
        hash ^= quint64(bytes[0]) | quint64(bytes[size / 2]) << 8;
        tail = bytes[size - 1];
    }
    return mixed(hash * odd, seeds()[1] ^ tail);
}

inline bool KeyTable::isSame(const uchar* a, const uchar* b, size_t size) {
    const auto differ = [&]<class Word>(size_t place, Word) {
        return word<Word>(a + place) ^ word<Word>(b + place);
    };
    if (size > 32)
        return std::memcmp(a, b, size) == 0;
    if (size > 16)
        return (differ(0, quint64()) | differ(8, quint64()) | differ(size - 16, quint64()) |
                differ(size - 8, quint64())) == 0;
    if (size >= 8)
        return (differ(0, quint64()) | differ(size - 8, quint64())) == 0;
    if (size >= 4)
        return (differ(0, quint32()) | differ(size - 4, quint32())) == 0;
    return size == 0 || (a[0] == b[0] && a[size / 2] == b[size / 2] && a[size - 1] == b[size - 1]);
}
