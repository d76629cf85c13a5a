/// The texts in which a person writes how a CSV file is laid out.
///
/// A delimiter, quote or decimal sign is the character itself or a word for it (`semicolon`, `tab`;
/// `double`, `single`, `none`; `point`, `comma`).
///
/// Functions return the problem, or a null string.
#pragma once

#include "engine/csv/csv_parser.h"

namespace velmorra {

QString parseDelimiter(const QString& text, char* delimiter);
QString parseQuote(const QString& text, char* quote);
QString parseDecimal(const QString& text, char* decimal);
QString parseEncodingSetting(const QString& text, TextEncoding* encoding);

/// The text that parseDelimiter takes for it: a word where there is one.
QString delimiterText(char delimiter);

/// Whether delimiter, quote and comment prefix can be told apart.
QString checkDialect(const CsvSettings& settings);

} // namespace velmorra
