/// Tables of case files: typed CSV read into memory, and rows written back as lines to compare.
#pragma once

#include "engine/packed_table.h"

#include <QtCore/QStringList>

#include <memory>

namespace velmorra::harness {

/// A table, or what is wrong with its text.
struct TypedTable {
    std::shared_ptr<PackedTable> table;
    QString error;
};

/// Reads `name:TYPE[:SORT]` headers and rows; an unquoted empty field is null. No text at all is a
/// table without columns.
TypedTable parseTypedTable(const QString& text);

/// The header line. Empty for a table without columns.
QString typedHeader(const PinOutMetaData& shape);

/// The header and a line per row. Lines of two tables are equal only if the cells are, also in what
/// a file wouldn't show: the bits of a not-a-number, the form of a length field.
QStringList typedLines(const PackedTable& table);

/// The lines that differ, `-` expected and `+` actual, each with its number. Empty when none do.
QString rowDiff(const QStringList& expected, const QStringList& actual);

} // namespace velmorra::harness
