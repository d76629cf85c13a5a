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

quint64 hashOfText(const cell::TextView& text) {
    return KeyTable::hashOf(text.chars, byteCount(text));
}

} // namespace

KeyIndex::KeyIndex(qint64 blockSize, qint64 payloadSize, DuplicatePolicy policy)
    : payloadSize_(payloadSize),
      policy_(policy),
      entries_(blockSize) {}

uchar* KeyIndex::noMemory() {
    outOfMemory_ = true;
    return nullptr;
}

/// Room for a row behind a copy of its key. A payload of no bytes still has an address of its own.
uchar* KeyIndex::newPayload(const void* key, qint64 keyBytes, qint64 moreBytes) {
    const qint64 payloadBytes = payloadSize_ + moreBytes;
    ++entryCount_;
    if (payloadBytes + keyBytes == 0)
        return const_cast<uchar*>(&cell::nullText);
    if (payloadBytes > 0)
        entries_.alignToTwo();
    const qint64 gap = payloadBytes > 0 ? keyBytes & 1 : 0;
    uchar* const bytes = entries_.alloc(keyBytes + gap + payloadBytes);
    if (bytes == nullptr)
        return noMemory();
    if (keyBytes > 0)
        std::memcpy(bytes, key, static_cast<size_t>(keyBytes));
    return bytes;
}

/// A further row of a key.
uchar* KeyIndex::addAgain(uchar* behindKey, qint64 moreBytes) {
    uchar* const payload = newPayload(nullptr, 0, moreBytes);
    if (payload != nullptr && policy_ == DuplicatePolicy::ChainDuplicates)
        chain(behindKey, payload);
    return payload;
}

void KeyIndex::chain(uchar* behindKey, uchar* added) const {
    setLink(added, first(behindKey));
    setLink(behindKey, added, lastMark);
}

/// Makes the payload behind the key the first one.
void KeyIndex::turnRound(uchar* behindKey) const {
    uchar* payload = first(behindKey);
    const uchar* last = nullptr;
    while (payload != behindKey) {
        uchar* const next = reinterpret_cast<uchar*>(link(payload));
        setLink(payload, last);
        last = payload;
        payload = next;
    }
    setLink(behindKey, last);
}

/// Keeps the duplicate that the tree meets first.
void KeyIndex::noteDuplicate(quint64 number) {
    if (duplicates_++ == 0 || firstByteHighest(number) < firstByteHighest(firstNumber_))
        firstNumber_ = number;
}

template <class Number>
uchar* KeyIndex::addToSet(Number number) {
    const auto outcome = set<Number>(*this).add(number);
    if (outcome == NumberSet<Number>::Outcome::NoMemory)
        return noMemory();
    if (outcome == NumberSet<Number>::Outcome::Present)
        noteDuplicate(number);
    ++entryCount_;
    return const_cast<uchar*>(&cell::nullText);
}

template <class Number>
uchar* KeyIndex::addNumber(Number number, qint64 moreBytes) {
    if (payloadSize_ == 0)
        return addToSet(number);
    if (const KeyTable::Slot* const slot = findSlot(number)) {
        noteDuplicate(number);
        return addAgain(behind(slot->place() + sizeof number), moreBytes);
    }
    uchar* const key = newPayload(&number, sizeof number, moreBytes);
    if (key == nullptr)
        return nullptr;
    const auto hashAt = [](const uchar* place) {
        return KeyTable::hashOf(numberAt<Number>(place));
    };
    return table_.put(KeyTable::hashOf(number), key, hashAt) ? behind(key + sizeof number)
                                                             : noMemory();
}

template uchar* KeyIndex::addNumber(quint32, qint64);
template uchar* KeyIndex::addNumber(quint64, qint64);

uchar* KeyIndex::addNull(qint64 moreBytes) {
    uchar* const payload = newPayload(nullptr, 0, moreBytes);
    if (payload == nullptr)
        return nullptr;
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

uchar* KeyIndex::addString(const uchar* cell, qint64 moreBytes) {
    const cell::TextView text = cell::text(cell);
    if (text.isNull())
        return addNull(moreBytes);
    const quint64 hash = hashOfText(text);
    if (const FoundText found = findText(text, hash); found.cell != nullptr) {
        if (duplicates_++ == 0 || isMetBefore(text, cell::text(firstText_)))
            firstText_ = found.cell;
        return addAgain(behind(found.end), moreBytes);
    }
    const qint64 cellBytes = cell::textBytes(cell);
    uchar* const key = newPayload(cell, cellBytes, moreBytes);
    if (key == nullptr)
        return nullptr;
    const auto hashAt = [](const uchar* place) { return hashOfText(cell::text(place)); };
    return table_.put(hash, key, hashAt) ? behind(key + cellBytes) : noMemory();
}

KeyIndex::FoundText KeyIndex::findText(const cell::TextView& text, quint64 hash) const {
    FoundText found;
    const size_t size = byteCount(text);
    table_.find(hash, [&](const uchar* place) {
        const cell::TextView key = cell::text(place);
        if (key.length != text.length || !KeyTable::isSame(key.chars, text.chars, size))
            return false;
        found = {place, key.chars + size};
        return true;
    });
    return found;
}

const uchar* KeyIndex::findText(const cell::TextView& text) const {
    if (text.isNull())
        return nullPayload_;
    const FoundText found = findText(text, hashOfText(text));
    return found.cell == nullptr ? nullptr : first(behind(found.end));
}

bool KeyIndex::buildKey() {
    if (outOfMemory_)
        return true;
    if (policy_ == DuplicatePolicy::RejectDuplicates && duplicates_ > 0)
        return reject(QString::number(static_cast<quint32>(firstNumber_)));
    return buildNumbers<quint32>();
}

bool KeyIndex::buildFloat() {
    if (outOfMemory_)
        return true;
    if (policy_ == DuplicatePolicy::RejectDuplicates && duplicates_ > 0)
        return reject(QString::number(std::bit_cast<double>(firstNumber_), 'g'));
    return buildNumbers<quint64>();
}

bool KeyIndex::reject(const QString& key) const {
    MainUI::addLog(1, QLatin1String("Error: Primary key in column '") + columnName +
                          QLatin1String("' on pin 1 is not unique: Duplicate value is :'") + key +
                          QLatin1Char('\''));
    return true;
}

template <class Number>
bool KeyIndex::buildNumbers() {
    if (policy_ != DuplicatePolicy::ChainDuplicates || duplicates_ == 0)
        return false;
    KeyOrder<quint64> order(table_.count());
    if (!order.hasRoom())
        return noMemory() == nullptr;
    table_.forEach([&](uchar* key) { order.add(firstByteHighest(numberAt<Number>(key)), *key); });
    order.sort(std::less<>());
    order.forEachWithOddBranches(
        [](quint64 a, quint64 b) { return qint64(__builtin_clzll(a ^ b) / 8); },
        [this](uchar* key) { turnRound(behind(key + sizeof(Number))); });
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
    table_.forEach([&](uchar* key) { order.add(cell::text(key), *key); });
    order.sort(isMetBefore);
    order.forEachWithOddBranches(
        sharedBytes, [this](uchar* key) { turnRound(behind(key + cell::textBytes(key))); });
    return false;
}
