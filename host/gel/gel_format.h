/// The parts of a gel file, as docs/gel-format.md tells them, and what they may be at most.
///
///     header   magic, version, columns and declared order, checksum
///     blocks   each the cells of some rows, column by column, compressed
///     index    an entry for each block
///     footer   numbers of rows and blocks, place of the index, checksum, end mark
#pragma once

#include <QtCore/QtGlobal>

namespace gel {

/// The first byte is no text, and a copy that changes line ends breaks it.
inline constexpr char magic[8] = {'\x89', 'G', 'E', 'L', '\r', '\n', '\x1A', '\n'};
inline constexpr char endMark[8] = {'G', 'E', 'L', ' ', 'E', 'N', 'D', '\n'};
inline constexpr quint32 version = 1;

/// Magic, version, and the size of the columns that follow.
inline constexpr size_t prefixBytes = 16;
inline constexpr size_t checksumBytes = 8;
inline constexpr size_t indexEntryBytes = 24;
inline constexpr size_t footerBytes = 40;
/// Entries of the index that are summed up together: a reader needs no room for more at a time.
inline constexpr size_t indexPart = 4096;

/// What the index says of a block.
struct BlockEntry {
    quint32 rows;
    quint32 cellBytes;    ///< of its cells as rows hold them
    quint32 encodedBytes; ///< before compression
    quint32 storedBytes;  ///< in the file
    quint64 checksum;     ///< of the bytes in the file
};

inline constexpr qint64 mostColumns = 1 << 20;
inline constexpr quint32 mostColumnBytes = 256u << 20; ///< of the header's part on columns
inline constexpr quint32 mostBlockRows = 1u << 16;
inline constexpr quint32 mostCellBytes = 256u << 20; ///< of a block
/// A row has to fit behind those that a block holds already.
inline constexpr quint32 mostRowBytes = 192u << 20;

/// What a block of these cells takes at most before compression. Beside the texts themselves that
/// is the widths of packed lengths, which are those of the longest text.
inline constexpr quint64 mostEncodedBytes(quint64 cellBytes, quint64 columns) {
    return 2 * cellBytes + 64 * columns + 64;
}

/// What compressed bytes become at most: their smallest unit stands for 128 KiB in four bytes.
inline constexpr quint64 mostExpansion = 32768;

/// What encoded bytes take at most in the file.
inline constexpr quint64 mostStoredBytes(quint64 encodedBytes) {
    return encodedBytes + encodedBytes / 64 + 1024;
}

} // namespace gel
