#include "engine/typed_header.h"

#include "engine/csv/field_value.h"
#include "host/nearest_name.h"

#include <algorithm>

namespace velmorra {

namespace {

const QString typeLetters = QStringLiteral("KFU");
const QString sortLetters = QStringLiteral("09AZID");

bool isType(QStringView text) {
    return text.size() == 1 && typeLetters.contains(text[0]);
}

MetaInfo metaInfo(QStringView letter) {
    return {letter[0].unicode(), -1};
}

/// The rank behind a sort type's letter; 0 when the text is no such pair.
int sortRank(QStringView text) {
    const QStringView digits = text.mid(1);
    const bool number = std::all_of(digits.begin(), digits.end(),
                                    [](QChar unit) { return unit >= u'0' && unit <= u'9'; });
    if (digits.isEmpty() || !number || digits[0] == u'0' || !sortLetters.contains(text[0]))
        return 0;
    bool ok = false;
    const int rank = digits.toInt(&ok);
    return ok ? rank : 0;
}

struct HeaderCell {
    QStringView name;
    QStringView type; ///< empty when the cell is none
    QStringView sort; ///< empty when it has none
};

HeaderCell splitHeaderCell(QStringView text) {
    const qsizetype last = text.lastIndexOf(u':');
    if (last < 0)
        return {};
    const QStringView tail = text.mid(last + 1);
    if (isType(tail))
        return {text.left(last), tail, {}};
    if (last == 0 || sortRank(tail) == 0)
        return {};
    const qsizetype middle = text.lastIndexOf(u':', last - 1);
    const QStringView type = middle < 0 ? QStringView() : text.mid(middle + 1, last - middle - 1);
    return isType(type) ? HeaderCell{text.left(middle), type, tail} : HeaderCell{};
}

/// Puts the columns of an order in place by their ranks.
QString orderByRanks(const QVector<std::pair<int, SortInfos>>& ranked, PinOutMetaData* shape) {
    shape->sort = QVector<SortInfos>(ranked.size());
    for (const auto& [rank, sort] : ranked) {
        if (rank > ranked.size() || shape->sort[rank - 1].column >= 0)
            return QStringLiteral("the ranks of the sort columns must be 1 to ") +
                   QString::number(ranked.size()) + QStringLiteral(", each once; column ") +
                   shownValue(shape->names[sort.column]) + QStringLiteral(" has ") +
                   QString::number(rank);
        shape->sort[rank - 1] = sort;
    }
    return {};
}

struct Entry {
    int column;
    QStringView setting; ///< what stands behind the last colon
};

/// The column that `name:setting` speaks of, at or behind the places in `taken`.
QString findEntry(const QString& text, const PinOutMetaData& shape, std::vector<bool>* taken,
                  Entry* entry) {
    const qsizetype colon = text.lastIndexOf(u':');
    if (colon < 0)
        return shownValue(text) + QStringLiteral(" has no colon behind the column's name");
    const QString name = text.left(colon);
    entry->setting = QStringView(text).mid(colon + 1);
    bool known = false;
    for (int i = 0; i < shape.names.size(); ++i) {
        if (shape.names[i] != name)
            continue;
        known = true;
        if (!(*taken)[size_t(i)]) {
            (*taken)[size_t(i)] = true;
            entry->column = i;
            return {};
        }
    }
    if (known)
        return QStringLiteral("column ") + shownValue(name) + QStringLiteral(" is named twice");
    QString problem = QStringLiteral("there is no column ") + shownValue(name);
    const QString nearest = nearestName(name, QStringList(shape.names));
    if (!nearest.isNull())
        problem += QStringLiteral("; did you mean ") + shownValue(nearest) + u'?';
    return problem;
}

/// Hands the entries of a list to `apply`, which returns a problem or a null string.
template <class Apply>
QString forEachEntry(const QString& list, const char* what, const PinOutMetaData& shape,
                     Apply apply) {
    QStringList entries;
    QString problem = splitQuotedList(list, &entries);
    std::vector<bool> taken(size_t(shape.names.size()), false);
    for (qsizetype i = 0; i < entries.size() && problem.isNull(); ++i) {
        Entry entry = {};
        problem = findEntry(entries[i], shape, &taken, &entry);
        if (problem.isNull())
            problem = apply(entry);
    }
    return problem.isNull()
               ? problem
               : QLatin1String(what) + u' ' + shownValue(list) + QStringLiteral(": ") + problem;
}

} // namespace

QString splitQuotedList(const QString& list, QStringList* entries) {
    qsizetype i = 0;
    while (i < list.size()) {
        QString entry;
        // Quotes may also stand around a part: a person quotes the name alone.
        bool inQuotes = false;
        for (; i < list.size() && (inQuotes || list[i] != u','); ++i) {
            if (list[i] != u'"') {
                entry += list[i];
            } else if (inQuotes && i + 1 < list.size() && list[i + 1] == u'"') {
                entry += list[i++];
            } else {
                inQuotes = !inQuotes;
            }
        }
        if (inQuotes)
            return QStringLiteral("a quote isn't closed");
        entries->push_back(entry);
        if (i == list.size())
            return {};
        if (++i == list.size())
            entries->push_back(QString());
    }
    return {};
}

QString parseTypedHeader(const QVector<QString>& cells, PinOutMetaData* shape) {
    *shape = {};
    QVector<std::pair<int, SortInfos>> ranked;
    for (const QString& text : cells) {
        const HeaderCell cell = splitHeaderCell(text);
        if (cell.type.isEmpty())
            return QStringLiteral("the header cell ") + shownValue(text) +
                   QStringLiteral(" is not name:TYPE or name:TYPE:SORT, with a TYPE of K, F or U "
                                  "and a SORT such as 01 or A2");
        if (!cell.sort.isEmpty())
            ranked.push_back({sortRank(cell.sort),
                              {static_cast<qint32>(shape->names.size()), cell.sort[0].unicode()}});
        shape->names.push_back(cell.name.toString());
        shape->types.push_back(metaInfo(cell.type));
    }
    return orderByRanks(ranked, shape);
}

QVector<QString> typedHeader(const PinOutMetaData& shape) {
    QVector<QString> cells;
    for (int i = 0; i < shape.names.size(); ++i) {
        const qint32 type = shape.types[i].type;
        const bool number = type == MetaTypeKey || type == MetaTypeFloat;
        cells.push_back(shape.names[i] + u':' + QChar(number ? type : qint32(MetaTypeText)));
    }
    std::vector<bool> sorted(size_t(cells.size()), false);
    int rank = 0;
    for (const SortInfos& sort : shape.sort) {
        // A filler stands for no column, and a column counts where it is named first.
        const bool real = sort.column >= 0 && sort.column < cells.size() &&
                          sortLetters.contains(QChar(sort.SortType));
        if (!real || sorted[size_t(sort.column)])
            continue;
        sorted[size_t(sort.column)] = true;
        cells[sort.column] += u':' + QString(QChar(sort.SortType)) + QString::number(++rank);
    }
    return cells;
}

QString applyTypes(const QString& types, PinOutMetaData* shape) {
    return forEachEntry(types, "types", *shape, [&](const Entry& entry) {
        if (!isType(entry.setting))
            return shownValue(entry.setting.toString()) + QStringLiteral(" is no type; ") +
                   QStringLiteral("K (key), F (float) or U (text) is expected");
        shape->types[entry.column] = metaInfo(entry.setting);
        return QString();
    });
}

QString typesText(const PinOutMetaData& shape) {
    QStringList entries;
    for (int i = 0; i < shape.names.size(); ++i) {
        const qint32 type = shape.types[i].type;
        const bool number = type == MetaTypeKey || type == MetaTypeFloat;
        // A text in front of a number of the same name is named, so that each gets its own.
        const bool again = std::count(shape.names.begin(), shape.names.end(), shape.names[i]) > 1;
        if (!number && !again)
            continue;
        QString entry = shape.names[i] + u':' + QChar(number ? type : qint32(MetaTypeText));
        if (entry.contains(u',') || entry.contains(u'"'))
            entry = u'"' + entry.replace(u'"', QLatin1String("\"\"")) + u'"';
        entries.push_back(entry);
    }
    return entries.join(u',');
}

QString applySorted(const QString& sorted, PinOutMetaData* shape, const char* setting) {
    QVector<SortInfos> order;
    const QString problem = forEachEntry(sorted, setting, *shape, [&](const Entry& entry) {
        const QStringView letter = entry.setting;
        const bool text = letter == u"A" || letter == u"Z";
        if (!text && letter != u"0" && letter != u"9")
            return shownValue(letter.toString()) + QStringLiteral(" is no sort type; ") +
                   QStringLiteral("0 or 9 (by number) or A or Z (by text) is expected");
        if (text && shape->types[entry.column].type == MetaTypeFloat)
            return QStringLiteral("a Float column has no order by text");
        order.push_back({entry.column, letter[0].unicode()});
        return QString();
    });
    if (problem.isNull())
        shape->sort = order;
    return problem;
}

} // namespace velmorra
