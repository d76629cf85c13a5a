#include "rows/slave_table_store.h"

#include "host/main_ui.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

namespace {

constexpr int memoryExitStatus = 99;

[[noreturn]] void endForWantOfMemory() {
    MainUI::addLog(1, QStringLiteral("MultiJoin: Memory Allocation Error"));
    std::fflush(nullptr);
    std::_Exit(memoryExitStatus);
}

uchar* orEnd(uchar* bytes) {
    if (bytes == nullptr)
        endForWantOfMemory();
    return bytes;
}

size_t byteCount(const cell::TextView& text) {
    return 2 * static_cast<size_t>(text.size());
}

// -0 is 0.
quint64 hashOf(double number) {
    return KeyTable::hashOf(std::bit_cast<quint64>(number + 0.0));
}
quint64 hashOf(quint32 number) {
    return KeyTable::hashOf(number);
}
quint64 hashOf(const cell::TextView& text) {
    return text.isNull() ? 0 : KeyTable::hashOf(text.chars, byteCount(text));
}

} // namespace

SlaveTableStore::SlaveTableStore(int pin, qint64 blockBytes, bool rejectsDuplicates)
    : pin_(pin),
      rejectsDuplicates_(rejectsDuplicates),
      blocks_(blockBytes) {}

void SlaveTableStore::setColumns(const OneRow& firstRow, std::vector<int> columns,
                                 const std::vector<int>& keyPlaces) {
    columns_ = std::move(columns);
    types_.clear();
    for (const int column : columns_)
        types_.push_back(firstRow.getMetaType(column).type);
    keys_ = std::vector<Key>(keyPlaces.size());
    for (size_t slot = 0; slot < keys_.size(); ++slot) {
        Key& key = keys_[slot];
        key.place = keyPlaces[slot];
        for (int i = 0; i < key.place; ++i) {
            const qint32 type = types_[at(i)];
            const qint32 fixedBytes = type == MetaTypeKey ? 4 : type == MetaTypeFloat ? 8 : 0;
            if (fixedBytes > 0 && !key.way.empty() && key.way.back() > 0)
                key.way.back() += fixedBytes;
            else
                key.way.push_back(fixedBytes);
        }
    }
    sizes_.resize(columns_.size());
}

bool SlaveTableStore::addRow(const OneRow& row) {
    uchar* const stored = storeRow(row);
    for (Key& key : keys_) {
        const int column = columns_[at(key.place)];
        const uchar* const bytes = row.cells[column];
        const qint32 type = types_[at(key.place)];
        const bool isNew = type == MetaTypeKey ? addKey<quint32>(key, bytes, stored, cell::loadKey)
                           : type == MetaTypeFloat
                               ? addKey<double>(key, bytes, stored, cell::loadFloat)
                               : addKey<cell::TextView>(key, bytes, stored, cell::text);
        if (!isNew) {
            reportDuplicate(row, column, type);
            return true;
        }
    }
    return false;
}

uchar* SlaveTableStore::storeRow(const OneRow& row) {
    qint64 size = 0;
    for (size_t i = 0; i < columns_.size(); ++i) {
        sizes_[i] = cell::bytes(row.cells[columns_[i]], types_[i]);
        size += sizes_[i];
    }
    blocks_.alignToTwo();
    const bool fitsFirstBlock = blocks_.bytes() == 0 && size <= blocks_.blockSize();
    if (size > blocks_.room() && !fitsFirstBlock)
        return storeStraddling(row);
    uchar* const stored = orEnd(blocks_.alloc(size));
    uchar* to = stored;
    for (size_t i = 0; i < columns_.size(); ++i) {
        std::memcpy(to, row.cells[columns_[i]], static_cast<size_t>(sizes_[i]));
        to += sizes_[i];
    }
    return stored;
}

uchar* SlaveTableStore::storeStraddling(const OneRow& row) {
    std::vector<uchar*> cells;
    for (size_t i = 0; i < columns_.size(); ++i) {
        cells.push_back(orEnd(blocks_.alloc(sizes_[i])));
        std::memcpy(cells.back(), row.cells[columns_[i]], static_cast<size_t>(sizes_[i]));
    }
    blocks_.alignToTwo();
    const size_t listBytes = cells.size() * sizeof(uchar*);
    uchar* const list = orEnd(blocks_.alloc(static_cast<qint64>(listBytes)));
    std::memcpy(list, cells.data(), listBytes);
    return list + 1;
}

