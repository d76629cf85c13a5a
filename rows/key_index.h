/// KeyIndex: the keys of a slave table, each with a payload, filled once and then only looked up.
///
///     KeyIndex index(blockSize, 8, DuplicatePolicy::ChainDuplicates);
///     index.columnName = name;
///     for each row:  uchar* payload = index.addKey(key, size);   // then fill the payload
///     if (index.buildKey()) ...                                  // a duplicate, or no memory
///     const uchar* payload = index.findKey(key);
///
/// One of three forms, by the meta type of the key column: all adds, the build and all finds are of
/// that form. Keys are equal when their bytes are: 0.0 and -0.0 are two keys, a not-a-number equals
/// one with the same bits, text is equal unit by unit, and a null text is a key apart from the
/// empty one.
///
/// In memory a key stands once, in front of the payload of its first row, so that comparing the key
/// brings what it leads to. Payloads of further rows of the key stand alone. Numbers without a
/// payload are only a set.
///
/// Chains. With ChainDuplicates the first 8 bytes of a payload are a link, to be read through
/// nextInChain. The order in a chain hangs on the other keys: think of the tree that tells the
/// distinct keys apart byte by byte, in the order in which the bytes stand in memory, the end of a
/// text counting as a value of its own. With an odd number of branches on the way to the key, its
/// rows stand in the order in which they were added, else in the reverse order; rows with a null
/// text always stand in the order in which they were added.
///
/// Finds may be made by many threads once the index is built; with KeepOne, also between adds.
#pragma once

#include "host/cell.h"
#include "rows/block_chain.h"
#include "rows/key_table.h"
#include "rows/number_set.h"

#include <type_traits>

enum class DuplicatePolicy : quint8 {
    RejectDuplicates = 0, ///< the build fails and logs one of the duplicates
    KeepOne = 1,          ///< the first row of a key is kept, the others are never found
    ChainDuplicates = 2,  ///< all are kept and linked; the payload has at least 8 bytes
};

class KeyIndex {
public:
    /// Each payload has `payloadSize` bytes, and more where an add asks for more; with a size of 0
    /// none may.
    KeyIndex(qint64 blockSize, qint64 payloadSize, DuplicatePolicy policy);

    QString columnName; ///< for the message

    // Adds. Each gives the payload of the new row, which the caller fills from its 9th byte on
    // (ChainDuplicates) or whole, before the next add; null when memory fails.

    uchar* addKey(quint32 key, qint64 moreBytes = 0) { return addNumber(key, moreBytes); }
    uchar* addFloat(double key, qint64 moreBytes = 0) {
        return addNumber(std::bit_cast<quint64>(key), moreBytes);
    }
    uchar* addString(const uchar* cell, qint64 moreBytes = 0);

    // Builds, once and behind all adds. True when that failed: by duplicates, or by memory.

    bool buildKey();
    bool buildFloat();
    bool buildString();

    /// Whether an add or the build failed for want of memory; nothing was logged then.
    bool outOfMemory() const { return outOfMemory_; }

    // Finds: the payload of the first row of the key, or null. With no payload the address is only
    // a mark, and not to be read.

    const uchar* findKey(quint32 key) const { return findNumber(key); }
    const uchar* findFloat(double key) const { return findNumber(std::bit_cast<quint64>(key)); }
    const uchar* findString(const uchar* cell) const { return findText(cell::text(cell)); }
    const uchar* findText(const cell::TextView& text) const;

    /// The payload behind another one in its chain, or null.
    static const uchar* nextInChain(const uchar* payload) {
        const quintptr next = link(payload);
        return (next & lastMark) != 0 ? nullptr : reinterpret_cast<const uchar*>(next);
    }

    qint64 entryCount() const { return entryCount_; }
    /// Bytes held, used or not.
    qint64 bytes() const {
        return entries_.bytes() + table_.bytes() + keys_.bytes() + floats_.bytes();
    }

private:
    // A link is the address of the next payload, or 0. Until the build, and behind it with an even
    // number of branches, the payload behind the key is the last one: its link is marked, and leads
    // to the first one. Payloads stand at even addresses.

    static constexpr quintptr lastMark = 1;
    static quintptr link(const uchar* payload) {
        quintptr next;
        std::memcpy(&next, payload, sizeof next);
        return next;
    }
    static void setLink(uchar* payload, const uchar* next, quintptr mark = 0) {
        const quintptr word = reinterpret_cast<quintptr>(next) | mark;
        std::memcpy(payload, &word, sizeof word);
    }
    /// The first payload of a chain, by the one behind the key.
    uchar* first(uchar* behindKey) const {
        if (policy_ != DuplicatePolicy::ChainDuplicates)
            return behindKey;
        const quintptr next = link(behindKey);
        return (next & lastMark) == 0 ? behindKey : reinterpret_cast<uchar*>(next & ~lastMark);
    }
    /// The payload behind a key that ends here.
    static uchar* behind(const uchar* keyEnd) {
        const quintptr end = reinterpret_cast<quintptr>(keyEnd);
        return reinterpret_cast<uchar*>(end + (end & 1));
    }
    void chain(uchar* behindKey, uchar* added) const;
    void turnRound(uchar* behindKey) const;

    /// The numbers without a payload.
    template <class Number, class Self>
    static auto& set(Self& self) {
        if constexpr (std::is_same_v<Number, quint32>)
            return self.keys_;
        else
            return self.floats_;
    }
    template <class Number>
    static Number numberAt(const uchar* key) {
        Number number;
        std::memcpy(&number, key, sizeof number);
        return number;
    }
    template <class Number>
    const KeyTable::Slot* findSlot(Number number) const {
        return table_.find(KeyTable::hashOf(number),
                           [number](const uchar* key) { return numberAt<Number>(key) == number; });
    }
    template <class Number>
    const uchar* findNumber(Number number) const {
        if (payloadSize_ == 0)
            return set<Number>(*this).contains(number) ? &cell::nullText : nullptr;
        const KeyTable::Slot* const slot = findSlot(number);
        return slot == nullptr ? nullptr : first(behind(slot->place() + sizeof number));
    }
    /// A text key that was found: its cell.
    struct FoundText {
        const uchar* cell = nullptr;
        const uchar* end = nullptr;
    };
    FoundText findText(const cell::TextView& text, quint64 hash) const;
    template <class Number>
    uchar* addNumber(Number number, qint64 moreBytes);
    template <class Number>
    uchar* addToSet(Number number);
    void noteDuplicate(quint64 number);
    uchar* addNull(qint64 moreBytes);
    uchar* addAgain(uchar* behindKey, qint64 moreBytes);
    uchar* newPayload(const void* key, qint64 keyBytes, qint64 moreBytes);
    uchar* noMemory();
    template <class Number>
    bool buildNumbers();
    bool reject(const QString& key) const;

    qint64 payloadSize_;
    DuplicatePolicy policy_;
    BlockChain entries_;
    KeyTable table_;
    NumberSet<quint32> keys_;
    NumberSet<quint64> floats_;
    qint64 entryCount_ = 0;
    uchar* nullPayload_ = nullptr; ///< text: of the first row with a null key
    uchar* lastNull_ = nullptr;
    bool outOfMemory_ = false;

    // Of the keys that came twice.
    qint64 duplicates_ = 0;
    bool nullTwice_ = false;
    quint64 firstNumber_ = 0;          ///< the one that the tree meets first
    const uchar* firstText_ = nullptr; ///< likewise, a cell
};
