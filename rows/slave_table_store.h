/// SlaveTableStore: a slave table in memory, looked up by any number of its columns.
///
/// The cells of the stored columns of a row stand one behind the other, in one block. The few rows
/// that don't fit into what is left of a block straddle blocks, never within a cell, and carry the
/// addresses of their cells instead: a row at an odd address is such a list (behind one byte), so
/// that no reader looks for the end of a block, and no cell can be taken for a mark of it.
///
/// Filled by one thread, then only read, by any number of threads. Cells stay where they are until
/// the store is destroyed: output rows point straight at them.
#pragma once

#include "host/one_row.h"
#include "rows/block_chain.h"
#include "rows/key_table.h"

#include <vector>

class SlaveTableStore {
public:
    /// `pin` is for messages. Where memory fails, here or later, the store says so and ends the
    /// process with exit status 99.
    SlaveTableStore(int pin, qint64 blockBytes, bool rejectsDuplicates);

    /// Which columns of the rows are stored, and which of these are keys, as places among the
    /// stored columns; both ascending. To be called once, before the first row.
    void setColumns(const OneRow& firstRow, std::vector<int> columns,
                    const std::vector<int>& keyPlaces);

    /// Stores a row. True when one of its keys is there already and duplicates are rejected, which
    /// is logged. Otherwise the last row of a key is the one that is found.
    bool addRow(const OneRow& row);

    // Finds: the row with this value in key `slot`, or null. -0 equals 0; a not-a-number, the null
    // Float among them, equals nothing; a null text differs from the empty one.

    const uchar* findKey(int slot, quint32 key) const { return rowIn(findSlot(keyAt(slot), key)); }
    const uchar* findFloat(int slot, double key) const { return rowIn(findSlot(keyAt(slot), key)); }
    const uchar* findText(int slot, const cell::TextView& text) const {
        return rowIn(findSlot(keyAt(slot), text));
    }

    // Ahead of a find, so that what several keys need comes from memory at once.

    void prefetchKey(int slot, quint32 key) const;
    void prefetchText(int slot, const cell::TextView& text) const;

    qint32 keyType(int slot) const { return types_[at(keyAt(slot).place)]; }

    /// Which cells of a row are wanted: ascending places among the stored columns, a place more
    /// than once if need be.
    class Selection {
    public:
        Selection() = default;
        Selection(const SlaveTableStore& store, std::vector<int> places);

        /// Writes the address of each wanted cell of the row, and returns the place behind.
        const uchar** point(const uchar* row, const uchar** out) const;

    private:
        /// A walk over one stored cell, or over several of fixed size that aren't wanted.
        struct Step {
            qint32 fixedBytes; ///< 0: a text; negative: the next step wants the same cell
            bool wanted;
        };
        std::vector<Step> steps_;
        std::vector<int> places_;
    };

    /// Bytes held, used or not.
    qint64 bytes() const;

private:
    static qint64 stepBytes(qint32 fixedBytes, const uchar* cell) {
        return fixedBytes > 0 ? fixedBytes : fixedBytes < 0 ? 0 : cell::textBytes(cell);
    }
    static size_t at(int place) { return static_cast<size_t>(place); }
    static const uchar* rowIn(const KeyTable::Slot* slot) {
        return slot == nullptr ? nullptr : slot->place();
    }
    static bool straddles(const uchar* row) { return (reinterpret_cast<quintptr>(row) & 1) != 0; }
    static const uchar* listedCell(const uchar* row, qint64 place) {
        const uchar* cell;
        std::memcpy(&cell, row - 1 + place * qint64(sizeof cell), sizeof cell);
        return cell;
    }
    /// A key column, and the way to it from the first cell of a row.
    struct Key {
        int place;
        std::vector<qint32> way; ///< bytes of cells of fixed size; 0: a text
        KeyTable table;
    };
    const Key& keyAt(int slot) const { return keys_[at(slot)]; }
    static const uchar* keyCell(const Key& key, const uchar* row) {
        if (straddles(row))
            return listedCell(row, key.place);
        for (const qint32 fixedBytes : key.way)
            row += stepBytes(fixedBytes, row);
        return row;
    }

    uchar* storeRow(const OneRow& row);
    uchar* storeStraddling(const OneRow& row);
    static KeyTable::Slot* findSlot(const Key& key, quint32 number);
    static KeyTable::Slot* findSlot(const Key& key, double number);
    static KeyTable::Slot* findSlot(const Key& key, const cell::TextView& text);
    template <class Value, class ValueAt>
    bool addKey(Key& key, const uchar* bytes, uchar* stored, ValueAt valueAt);
    void reportDuplicate(const OneRow& row, int column, qint32 type) const;

    int pin_;
    bool rejectsDuplicates_;
    BlockChain blocks_;
    std::vector<int> columns_;
    std::vector<qint32> types_;
    std::vector<Key> keys_;
    std::vector<qint64> sizes_; ///< while a row is stored
};
