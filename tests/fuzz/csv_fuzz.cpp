/// Parses any bytes as CSV, in large and in tiny pieces: the results must agree, and what was read
/// as text must read back the same when it is written.
#include "../engine/csv_text.h"

#include "engine/csv/csv_formatter.h"

#include <cstdlib>

using namespace velmorra;

namespace {

struct Result {
    std::string text;
    std::string problem;
    std::string written;
};

Result parse(const std::string& bytes, qint64 piece, int rows, bool typed) {
    CsvSettings settings;
    settings.fieldLimit = 4096;
    CsvParser parser(bytesSource(bytes, piece), QStringLiteral("'f'"), settings);
    const RowBatch& first = parser.readFirstRow();
    Result result;
    result.problem = first.problem.toStdString();
    if (first.end == BatchEnd::Failed)
        return result;
    PinOutMetaData shape;
    std::vector<CsvColumn> columns;
    for (int c = 0; c < first.columns; ++c) {
        const qint32 types[] = {MetaTypeText, MetaTypeKey, MetaTypeFloat};
        const qint32 type = typed ? types[c % 3] : qint32(MetaTypeText);
        columns.push_back({QStringLiteral("c"), type, !typed || c % 5 != 4, 0xFFFFFFFDu});
        shape.names.push_back(QStringLiteral("c"));
        shape.types.push_back(MetaInfo(type, -1));
    }
    if (typed && first.columns > 0)
        shape.sort = {{0, SortTextRising}};
    parser.setColumns(columns, shape, true);
    CsvFormatter formatter;
    formatter.setColumns(shape);
    RowBatch batch;
    do {
        parser.fill(batch, rows);
        for (int i = 0; i < batch.rows; ++i) {
            for (int c = 0; c < batch.columns; ++c) {
                const qint32 type = columns[size_t(c)].metaType;
                result.text += shownCellText(batch.row(i)[c], type) + '|';
            }
            result.text += '\n';
            formatter.writeRow(batch.row(i));
        }
    } while (batch.end == BatchEnd::More);
    result.problem = batch.problem.toStdString();
    result.written.assign(formatter.bytes(), size_t(formatter.size()));
    return result;
}

void require(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    for (const bool typed : {false, true}) {
        const Result whole = parse(bytes, 1 << 20, RowBatch::maxRows, typed);
        const Result pieces = parse(bytes, 3, 2, typed);
        require(whole.text == pieces.text);
        require(whole.problem.empty() == pieces.problem.empty());
        if (!typed) {
            const Result again = parse(whole.written, 1 << 20, RowBatch::maxRows, false);
            require(again.problem.empty() && again.text == whole.text);
        }
    }
    return 0;
}
