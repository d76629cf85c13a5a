/// Tables for the tests of gel files, and files made of them.
#pragma once

#include "host/gel/gel_reader.h"
#include "host/gel/gel_writer.h"

#include <QtCore/QFile>

#include <random>
#include <vector>

/// A table with its rows packed one behind the other, so that cells stand at any address.
struct PackedRows {
    PinOutMetaData columns;
    std::vector<std::vector<uchar>> rows;

    friend bool operator==(const PackedRows&, const PackedRows&) = default;
};

/// The bytes of a gel file of the table.
inline QByteArray gelBytes(const PackedRows& table, int workers = 0,
                           quint32 blockRows = gel::mostBlockRows) {
    gel::GelWriter writer(workers, blockRows);
    OneRow row;
    row.setShape(table.columns);
    QByteArray bytes;
    const auto take = [&] {
        bytes.append(writer.bytes(), writer.size());
        writer.clear();
    };
    if (!writer.start(table.columns).isNull())
        return {};
    for (const std::vector<uchar>& packed : table.rows) {
        row.initFromBuffer(packed.data(), 0, -1);
        if (!writer.add(row.cells).isNull())
            return {};
        take();
    }
    writer.finish();
    take();
    return bytes;
}

inline void writeFile(const QString& path, const QByteArray& bytes) {
    // Not over the earlier one: some file systems then wait for the disk.
    QFile::remove(path);
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
}

struct ReadResult {
    PackedRows table;
    QString problem;
    QStringList warnings;
};

inline ReadResult readGel(const QString& path, bool readsAhead = false, bool skips = false) {
    gel::GelReader reader;
    reader.open(path, readsAhead, skips);
    ReadResult result{{reader.columns(), {}}, {}, {}};
    OneRow row;
    row.setShape(reader.columns());
    while (reader.nextRow(row.cells)) {
        std::vector<uchar> packed(static_cast<size_t>(row.storedBytes()));
        row.storeAt(packed.data());
        result.table.rows.push_back(std::move(packed));
    }
    result.problem = reader.problem();
    result.warnings = reader.takeWarnings();
    return result;
}

/// How the values of a column lie; each takes another way through the encoders.
enum class Pattern { Constant, Counter, Few, Wide, Wild };

std::vector<uchar> randomGelCell(std::mt19937_64& random, qint32 type, Pattern pattern, size_t row);
PackedRows randomGelTable(std::mt19937_64& random, size_t columns, size_t rows);
