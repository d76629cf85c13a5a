/// Registers each case under tests/cases as tests of its own, one per circumstance, and runs them
/// with the other tests of this program.
///
///     case_tests --gtest_filter='shape/select_columns*'      the cases of one Action
///     case_tests --gtest_filter='*/late_pins'                one circumstance
///     VELMORRA_WRITE_CASES=1 case_tests --gtest_filter=...   writes what the filtered cases
///                                                            expect from a run: read the diff
#include "tests/harness/case_tests.h"

#include "host/main_ui.h"
#include "tests/harness/case_check.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QSaveFile>
#include <QtGui/QGuiApplication>

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

namespace velmorra::harness {

namespace {

const char* const casesFolder = VELMORRA_SOURCE_DIR "/tests/cases";

bool isWriting() {
    return qEnvironmentVariableIntValue("VELMORRA_WRITE_CASES") != 0;
}

class CaseTest : public testing::Test {
public:
    CaseTest(const Case& run, Circumstance circumstance)
        : case_(run),
          circumstance_(circumstance) {}

    void TestBody() override {
        if (copiesOf(circumstance_) > 0 && !parallelPartition(case_, testCatalog()))
            GTEST_SKIP() << "doesn't run in parallel";
        for (const Difference& each : checkCase(case_, testCatalog(), circumstance_))
            ADD_FAILURE_AT(case_.file.toUtf8().constData(), each.line)
                << case_.sentence.toStdString() << '\n'
                << each.text.toStdString();
    }

private:
    const Case& case_;
    Circumstance circumstance_;
};

class WriteCase : public testing::Test {
public:
    WriteCase(CaseFile& file, const Case& run) : file_(file), case_(run) {}
    void TestBody() override { writeExpectations(file_, case_, testCatalog()); }

private:
    CaseFile& file_;
    const Case& case_;
};

/// Says what is wrong with a file of cases.
class BrokenFile : public testing::Test {
public:
    explicit BrokenFile(const CaseFile& file) : file_(file) {}
    void TestBody() override { FAIL() << file_.error.toStdString(); }

private:
    const CaseFile& file_;
};

/// The sentence as a name of a test, which can't hold what filters take for wildcards.
std::string testName(const QString& sentence) {
    QString name;
    for (const QChar unit : sentence)
        name += unit.isLetterOrNumber() ? unit : QLatin1Char('_');
    return name.toStdString();
}

template <class Test, class... Arguments>
void registerTest(const std::string& suite, const std::string& name, const QString& file, int line,
                  Arguments... arguments) {
    testing::RegisterTest(suite.c_str(), name.c_str(), nullptr, nullptr, file.toUtf8().constData(),
                          line, [=]() -> testing::Test* { return new Test(arguments...); });
}

void registerFile(CaseFile& file) {
    const QString relative = QDir(QLatin1String(casesFolder)).relativeFilePath(file.path);
    const std::string suite = relative.chopped(5).toStdString();
    if (!file.error.isEmpty())
        registerTest<BrokenFile>(suite, "is_a_case_file", file.path, 1, std::cref(file));
    for (Case& each : file.cases) {
        const std::string name = testName(each.sentence);
        if (isWriting()) {
            registerTest<WriteCase>(suite, name, file.path, each.line, std::ref(file),
                                    std::cref(each));
            continue;
        }
        for (const Circumstance circumstance : circumstances) {
            if (circumstance == Circumstance::Plain || each.tellsOfARun())
                registerTest<CaseTest>(suite, name + '/' + nameOf(circumstance), file.path,
                                       each.line, std::cref(each), circumstance);
        }
    }
}

/// Writes the files whose cases changed.
void writeFiles() {
    for (const CaseFile& file : caseFiles()) {
        const QByteArray text = caseFileText(file).toUtf8();
        QFile earlier(file.path);
        if (!file.error.isEmpty() ||
            (earlier.open(QIODevice::ReadOnly) && earlier.readAll() == text))
            continue;
        QSaveFile target(file.path);
        const bool written = target.open(QIODevice::WriteOnly) &&
                             target.write(text) == text.size() && target.commit();
        std::cout << (written ? "wrote " : "can't write ") << file.path.toStdString() << '\n';
    }
}

/// Messages from outside of a run.
class Stray : public MessageSink {
public:
    void take(const Message& message) override {
        std::cerr << "outside of a run: " << message.text.toStdString();
    }
};

} // namespace

ActionCatalog& testCatalog() {
    static ActionCatalog catalog;
    return catalog;
}

std::vector<CaseFile>& caseFiles() {
    static std::vector<CaseFile> files = [] {
        QStringList paths;
        QDirIterator walk(QLatin1String(casesFolder), {QStringLiteral("*.case")}, QDir::Files,
                          QDirIterator::Subdirectories);
        while (walk.hasNext())
            paths.push_back(walk.next());
        std::sort(paths.begin(), paths.end());
        std::vector<CaseFile> read;
        for (const QString& path : paths)
            read.push_back(readCaseFile(path));
        return read;
    }();
    return files;
}

/// Registers and runs everything; the exit status.
int runAll() {
    Stray stray;
    const WindowlessMainUI ui(stray);
    const QString error = testCatalog().load();
    if (!error.isNull()) {
        std::cerr << error.toStdString() << '\n';
        return 2;
    }
    for (CaseFile& file : caseFiles())
        registerFile(file);
    const int status = RUN_ALL_TESTS();
    if (isWriting())
        writeFiles();
    return status;
}

} // namespace velmorra::harness

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    testing::InitGoogleTest(&argc, argv);
    const QGuiApplication application(argc, argv);
    return velmorra::harness::runAll();
}
