#include "tests/harness/case_file.h"

#include "host/gel/gel_writer.h"
#include "tests/harness/typed_table.h"

#include <QtCore/QFile>

#include <algorithm>

namespace velmorra::harness {

namespace {

const QLatin1String indentation("    ");
const QLatin1String rowEnd(" | "); ///< in a table that stands in one line
constexpr int lineWidth = 100;

QString withoutBlankEnd(QString text) {
    while (text.endsWith(QLatin1Char('\n')))
        text.chop(1);
    return text;
}

/// `-- TITLE` or `-- TITLE = TABLE`.
Section sectionFrom(const QString& text, int line) {
    const qsizetype equals = text.startsWith(QLatin1String("param")) ? -1 : text.indexOf(" = ");
    QString table = equals < 0 ? QString() : text.mid(equals + 3) + QLatin1Char('\n');
    return {line, text.left(equals).trimmed(), table.replace(rowEnd, QLatin1String("\n"))};
}

/// A table in one line where it fits and reads back the same.
QString inOneLine(QString table, qsizetype before) {
    const QStringList rows = table.split(QLatin1Char('\n'));
    const bool reads = std::all_of(rows.begin(), rows.end(), [](const QString& row) {
        return !row.isEmpty() && row.trimmed() == row && !row.contains(rowEnd);
    });
    QString line = rows.join(rowEnd);
    const bool fits = before + line.size() <= lineWidth && rows.size() <= 4;
    return reads && fits && table.count(QLatin1Char('"')) % 2 == 0 ? line : table;
}

/// Cuts a file into blocks; an error where a line belongs to none.
QString splitFile(const QString& text, CaseFile& file) {
    QString* section = nullptr;
    QString* situation = nullptr;
    int line = 0;
    for (const QString& content : text.split(QLatin1Char('\n'))) {
        ++line;
        const bool isGroup = content.startsWith(QLatin1String("=== "));
        Block* const block = file.blocks.isEmpty() ? nullptr : &file.blocks.back();
        if (isGroup || content.startsWith(QLatin1String("== "))) {
            file.blocks.push_back({line, isGroup, content.mid(isGroup ? 4 : 3).trimmed(), {}, {}});
            section = situation = nullptr;
        } else if (block == nullptr && (content.isEmpty() || content[0] == QLatin1Char('#'))) {
            file.preamble += content + QLatin1Char('\n');
        } else if (block != nullptr && content.startsWith(QLatin1String("-- "))) {
            block->sections.push_back(sectionFrom(content.mid(3), line));
            section = &block->sections.back().body;
        } else if (section != nullptr) {
            *section += content + QLatin1Char('\n');
        } else if (situation != nullptr && content.startsWith(indentation)) {
            *situation += content.mid(indentation.size()) + QLatin1Char('\n');
        } else if (!content.isEmpty()) {
            if (block == nullptr || block->isGroup || content[0] == QLatin1Char(' '))
                return QStringLiteral("%1:%2: a line outside of a section")
                    .arg(file.path)
                    .arg(line);
            block->situations.push_back({line, content, {}});
            situation = &block->situations.back().expected;
        }
    }
    for (Block& block : file.blocks) {
        for (Situation& each : block.situations)
            each.expected = withoutBlankEnd(each.expected);
        for (Section& each : block.sections)
            each.body = withoutBlankEnd(each.body);
    }
    return {};
}

QString writeStoredTable(const PackedTable& table, const QString& path) {
    gel::GelWriter writer;
    QString problem = writer.start(table.shape);
    OneRow row;
    row.setShape(table.shape);
    for (size_t place = 0; problem.isEmpty() && place < table.rows(); ++place) {
        table.read(place, row);
        problem = writer.add(row.cells);
    }
    if (!problem.isEmpty())
        return problem;
    writer.finish();
    QFile file(path);
    const bool written = file.open(QIODevice::WriteOnly) &&
                         file.write(writer.bytes(), writer.size()) == writer.size();
    return written ? QString() : path + QLatin1String(": ") + file.errorString();
}

/// Reads the sections of one case. Errors are sentences; `line` says where.
class CaseReader {
public:
    explicit CaseReader(Case& read) : case_(read) {}

    QString error;
    int line = 0;

