#include "actions/shape/category_index.h"

#include <QtCore/QHashFunctions>

namespace {

// The bytes that stand for all cells of a kind.
constexpr quint32 nullKey = cell::nullKey;
constexpr quint64 invalidFloat = cell::invalidFloatBits;

constexpr size_t firstTableSize = 64;

} // namespace

void CategoryIndex::begin(qint32 metaType) {
    clear();
    metaType_ = metaType;
    seed_ = QHashSeed::globalSeed();
    table_.assign(firstTableSize, -1);
}

void CategoryIndex::clear() {
    bytes_.deepReset(0);
    categories_ = {};
    table_ = {};
}

CategoryIndex::Key CategoryIndex::keyOf(const uchar* cell) const {
    if (metaType_ == MetaTypeKey) {
        const bool isNull = cell::loadKey(cell) >= cell::firstNullKey;
        return {isNull ? reinterpret_cast<const uchar*>(&nullKey) : cell, sizeof nullKey};
    }
    if (metaType_ == MetaTypeFloat) {
        const double value = cell::loadFloat(cell);
        const bool isInvalid = value != value && cell::loadFloatBits(cell) != cell::nullFloatBits;
        return {isInvalid ? reinterpret_cast<const uchar*>(&invalidFloat) : cell, sizeof value};
    }
    const cell::TextView text = cell::text(cell);
    return {text.chars, text.isNull() ? -1 : 2 * qsizetype(text.size())};
}

/// The slot of the table that holds the key, or the free one where it belongs.
size_t CategoryIndex::slotOf(const Key& key) const {
    const size_t mask = table_.size() - 1;
    const size_t hash =
        key.size < 0 ? 0 : qHashBits(key.bytes, static_cast<size_t>(key.size), seed_);
    size_t slot = hash & mask;
    while (table_[slot] >= 0 && !(categories_[static_cast<size_t>(table_[slot])] == key))
        slot = (slot + 1) & mask;
    return slot;
}

bool CategoryIndex::add(const uchar* cell) {
    const Key key = keyOf(cell);
    const size_t slot = slotOf(key);
    if (table_[slot] >= 0)
        return false;
    table_[slot] = count();
    uchar* bytes = nullptr;
    if (key.size > 0) {
        bytes = bytes_.alloc(key.size);
        std::memcpy(bytes, key.bytes, static_cast<size_t>(key.size));
    }
    categories_.push_back({bytes, key.size});
    if (2 * categories_.size() > table_.size())
        grow();
    return true;
}

void CategoryIndex::grow() {
    table_.assign(2 * table_.size(), -1);
    for (int place = 0; place < count(); ++place)
        table_[slotOf(categories_[static_cast<size_t>(place)])] = place;
}

int CategoryIndex::find(const uchar* cell, int guess) const {
    const Key key = keyOf(cell);
    if (guess >= 0 && guess < count() && categories_[static_cast<size_t>(guess)] == key)
        return guess;
    return table_[slotOf(key)];
}
