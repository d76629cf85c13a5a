#include "actions/shape/column_rename.h"

#include "plugin/bounds.h"

#include <QtCore/QSet>

#include <algorithm>
#include <limits>

namespace {

/// Graphs from this version on look names up in the input unless they say otherwise.
constexpr double firstVersionOfInputNames = 3.87;
constexpr double versionOfCurrentNames = 2.08;

QString modeFallback(const GlobalParameters* parameters) {
    const bool byInput =
        parameters == nullptr || parameters->fileVersion >= firstVersionOfInputNames;
    return QLatin1String(byInput ? "1" : "0");
}

bool isWordCharacter(QChar character) {
    return character.isLetterOrNumber() || character.isMark() || character == QLatin1Char('_');
}

QString titleCase(const QString& name) {
    QString title = name.toLower();
    for (qsizetype i = 0; i < title.size(); ++i) {
        if (i == 0 || (!isWordCharacter(title[i - 1]) && isWordCharacter(title[i])))
            title[i] = title[i].toUpper();
    }
    return title;
}

} // namespace

/// What the first row works on.
struct ColumnRename::Renaming {
    const OneRow& in;
    OneRow& out;
    QVector<QString> missing{}; ///< new names of columns that aren't there, each once
    QSet<QString> isMissing{};

    void add(const QString& newName) {
        if (isMissing.contains(newName))
            return;
        isMissing.insert(newName);
        missing.push_back(newName);
    }
};

const StoredElement& ColumnRename::declaration() {
    using Action = ColumnRename;
    static const StoredElement element =
        StoredElement(firstVersionOfInputNames)
            .versionBy<Action>([](const Action& action) {
                return action.mode ? firstVersionOfInputNames : versionOfCurrentNames;
            })
            .boolean<&Action::addMissingColumns>(
                "addMissingColumns", true, Written::WhenNotDefault,
                "1: a column that is missing is added, with null cells; 0: it is an error")
            .integer<&Action::caseMode>("caseMode", AsIs, Written::WhenNotDefault,
                                        "case of all names: 0 as they are, 1 upper case, 2 lower "
                                        "case, 3 title case")
            .boolean<&Action::mode>("mode", true, Written::Always,
                                    "1: names are looked up in the input, may hold parameters, and "
                                    "'>#' with a number means a column by its place from 0; 0: "
                                    "names are looked up among those renamed so far")
            .fallbackBy(&modeFallback)
            .childList<&Action::before>("before", "names before, one for each name after",
                                        StoredLayout{"\n", ""})
            .childList<&Action::after>("after", "names after; may hold parameters")
            .child("QuickRename",
                   StoredElement(0)
                       .text<&Action::prefix>("prefix", "", Written::WhenNotDefault,
                                              "text in front of the names; may hold parameters")
                       .text<&Action::suffix>("suffix", "", Written::WhenNotDefault,
                                              "text behind the names; may hold parameters")
                       .text<&Action::search>("search", "", Written::WhenNotDefault,
                                              "text in the names to replace everywhere")
                       .text<&Action::replace>("replace", "", Written::WhenNotDefault,
                                               "text to put in its place")
                       .list<&Action::quickColumns>("columns",
                                                    "columns that the quick rename applies to"));
    return element;
}

ColumnRename::ColumnRename(const XMLNode& element, GlobalParameters* parameters)
    : RowByRowAction(element, parameters) {
    nPinIn = 2;
    readStored(declaration());
    if (before.size() == after.size())
        return;
    MainUI::addLog(2, QStringLiteral("ColumnRename: inconsistent size for before&after vectors"));
    hasWarning = true;
    const qsizetype size = std::max(before.size(), after.size());
    before.resize(size, QStringLiteral(""));
    after.resize(size, QStringLiteral(""));
}

bool ColumnRename::beforeRun() {
    for (qsizetype i = 0; i < after.size(); ++i) {
        if (after[i].isEmpty()) {
            MainUI::addLog(
                1, QStringLiteral("ERROR: column '%1' is renamed to ''.\n").arg(before.value(i)));
            return true;
        }
    }
    if (caseMode < AsIs || caseMode > TitleCase) {
        MainUI::addLog(1, outOfRange("caseMode", QString::number(caseMode), AsIs, TitleCase));
        return true;
    }
    return false;
}

char ColumnRename::fullTableRequiredToComputeMetas(int pin, bool* answer) {
    *answer = pin > 0;
    return 0;
}

void ColumnRename::passOn(const OneRow& row) {
    // Copies the input's cell pointers; those of added columns stand behind them and stay.
    getOutputRowForOutputPin(0)->copyFrom(row);
    setRowReadyForOutput(0);
}

