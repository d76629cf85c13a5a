#include "actions/shape/find_column_occurrence.h"

#include "host/main_ui.h"

namespace {

QString occurrenceText(int occurrence) {
    switch (occurrence) {
    case 1:
        return {};
    case 2:
        return QStringLiteral("(second occurrence)");
    case 3:
        return QStringLiteral("(third occurrence)");
    default:
        return QStringLiteral("(%1th occurrence)").arg(occurrence);
    }
}

void logMissing(const QString& name, int occurrence, int report) {
    const bool isSelect = report == reportSelectColumns;
    MainUI::addLog(
        1, QLatin1String("An error occurred while initializing the Action '") +
               QLatin1String(isSelect ? "SelectColumns" : "Append") +
               QLatin1String("':\nThe column '") + name + QLatin1Char('\'') +
               occurrenceText(occurrence) +
               QStringLiteral(" is missing on input pin %1.\n").arg(isSelect ? 0 : report - 1));
}

} // namespace

int findColumnOccurrence(const OneRow& row, const QString& name, SeenColumns& seen, int report) {
    int occurrence = 1;
    int column = row.getIndexOfColumn(name);
    while (column >= 0 && seen[static_cast<size_t>(column)] != 0) {
        column = row.indexOfColumnFrom(name, column + 1);
        ++occurrence;
    }
    if (column >= 0)
        seen[static_cast<size_t>(column)] = 1;
    else if (report >= 0)
        logMissing(name, occurrence, report);
    return column;
}
