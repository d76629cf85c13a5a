#include "rows/packed_row.h"

#include "host/main_ui.h"

#include <array>
#include <iterator>
#include <numeric>
#include <utility>

namespace {

using Move = void (*)(uchar* to, const uchar* from);

template <size_t size>
void moveExactly(uchar* to, const uchar* from) {
    std::memcpy(to, from, size);
}

template <size_t... sizes>
constexpr std::array<Move, sizeof...(sizes)> movesOf(std::index_sequence<sizes...>) {
    return {&moveExactly<sizes>...};
}

/// Copies that the compiler knows the size of: most texts are short.
constexpr size_t roundBytes = 64;
constexpr auto moves = movesOf(std::make_index_sequence<roundBytes>());

uchar* moveText(uchar* to, const uchar* from) {
    auto size = static_cast<size_t>(cell::textBytes(from));
    for (; size >= roundBytes; size -= roundBytes) {
        std::memcpy(to, from, roundBytes);
        to += roundBytes;
        from += roundBytes;
    }
    moves[size](to, from);
    return to + size;
}

/// Fills the descriptor for the columns `sources` of the row, unpacked to `targets`.
void fill(PackedRowDescriptor& descriptor, const OneRow& row, const std::vector<int>& sources,
          const std::vector<int>& targets) {
    initDescriptor(descriptor);
    const auto countOf = [&](int column) -> qint32& {
        const qint32 type = row.getMetaType(column).type;
        return type == MetaTypeKey     ? descriptor.keyCount
               : type == MetaTypeFloat ? descriptor.floatCount
                                       : descriptor.stringCount;
    };
    for (const int column : sources)
        ++countOf(column);
    const auto all = static_cast<qint32>(sources.size());
    descriptor.fixedSize = 4 * descriptor.keyCount + 8 * descriptor.floatCount;
    descriptor.lists = std::make_unique<qint32[]>(2 * static_cast<size_t>(all));
    qint32* const keys = descriptor.lists.get();
    qint32* const floats = keys + descriptor.keyCount;
    qint32* const strings = floats + descriptor.floatCount;
    descriptor.keySources = keys;
    descriptor.floatSources = floats;
    descriptor.stringSources = strings;
    descriptor.keyTargets = keys + all;
    descriptor.floatTargets = floats + all;
    descriptor.stringTargets = strings + all;
    qint32* nextKey = keys;
    qint32* nextFloat = floats;
    qint32* nextString = strings;
    for (size_t i = sources.size(); i-- > 0;) {
        const qint32 type = row.getMetaType(sources[i]).type;
        qint32*& next = type == MetaTypeKey     ? nextKey
                        : type == MetaTypeFloat ? nextFloat
                                                : nextString;
        next[0] = sources[i];
        next[all] = targets[i];
        ++next;
    }
}

/// Writes the cells and tells `placed(sourceIndex, address)` of each.
template <class Placed>
uchar* pack(const PackedRowDescriptor& descriptor, const uchar* const* cells, uchar* bytes,
            Placed placed) {
    for (qint32 i = descriptor.keyCount; i-- > 0;) {
        const qint32 source = descriptor.keySources[i];
        std::memcpy(bytes, cells[source], 4);
        placed(source, bytes);
        bytes += 4;
    }
    for (qint32 i = descriptor.floatCount; i-- > 0;) {
        const qint32 source = descriptor.floatSources[i];
        std::memcpy(bytes, cells[source], 8);
        placed(source, bytes);
        bytes += 8;
    }
    for (qint32 i = descriptor.stringCount; i-- > 0;) {
        const qint32 source = descriptor.stringSources[i];
        uchar* const end = moveText(bytes, cells[source]);
        placed(source, bytes);
        bytes = end;
    }
    return bytes;
}

} // namespace

void initDescriptor(PackedRowDescriptor& descriptor) {
    descriptor = {};
}

void releaseDescriptor(PackedRowDescriptor& descriptor) {
    descriptor = {};
}

void descriptorFromRow(PackedRowDescriptor& descriptor, const OneRow& row) {
    std::vector<int> columns(static_cast<size_t>(row.sz()));
    std::iota(columns.begin(), columns.end(), 0);
    fill(descriptor, row, columns, columns);
}

void descriptorFromColumns(PackedRowDescriptor& descriptor, const OneRow& row,
                           const std::vector<int>& columns) {
    fill(descriptor, row, columns, columns);
}