    /// What the group of the case and its block say, and its situation, if any.
    bool read(const Block* group, const Block& block, const Situation* situation) {
        if (situation != nullptr)
            case_.elements.push_back(situation->element);
        QVector<Section> sections = block.sections;
        for (int i = 0; group != nullptr && i < group->sections.size(); ++i) {
            const Section& shared = group->sections[i];
            const bool replaced =
                std::any_of(block.sections.begin(), block.sections.end(),
                            [&](const Section& own) { return own.title == shared.title; });
            if (!replaced)
                sections.push_back(shared);
        }
        for (int i = 0; i < sections.size() && error.isEmpty(); ++i) {
            line = sections[i].line;
            readSection(sections[i]);
        }
        if (error.isEmpty() && situation != nullptr)
            readExpected(*situation);
        if (error.isEmpty())
            checkWhole();
        return error.isEmpty();
    }

private:
    void checkWhole() {
        line = case_.line;
        if (case_.elements.isEmpty())
            error = QStringLiteral("a case without an element");
        else if (!case_.tellsOfARun() && !case_.saved)
            error = QStringLiteral("a case that expects nothing");
        else if (case_.saved && case_.elements.size() > 1)
            error = QStringLiteral("'saved' is for a case with one element");
    }

    /// A table, or "nothing", then the messages; without a table the run fails.
    void readExpected(const Situation& situation) {
        if (situation.expected.isEmpty())
            return;
        const QStringList lines = situation.expected.split(QLatin1Char('\n'));
        qsizetype rows = 0;
        while (rows < lines.size() && !lines[rows].startsWith(QLatin1Char('[')))
            ++rows;
        const int first = situation.line + 1;
        const bool nothing = lines[0] == QLatin1String("nothing");
        QString table = lines.mid(0, rows).join(QLatin1Char('\n'));
        if (rows == 1)
            table.replace(rowEnd, QLatin1String("\n"));
        if (rows < lines.size())
            case_.log = ExpectedText{first + static_cast<int>(rows),
                                     lines.mid(rows).join(QLatin1Char('\n'))};
        if (rows == 0)
            case_.fails = true;
        else
            case_.outputs[{0, 0}] =
                expectedTable({first - 1, nothing ? QStringLiteral("out 0 nothing") : QString(),
                               nothing ? QString() : table});
    }

    void readSection(const Section& section) {
        const QString kind = section.word(0);
        if (kind == QLatin1String("element")) {
            case_.elements.push_back(section.body);
        } else if (kind == QLatin1String("param")) {
            const QString setting = section.title.mid(kind.size() + 1);
            const auto equals = setting.indexOf(QLatin1Char('='));
            if (equals <= 0)
                error = QStringLiteral("a parameter is written name=value");
            else
                case_.parameters.push_back({setting.left(equals), setting.mid(equals + 1)});
        } else if (kind == QLatin1String("file")) {
            storeTable(section);
        } else if (kind == QLatin1String("in")) {
            case_.inputs[place(section, 0)] = table(section);
        } else if (kind == QLatin1String("out")) {
            case_.outputs[place(section, case_.lastElement())] = expectedTable(section);
        } else if (kind == QLatin1String("columns")) {
            case_.columns[place(section, case_.lastElement())] = {section.line, section.body};
        } else {
            readRest(section, kind);
        }
    }

    void readRest(const Section& section, const QString& kind) {
        const ExpectedText text{section.line, section.body};
        if (kind == QLatin1String("log"))
            case_.log = text;
        else if (kind == QLatin1String("saved"))
            case_.saved = text;
        else if (kind == QLatin1String("fails"))
            case_.fails = true;
        else if (kind == QLatin1String("parallel") && section.title.size() > kind.size())
            case_.parallel = ExpectedText{section.line, section.title.mid(kind.size() + 1)};
        else
            error = QStringLiteral("unknown section '%1'").arg(section.title);
    }

    Place place(const Section& section, int element) {
        const Place place = placeOf(section, element);
        if (place.pin < 0)
            error = QStringLiteral("'%1' doesn't name a pin").arg(section.title);
        else if (place.element < 0 || place.element > case_.lastElement())
            error = QStringLiteral("'%1' is for no element in front of it").arg(section.title);
        return place;
    }

    std::shared_ptr<const PackedTable> table(const Section& section) {
        const TypedTable read = parseTypedTable(section.body);
        if (!read.error.isEmpty()) {
            error = read.error;
            line = section.line;
        }
        return read.table;
    }

