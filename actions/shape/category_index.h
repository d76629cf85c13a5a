/// Finds the place of a category by its cell. Categories are alike when their texts are: all null
/// keys, and all floats that aren't numbers; null and the empty text differ.
///
/// Read-only once built, and then usable by several threads.
#pragma once

#include "host/row_buffer.h"

#include <vector>

class CategoryIndex {
public:
    /// Makes the index empty, for cells of a column with this meta type.
    void begin(qint32 metaType);

    /// Adds the next category, with a copy of its cell. False when it is there already.
    bool add(const uchar* cell);

    /// The place of the category, from 0 in the order in which they were added, or -1. `guess` is
    /// looked at first; any number will do.
    int find(const uchar* cell, int guess) const;

    int count() const { return static_cast<int>(categories_.size()); }
    void clear();

private:
    /// What makes cells alike: their bytes without length field, in one form of many.
    struct Key {
        const uchar* bytes;
        qsizetype size; ///< -1: null text

        bool operator==(const Key& other) const {
            return size == other.size &&
                   (size <= 0 || std::memcmp(bytes, other.bytes, static_cast<size_t>(size)) == 0);
        }
    };

    Key keyOf(const uchar* cell) const;
    size_t slotOf(const Key& key) const;
    void grow();

    qint32 metaType_ = MetaTypeText;
    size_t seed_ = 0;
    RowBuffer bytes_;
    std::vector<Key> categories_;
    std::vector<qint32> table_; ///< open addressing: places of categories, -1 where free
};
