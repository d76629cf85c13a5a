/// What the tests of CSV share: tables written as text, and parsed from memory.
#pragma once

#include "engine/csv/csv_parser.h"
#include "host/number_text.h"
#include "host/row_buffer.h"

#include <algorithm>
#include <functional>
#include <string>

namespace velmorra {

/// A source over bytes in memory that gives at most `piece` bytes at a time.
inline ByteSource bytesSource(std::string bytes, qint64 piece) {
    return [bytes = std::move(bytes), piece, at = size_t(0)](uchar* to, qint64 room) mutable {
        const size_t most = size_t(std::min(room, piece));
        const size_t count = std::min(most, bytes.size() - at);
        std::copy_n(bytes.data() + at, count, to);
        at += count;
        return qint64(count);
    };
}

/// A cell as a test writes it: text as it is, "" for the empty text, ~ for null.
inline std::string shownCellText(const uchar* bytes, qint32 type) {
    if (cell::isNull(bytes, type))
        return "~";
    char digits[numberTextRoom];
    if (type == MetaTypeKey)
        return std::string(digits, size_t(formatKey(cell::loadKey(bytes), digits)));
    if (type == MetaTypeFloat)
        return std::string(digits, size_t(formatFloat(cell::loadFloat(bytes), digits)));
    const std::string text = qStringFromBytes(bytes).toStdString();
    return text.empty() ? "\"\"" : text;
}

/// How bytes are read; by default as text cells, named by the header.
struct CsvWays {
    qint64 piece = 1 << 20; ///< most bytes that arrive at a time
    CsvSettings settings;
    std::vector<CsvColumn> columns;
    QVector<SortInfos> sort;
    bool header = true;
    int rowsAtATime = RowBatch::maxRows;
    RejectedRows* rejects = nullptr;
};

struct CsvRead {
    std::string rows; ///< cells with | between them, a line for each row
    std::string problem;
    std::vector<qint64> batchLines;
    bool isRead = false; ///< up to the end or a problem behind the header
};

/// Columns of a letter each, all named c.
inline std::vector<CsvColumn> columnsOf(const std::string& types) {
    std::vector<CsvColumn> columns;
    for (const char type : types)
        columns.push_back({QStringLiteral("c"), type, true, 0xFFFFFFFDu});
    return columns;
}

inline CsvRead readCsv(const std::string& bytes, const CsvWays& ways,
                       const std::function<void(const uchar* const*)>& onRow = {}) {
    CsvParser parser(bytesSource(bytes, ways.piece), QStringLiteral("'t.csv'"), ways.settings);
    if (ways.rejects != nullptr)
        parser.rejectTo(ways.rejects);
    const RowBatch& first = parser.readFirstRow();
    CsvRead read;
    read.problem = first.problem.toStdString();
    if (first.end == BatchEnd::Failed)
        return read;
    std::vector<CsvColumn> columns = ways.columns;
    columns.resize(size_t(first.columns > 0 || ways.header ? first.columns : 1));
    PinOutMetaData shape;
    for (size_t c = 0; c < columns.size(); ++c) {
        if (ways.columns.empty())
            columns[c].name = qStringFromBytes(first.cells[c]);
        shape.names.push_back(columns[c].name);
        shape.types.push_back(MetaInfo(columns[c].metaType, -1));
    }
    shape.sort = columns.empty() ? QVector<SortInfos>() : ways.sort;
    parser.setColumns(columns, shape, !ways.header);
    RowBatch batch;
    do {
        parser.fill(batch, ways.rowsAtATime);
        if (batch.rows > 0)
            read.batchLines.push_back(batch.firstLine);
        for (int i = 0; i < batch.rows; ++i) {
            for (int c = 0; c < batch.columns; ++c)
                read.rows += (c > 0 ? "|" : "") +
                             shownCellText(batch.row(i)[c], columns[size_t(c)].metaType);
            read.rows += '\n';
            if (onRow)
                onRow(batch.row(i));
        }
    } while (batch.end == BatchEnd::More);
    read.problem = batch.problem.toStdString();
    read.isRead = true;
    return read;
}

} // namespace velmorra
