#include "tests/harness/typed_table.h"

#include "engine/typed_header.h"
#include "tests/engine/csv_text.h"

#include <algorithm>

namespace velmorra::harness {

namespace {

QString quoted(QString text) {
    return QLatin1Char('"') + text.replace(QLatin1Char('"'), QLatin1String("\"\"")) +
           QLatin1Char('"');
}

QString fieldOf(const QString& text) {
    static const QString special = QStringLiteral("\",\n\r");
    const bool plain = !text.isEmpty() && std::none_of(text.begin(), text.end(), [](QChar unit) {
        return special.contains(unit);
    });
    return plain ? text : quoted(text);
}

QString textField(const uchar* bytes) {
    const cell::TextView view = cell::text(bytes);
    if (view.chars - bytes != cell::lengthFieldBytes(view.length))
        return QStringLiteral("<length field of %1 bytes for %2>")
            .arg(view.chars - bytes)
            .arg(view.length);
    return view.isNull() ? QString() : fieldOf(qStringFromBytes(bytes));
}

QString cellField(const uchar* bytes, MetaTypeColumn type) {
    if (type == MetaTypeKey) {
        const quint32 key = cell::loadKey(bytes);
        return key == cell::nullKey ? QString() : QString::number(key);
    }
    if (type != MetaTypeFloat)
        return textField(bytes);
    const quint64 bits = cell::loadFloatBits(bytes);
    const double value = cell::loadFloat(bytes);
    if (bits == cell::nullFloatBits)
        return {};
    if (value != value && bits != cell::invalidFloatBits)
        return QStringLiteral("<nan of bits %1>").arg(bits, 16, 16);
    char digits[numberTextRoom];
    return QString::fromLatin1(digits, formatFloat(value, digits));
}

} // namespace

TypedTable parseTypedTable(const QString& text) {
    const auto table = std::make_shared<PackedTable>();
    CsvParser parser(bytesSource(text.toStdString(), 1 << 20), QStringLiteral("the table"), {});
    const RowBatch& header = parser.readFirstRow();
    QVector<QString> names;
    for (int column = 0; column < header.columns; ++column)
        names.push_back(qStringFromBytes(header.cells[static_cast<size_t>(column)]));
    QString error = header.problem;
    if (error.isEmpty())
        error = parseTypedHeader(names, &table->shape);
    if (!error.isEmpty())
        return {nullptr, error};
    PinOutMetaData unordered = table->shape;
    unordered.sort.clear();
    std::vector<CsvColumn> columns;
    for (int column = 0; column < names.size(); ++column)
        columns.push_back(
            {unordered.names[column], unordered.types[column].type, true, cell::nullKey});
    parser.setColumns(columns, unordered, false);
    OneRow row;
    row.setShape(table->shape);
    RowBatch batch;
    do {
        parser.fill(batch);
        for (int i = 0; i < batch.rows; ++i) {
            std::copy_n(batch.row(i), batch.columns, row.cells);
            table->append(row);
        }
    } while (batch.end == BatchEnd::More);
    return {batch.problem.isEmpty() ? table : nullptr, batch.problem};
}

QString typedHeader(const PinOutMetaData& shape) {
    QStringList cells;
    for (const QString& text : velmorra::typedHeader(shape))
        cells.push_back(fieldOf(text));
    return cells.join(QLatin1Char(','));
}

QStringList typedLines(const PackedTable& table) {
    QStringList lines{typedHeader(table.shape)};
    OneRow row;
    row.setShape(table.shape);
    for (size_t place = 0; place < table.rows(); ++place) {
        table.read(place, row);
        QStringList fields;
        for (int column = 0; column < row.columns; ++column)
            fields.push_back(cellField(row.cells[column], row.getMetaType(column).type));
        lines.push_back(fields.join(QLatin1Char(',')));
    }
    return lines;
}

QString rowDiff(const QStringList& expected, const QStringList& actual) {
    constexpr qsizetype shown = 40;
    qsizetype first = 0;
    const qsizetype shorter = std::min(expected.size(), actual.size());
    while (first < shorter && expected[first] == actual[first])
        ++first;
    qsizetype tail = 0;
    while (tail < shorter - first &&
           expected[expected.size() - 1 - tail] == actual[actual.size() - 1 - tail])
        ++tail;
    QString diff;
    const auto add = [&](QChar sign, const QStringList& lines) {
        for (qsizetype i = first; i < std::min(lines.size() - tail, first + shown); ++i)
            diff += sign + QString::number(i) + QLatin1String(": ") + lines[i] + QLatin1Char('\n');
        if (lines.size() - tail > first + shown)
            diff += sign + QStringLiteral("... %1 more\n").arg(lines.size() - tail - first - shown);
    };
    add(QLatin1Char('-'), expected);
    add(QLatin1Char('+'), actual);
    return diff;
}

} // namespace velmorra::harness
