/// Messages and limits that the joins share.
#pragma once

#include "plugin/bounds.h"
#include "plugin/type_letter.h"

#include <QtCore/QChar>
#include <QtCore/QString>

/// Bytes of each block of the keys' memory.
inline constexpr qint64 indexBlockSize = 4 << 20;

/// Largest size of a block of rows in KiB: in bytes it fits into 31 bits.
inline constexpr int largestBlockSize = (1 << 21) - 1;

inline QString cannotFindColumn(const QString& name, int pin) {
    return QLatin1String("Cannot find column '") + name + QLatin1String("' on pin ") +
           QString::number(pin) + QLatin1Char('.');
}

inline QString noRowsOnPin(int pin) {
    return QLatin1String("No rows on pin ") + QString::number(pin) + QLatin1Char('?');
}

inline QString keyTypesDiffer(qint32 mainType, qint32 slaveType) {
    return QLatin1String("Metatype of keys do not match (") + typeLetter(mainType) +
           QLatin1String("<>") + typeLetter(slaveType) + QLatin1String(").");
}

inline QString memoryError(const char* action) {
    return QLatin1String(action) + QLatin1String(": Memory Allocation Error");
}
