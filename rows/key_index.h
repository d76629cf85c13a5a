/// KeyIndex: the keys of a slave table, each with a payload, filled once and then only looked up.
///
///     KeyIndex index(blockSize, 16, DuplicatePolicy::ChainDuplicates);
///     index.columnName = name;
///     for each row:  uchar* payload = index.addKey(key);   // then fill the payload
///     if (index.buildKey()) ...                            // a duplicate, or no memory
///     const uchar* payload = index.findKey(key);
///
/// One of three forms, by the meta type of the key column: all adds, the build and all finds are of
/// that form. Keys are equal when their bytes are: 0.0 and -0.0 are two keys, a not-a-number equals
/// one with the same bits, text is equal unit by unit, and a null text is a key apart from the
/// empty one.
///
/// Chains. With ChainDuplicates the first 8 bytes of a payload are the address of the payload of
/// the next row with that key, or null. The order in a chain hangs on the other keys: think of the
/// tree that tells the distinct keys apart byte by byte, in the order in which the bytes stand in
/// memory, the end of a text counting as a value of its own. With an odd number of branches on the
/// way to the key, its rows stand in the order in which they were added, else in the reverse order;
/// rows with a null text always stand in the order in which they were added.
///
/// Finds may be made by many threads once the index is built; with KeepOne, also between adds.
#pragma once

#include "host/cell.h"
#include "rows/block_chain.h"
#include "rows/key_table.h"

enum class DuplicatePolicy : quint8 {
    RejectDuplicates = 0, ///< the build fails and logs one of the duplicates
    KeepOne = 1,          ///< the first row of a key is kept, the others are never found
    ChainDuplicates = 2,  ///< all are kept and linked; the payload has at least 8 bytes
};

class KeyIndex {
public:
    KeyIndex(qint32 blockSize, quint32 payloadSize, DuplicatePolicy policy);

    QString columnName; ///< for the message

    // Adds. Each gives the payload of the new row, which the caller fills from its 9th byte on
    // (ChainDuplicates) or whole, before the next add; null when memory fails.

    uchar* addKey(quint32 key) { return addNumber(key); }
    uchar* addFloat(double key) { return addNumber(std::bit_cast<quint64>(key)); }
    uchar* addString(const uchar* cell);

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
    static const uchar* nextInChain(const uchar* payload) { return link(payload); }

    qint64 entryCount() const { return entryCount_; }
    /// Bytes held, used or not.
    qint64 bytes() const { return entries_.bytes() + table_.bytes(); }

private:
    static uchar* link(const uchar* payload) {
        uchar* next;
        std::memcpy(&next, payload, sizeof next);
        return next;
    }
    static void setLink(uchar* payload, const uchar* next) {
        std::memcpy(payload, &next, sizeof next);
    }
    /// Text entries begin with the address of the first payload of their key's chain.
    static constexpr qint64 headBytes = sizeof(uchar*);
    static uchar* head(const uchar* entry) { return link(entry); }
    static const uchar* keyCell(const uchar* entry) { return entry + headBytes; }

    const uchar* findNumber(quint64 word) const {
        const KeyTable::Slot* const slot = table_.findNumber(word);
        return slot == nullptr ? nullptr : slot->place;
    }
    KeyTable::Slot* findSlot(const cell::TextView& text, quint32 hash) const;
    uchar* addNumber(quint64 word);
    uchar* addNull();
    uchar* newPayload(qint64 bytesInFront);
    uchar* noMemory();
    bool buildNumbers();
    bool reject(const QString& key) const;

    quint32 payloadSize_;
    DuplicatePolicy policy_;
    BlockChain entries_;
    KeyTable table_;
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