/// False where the value is there already and duplicates are rejected.
template <class Value, class ValueAt>
bool SlaveTableStore::addKey(Key& key, const uchar* bytes, uchar* stored, ValueAt valueAt) {
    const Value value = valueAt(bytes);
    if constexpr (std::is_same_v<Value, double>) {
        // What equals nothing would only take room.
        if (std::isnan(value))
            return true;
    }
    if (KeyTable::Slot* const slot = findSlot(key, value)) {
        slot->setPlace(stored);
        return !rejectsDuplicates_;
    }
    const auto hashAt = [&](const uchar* row) { return hashOf(valueAt(keyCell(key, row))); };
    if (!key.table.put(hashOf(value), stored, hashAt))
        endForWantOfMemory();
    return true;
}

void SlaveTableStore::prefetchKey(int slot, quint32 key) const {
    keyAt(slot).table.prefetch(hashOf(key));
}

void SlaveTableStore::prefetchText(int slot, const cell::TextView& text) const {
    keyAt(slot).table.prefetch(hashOf(text));
}

KeyTable::Slot* SlaveTableStore::findSlot(const Key& key, quint32 number) {
    return key.table.find(hashOf(number), [&](const uchar* row) {
        return cell::loadKey(keyCell(key, row)) == number;
    });
}

KeyTable::Slot* SlaveTableStore::findSlot(const Key& key, double number) {
    return key.table.find(hashOf(number), [&](const uchar* row) {
        return cell::loadFloat(keyCell(key, row)) == number;
    });
}

KeyTable::Slot* SlaveTableStore::findSlot(const Key& key, const cell::TextView& text) {
    return key.table.find(hashOf(text), [&](const uchar* row) {
        const cell::TextView other = cell::text(keyCell(key, row));
        return other.length == text.length &&
               KeyTable::isSame(other.chars, text.chars, byteCount(text));
    });
}

void SlaveTableStore::reportDuplicate(const OneRow& row, int column, qint32 type) const {
    const uchar* const bytes = row.cells[column];
    const QString key = type == MetaTypeKey     ? QString::number(cell::loadKey(bytes))
                        : type == MetaTypeFloat ? QString::number(cell::loadFloat(bytes), 'g')
                                                : qStringFromBytes(bytes);
    MainUI::addLog(1, QLatin1String("Error: Primary key in column '") + row.colName(column) +
                          QLatin1String("' on pin ") + QString::number(pin_) +
                          QLatin1String(" is not unique: Duplicate value is :'") + key +
                          QLatin1Char('\''));
}

qint64 SlaveTableStore::bytes() const {
    qint64 sum = blocks_.bytes();
    for (const Key& key : keys_)
        sum += key.table.bytes();
    return sum;
}

SlaveTableStore::Selection::Selection(const SlaveTableStore& store, std::vector<int> places)
    : places_(std::move(places)) {
    if (places_.empty())
        return;
    size_t next = 0;
    for (int place = 0; place <= places_.back(); ++place) {
        const qint32 type = store.types_[at(place)];
        const qint32 fixedBytes = type == MetaTypeKey ? 4 : type == MetaTypeFloat ? 8 : 0;
        const bool wanted = places_[next] == place;
        for (; wanted && next + 1 < places_.size() && places_[next + 1] == place; ++next)
            steps_.push_back({-1, true});
        next += wanted ? 1 : 0;
        const bool joins = !wanted && fixedBytes > 0 && !steps_.empty() && !steps_.back().wanted &&
                           steps_.back().fixedBytes > 0;
        if (joins)
            steps_.back().fixedBytes += fixedBytes;
        else
            steps_.push_back({fixedBytes, wanted});
    }
}

const uchar** SlaveTableStore::Selection::point(const uchar* row, const uchar** out) const {
    if (straddles(row)) {
        for (const int place : places_)
            *out++ = listedCell(row, place);
        return out;
    }
    if (steps_.empty())
        return out;
    // The last cell is wanted, and nothing is sought behind it.
    const Step* const last = &steps_.back();
    for (const Step* step = steps_.data(); step != last; ++step) {
        *out = row;
        out += step->wanted ? 1 : 0;
        row += stepBytes(step->fixedBytes, row);
    }
    *out++ = row;
    return out;
}
