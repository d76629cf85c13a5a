/// The values in the fields of a text file.
#pragma once

#include <QtCore/QString>

namespace velmorra {

/// Largest Key that a column declared by hand may hold; those above stand for null.
inline constexpr quint32 largestDeclaredKey = 0xFFFFFFFDu;
/// Largest number of a Key column of a typed table.
inline constexpr quint32 largestTypedKey = 0xFFFFFFFFu;

/// Reads decimal digits, all of `size` bytes. False when there is anything else, or the number is
/// above `largest`.
bool readKey(const uchar* bytes, qsizetype size, quint32 largest, quint32* value);

/// Reads a decimal number, `nan` (the invalid Float) or `inf`, all of `size` bytes, a leading '+'
/// or '-' included; `decimal` parts the whole from the fraction. False when there is anything else,
/// or the number is too large for a double.
bool readFloat(const uchar* bytes, qsizetype size, char decimal, double* value);

/// A value for a message: in quotes, cut to 40 characters, with control characters made visible.
QString shownValue(const QString& value);
QString shownValue(const uchar* utf8, qsizetype size);

} // namespace velmorra
