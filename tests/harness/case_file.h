/// Case files: what an element makes of small tables, as text. tests/cases/README.md describes the
/// format.
#pragma once

#include "engine/packed_table.h"

#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

#include <map>
#include <memory>
#include <optional>

namespace velmorra::harness {

/// An element of a case's chain, from 0, and one of its pins.
struct Place {
    int element = 0;
    int pin = 0;
    auto operator<=>(const Place&) const = default;
};

/// A section as it stands in the file: the words behind `-- `, and the lines up to the next one.
struct Section {
    int line = 0; ///< of the title, from 1
    QString title;
    QString body; ///< without blank lines at its end

    QString word(int index) const { return title.section(QLatin1Char(' '), index, index); }
};

/// An element and, indented below it, the rows of pin 0 and the messages that it gives.
struct Situation {
    int line = 0;
    QString element;
    QString expected; ///< without the indentation
};

/// A heading with what stands below it.
struct Block {
    int line = 0;
    bool isGroup = false; ///< its sections belong to all cases up to the next group
    QString sentence;
    QVector<Situation> situations; ///< in front of the sections
    QVector<Section> sections;
};

struct ExpectedTable {
    int line = 0;
    bool nothing = false; ///< no row; the columns don't matter
    QStringList lines;    ///< as typedLines writes them
};

struct ExpectedText {
    int line = 0;
    QString text;
};

/// One situation of a block, or all of a block that has none.
struct Case {
    QString file;
    int line = 0;
    QString sentence;
    int block = 0;
    int situation = -1;

    QStringList elements;
    QVector<std::pair<QString, QString>> parameters;
    std::map<Place, std::shared_ptr<const PackedTable>> inputs;
    std::shared_ptr<const QTemporaryDir> files; ///< stored tables; null when there are none
    std::map<Place, ExpectedTable> outputs;
    std::map<Place, ExpectedText> columns;
    std::optional<ExpectedText> log;
    std::optional<ExpectedText> saved;
    std::optional<ExpectedText> parallel; ///< "yes", "no" or a partition column
    bool fails = false;

    /// Else only the stored element is compared, and nothing runs.
    bool tellsOfARun() const { return fails || log || !outputs.empty() || !columns.empty(); }
    int lastElement() const { return static_cast<int>(elements.size()) - 1; }
};

struct CaseFile {
    QString path;
    QString preamble; ///< the comments in front of the first block
    QVector<Block> blocks;
    QVector<Case> cases;
    QString error; ///< file, line and what is wrong; the cases in front of it are read
};

/// The `[N.]PIN` (N from 1) of a section; without N that of `element`. The pin is below 0 where
/// there is none.
Place placeOf(const Section& section, int element);

CaseFile readCaseFile(const QString& path);
CaseFile parseCaseFile(const QString& text, const QString& path);

/// The text of a case file, from its blocks.
QString caseFileText(const CaseFile& file);

} // namespace velmorra::harness
