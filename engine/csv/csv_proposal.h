/// Proposes what a person left open about a CSV file, from a bounded sample of its beginning.
///
/// A proposal is made where the whole sample speaks for it, and refused with a message where it
/// isn't clear. Functions that can fail return the problem, or a null string.
#pragma once

#include "engine/csv/csv_parser.h"

namespace velmorra {

/// The beginning of a file.
struct CsvSample {
    static constexpr qsizetype mostBytes = 1 << 20;
    static constexpr int mostRows = 1000;

    QByteArray bytes;
    bool whole = false; ///< the file ends behind it
};

/// The encoding of bytes: by their byte order mark, else UTF-8, UTF-16 or Windows-1252.
QString proposeEncoding(const CsvSample& raw, TextEncoding* encoding);

// The sample is UTF-8 from here on. `header` says whether its first row holds names.

/// The delimiter that gives all rows the same number of columns, more than one. A few rows may
/// differ where broken rows are not the end (`tolerant`).
QString proposeDelimiter(const CsvSample& sample, const CsvSettings& settings, bool tolerant,
                         char* delimiter);

/// The decimal sign of the columns that hold numbers with fractions.
QString proposeDecimal(const CsvSample& sample, const CsvSettings& settings, bool header,
                       char* decimal);

/// The meta types of the columns. A column is Key when all its values are whole numbers within
/// reach, Float when all are decimal numbers of which nothing gets lost, else text: what has
/// leading zeros, a sign of plus or too many digits is no number.
std::vector<qint32> proposeTypes(const CsvSample& sample, const CsvSettings& settings, bool header,
                                 int columns);

} // namespace velmorra