    void storeTable(const Section& section) {
        if (case_.files == nullptr) {
            case_.files = std::make_shared<QTemporaryDir>();
            case_.parameters.push_back({QStringLiteral("files"), case_.files->path()});
        }
        const auto read = table(section);
        if (read != nullptr)
            error = writeStoredTable(*read, case_.files->filePath(section.word(1)));
    }

    ExpectedTable expectedTable(const Section& section) {
        ExpectedTable expected{section.line, section.word(2) == QLatin1String("nothing"), {}};
        if (expected.nothing && !section.body.isEmpty())
            error = QStringLiteral("'nothing' with rows");
        const auto read = table(section);
        if (read != nullptr)
            expected.lines = typedLines(*read);
        return expected;
    }

    Case& case_;
};

/// Adds the cases of a block; false, with the file's error set, where one can't be read.
bool readBlock(CaseFile& file, const Block* group, int place) {
    const Block& block = file.blocks[place];
    const int count = static_cast<int>(block.situations.size());
    for (int i = count == 0 ? -1 : 0; i < count; ++i) {
        const Situation* const situation = i < 0 ? nullptr : &block.situations[i];
        Case added;
        added.file = file.path;
        added.line = count > 1 ? situation->line : block.line;
        added.sentence = block.sentence;
        if (count > 1)
            added.sentence += QLatin1String(", ") + QString::number(i + 1);
        added.block = place;
        added.situation = i;
        CaseReader reader(added);
        if (!reader.read(group, block, situation)) {
            if (file.error.isEmpty())
                file.error =
                    QStringLiteral("%1:%2: ").arg(file.path).arg(reader.line) + reader.error;
            return false;
        }
        file.cases.push_back(added);
    }
    return true;
}

} // namespace

Place placeOf(const Section& section, int element) {
    const QStringList parts = section.word(1).split(QLatin1Char('.'));
    bool isPin = false;
    bool isElement = true;
    Place place{element, parts.last().toInt(&isPin)};
    if (parts.size() == 2)
        place.element = parts.first().toInt(&isElement) - 1;
    return isPin && isElement && parts.size() <= 2 ? place : Place{-1, -1};
}

CaseFile parseCaseFile(const QString& text, const QString& path) {
    CaseFile file;
    file.path = path;
    file.error = splitFile(text, file);
    const Block* group = nullptr;
    for (int i = 0; i < file.blocks.size(); ++i) {
        if (file.blocks[i].isGroup)
            group = &file.blocks[i];
        else if (!readBlock(file, group, i))
            break;
    }
    if (file.error.isEmpty() && file.cases.isEmpty())
        file.error = QStringLiteral("%1:1: no case in the file").arg(path);
    return file;
}

CaseFile readCaseFile(const QString& path) {
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        return parseCaseFile(QString::fromUtf8(file.readAll()), path);
    CaseFile failed;
    failed.path = path;
    failed.error = path + QLatin1String(": ") + file.errorString();
    return failed;
}

QString caseFileText(const CaseFile& file) {
    QStringList lines;
    if (!file.preamble.isEmpty())
        lines << withoutBlankEnd(file.preamble) << QString();
    for (const Block& block : file.blocks) {
        lines << QLatin1String(block.isGroup ? "=== " : "== ") + block.sentence;
        for (const Situation& each : block.situations) {
            lines << each.element;
            const qsizetype log = (QLatin1Char('\n') + each.expected).indexOf(QLatin1String("\n["));
            const QString table = withoutBlankEnd(each.expected.left(log));
            QStringList expected = inOneLine(table, indentation.size()).split(QLatin1Char('\n'));
            if (log >= 0)
                expected += each.expected.mid(log).split(QLatin1Char('\n'));
            for (const QString& line : std::as_const(expected)) {
                if (!line.isEmpty())
                    lines << indentation + line;
            }
        }
        for (const Section& section : block.sections) {
            static const QStringList tables = {"in", "out", "columns"};
            const QString title = QLatin1String("-- ") + section.title;
            const QString line = inOneLine(section.body, title.size() + 3);
            if (tables.contains(section.word(0)) && !line.contains(QLatin1Char('\n')) &&
                !line.isEmpty()) {
                lines << title + QLatin1String(" = ") + line;
                continue;
            }
            lines << title;
            if (!section.body.isEmpty())
                lines << section.body;
        }
        lines << QString();
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace velmorra::harness
