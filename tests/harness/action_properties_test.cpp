/// What holds for every Action that the catalogue hands out, whatever it does.
#include "engine/engine_box.h"
#include "tests/harness/case_run.h"
#include "tests/harness/case_tests.h"
#include "tests/harness/random_settings.h"
#include "tests/harness/typed_table.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtGui/QPixmap>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <thread>

namespace velmorra::harness {

namespace {

using Made = std::unique_ptr<ActionItem>;

/// Calls `check` for each Action, with its name in every failure message.
void forEachAction(const std::function<void(const ActionItem&)>& check) {
    ASSERT_FALSE(testCatalog().prototypes().empty());
    for (const auto& prototype : testCatalog().prototypes()) {
        SCOPED_TRACE(prototype->actionName());
        test::HeldLog heldBack;
        check(*prototype);
    }
}

bool isOfEngine(const ActionItem& action) {
    return dynamic_cast<const EngineBox*>(&action) != nullptr;
}

std::string saved(const ActionItem& action) {
    XMLStream stream;
    action.saveToXML(stream, QString());
    return QString::fromStdU16String(stream.str()).toStdString();
}

Made loaded(const std::string& text, GlobalParameters* parameters) {
    const XMLNode::Parsed parsed = XMLNode::parse(QByteArray::fromStdString(text));
    if (!parsed.error.isEmpty())
        ADD_FAILURE() << parsed.error.toStdString() << " in\n" << text;
    return testCatalog().create(parsed.root, parameters);
}

/// Runs `work` on a thread and ends the program when it hangs, since nothing else can be done.
void mustEnd(const char* action, const char* what, const std::function<void()>& work) {
    constexpr auto longest = std::chrono::seconds(60);
    std::mutex mutex;
    std::condition_variable ended;
    bool hasEnded = false;
    std::thread thread([&] {
        work();
        const std::lock_guard<std::mutex> lock(mutex);
        hasEnded = true;
        ended.notify_one();
    });
    std::unique_lock<std::mutex> lock(mutex);
    if (!ended.wait_for(lock, longest, [&] { return hasEnded; })) {
        std::cerr << action << ": " << what << " doesn't end\n";
        std::abort();
    }
    lock.unlock();
    thread.join();
}

QString settled(const QString& name) {
    QString plain = name.toLower();
    return plain.remove(QLatin1Char('_'));
}

/// The case files in a folder named after the Action.
std::vector<const CaseFile*> caseFilesOf(const ActionItem& action) {
    std::vector<const CaseFile*> files;
    for (const CaseFile& file : caseFiles()) {
        const QString folder = file.path.section(QLatin1Char('/'), -2, -2);
        if (settled(folder) == settled(QLatin1String(action.actionName())))
            files.push_back(&file);
    }
    return files;
}

/// Cases of one element with a table of rows on pin 0.
std::vector<Case> streamingCases(const ActionItem& action) {
    std::vector<Case> cases;
    for (const CaseFile* const file : caseFilesOf(action)) {
        for (const Case& each : file->cases) {
            const auto main = each.inputs.find({0, 0});
            if (each.elements.size() == 1 && main != each.inputs.end() && main->second->rows() > 0)
                cases.push_back(each);
        }
    }
    return cases;
}

/// The Action's defaults on tables without rows, or with one that holds nothing it asks for.
Case defaultCase(const ActionItem& action, const char* table) {
    Case run;
    run.file = QStringLiteral(VELMORRA_SOURCE_DIR "/tests/cases/default.case");
    run.elements = {QLatin1Char('<') + QLatin1String(action.actionName()) + QLatin1String("/>")};
    const TypedTable parsed = parseTypedTable(QLatin1String(table));
    EXPECT_EQ(parsed.error.toStdString(), "");
    for (int pin = 0; pin < action.nPinIn; ++pin)
        run.inputs[{0, pin}] = parsed.table;
    return run;
}

TEST(EveryAction, LoadsWithDefaultsAndSavesTheSameTextAgain) {
    forEachAction([](const ActionItem& prototype) {
        EXPECT_FALSE(prototype.actionDescription().isEmpty());
        EXPECT_FALSE(prototype.actionCategories().isEmpty());
        EXPECT_FALSE(prototype.actionKeywords().isEmpty());
        GlobalParameters parameters;
        const std::string first = saved(prototype);
        const Made again = loaded(first, &parameters);
        ASSERT_NE(again, nullptr);
        EXPECT_EQ(saved(*again), first);
    });
}

TEST(EveryAction, RandomSettingsSurviveSavingAndLoading) {
    constexpr unsigned samples = 200;
    forEachAction([](const ActionItem& prototype) {
        for (unsigned seed = 0; seed < samples; ++seed) {
            SCOPED_TRACE(seed);
            GlobalParameters parameters;
            const Made set(prototype.newFromXML(XMLNode::emptyNode(), &parameters));
            setRandomly(*set, seed);
            const std::string text = saved(*set);
            const Made again = loaded(text, &parameters);
            ASSERT_NE(again, nullptr);
            ASSERT_EQ(differenceOfSettings(*set, *again), "") << text;
            ASSERT_EQ(saved(*again), text);
            const Made copy(again->clone(&parameters));
            ASSERT_NE(copy, nullptr);
            ASSERT_EQ(saved(*copy), text);
        }
    });
}

TEST(EveryAction, UnknownAttributesSurvive) {
    forEachAction([](const ActionItem& prototype) {
        const std::string name = prototype.actionName();
        const Made made =
            loaded("<" + name + " ofAnotherProgram='a &lt; &quot;b&quot;&#10;'/>", nullptr);
        ASSERT_NE(made, nullptr);
        const std::string text = saved(*made);
        const Made again = loaded(text, nullptr);
        EXPECT_NE(text.find("ofAnotherProgram="), std::string::npos) << text;
        EXPECT_EQ(saved(*again), text);
        const XMLNode root = XMLNode::parse(QByteArray::fromStdString(text)).root;
        EXPECT_STREQ(root.getAttribute("ofAnotherProgram", nullptr), "a < \"b\"\n");
    });
}

TEST(EveryAction, EmptyInputOnAllPinsEndsAndAFailureSaysWhy) {
    forEachAction([](const ActionItem& prototype) {
        std::vector<Case> cases = streamingCases(prototype);
        for (const char* const table : {"", "a:K:01,b:F,c:U"})
            cases.push_back(defaultCase(prototype, table));
        for (Case& run : cases) {
            SCOPED_TRACE(run.sentence.toStdString());
            for (auto& [place, table] : run.inputs)
                table = std::make_shared<PackedTable>(table->shape);
            CaseResult result;
            mustEnd(prototype.actionName(), "a run on empty tables",
                    [&] { result = runCase(run, testCatalog(), Circumstance::Plain, true); });
            EXPECT_EQ(result.problem.toStdString(), "");
            const bool hasError = !result.log.filter(QStringLiteral("[1] ")).isEmpty();
            EXPECT_EQ(result.outcome == RunOutcome::Failed, hasError)
                << result.log.join(QLatin1Char('\n')).toStdString();
        }
    });
}

/// Runs a case on rows that never end, cancelled before the first step or a little later.
RunOutcome runEndless(const Case& run, bool cancelFirst) {
    CaseGraph built;
    SourceHabits habits;
    habits.endless = true;
    test::HeldLog log;
    buildGraph(built, run, testCatalog(), habits, true);
    if (!built.problem.isEmpty())
        return RunOutcome::Failed;
    for (auto& [place, sink] : built.sinks)
        sink->keepRows = false;
    Run graphRun(built.graph, log, {});
    if (cancelFirst)
        graphRun.cancel();
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        graphRun.cancel();
    });
    const RunOutcome outcome = graphRun.execute();
    canceller.join();
    return outcome;
}

