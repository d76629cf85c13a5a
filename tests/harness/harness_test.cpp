/// The harness itself: what it must refuse, and faults that it must see.
#include "tests/harness/case_check.h"
#include "tests/harness/case_tests.h"
#include "tests/harness/typed_table.h"

#include <gtest/gtest.h>

namespace velmorra::harness {

namespace {

/// Hands on each row one row late through pointers that are no longer valid, which shows only where
/// the producer's memory is used again.
class KeepsPointers : public test::PlainBox {
public:
    explicit KeepsPointers(GlobalParameters* parameters) : PlainBox(XMLNode(), parameters) {}
    const char* actionName() const override { return "KeepsPointers"; }
    ActionItem* newFromXML(XMLNode, GlobalParameters* parameters) const override {
        return new KeepsPointers(parameters);
    }
    void rewindRun() override {
        late_.makeFresh();
        setStep<&KeepsPointers::step>();
    }

private:
    bool step() {
        OneRow& out = *getOutputRowForOutputPin(0);
        const OneRow* const in = getNextRowFromInPin(0);
        const bool hasLate = !late_.isFresh();
        if (hasLate) {
            out.copyFrom(late_);
            setRowReadyForOutput(0);
        }
        if (in != nullptr)
            late_.copyFrom(*in);
        return in == nullptr;
    }

    OneRow late_;
};

Case oneCase(const QString& text) {
    const CaseFile file = parseCaseFile(text, QStringLiteral("x.case"));
    EXPECT_EQ(file.error.toStdString(), "");
    return file.cases.value(0);
}

TEST(CaseFile, ErrorsNameFileAndLine) {
    const std::pair<const char*, const char*> broken[] = {
        {"== a\nX\n-- uot 0\na:U\n", "3: unknown section 'uot 0'"},
        {"== a\nX\n-- in 0\na:U,b:K\nx,y\n-- fails\n",
         "3: the table line 2, column 2 'b': 'y' is not a Key (a whole number from 0 to "
         "4294967295)"},
        {"== a\nX\n    a:U\nX\n    a:K,b:K\n    1\n",
         "4: the table line 2: the row has 1 field where 2 are expected"},
        {"== a\nX\n", "1: a case that expects nothing"},
        {"== a\n-- fails\n", "1: a case without an element"},
        {"== a\n    x\n", "2: a line outside of a section"},
        {"=== a\nX\n", "2: a line outside of a section"},
        {"# nothing\n", "1: no case in the file"}};
    for (const auto& [text, error] : broken)
        EXPECT_EQ(parseCaseFile(text, "x.case").error.toStdString(),
                  std::string("x.case:") + error);
}

TEST(TypedTable, WhatIsReadIsWrittenBack) {
    const QString text = QStringLiteral("a:b:U:A2,\"k,\":K:01,f:F\n"
                                        ",,\n\"\",0,nan\n\"x\"\"\n,\",4294967294,-inf\n"
                                        "é,7,1e+300\n 1 ,8,-0");
    const TypedTable read = parseTypedTable(
        QString(text).replace(QLatin1String("\"k,\":K:01"), QLatin1String("\"k,:K:01\"")));
    ASSERT_EQ(read.error.toStdString(), "");
    EXPECT_EQ(typedLines(*read.table).join('\n').toStdString(),
              "a:b:U:A2,\"k,:K:01\",f:F\n,,\n\"\",0,nan\n\"x\"\"\n,\",4294967294,-inf\n"
              "é,7,1e+300\n 1 ,8,-0");
    EXPECT_EQ(read.table->shape.sort.value(0), (SortInfos{1, '0'}));
}

TEST(CaseCheck, DifferencesAreSeenAndShown) {
    const QString text = QStringLiteral("== a\n-- element\nSelectColumns columns=a\n"
                                        "-- in 0\na:U,b:K\nx,1\ny,2\n-- out 0\na:U\nx\nz\n");
    const auto rows = checkCase(oneCase(text), testCatalog(), Circumstance::Plain);
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0].line, 8);
    EXPECT_EQ(rows[0].text.toStdString(), "out 0:\n-2: z\n+2: y\n");

    const auto differs = [](const char* expectation) {
        const QString rest = QLatin1String(expectation);
        const Case run = oneCase(QLatin1String("== a\n-- element\nSelectColumns columns=a\n"
                                               "-- in 0\na:U:A1,b:K\nx,1\n") +
                                 rest);
        return !checkCase(run, testCatalog(), Circumstance::Plain).isEmpty();
    };
    EXPECT_FALSE(differs("-- out 0\na:U:A1\nx\n-- parallel yes\n"));
    EXPECT_TRUE(differs("-- out 0\na:U\nx\n"));
    EXPECT_TRUE(differs("-- out 0\na:U:A1\n\"x \"\n"));
    EXPECT_TRUE(differs("-- out 0 nothing\n"));
    EXPECT_TRUE(differs("-- out 0\na:U:A1\nx\n-- log\n[2] Warning\n"));
    EXPECT_TRUE(differs("-- fails\n"));
    EXPECT_TRUE(differs("-- out 0\na:U:A1\nx\n-- parallel no\n"));
    EXPECT_TRUE(differs("-- saved\n<SelectColumns version='4.16' keep='0'>\n"));
}

TEST(CaseCheck, PointersThatAreKeptTooLongShowAtOddAddresses) {
    ActionCatalog catalog;
    catalog.add(std::make_unique<KeepsPointers>(nullptr));
    const Case run = oneCase(QStringLiteral("== a\n-- element\n<KeepsPointers/>\n-- in 0\n"
                                            "a:U,b:K\nx,1\ny,2\nz,3\n-- out 0\na:U,b:K\n"
                                            "x,1\ny,2\nz,3\n"));
    EXPECT_FALSE(checkCase(run, catalog, Circumstance::OddAddresses).isEmpty());
}

TEST(CaseCheck, WrittenExpectationsAreThoseOfTheRun) {
    CaseFile file =
        parseCaseFile("=== g\n-- in 0\na:U,b:K\nx,1\n\n== one\nSelectColumns columns=b,no\n"
                      "    a:U\nSelectColumns columns=b\n    nothing\n\n== two\n-- element\n"
                      "SelectColumns columns=b\n-- out 0\na:U\n-- fails\n-- saved\n",
                      "x.case");
    EXPECT_EQ(file.error.toStdString(), "");
    for (const Case& each : file.cases)
        writeExpectations(file, each, testCatalog());
    EXPECT_EQ(caseFileText(file).toStdString(),
              "=== g\n-- in 0 = a:U,b:K | x,1\n\n== one\nSelectColumns columns=b,no\n"
              "    [1] An error occurred while initializing the Action 'SelectColumns':\n"
              "    The column 'no' is missing on input pin 0.\nSelectColumns columns=b\n"
              "    b:K | 1\n\n== two\n-- element\nSelectColumns columns=b\n-- out 0 = b:K | 1\n"
              "-- saved\n<SelectColumns version='4.16' keep='1'>\n<s>b</s>\n</SelectColumns>\n");
    const CaseFile again = parseCaseFile(caseFileText(file), "x.case");
    ASSERT_EQ(again.cases.size(), 3);
    for (const Case& each : again.cases)
        EXPECT_TRUE(checkCase(each, testCatalog(), Circumstance::Plain).isEmpty()) << each.line;
}

} // namespace

} // namespace velmorra::harness
