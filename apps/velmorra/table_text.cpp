// Widths are those that the terminal gives to characters, not their number.
#include "table_text.h"

#include "engine/typed_header.h"

#include <algorithm>

#include <cwchar>

namespace {

constexpr int widestCell = 40;
const QString gap = QStringLiteral("  ");
const QString cutMark = QStringLiteral("…");

struct Shown {
    QString text;
    int width = 0;
};

/// What stands for a character that would move the cursor or change the terminal.
QString escaped(char32_t c) {
    switch (c) {
    case '\n':
        return QStringLiteral("\\n");
    case '\r':
        return QStringLiteral("\\r");
    case '\t':
        return QStringLiteral("\\t");
    default:
        return QLatin1String("\\u{") + QString::number(uint(c), 16) + QLatin1Char('}');
    }
}

/// The text with escapes, cut where it grows too wide.
Shown shown(const QString& text) {
    Shown result;
    Shown cut; // as much of it as leaves room for the mark
    for (const char32_t c : text.toUcs4()) {
        const int own = wcwidth(static_cast<wchar_t>(c));
        const QString piece = own < 0 ? escaped(c) : QString::fromUcs4(&c, 1);
        result.text += piece;
        result.width += own < 0 ? static_cast<int>(piece.size()) : own;
        if (result.width < widestCell)
            cut = result;
        else if (result.width > widestCell)
            return {cut.text + cutMark, cut.width + 1};
    }
    return result;
}

Shown shownCell(const OneRow& row, int column) {
    ushort scratch[OneRow::scratchUnits];
    const QString text = row.col(column, scratch);
    return text.isNull()    ? Shown()
           : text.isEmpty() ? Shown{QStringLiteral("\"\""), 2}
                            : shown(text);
}

struct Column {
    QVector<Shown> cells; ///< the header first
    int width = 0;
    bool isNumber = false;

    void add(const Shown& cell) {
        cells.push_back(cell);
        width = std::max(width, cell.width);
    }
    QString padded(qsizetype line) const {
        const QString blanks(width - cells[line].width, u' ');
        return isNumber ? blanks + cells[line].text : cells[line].text + blanks;
    }
};

QVector<Column> columnsOf(const velmorra::PackedTable& table, bool typed) {
    QVector<Column> columns(table.shape.names.size());
    const QVector<QString> header = typed ? velmorra::typedHeader(table.shape) : table.shape.names;
    for (qsizetype i = 0; i < columns.size(); ++i) {
        columns[i].isNumber = table.shape.types[i].type != MetaTypeText;
        columns[i].add(shown(header[i]));
    }
    OneRow row;
    row.setShape(table.shape);
    for (size_t place = 0; place < table.rows(); ++place) {
        table.read(place, row);
        for (qsizetype i = 0; i < columns.size(); ++i)
            columns[i].add(shownCell(row, static_cast<int>(i)));
    }
    return columns;
}

/// How many columns fit beside each other: at least one.
qsizetype fittingColumns(const QVector<Column>& columns, int width) {
    qsizetype count = 0;
    for (int used = 0; count < columns.size(); ++count) {
        used += columns[count].width + (count > 0 ? static_cast<int>(gap.size()) : 0);
        if (used > width && count > 0)
            break;
    }
    return count;
}

} // namespace

QByteArray tableText(const velmorra::PackedTable& table, int width, bool typed) {
    const QVector<Column> columns = columnsOf(table, typed);
    const qsizetype fitting = fittingColumns(columns, width);
    QString text;
    const auto addLine = [&](auto cellOf) {
        QStringList cells;
        for (qsizetype i = 0; i < fitting; ++i)
            cells += cellOf(columns[i]);
        QString line = cells.join(gap);
        while (line.endsWith(u' '))
            line.chop(1);
        text += line + u'\n';
    };
    if (!columns.isEmpty()) {
        addLine([](const Column& column) { return column.padded(0); });
        addLine([](const Column& column) { return QString(column.width, u'-'); });
        for (size_t row = 1; row <= table.rows(); ++row)
            addLine([row](const Column& column) { return column.padded(qsizetype(row)); });
    }
    QStringList further;
    for (qsizetype i = fitting; i < columns.size(); ++i)
        further += columns[i].cells.front().text;
    if (!further.isEmpty())
        text += QStringLiteral("and %1 more: ").arg(further.size()) +
                further.join(QLatin1String(", ")) + u'\n';
    return text.toUtf8();
}
