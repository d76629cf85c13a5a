// Widths are counted in characters: what is aligned here are names and our own words.
#include "aligned_lines.h"

#include <algorithm>

namespace {

constexpr qsizetype pageWidth = 96;
constexpr qsizetype narrowestText = 40;

/// A text in lines of at most `width` characters where its words allow that, each but the first
/// indented.
QString wrapped(const QString& text, qsizetype width, qsizetype indent) {
    QString result;
    qsizetype lineStart = 0;
    for (const QString& word : text.split(u' ')) {
        if (result.size() - lineStart + word.size() + 1 > width && result.size() > lineStart) {
            result += QLatin1Char('\n') + QString(indent, u' ');
            lineStart = result.size();
        } else if (result.size() > lineStart) {
            result += u' ';
        }
        result += word;
    }
    return result;
}

} // namespace

QByteArray alignedLines(const QVector<QStringList>& lines, int indent) {
    QVector<qsizetype> widths;
    for (const QStringList& cells : lines) {
        widths.resize(std::max(widths.size(), cells.size()));
        for (qsizetype i = 0; i < cells.size(); ++i)
            widths[i] = std::max(widths[i], cells[i].size());
    }
    QString text;
    for (const QStringList& cells : lines) {
        QString line(indent, u' ');
        for (qsizetype i = 0; i + 1 < cells.size(); ++i)
            line += cells[i].leftJustified(widths[i] + 2);
        const qsizetype width = std::max(pageWidth - line.size(), narrowestText);
        text += line + wrapped(cells.back(), width, line.size()) + QLatin1Char('\n');
    }
    return text.toUtf8();
}