TEST(EveryAction, CancelledRunEnds) {
    forEachAction([](const ActionItem& prototype) {
        constexpr size_t casesPerAction = 6;
        std::vector<Case> cases = streamingCases(prototype);
        cases.resize(std::min(cases.size(), casesPerAction));
        cases.push_back(defaultCase(prototype, "a:K,b:F,c:U\n1,2,x"));
        for (const Case& run : cases) {
            SCOPED_TRACE(run.sentence.toStdString());
            mustEnd(prototype.actionName(), "a run cancelled before its first step", [&] {
                // A box may refuse before it notices.
                EXPECT_NE(runEndless(run, true), RunOutcome::Done);
            });
            mustEnd(prototype.actionName(), "a run cancelled while rows stream",
                    [&] { runEndless(run, false); });
        }
    });
}

/// Runs a case as a master and copies whether the Action would or not; the first step of the master
/// finds none of the columns that it looks for.
void failInMaster(const ActionItem& prototype, Case run) {
    for (auto& [place, table] : run.inputs) {
        auto renamed = std::make_shared<PackedTable>();
        renamed->shape = table->shape;
        for (QString& name : renamed->shape.names)
            name = QStringLiteral("not ") + name;
        OneRow row;
        row.setShape(table->shape);
        for (size_t i = 0; i < table->rows(); ++i) {
            table->read(i, row);
            renamed->append(row);
        }
        table = renamed;
    }
    mustEnd(prototype.actionName(), "a failure with waiting copies", [&] {
        const CaseResult result = runCase(run, testCatalog(), Circumstance::ThreeCopies);
        EXPECT_EQ(result.problem.toStdString(), "");
    });
}

TEST(EveryAction, FailureInTheMasterReleasesTheWaitingCopies) {
    forEachAction([](const ActionItem& prototype) {
        std::vector<Case> cases = streamingCases(prototype);
        cases.push_back(defaultCase(prototype, "a:K,b:F,c:U\n1,2,x\n3,4,y\n5,6,z\n7,8,"));
        for (const Case& run : cases) {
            if (!parallelPartition(run, testCatalog()))
                continue;
            SCOPED_TRACE(run.sentence.toStdString());
            failInMaster(prototype, run);
        }
    });
}

/// The names of the boxes in all example graphs.
QStringList boxesOfExamples() {
    QStringList names;
    QDirIterator walk(QStringLiteral(VELMORRA_SOURCE_DIR "/examples"), {QStringLiteral("*.vgraph")},
                      QDir::Files, QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        QFile file(walk.next());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const XMLNode root = XMLNode::parse(file.readAll()).root;
        root.getChildNode("Actions", nullptr).forEachChild([&](const XMLNode& box) {
            names.push_back(QString::fromUtf8(box.name()));
        });
    }
    return names;
}

TEST(EveryAction, HasWhatBelongsToIt) {
    const QStringList inExamples = boxesOfExamples();
    forEachAction([&](const ActionItem& prototype) {
        const QString name = QLatin1String(prototype.actionName());
        EXPECT_TRUE(inExamples.contains(name, Qt::CaseInsensitive))
            << "no example graph in examples/ uses it";
        if (isOfEngine(prototype))
            return;
        const Made made(prototype.newFromXML(XMLNode::emptyNode(), nullptr));
        const QPixmap* const icon = made->actionIcon(32);
        EXPECT_TRUE(icon != nullptr && !icon->isNull()) << "its icon doesn't load";
        EXPECT_FALSE(caseFilesOf(prototype).empty())
            << "no case file in a folder of its name under tests/cases/<family>/";
    });
}

} // namespace

} // namespace velmorra::harness
