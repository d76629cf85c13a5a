#include "rows/key_index.h"

#include "host/main_ui.h"
#include "host/one_row.h"
#include "rows/chain_order.h"

#include <algorithm>

namespace {

/// A number whose bytes come in the order in which the key's bytes stand in memory, the first one
/// highest, so that comparing numbers is comparing bytes from the first on.
quint64 firstByteHighest(quint64 word) {
    return __builtin_bswap64(word);
}

size_t byteCount(const cell::TextView& text) {
    return 2 * static_cast<size_t>(text.size());
}

/// The number of bytes that two texts share from their start.
qint64 sharedBytes(const cell::TextView& a, const cell::TextView& b) {
    const size_t most = std::min(byteCount(a), byteCount(b));
    return std::mismatch(a.chars, a.chars + most, b.chars).first - a.chars;
}

/// The order in which the tree meets texts: byte by byte, and behind all bytes the end.
bool isMetBefore(const cell::TextView& a, const cell::TextView& b) {
    const auto shared = static_cast<size_t>(sharedBytes(a, b));
    if (shared == byteCount(a))
        return false;
    return shared == byteCount(b) || a.chars[shared] < b.chars[shared];
}

quint64 textWord(quint32 hash) {
    return quint64(hash) << 32;
}
quint64 hashOfTextWord(quint64 word) {
    return word >> 32;
}
quint32 hashOfText(const cell::TextView& text) {
    return static_cast<quint32>(KeyTable::hashOf(text.chars, byteCount(text)));
}

} // namespace

KeyIndex::KeyIndex(qint32 blockSize, quint32 payloadSize, DuplicatePolicy policy)
    : payloadSize_(payloadSize),
      policy_(policy),
      entries_(blockSize) {}

uchar* KeyIndex::noMemory() {
    outOfMemory_ = true;
    return nullptr;
}

/// Room for a row, its link cleared. A payload of no bytes still has an address of its own.
uchar* KeyIndex::newPayload(qint64 bytesInFront) {
    if (payloadSize_ == 0 && bytesInFront == 0)
        return const_cast<uchar*>(&cell::nullText);
    uchar* const bytes = entries_.alloc(bytesInFront + payloadSize_);
    if (bytes == nullptr)
        return noMemory();
    std::memset(bytes + bytesInFront, 0, payloadSize_);
    return bytes;
}

uchar* KeyIndex::addNumber(quint64 word) {
    uchar* const payload = newPayload(0);
    if (payload == nullptr)
        return nullptr;
    ++entryCount_;
    KeyTable::Slot* const slot = table_.findNumber(word);
    if (slot == nullptr)
        return table_.putNumber(word, payload) ? payload : noMemory();
    if (policy_ == DuplicatePolicy::ChainDuplicates) {
        setLink(payload, slot->place);
        slot->place = payload;
    }
    if (duplicates_++ == 0 || firstByteHighest(word) < firstByteHighest(firstNumber_))
        firstNumber_ = word;
    return payload;
}

uchar* KeyIndex::addNull() {
    uchar* const payload = newPayload(0);
    if (payload == nullptr)
        return nullptr;
    ++entryCount_;
    if (nullPayload_ == nullptr) {
        nullPayload_ = payload;
    } else {
        nullTwice_ = true;
        if (policy_ == DuplicatePolicy::ChainDuplicates)
            setLink(lastNull_, payload);
    }
    lastNull_ = payload;
    return payload;
}

uchar* KeyIndex::addString(const uchar* cell) {
    const cell::TextView text = cell::text(cell);
    if (text.isNull())
        return addNull();
    const quint32 hash = hashOfText(text);
    if (const KeyTable::Slot* const slot = findSlot(text, hash)) {
        uchar* const payload = newPayload(0);
        if (payload == nullptr)
            return nullptr;
        ++entryCount_;
        if (policy_ == DuplicatePolicy::ChainDuplicates) {
            setLink(payload, head(slot->place));
            setLink(slot->place, payload);
        }
        if (duplicates_++ == 0 || isMetBefore(text, cell::text(firstText_)))
            firstText_ = keyCell(slot->place);
        return payload;
    }
    const qint64 cellBytes = cell::textBytes(cell);
    uchar* const entry = newPayload(headBytes + cellBytes);
    if (entry == nullptr)
        return nullptr;
    ++entryCount_;
    uchar* const payload = entry + headBytes + cellBytes;
    setLink(entry, payload);
    std::memcpy(entry + headBytes, cell, static_cast<size_t>(cellBytes));
    return table_.put({textWord(hash), entry}, hashOfTextWord) ? payload : noMemory();
}

KeyTable::Slot* KeyIndex::findSlot(const cell::TextView& text, quint32 hash) const {
    return table_.find(hash, [&](const KeyTable::Slot& slot) {
        if (slot.word != textWord(hash))
            return false;
        const cell::TextView key = cell::text(keyCell(slot.place));
        return key.length == text.length &&
               (text.size() == 0 || std::memcmp(key.chars, text.chars, byteCount(text)) == 0);
    });
}

const uchar* KeyIndex::findText(const cell::TextView& text) const {
    if (text.isNull())
        return nullPayload_;
    const KeyTable::Slot* const slot = findSlot(text, hashOfText(text));
    return slot == nullptr ? nullptr : head(slot->place);
}

bool KeyIndex::buildKey() {
    if (outOfMemory_)
        return true;
    if (policy_ == DuplicatePolicy::RejectDuplicates && duplicates_ > 0)
        return reject(QString::number(static_cast<quint32>(firstNumber_)));
    return buildNumbers();
}

bool KeyIndex::buildFloat() {
    if (outOfMemory_)
        return true;
    if (policy_ == DuplicatePolicy::RejectDuplicates && duplicates_ > 0)
        return reject(QString::number(std::bit_cast<double>(firstNumber_), 'g'));
    return buildNumbers();
}

bool KeyIndex::reject(const QString& key) const {
    MainUI::addLog(1, QLatin1String("Error: Primary key in column '") + columnName +
                          QLatin1String("' on pin 1 is not unique: Duplicate value is :'") + key +
                          QLatin1Char('\''));
    return true;
}

bool KeyIndex::buildNumbers() {
    if (policy_ != DuplicatePolicy::ChainDuplicates || duplicates_ == 0)
        return false;
    KeyOrder<quint64> order(table_.count());
    if (!order.hasRoom())
        return noMemory() == nullptr;
    table_.forEach([&](KeyTable::Slot& slot) { order.add(firstByteHighest(slot.word), &slot); });
    order.sort(std::less<>());
    order.forEachWithOddBranches(
        [](quint64 a, quint64 b) { return qint64(__builtin_clzll(a ^ b) / 8); },
        [](KeyTable::Slot& slot) { slot.place = reversedChain(slot.place); });
    return false;
}

bool KeyIndex::buildString() {
    if (outOfMemory_)
        return true;
    if (policy_ == DuplicatePolicy::RejectDuplicates) {
        if (nullTwice_)
            return true;
        return duplicates_ > 0 && reject(qStringFromBytes(firstText_));
    }
    if (policy_ != DuplicatePolicy::ChainDuplicates || duplicates_ == 0)
        return false;
    KeyOrder<cell::TextView> order(table_.count());
    if (!order.hasRoom())
        return noMemory() == nullptr;
    table_.forEach(
        [&](KeyTable::Slot& slot) { order.add(cell::text(keyCell(slot.place)), &slot); });
    order.sort(isMetBefore);
    order.forEachWithOddBranches(sharedBytes, [](KeyTable::Slot& slot) {
        setLink(slot.place, reversedChain(head(slot.place)));
    });
    return false;
}
