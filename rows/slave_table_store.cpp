#include "rows/slave_table_store.h"

#include "host/main_ui.h"

#include <cstdio>
#include <cstdlib>

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

/// Never that of a text, so that a null key differs from the empty one.
constexpr quint32 nullHash = 0;

quint32 hashOf(const cell::TextView& text) {
    if (text.isNull())
        return nullHash;
    return static_cast<quint32>(KeyTable::hashOf(text.chars, byteCount(text))) | 1;
}

quint64 hashOfTextWord(quint64 word) {
    return word >> 32;
}

quint64 hashOfNumberWord(quint64 word) {
    return KeyTable::hashOf(word);
}

} // namespace

SlaveTableStore::SlaveTableStore(int pin, qint64 blockBytes, bool rejectsDuplicates)
    : pin_(pin),
      rejectsDuplicates_(rejectsDuplicates),
      blocks_(blockBytes) {}

void SlaveTableStore::setColumns(const OneRow& firstRow, std::vector<int> columns,
                                 std::vector<int> keyPlaces) {
    columns_ = std::move(columns);
    keyPlaces_ = std::move(keyPlaces);
    types_.clear();
    for (const int column : columns_)
        types_.push_back(firstRow.getMetaType(column).type);
    tables_ = std::vector<KeyTable>(keyPlaces_.size());
    sizes_.resize(columns_.size());
    keyOffsets_.resize(keyPlaces_.size());
}

bool SlaveTableStore::addRow(const OneRow& row) {
    return addKeys(row, storeRow(row));
}

uchar* SlaveTableStore::storeRow(const OneRow& row) {
    qint64 size = 0;
    size_t key = 0;
    for (size_t i = 0; i < columns_.size(); ++i) {
        if (key < keyPlaces_.size() && at(keyPlaces_[key]) == i)
            keyOffsets_[key++] = size;
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
    for (size_t key = 0; key < keyPlaces_.size(); ++key)
        keyOffsets_[key] = keyPlaces_[key];
    blocks_.alignToTwo();
    const size_t listBytes = cells.size() * sizeof(uchar*);
    uchar* const list = orEnd(blocks_.alloc(static_cast<qint64>(listBytes)));
    std::memcpy(list, cells.data(), listBytes);
    return list + 1;
}

bool SlaveTableStore::addKeys(const OneRow& row, uchar* stored) {
    for (size_t key = 0; key < tables_.size(); ++key) {
        const int place = keyPlaces_[key];
        const uchar* const bytes = row.cells[columns_[at(place)]];
        const qint32 type = types_[at(place)];
        bool isNew = true;
        if (type == MetaTypeKey) {
            isNew = addNumberKey(tables_[key], cell::loadKey(bytes), stored);
        } else if (type == MetaTypeFloat) {
            const double number = cell::loadFloat(bytes);
            // What equals nothing would only take room.
            if (number == number)
                isNew = addNumberKey(tables_[key], floatWord(number), stored);
        } else {
            isNew = addTextKey(tables_[key], cell::text(bytes), stored,
                               static_cast<quint32>(keyOffsets_[key]));
        }
        if (!isNew) {
            reportDuplicate(row, columns_[at(place)], type);
            return true;
        }
    }
    return false;
}

bool SlaveTableStore::addNumberKey(KeyTable& table, quint64 word, uchar* stored) {
    if (KeyTable::Slot* const slot = table.findNumber(word)) {
        slot->place = stored;
        return !rejectsDuplicates_;
    }
    if (!table.put({word, stored}, hashOfNumberWord))
        endForWantOfMemory();
    return true;
}

bool SlaveTableStore::addTextKey(KeyTable& table, const cell::TextView& text, uchar* stored,
                                 quint32 keyPlace) {
    const quint32 hash = hashOf(text);
    KeyTable::Slot added{(quint64(hash) << 32) | keyPlace, nullptr};
    added.place = stored;
    if (KeyTable::Slot* const slot = findSlot(table, text, hash)) {
        *slot = added;
        return !rejectsDuplicates_;
    }
    if (!table.put(added, hashOfTextWord))
        endForWantOfMemory();
    return true;
}

KeyTable::Slot* SlaveTableStore::findSlot(const KeyTable& table, const cell::TextView& text,
                                          quint32 hash) const {
    return table.find(hash, [&](const KeyTable::Slot& slot) {
        if (slot.word >> 32 != hash)
            return false;
        const cell::TextView key = cell::text(keyCell(slot));
        return key.length == text.length &&
               (text.size() == 0 || std::memcmp(key.chars, text.chars, byteCount(text)) == 0);
    });
}

const uchar* SlaveTableStore::findText(int slot, const cell::TextView& text) const {
    const KeyTable::Slot* const found = findSlot(tables_[at(slot)], text, hashOf(text));
    return found == nullptr ? nullptr : found->place;
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
    for (const KeyTable& table : tables_)
        sum += table.bytes();
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
