/// What tables and settings may be at most, and the messages about what is beyond.
#pragma once

#include <QtCore/QString>

/// Columns of a table. What a file asks for beyond that would fill the memory.
inline constexpr int mostColumns = 1 << 20;

/// "ERROR: 'number' is 0; it must be from 1 to 9."
inline QString outOfRange(const char* setting, const QString& value, qint64 least, qint64 most) {
    return QLatin1String("ERROR: '") + QLatin1String(setting) + QLatin1String("' is ") + value +
           QLatin1String("; it must be from ") + QString::number(least) + QLatin1String(" to ") +
           QString::number(most) + QLatin1String(".\n");
}

/// "ERROR: 3000000 columns would come out; a table has at most 1048576."
inline QString tooManyColumns(qint64 columns) {
    return QStringLiteral("ERROR: %1 columns would come out; a table has at most %2.\n")
        .arg(columns)
        .arg(mostColumns);
}