bool ColumnRename::resolve(const OneRow& row) {
    Renaming renaming{row, *getOutputRowForOutputPin(0)};
    renaming.out.copyFrom(row);
    if (!renameFromPin1(renaming) || !isRunning() || !renameFromTables(renaming) ||
        !renameQuickly(renaming))
        return false;
    if (caseMode != AsIs)
        changeCase(renaming);
    addColumns(renaming);
    return true;
}

bool ColumnRename::renameFromPin1(Renaming& renaming) {
    ushort nameScratch[OneRow::scratchUnits];
    ushort newNameScratch[OneRow::scratchUnits];
    while (const OneRow* const row = nextRowToDrain(1)) {
        if (row->sz() < 2)
            return !fail(QStringLiteral(
                "ERROR: Table on pin 1 must have at least 2 columns: The first column is the "
                "column name \"before\" and the second column is the column name \"after\".\n"));
        if (!renameOne(renaming, row->col(0, nameScratch), row->col(1, newNameScratch)))
            return false;
    }
    return true;
}

bool ColumnRename::renameFromTables(Renaming& renaming) {
    for (qsizetype i = 0; i < before.size(); ++i) {
        if (!renameOne(renaming, before[i], after.value(i)))
            return false;
    }
    return true;
}

bool ColumnRename::renameOne(Renaming& renaming, const QString& name, const QString& newName) {
    const std::optional<int> column = findColumn(renaming, name);
    if (!column)
        return false;
    // The text may stand in a cell of pin 1, also when it was trimmed.
    const QString kept = detach(expandString(newName).trimmed());
    if (*column >= 0) {
        renaming.out.setColName(*column, kept);
        return true;
    }
    if (!addMissingColumns)
        return !fail(QStringLiteral("ERROR: column '%1' not found.\n").arg(name));
    MainUI::addLog(2, QStringLiteral("Warning: column '%1' not found.\n").arg(name));
    hasWarning = true;
    renaming.add(kept);
    return true;
}

/// The column's place, negative when there is none; nothing when the Action has failed.
std::optional<int> ColumnRename::findColumn(const Renaming& renaming, const QString& name) {
    if (!mode)
        return renaming.out.getIndexOfColumn(name);
    if (name.startsWith(QLatin1String(">#")))
        return numberedColumn(renaming, name.mid(2));
    return renaming.in.getIndexOfColumn(expandString(name));
}

std::optional<int> ColumnRename::numberedColumn(const Renaming& renaming, const QString& number) {
    const double value = number.toDouble();
    // Both comparisons are false for a not-a-number.
    const bool fits = value > double(std::numeric_limits<int>::min()) - 1 &&
                      value < double(std::numeric_limits<int>::max()) + 1;
    const int column = fits ? static_cast<int>(value) : -1;
    if (column < renaming.in.sz())
        return column;
    fail(QStringLiteral("ERROR: invalid column index (%1)").arg(column));
    return {};
}

bool ColumnRename::renameQuickly(Renaming& renaming) {
    if (search.isEmpty() && prefix.isEmpty() && suffix.isEmpty())
        return true;
    const QString front = expandString(prefix);
    const QString behind = expandString(suffix);
    for (const QString& name : quickColumns) {
        const OneRow& names = mode ? renaming.in : renaming.out;
        const int column = names.getIndexOfColumn(name);
        if (column < 0)
            return !fail(QStringLiteral("ERROR Quick Rename: column '%1' not found.\n").arg(name));
        QString newName = name;
        // Qt finds the empty text everywhere.
        if (!search.isEmpty())
            newName.replace(search, replace);
        renaming.out.setColName(column, front + newName + behind);
    }
    return true;
}

QString ColumnRename::inCase(const QString& name) const {
    switch (caseMode) {
    case UpperCase:
        return name.toUpper();
    case LowerCase:
        return name.toLower();
    case TitleCase:
        return titleCase(name);
    default:
        return name;
    }
}

void ColumnRename::changeCase(Renaming& renaming) {
    for (int column = 0; column < renaming.out.sz(); ++column)
        renaming.out.setColName(column, inCase(renaming.out.colName(column)));
    for (QString& name : renaming.missing)
        name = inCase(name);
}

void ColumnRename::addColumns(Renaming& renaming) {
    addedColumns_ = renaming.missing;
    if (addedColumns_.isEmpty())
        return;
    int column = renaming.in.sz();
    renaming.out.setNumberOfColumns(column + static_cast<int>(addedColumns_.size()));
    for (const QString& name : addedColumns_) {
        renaming.out.setColName(column, name);
        renaming.out.setMetaType(column, MetaInfo(MetaTypeText, -1));
        renaming.out.setNull(column);
        ++column;
    }
}
