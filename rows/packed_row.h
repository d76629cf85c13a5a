/// Packed rows: the cells of chosen columns as one block of bytes.
///
///     | Key cells, 4 bytes each | Float cells, 8 bytes each | String cells, each whole |
///
/// Within each run the cells stand in rising order of their place in what the descriptor was made
/// from. No header, no padding, no end mark: the two first runs have a size that depends on the
/// descriptor alone, and a String cell is found by walking those in front of it. Any meta type but
/// 'K' and 'F' counts as String.
///
/// A descriptor is made once, from a table's first row, and then only read.
#pragma once

#include "host/one_row.h"

#include <vector>

struct PackedRowDescriptor {
    qint32 keyCount = 0;
    qint32 floatCount = 0;
    qint32 stringCount = 0;

    // By class, the column in the source row and the place in the row that is unpacked to. The last
    // column comes first: every walk goes from a list's end to its beginning.
    const qint32* keySources = nullptr;
    const qint32* floatSources = nullptr;
    const qint32* stringSources = nullptr;
    const qint32* keyTargets = nullptr;
    const qint32* floatTargets = nullptr;
    const qint32* stringTargets = nullptr;

    qint32 fixedSize = 0; ///< bytes of the Key and Float runs

    std::unique_ptr<qint32[]> lists; ///< all six
};

/// No columns, no lists.
void initDescriptor(PackedRowDescriptor& descriptor);

/// All columns, unpacked to where they were.
void descriptorFromRow(PackedRowDescriptor& descriptor, const OneRow& row);

/// The columns listed, in that order, unpacked to where they were.
void descriptorFromColumns(PackedRowDescriptor& descriptor, const OneRow& row,
                           const std::vector<int>& columns);

/// All columns but one, unpacked without a gap. `sources` gets the source of each place.
void descriptorAllBut(PackedRowDescriptor& descriptor, const OneRow& row, int skipped,
                      std::vector<qint32>* sources = nullptr);

/// The columns named, unpacked in the order of the names. `sources` gets the source of each place.
/// True when a name isn't there, which is logged; the descriptor then has no columns.
bool descriptorFromNames(PackedRowDescriptor& descriptor, const OneRow& row,
                         const QStringList& names, std::vector<qint32>* sources = nullptr);

/// A copy with lists of its own.
void copyDescriptor(PackedRowDescriptor& descriptor, const PackedRowDescriptor& other);

/// Frees the lists. May be called twice.
void releaseDescriptor(PackedRowDescriptor& descriptor);

inline qint32 columnCount(const PackedRowDescriptor& descriptor) {
    return descriptor.keyCount + descriptor.floatCount + descriptor.stringCount;
}

/// Bytes that the row packs to.
qint64 packedSize(const PackedRowDescriptor& descriptor, const uchar* const* cells);

/// Writes the packed row to `bytes`, which has room for packedSize, and returns the place behind.
uchar* packRow(const PackedRowDescriptor& descriptor, const uchar* const* cells, uchar* bytes);

/// The same; `out` gets, at each column's place in the source row, the cell's new address.
uchar* packRowRepoint(const PackedRowDescriptor& descriptor, const uchar* const* cells,
                      const uchar** out, uchar* bytes);

/// The same; `out` gets the new addresses one behind the other: Key, Float, String cells.
uchar* packRowListing(const PackedRowDescriptor& descriptor, const uchar* const* cells,
                      const uchar** out, uchar* bytes);

/// Points `out`, at each column's target, at the cell in the packed row; returns the place behind.
const uchar* unpackRow(const PackedRowDescriptor& descriptor, const uchar** out,
                       const uchar* bytes);
