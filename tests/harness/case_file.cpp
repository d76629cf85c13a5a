#include "tests/harness/case_file.h"

#include "host/gel/gel_writer.h"
#include "tests/harness/typed_table.h"

#include <QtCore/QFile>

namespace velmorra::harness {

namespace {

QString withoutBlankEnd(QString text) {
    while (text.endsWith(QLatin1Char('\n')))
        text.chop(1);
    return text;
}

/// Cuts a file into cases and sections; an error where a line belongs to neither.
QString splitFile(const QString& text, CaseFile& file) {
    Section* section = nullptr;
    int line = 0;
    for (const QString& content : text.split(QLatin1Char('\n'))) {
        ++line;
        if (content.startsWith(QLatin1String("== "))) {
            Case added;
            added.file = file.path;
            added.line = line;
            added.sentence = content.mid(3).trimmed();
            file.cases.push_back(added);
            section = nullptr;
        } else if (content.startsWith(QLatin1String("-- ")) && !file.cases.isEmpty()) {
            QVector<Section>& sections = file.cases.back().sections;
            sections.push_back({line, content.mid(3).trimmed(), {}});
            section = &sections.back();
        } else if (section != nullptr) {
            section->body += content + QLatin1Char('\n');
        } else if (file.cases.isEmpty() &&
                   (content.isEmpty() || content.startsWith(QLatin1Char('#')))) {
            file.preamble += content + QLatin1Char('\n');
        } else if (!content.isEmpty()) {
            return QStringLiteral("%1:%2: a line outside of a section").arg(file.path).arg(line);
        }
    }
    for (Case& read : file.cases) {
        for (Section& each : read.sections)
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

    bool read() {
        for (const Section& section : case_.sections) {
            line = section.line;
            readSection(section);
            if (!error.isEmpty())
                return false;
        }
        line = case_.line;
        if (case_.elements.isEmpty())
            error = QStringLiteral("a case without an element");
        else if (case_.outputs.empty() && case_.columns.empty() && !case_.log && !case_.saved &&
                 !case_.fails)
            error = QStringLiteral("a case that expects nothing");
        else if (case_.saved && case_.elements.size() > 1)
            error = QStringLiteral("'saved' is for a case with one element");
        return error.isEmpty();
    }

private:
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

    /// `[N.]PIN`, N from 1.
    Place place(const Section& section, int element) {
        const QStringList parts = section.word(1).split(QLatin1Char('.'));
        bool isPin = false;
        bool isElement = true;
        Place place{element, parts.last().toInt(&isPin)};
        if (parts.size() == 2)
            place.element = parts.first().toInt(&isElement) - 1;
        if (!isPin || !isElement || place.pin < 0 || parts.size() > 2)
            error = QStringLiteral("'%1' doesn't name a pin").arg(section.title);
        else if (place.element < 0 || place.element > case_.lastElement())
            error = QStringLiteral("'%1' is for no element in front of it").arg(section.title);
        return place;
    }

    std::shared_ptr<const PackedTable> table(const Section& section) {
        const TypedTable read = parseTypedTable(section.body);
        if (!read.error.isEmpty()) {
            error = read.error;
            line = section.line + 1 + read.line;
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

} // namespace

CaseFile parseCaseFile(const QString& text, const QString& path) {
    CaseFile file;
    file.path = path;
    file.error = splitFile(text, file);
    for (int i = 0; i < file.cases.size(); ++i) {
        CaseReader reader(file.cases[i]);
        if (reader.read())
            continue;
        if (file.error.isEmpty())
            file.error =
                QStringLiteral("%1:%2: ").arg(path, QString::number(reader.line)) + reader.error;
        file.cases.resize(i);
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
    QString text = withoutBlankEnd(file.preamble);
    if (!text.isEmpty())
        text += QLatin1String("\n\n");
    for (const Case& each : file.cases) {
        text += QLatin1String("== ") + each.sentence + QLatin1Char('\n');
        for (const Section& section : each.sections) {
            text += QLatin1String("-- ") + section.title + QLatin1Char('\n');
            if (!section.body.isEmpty())
                text += section.body + QLatin1Char('\n');
        }
        if (&each != &file.cases.back())
            text += QLatin1Char('\n');
    }
    return text;
}

} // namespace velmorra::harness
