/// The texts in which a person writes column types and declared orders.
///
/// A typed header cell is `name:TYPE` or `name:TYPE:SORT`: TYPE is one of K F U, SORT a sort type's
/// letter and the column's rank in the order, from 1 (`day:K:01`, `name:U:A2`). A name may itself
/// hold colons: cells are read from the right. A list of types is `id:K,x:F`, an order
/// `id:0,day:A`; an entry that holds a comma or quote is quoted as in CSV.
///
/// Functions that can fail return the problem, or a null string.
#pragma once

#include "host/meta_info.h"

#include <QtCore/QStringList>

namespace velmorra {

/// Splits at commas outside of quotes, and takes the quotes off; an empty text has no entries.
QString splitQuotedList(const QString& list, QStringList* entries);

/// Names, types and declared order of a table from its typed header.
QString parseTypedHeader(const QVector<QString>& cells, PinOutMetaData* shape);

/// The typed header of a table, a cell for each column.
QVector<QString> typedHeader(const PinOutMetaData& shape);

/// Sets the meta types that a list declares. A name mentioned again takes the next column of that
/// name.
QString applyTypes(const QString& types, PinOutMetaData* shape);

/// The list that applyTypes takes for the columns that aren't text; empty when all are.
QString typesText(const PinOutMetaData& shape);

/// Sets the order that a list declares in place of the one that the shape has. `setting` is what
/// problems call the list.
QString applySorted(const QString& sorted, PinOutMetaData* shape, const char* setting = "sorted");

} // namespace velmorra
