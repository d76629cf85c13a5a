/// KeyTable: from keys to places, in one flat array.
///
/// Open addressing with linear probing over slots of 16 bytes: a word that is the key itself or
/// tells nearly all keys apart, and the place that the key leads to. A lookup is one load that
/// misses the cache, and a second one for what stands at the place. Nothing about the order of the
/// slots may reach a result: it differs from process to process.
///
/// The caller says what a hit is, and never puts in a key that is there. Lookups from several
/// threads are fine as long as nobody puts anything in.
#pragma once

#include <QtCore/QtGlobal>

#include <array>

class KeyTable {
public:
    struct Slot {
        quint64 word;
        uchar* place; ///< null: the slot is free
    };

    KeyTable() = default;
    KeyTable(const KeyTable&) = delete;
    KeyTable& operator=(const KeyTable&) = delete;
    ~KeyTable() { release(); }

    /// The hash of a number, for keys whose word is the key.
    static quint64 hashOf(quint64 word) { return mixed(word ^ seeds()[0], seeds()[1]); }

    /// The hash of `size` bytes.
    static quint64 hashOf(const uchar* bytes, size_t size);

    /// The slot with this hash for which `isHit(slot)` says yes, or null.
    template <class IsHit>
    Slot* find(quint64 hash, IsHit isHit) const {
        if (slots_ == nullptr)
            return nullptr;
        for (quint64 i = hash & mask_;; i = (i + 1) & mask_) {
            Slot& slot = slots_[i];
            if (slot.place == nullptr)
                return nullptr;
            if (isHit(slot))
                return &slot;
        }
    }

    /// The slot whose word is this number, or null.
    Slot* findNumber(quint64 word) const {
        return find(hashOf(word), [word](const Slot& slot) { return slot.word == word; });
    }

    /// Puts a key in that isn't there. `hashOfWord` gives a slot's hash from its word; it is called
    /// when the table grows. False when memory fails.
    template <class HashOfWord>
    bool put(Slot slot, HashOfWord hashOfWord) {
        if (count_ >= mostKeys_ && !grow(hashOfWord))
            return false;
        place(slot, hashOfWord(slot.word));
        ++count_;
        return true;
    }
    bool putNumber(quint64 word, uchar* place) {
        return put({word, place}, [](quint64 each) { return hashOf(each); });
    }

    /// Calls `visit` with each slot in use, in no order that means anything.
    template <class Visit>
    void forEach(Visit visit) const {
        for (quint64 i = 0; slots_ != nullptr && i <= mask_; ++i) {
            if (slots_[i].place != nullptr)
                visit(slots_[i]);
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

    /// Chosen anew in each process, so that no file can be made of keys that collide.
    static const std::array<quint64, 2>& seeds() { return processSeeds; }

    template <class HashOfWord>
    bool grow(HashOfWord hashOfWord) {
        Slot* const old = slots_;
        const quint64 oldSize = old == nullptr ? 0 : mask_ + 1;
        if (!enterSlots(oldSize == 0 ? firstSlots : 2 * oldSize))
            return false;
        for (quint64 i = 0; i < oldSize; ++i) {
            if (old[i].place != nullptr)
                place(old[i], hashOfWord(old[i].word));
        }
        freeSlots(old);
        return true;
    }

    void place(Slot slot, quint64 hash) {
        quint64 i = hash & mask_;
        while (slots_[i].place != nullptr)
            i = (i + 1) & mask_;
        slots_[i] = slot;
    }

    bool enterSlots(quint64 size);
    static void freeSlots(Slot* slots);

    static constexpr quint64 firstSlots = 256;
    static const std::array<quint64, 2> processSeeds;

    Slot* slots_ = nullptr;
    quint64 mask_ = 0;
    qint64 count_ = 0;
    qint64 mostKeys_ = 0;
};
