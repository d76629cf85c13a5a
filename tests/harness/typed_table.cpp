#include "tests/harness/typed_table.h"

#include "host/number_text.h"

#include <algorithm>
#include <charconv>

namespace velmorra::harness {

namespace {

struct Field {
    QString text;
    bool quoted = false;
};

/// The fields of a CSV text, record by record, with the line that each record starts on.
struct Record {
    QVector<Field> fields;
    int line = 0;
};

QVector<Record> splitRecords(const QString& text, QString* error) {
    QVector<Record> records;
    int line = 0;
    qsizetype at = 0;
    while (at <= text.size()) {
        Record record{{}, line};
        bool recordEnds = false;
        while (!recordEnds) {
            Field field;
            if (at < text.size() && text[at] == QLatin1Char('"')) {
                field.quoted = true;
                for (++at;; ++at) {
                    if (at >= text.size()) {
                        *error = QStringLiteral("a quoted field doesn't end");
                        return records;
                    }
                    if (text[at] == QLatin1Char('"') && text.mid(++at, 1) != QLatin1String("\""))
                        break;
                    line += text[at] == QLatin1Char('\n');
                    field.text += text[at];
                }
            }
            while (at < text.size() && text[at] != QLatin1Char(',') &&
                   text[at] != QLatin1Char('\n'))
                field.text += text[at++];
            recordEnds = at >= text.size() || text[at] == QLatin1Char('\n');
            ++at;
            record.fields.push_back(field);
        }
        ++line;
        records.push_back(record);
    }
    return records;
}

/// Reads one header cell into the last column of `shape`.
QString readColumn(QString text, PinOutMetaData& shape, QVector<std::pair<int, SortInfos>>& sort) {
    const QString whole = text;
    const auto lastPart = [&text] { return text.mid(text.lastIndexOf(QLatin1Char(':')) + 1); };
    const auto cut = [&text] { text.truncate(std::max<qsizetype>(text.lastIndexOf(':'), 0)); };
    const QString last = lastPart();
    if (last.size() > 1) {
        bool isRank = false;
        const int rank = last.mid(1).toInt(&isRank);
        if (!isRank || rank < 1 || text.lastIndexOf(QLatin1Char(':')) < 0)
            return QStringLiteral("'%1' isn't name:TYPE or name:TYPE:SORT").arg(whole);
        const qint32 letter = last[0].unicode();
        sort.push_back({rank, {static_cast<qint32>(shape.names.size()), letter}});
        cut();
    }
    const QString type = lastPart();
    if (type.size() != 1 || !QStringLiteral("KFU").contains(type) ||
        !text.contains(QLatin1Char(':')))
        return QStringLiteral("'%1' isn't name:TYPE or name:TYPE:SORT").arg(whole);
    shape.types.push_back(MetaInfo(type[0].unicode(), -1));
    cut();
    shape.names.push_back(text);
    return {};
}

QString readHeader(const Record& record, PinOutMetaData& shape) {
    QVector<std::pair<int, SortInfos>> sort;
    for (const Field& field : record.fields) {
        const QString error = readColumn(field.text, shape, sort);
        if (!error.isEmpty())
            return error;
    }
    std::stable_sort(sort.begin(), sort.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (int i = 0; i < sort.size(); ++i) {
        if (sort[i].first != i + 1)
            return QStringLiteral("the ranks of the sort columns aren't 1, 2, ...");
        shape.sort.push_back(sort[i].second);
    }
    return {};
}

/// A number that takes the whole text.
template <class Number>
bool readNumber(const QString& text, Number& value) {
    const QByteArray bytes = text.toLatin1();
    const auto [end, error] = std::from_chars(bytes.begin(), bytes.end(), value);
    return error == std::errc() && end == bytes.end();
}

/// The cell of a field, in `buffer`; null when the field doesn't fit the type.
const uchar* readCell(const Field& field, MetaTypeColumn type, RowBuffer& buffer) {
    if (field.text.isEmpty() && !field.quoted)
        return cell::nullCell(type);
    if (type == MetaTypeText)
        return bytesFromQString(buffer, field.text.isNull() ? QStringLiteral("") : field.text);
    uchar* const bytes = buffer.alloc(8);
    if (type == MetaTypeKey) {
        quint32 key = 0;
        if (!readNumber(field.text, key))
            return nullptr;
        cell::storeKey(bytes, key);
        return bytes;
    }
    double value = cell::invalidFloat();
    if (field.text != QLatin1String("nan") && !readNumber(field.text, value))
        return nullptr;
    cell::storeFloat(bytes, value);
    return bytes;
}

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
    TypedTable result;
    auto table = std::make_shared<PackedTable>();
    const QVector<Record> records = splitRecords(text, &result.error);
    if (!result.error.isEmpty())
        return result;
    if (text.isEmpty()) {
        result.table = table;
        return result;
    }
    result.error = readHeader(records.front(), table->shape);
    OneRow row;
    row.setShape(table->shape);
    RowBuffer buffer;
    for (int i = 1; i < records.size() && result.error.isEmpty(); ++i) {
        const QVector<Field>& fields = records[i].fields;
        result.line = records[i].line;
        if (fields.size() != row.columns) {
            result.error =
                QStringLiteral("%1 fields instead of %2").arg(fields.size()).arg(row.columns);
            break;
        }
        buffer.reset();
        for (int column = 0; column < row.columns && result.error.isEmpty(); ++column) {
            row.cells[column] = readCell(fields[column], row.getMetaType(column).type, buffer);
            if (row.cells[column] == nullptr)
                result.error = QStringLiteral("'%1' doesn't fit the type of column '%2'")
                                   .arg(fields[column].text, row.colName(column));
        }
        if (result.error.isEmpty())
            table->append(row);
    }
    if (result.error.isEmpty())
        result.table = table;
    return result;
}

QString typedHeader(const PinOutMetaData& shape) {
    QStringList cells;
    for (int column = 0; column < shape.names.size(); ++column) {
        const MetaTypeColumn type = shape.types[column].type;
        const bool isNumber = type == MetaTypeKey || type == MetaTypeFloat;
        QString text =
            shape.names[column] + QLatin1Char(':') + (isNumber ? QChar(type) : QChar('U'));
        for (int rank = 0; rank < shape.sort.size(); ++rank) {
            if (shape.sort[rank].column == column)
                text +=
                    QLatin1Char(':') + QChar(shape.sort[rank].SortType) + QString::number(rank + 1);
        }
        cells.push_back(fieldOf(text));
    }
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
