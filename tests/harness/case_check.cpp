#include "tests/harness/case_check.h"

#include "tests/harness/typed_table.h"

#include <algorithm>

namespace velmorra::harness {

namespace {

QStringList linesOf(const QString& text) {
    return text.isEmpty() ? QStringList() : text.split(QLatin1Char('\n'));
}

QString outcomeName(RunOutcome outcome) {
    switch (outcome) {
    case RunOutcome::Done:
        return QStringLiteral("is done");
    case RunOutcome::Failed:
        return QStringLiteral("fails");
    case RunOutcome::Cancelled:
        return QStringLiteral("is cancelled");
    }
    return {};
}

/// Lines of messages whose number an Action limits: each copy counts its own.
bool isRepeatable(const QString& message) {
    return message.startsWith(QLatin1String("[3]"));
}

class Checker {
public:
    Checker(const Case& expected, const ActionCatalog& catalog, Circumstance circumstance)
        : expected_(expected),
          catalog_(catalog),
          circumstance_(circumstance) {}

    QVector<Difference> differences;

    void check() {
        if (expected_.tellsOfARun())
            checkRun();
        if (circumstance_ == Circumstance::Plain)
            checkSaved();
        if (circumstance_ == Circumstance::Plain && expected_.parallel)
            checkParallelAnswer();
    }

private:
    void checkRun() {
        result_ = runCase(expected_, catalog_, circumstance_);
        if (!result_.problem.isEmpty()) {
            add(expected_.line, result_.problem);
            return;
        }
        const bool failed = result_.outcome != RunOutcome::Done;
        if (failed != expected_.fails)
            add(expected_.line, QLatin1String("the run ") + outcomeName(result_.outcome));
        if (copiesOf(circumstance_) > 0)
            checkLogOfCopies();
        else
            compare(expected_.log ? expected_.log->line : expected_.line, "log", logLines(),
                    linesOf(result_.log.join(QLatin1Char('\n'))));
        for (const auto& [place, table] : expected_.outputs) {
            if (!expected_.fails)
                checkTable(place, table);
        }
        if (circumstance_ == Circumstance::ColumnsFirst)
            checkColumns();
    }

    void add(int line, const QString& text) {
        QString whole = text;
        if (!result_.log.isEmpty())
            whole += QLatin1String("\nlog of the run:\n") + result_.log.join(QLatin1Char('\n'));
        differences.push_back({line, whole});
    }

    void compare(int line, const char* what, const QStringList& expected,
                 const QStringList& actual) {
        const QString diff = rowDiff(expected, actual);
        if (!diff.isEmpty())
            add(line, QLatin1String(what) + QLatin1String(":\n") + diff);
    }

    QStringList logLines() const {
        return expected_.log ? linesOf(expected_.log->text) : QStringList();
    }

    void checkTable(const Place& place, const ExpectedTable& expected) {
        const PackedTable& table = result_.outputs[place];
        const QStringList lines = typedLines(table);
        const QByteArray name = "out " + QByteArray::number(place.pin);
        if (!expected.nothing)
            compare(expected.line, name.constData(), expected.lines, lines);
        else if (table.rows() != 0)
            compare(expected.line, name.constData(), lines.mid(0, 1), lines);
    }

    /// The master sees a part of the rows, so it may say less than a single thread; what it says
    /// comes in the same order, and what it doesn't say a copy does.
    void checkLogOfCopies() {
        QStringList wanted = logLines();
        QStringList master = linesOf(result_.log.join(QLatin1Char('\n')));
        wanted.removeIf(isRepeatable);
        master.removeIf(isRepeatable);
        const QStringList copies = linesOf(result_.copiesLog.join(QLatin1Char('\n')));
        qsizetype next = 0;
        bool inOrder = true;
        for (const QString& line : master) {
            next = wanted.indexOf(line, next) + 1;
            inOrder = inOrder && next > 0;
        }
        const bool allSaid = std::all_of(wanted.begin(), wanted.end(), [&](const QString& line) {
            return master.contains(line) || copies.contains(line);
        });
        const int line = expected_.log ? expected_.log->line : expected_.line;
        if (!inOrder || !allSaid)
            compare(line, "log of the master", wanted, master);
    }

    void checkSaved() {
        if (expected_.saved)
            compare(expected_.saved->line, "saved", linesOf(expected_.saved->text),
                    linesOf(savedText(expected_, catalog_).chopped(1)));
    }

