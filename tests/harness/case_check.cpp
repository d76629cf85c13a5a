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
          circumstance_(circumstance),
          result_(runCase(expected, catalog, circumstance)) {}

    QVector<Difference> differences;

    void check() {
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
        if (circumstance_ == Circumstance::Plain)
            checkSaved();
        if (circumstance_ == Circumstance::ColumnsFirst)
            checkColumns();
        if (circumstance_ == Circumstance::Plain && expected_.parallel)
            checkParallelAnswer();
    }

private:
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

bool isExpectation(const Section& section) {
    static const QStringList kinds = {"out", "log", "fails", "saved", "columns"};
    return kinds.contains(section.word(0));
}

QString placeText(const Place& place, int lastElement) {
    const QString pin = QString::number(place.pin);
    return place.element == lastElement
               ? pin
               : QString::number(place.element + 1) + QLatin1Char('.') + pin;
}

Section outSection(const Case& run, const Place& place, const PackedTable& table) {
    const auto known = run.outputs.find(place);
    const bool nothing = table.rows() == 0 && known != run.outputs.end() && known->second.nothing;
    Section section;
    section.title = QLatin1String("out ") + placeText(place, run.lastElement()) +
                    (nothing ? QStringLiteral(" nothing") : QString());
    if (!nothing)
        section.body = typedLines(table).join(QLatin1Char('\n'));
    return section;
}

} // namespace

QVector<Difference> checkCase(const Case& expected, const ActionCatalog& catalog,
                              Circumstance circumstance) {
    Checker checker(expected, catalog, circumstance);
    checker.check();
    return checker.differences;
}

Case rewrittenCase(const Case& expected, const ActionCatalog& catalog) {
    CaseResult result =
        runCase(expected, catalog, Circumstance::ColumnsFirst, expected.outputs.empty());
    Case written = expected;
    written.sections.removeIf(isExpectation);
    if (!result.problem.isEmpty())
        return expected;
    if (result.outcome != RunOutcome::Done)
        written.sections.push_back({0, QStringLiteral("fails"), {}});
    const bool onlySaved = expected.saved && expected.outputs.empty() && expected.columns.empty();
    for (const auto& [place, table] : result.outputs) {
        const bool wanted = expected.outputs.count(place) != 0 || expected.columns.empty();
        if (wanted && !onlySaved && result.outcome == RunOutcome::Done)
            written.sections.push_back(outSection(expected, place, table));
    }
    for (const auto& [place, columns] : expected.columns)
        written.sections.push_back(
            {0, QLatin1String("columns ") + placeText(place, expected.lastElement()),
             result.columns[place]});
    if (!result.log.isEmpty())
        written.sections.push_back({0, QStringLiteral("log"), result.log.join(QLatin1Char('\n'))});
    if (expected.saved)
        written.sections.push_back(
            {0, QStringLiteral("saved"), savedText(expected, catalog).chopped(1)});
    return written;
}

} // namespace velmorra::harness
