#include "host/gel/column_section.h"

#include "host/gel/gel_format.h"

namespace gel {

namespace {

bool isSortEntry(const SortInfos& entry, qint64 columns) {
    return entry.column >= -1 && entry.column < columns;
}

bool takeSort(ByteTaker* bytes, PinOutMetaData* columns) {
    const quint32 entries = bytes->take<quint32>();
    if (entries > bytes->left() / 8)
        return false;
    for (quint32 i = 0; i < entries; ++i) {
        SortInfos entry;
        entry.column = bytes->take<qint32>();
        entry.SortType = bytes->take<qint32>();
        if (!isSortEntry(entry, columns->names.size()))
            return false;
        columns->sort.push_back(entry);
    }
    return true;
}

} // namespace

QString putColumns(const PinOutMetaData& columns, GrowingBytes* out) {
    if (columns.names.size() > mostColumns)
        return QStringLiteral("the table has %1 columns; a gel file has at most %2")
            .arg(columns.names.size())
            .arg(mostColumns);
    quint64 nameBytes = 0;
    for (const QString& name : columns.names)
        nameBytes += 2 * static_cast<quint64>(name.size());
    const quint64 others = 12 * quint64(columns.names.size()) + 8 * quint64(columns.sort.size());
    if (nameBytes + others + 8 > mostColumnBytes)
        return QStringLiteral("the names of the columns take more than %1 MiB")
            .arg(mostColumnBytes >> 20);
    out->put(static_cast<quint32>(columns.names.size()));
    for (qsizetype i = 0; i < columns.names.size(); ++i) {
        const QString& name = columns.names[i];
        out->put(static_cast<qint32>(columns.types[i].type));
        out->put(static_cast<qint32>(columns.types[i].info));
        out->put(static_cast<quint32>(name.size()));
        out->append(name.constData(), 2 * static_cast<size_t>(name.size()));
    }
    out->put(static_cast<quint32>(columns.sort.size()));
    for (const SortInfos& entry : columns.sort) {
        if (!isSortEntry(entry, columns.names.size()))
            return QStringLiteral("the declared order names a column that doesn't exist");
        out->put(entry.column);
        out->put(entry.SortType);
    }
    return {};
}

bool takeColumns(ByteTaker bytes, PinOutMetaData* columns) {
    *columns = {};
    const quint32 count = bytes.take<quint32>();
    if (count > mostColumns || count > bytes.left() / 12)
        return false;
    columns->names.reserve(count);
    columns->types.reserve(count);
    for (quint32 i = 0; i < count; ++i) {
        const qint32 type = bytes.take<qint32>();
        const qint32 info = bytes.take<qint32>();
        const size_t units = bytes.take<quint32>();
        const uchar* const name = bytes.takeBytes(2 * units);
        if (name == nullptr)
            return false;
        QString text(static_cast<qsizetype>(units), Qt::Uninitialized);
        std::memcpy(text.data(), name, 2 * units);
        columns->names.push_back(text);
        columns->types.push_back(MetaInfo(type, info));
    }
    return takeSort(&bytes, columns) && bytes.ok() && bytes.left() == 0;
}

} // namespace gel
