// Parameters in texts and file names.
#include "host/global_parameters.h"

#include <gtest/gtest.h>

namespace {

GlobalParameters sample() {
    GlobalParameters parameters;
    parameters.set("a", "1");
    parameters.set("long name", "x y");
    parameters.set("self", "${self}${a}");
    parameters.set("nothing", QString());
    parameters.set("dir", ":/data");
    return parameters;
}

std::string expanded(const QString& text) {
    return sample().expandString(text).toStdString();
}

TEST(GlobalParameters, KnownParametersAreReplaced) {
    EXPECT_EQ(expanded("%1 <${a}${long name}>${nothing}|"), "%1 <1x y>|");
}

TEST(GlobalParameters, TheRestStandsAsItIs) {
    for (const char* text : {"", "a", "$a", "{a}", "${}", "${A}", "${ a}", "${b}", "${", "${a", "$",
                             "}", "$${", "$ {a}"})
        EXPECT_EQ(expanded(text), text);
    EXPECT_EQ(expanded("$${a}}"), "$1}");
    EXPECT_EQ(expanded("${b${a}}"), "${b1}");
    EXPECT_EQ(expanded("${b}${a}${c"), "${b}1${c");
}

TEST(GlobalParameters, ReplacedTextIsNotSearchedAgain) {
    EXPECT_EQ(expanded("${self}"), "${self}${a}");
    GlobalParameters parameters;
    parameters.set("open", "${");
    parameters.set("a", "1");
    EXPECT_EQ(parameters.expandString("${open}a}"), "${a}");
}

TEST(GlobalParameters, OnlyANullTextExpandsToNull) {
    EXPECT_TRUE(sample().expandString(QString()).isNull());
    EXPECT_FALSE(sample().expandString("").isNull());
    EXPECT_FALSE(sample().expandString("${nothing}").isNull());
}

TEST(GlobalParameters, LastValueCountsAndOrderIsThatOfTheFirst) {
    GlobalParameters parameters = sample();
    parameters.set("a", "2");
    EXPECT_EQ(parameters.expandString("${a}"), "2");
    EXPECT_EQ(parameters.parameters().front().first, "a");
    EXPECT_EQ(parameters.parameters().size(), 5);
    EXPECT_EQ(parameters.find(u"missing"), nullptr);
}

TEST(GlobalParameters, HostileTextsTakeOnePass) {
    constexpr int openings = 500'000;
    const QString hostile = QString("${").repeated(openings);
    const GlobalParameters parameters = sample();
    EXPECT_EQ(parameters.expandString(hostile), hostile);
    EXPECT_EQ(parameters.expandString(hostile + '}'), hostile + '}');
    EXPECT_EQ(parameters.expandString(hostile + "a}"), hostile.chopped(2) + '1');
    EXPECT_EQ(parameters.expandString(QString("${a}").repeated(openings)), QString(openings, '1'));
    const QString closings(2 * openings, '}');
    EXPECT_EQ(parameters.expandString(closings), closings);
    const QString unknown = QString("${no}").repeated(openings);
    EXPECT_EQ(parameters.expandString(unknown), unknown);
}

TEST(GlobalParameters, LeadingColonSlashIsTheGraphsFolder) {
    GlobalParameters parameters = sample();
    EXPECT_EQ(parameters.expandFile(":/in.csv"), "in.csv");
    parameters.setGraphFolder("/graphs/one");
    EXPECT_EQ(parameters.expandFile(":/in.csv"), "/graphs/one/in.csv");
    EXPECT_EQ(parameters.expandFile("${dir}/${a}.csv"), "/graphs/one/data/1.csv");
    EXPECT_EQ(parameters.expandFile("in:/x"), "in:/x");
    EXPECT_EQ(parameters.expandFile("/other/${a}"), "/other/1");
    EXPECT_TRUE(parameters.expandFile(QString()).isNull());
}

TEST(GlobalParameters, ContractingReversesTheFolderRule) {
    GlobalParameters parameters;
    EXPECT_EQ(parameters.contractFile("/graphs/one/in.csv"), "/graphs/one/in.csv");
    for (const char* folder : {"/graphs/one", "/graphs/one/", "/graphs/two/../one"}) {
        parameters.setGraphFolder(folder);
        EXPECT_EQ(parameters.contractFile("/graphs/one/in.csv"), ":/in.csv");
        EXPECT_EQ(parameters.contractFile("/graphs/one/sub/in.csv"), ":/sub/in.csv");
        for (const char* other : {"/graphs/one2/in.csv", "/graphs/in.csv", "in.csv", ":/in.csv", "",
                                  "/graphs/one/../in.csv", "/graphs/one"})
            EXPECT_EQ(parameters.contractFile(other), other);
    }
    parameters.setGraphFolder("/");
    EXPECT_EQ(parameters.contractFile("/in.csv"), ":/in.csv");
    EXPECT_EQ(parameters.expandFile(":/in.csv"), "/in.csv");
}

TEST(GlobalParameters, ACopyHasARunOfItsOwn) {
    GlobalParameters parameters = sample();
    parameters.setGraphFolder("/graphs");
    parameters.runStatus.endAs(RunStatus::Failed);
    parameters.runStatus.endAs(RunStatus::Cancelled);
    EXPECT_EQ(parameters.runStatus, RunStatus::Failed); // the first end counts
    const GlobalParameters copy(parameters);
    EXPECT_EQ(copy.runStatus, RunStatus::Running);
    EXPECT_EQ(copy.graphFolder(), "/graphs");
    EXPECT_EQ(copy.expandString("${a}"), "1");
}

} // namespace