void descriptorAllBut(PackedRowDescriptor& descriptor, const OneRow& row, int skipped,
                      std::vector<qint32>* sources) {
    std::vector<int> columns;
    for (int column = 0; column < row.sz(); ++column) {
        if (column != skipped)
            columns.push_back(column);
    }
    std::vector<int> places(columns.size());
    std::iota(places.begin(), places.end(), 0);
    fill(descriptor, row, columns, places);
    if (sources != nullptr)
        *sources = std::move(columns);
}

bool descriptorFromNames(PackedRowDescriptor& descriptor, const OneRow& row,
                         const QStringList& names, std::vector<qint32>* sources) {
    initDescriptor(descriptor);
    std::vector<int> columns;
    for (const QString& name : names) {
        columns.push_back(row.getIndexOfColumn(name));
        if (columns.back() < 0) {
            MainUI::addLog(1, QLatin1String("cannot find column '") + name + QLatin1Char('\''));
            return true;
        }
    }
    std::vector<int> places(columns.size());
    std::iota(places.begin(), places.end(), 0);
    fill(descriptor, row, columns, places);
    if (sources != nullptr)
        *sources = std::move(columns);
    return false;
}

void copyDescriptor(PackedRowDescriptor& descriptor, const PackedRowDescriptor& other) {
    initDescriptor(descriptor);
    if (other.lists == nullptr)
        return;
    const auto all = static_cast<size_t>(columnCount(other));
    descriptor.lists = std::make_unique<qint32[]>(2 * all);
    std::copy_n(other.lists.get(), 2 * all, descriptor.lists.get());
    const auto moved = [&](const qint32* list) {
        return descriptor.lists.get() + (list - other.lists.get());
    };
    descriptor.keyCount = other.keyCount;
    descriptor.floatCount = other.floatCount;
    descriptor.stringCount = other.stringCount;
    descriptor.keySources = moved(other.keySources);
    descriptor.floatSources = moved(other.floatSources);
    descriptor.stringSources = moved(other.stringSources);
    descriptor.keyTargets = moved(other.keyTargets);
    descriptor.floatTargets = moved(other.floatTargets);
    descriptor.stringTargets = moved(other.stringTargets);
    descriptor.fixedSize = other.fixedSize;
}

qint64 packedSize(const PackedRowDescriptor& descriptor, const uchar* const* cells) {
    qint64 size = descriptor.fixedSize;
    for (qint32 i = 0; i < descriptor.stringCount; ++i)
        size += cell::textBytes(cells[descriptor.stringSources[i]]);
    return size;
}

uchar* packRow(const PackedRowDescriptor& descriptor, const uchar* const* cells, uchar* bytes) {
    return pack(descriptor, cells, bytes, [](qint32, const uchar*) {});
}

uchar* packRowRepoint(const PackedRowDescriptor& descriptor, const uchar* const* cells,
                      const uchar** out, uchar* bytes) {
    return pack(descriptor, cells, bytes,
                [out](qint32 source, const uchar* place) { out[source] = place; });
}

uchar* packRowListing(const PackedRowDescriptor& descriptor, const uchar* const* cells,
                      const uchar** out, uchar* bytes) {
    // Each class in the order of its list, which the walk goes through from its end.
    const uchar** const ends[] = {out + descriptor.keyCount,
                                  out + descriptor.keyCount + descriptor.floatCount,
                                  out + columnCount(descriptor)};
    const uchar** next = ends[0];
    const uchar** begin = out;
    size_t run = 0;
    return pack(descriptor, cells, bytes, [&](qint32, const uchar* place) {
        while (next == begin && run + 1 < std::size(ends)) {
            begin = ends[run];
            next = ends[++run];
        }
        *--next = place;
    });
}

const uchar* unpackRow(const PackedRowDescriptor& descriptor, const uchar** out,
                       const uchar* bytes) {
    for (qint32 i = descriptor.keyCount; i-- > 0; bytes += 4)
        out[descriptor.keyTargets[i]] = bytes;
    for (qint32 i = descriptor.floatCount; i-- > 0; bytes += 8)
        out[descriptor.floatTargets[i]] = bytes;
    for (qint32 i = descriptor.stringCount; i-- > 0;) {
        out[descriptor.stringTargets[i]] = bytes;
        bytes += cell::textBytes(bytes);
    }
    return bytes;
}