    void checkParallelAnswer() {
        const ExpectedText& expected = *expected_.parallel;
        const bool alone = answersParallel(expected_, catalog_, {});
        bool asExpected = alone == (expected.text == QLatin1String("yes"));
        if (expected.text != QLatin1String("yes") && expected.text != QLatin1String("no"))
            asExpected = asExpected && answersParallel(expected_, catalog_, expected.text);
        if (!asExpected)
            add(expected.line, QStringLiteral("canRunInParallel answers otherwise (without a "
                                              "partition column: %1)")
                                   .arg(alone ? "yes" : "no"));
    }

    /// Columns-only mode gives the columns that the case says, else those of the output; the same
    /// case with no row on pin 0 gives the columns that the case says.
    void checkColumns() {
        for (const auto& [place, expected] : expected_.columns) {
            compare(expected.line, "columns", {expected.text}, {result_.columns[place]});
            checkColumnsOfEmpty(place, expected);
        }
        for (const auto& [place, expected] : expected_.outputs) {
            const bool comparable =
                !expected_.fails && !expected.nothing && expected_.columns.count(place) == 0;
            if (comparable)
                compare(expected.line, "columns in columns-only mode", expected.lines.mid(0, 1),
                        {result_.columns[place]});
        }
    }

    void checkColumnsOfEmpty(const Place& place, const ExpectedText& expected) {
        Case emptied = expected_;
        const auto main = emptied.inputs.find({0, 0});
        if (main == emptied.inputs.end() || main->second->rows() == 0)
            return;
        main->second = std::make_shared<PackedTable>(main->second->shape);
        CaseResult result = runCase(emptied, catalog_, Circumstance::Plain);
        compare(expected.line, "columns of the output when pin 0 is empty", {expected.text},
                {typedHeader(result.outputs[place].shape)});
    }

    const Case& expected_;
    const ActionCatalog& catalog_;
    Circumstance circumstance_;
    CaseResult result_;
};

QStringList rowsOf(const PackedTable& table, bool nothingExpected) {
    return table.rows() == 0 && nothingExpected ? QStringList{QStringLiteral("nothing")}
                                                : typedLines(table);
}

} // namespace

QVector<Difference> checkCase(const Case& expected, const ActionCatalog& catalog,
                              Circumstance circumstance) {
    Checker checker(expected, catalog, circumstance);
    checker.check();
    return checker.differences;
}

void writeExpectations(CaseFile& file, const Case& run, const ActionCatalog& catalog) {
    CaseResult result;
    if (run.tellsOfARun())
        result = runCase(run, catalog, Circumstance::ColumnsFirst);
    if (!result.problem.isEmpty())
        return;
    Block& block = file.blocks[run.block];
    const bool done = result.outcome == RunOutcome::Done || !run.tellsOfARun();
    const auto nothing = [&](const Place& place) {
        const auto known = run.outputs.find(place);
        return known != run.outputs.end() && known->second.nothing;
    };
    const bool inBrief = run.situation >= 0 && !block.situations[run.situation].expected.isEmpty();
    if (inBrief) {
        QStringList lines = done ? rowsOf(result.outputs[{0, 0}], nothing({0, 0})) : QStringList();
        lines += result.log;
        block.situations[run.situation].expected = lines.join(QLatin1Char('\n'));
    }
    QVector<Section> written;
    for (Section section : std::as_const(block.sections)) {
        const QString kind = section.word(0);
        const Place place = placeOf(section, run.lastElement());
        if (kind == QLatin1String("out") && done) {
            const QStringList rows = rowsOf(result.outputs[place], nothing(place));
            section.body = rows[0] == QLatin1String("nothing") ? QString() : rows.join('\n');
            section.title = section.title.section(QLatin1Char(' '), 0, 1) +
                            QLatin1String(section.body.isEmpty() ? " nothing" : "");
        } else if (kind == QLatin1String("columns")) {
            section.body = result.columns[place];
        } else if (kind == QLatin1String("saved")) {
            section.body = savedText(run, catalog).chopped(1);
        } else if (kind == QLatin1String("out") || kind == QLatin1String("log") ||
                   kind == QLatin1String("fails")) {
            continue;
        }
        written.push_back(section);
    }
    if (!inBrief && !done)
        written.push_back({0, QStringLiteral("fails"), {}});
    if (!inBrief && !result.log.isEmpty())
        written.push_back({0, QStringLiteral("log"), result.log.join(QLatin1Char('\n'))});
    block.sections = written;
}

} // namespace velmorra::harness
