// Words of elements: what the short form makes, and what is said of words that make nothing.
#include "engine/element_text.h"

#include "tests/plain_box.h"

#include <gtest/gtest.h>

using velmorra::ElementList;
using Kind = velmorra::ElementProblem::Kind;

namespace {

class Pick : public velmorra::test::PlainBox {
public:
    Pick(const XMLNode& element, GlobalParameters* parameters) : PlainBox(element, parameters) {}
    const char* actionName() const override { return "Pick"; }
    QStringList getAlternativeNames() const override { return {QStringLiteral("Choose")}; }
    const StoredElement& storedElement() const override {
        static const StoredElement element =
            StoredElement(1)
                .boolean<&Pick::keep>("keep", true, Written::Always, "")
                .text<&Pick::note>("note", "", Written::WhenNotDefault, "")
                .list<&Pick::columns>("columns", "");
        return element;
    }
    ActionItem* newFromXML(XMLNode node, GlobalParameters* parameters) const override {
        return new Pick(node, parameters);
    }

    bool keep = true;
    QString note;
    QVector<QString> columns;
};

class Change : public velmorra::test::PlainBox {
public:
    Change(const XMLNode& element, GlobalParameters* parameters) : PlainBox(element, parameters) {}
    const char* actionName() const override { return "Change"; }
    const StoredElement& storedElement() const override {
        static const StoredElement element =
            StoredElement(1)
                .childList<&Change::before>("before", "")
                .child("Quick", StoredElement(1)
                                    .text<&Change::prefix>("prefix", "", Written::Always, "")
                                    .list<&Change::quick>("columns", ""));
        return element;
    }
    ActionItem* newFromXML(XMLNode node, GlobalParameters* parameters) const override {
        return new Change(node, parameters);
    }

    QVector<QString> before;
    QString prefix;
    QVector<QString> quick;
};

ElementList parse(const QStringList& words) {
    static const auto catalog = [] {
        auto made = std::make_unique<velmorra::ActionCatalog>();
        made->add(std::make_unique<Pick>(XMLNode::emptyNode(), nullptr));
        made->add(std::make_unique<Change>(XMLNode::emptyNode(), nullptr));
        return made;
    }();
    return velmorra::parseElements(words, *catalog);
}

/// The elements as XML, without line feeds; problems stand where an element would.
std::string made(const QStringList& words) {
    const ElementList list = parse(words);
    QString text;
    for (const XMLNode& element : list.elements)
        text += element.toText();
    for (const velmorra::ElementProblem& problem : list.problems)
        text += QLatin1Char('!') + problem.text;
    return text.remove(u'\n').toStdString();
}

struct Problem {
    Kind kind;
    std::string text;
};
Problem onlyProblem(const QStringList& words) {
    const ElementList list = parse(words);
    if (list.problems.size() != 1)
        return {Kind::Words, "problems: " + made(words)};
    return {list.problems.front().kind, list.problems.front().text.toStdString()};
}

TEST(ElementText, wordsAndAWholeMakeTheSameElement) {
    const std::string expected = made({R"(<Pick keep="0" note="x"><s>a</s><s>b</s></Pick>)"});
    EXPECT_EQ(expected.find('!'), std::string::npos) << expected;
    EXPECT_EQ(made({"Pick", "keep=0", "note=x", "columns=a,b"}), expected);
    EXPECT_EQ(made({"Pick keep=0  note=x\n\tcolumns=a,b "}), expected);
    EXPECT_EQ(made({"Pick keep=0", "note=x", "list=a,b"}), expected);
    EXPECT_EQ(made({"choose", "KEEP=0", "Note=x", "COLUMNS=a,b"}), expected)
        << "names are found in any case, and by an alternative name";
}

TEST(ElementText, namesXmlAndWholesBeginElements) {
    const ElementList list =
        parse({"Pick keep=0 Change before=a", "<Pick keep='1'/>", "Pick", "note=last"});
    ASSERT_TRUE(list.problems.isEmpty());
    ASSERT_EQ(list.elements.size(), 4);
    EXPECT_STREQ(list.elements[1].name(), "Change");
    EXPECT_STREQ(list.elements[2].getAttribute("keep", nullptr), "1");
    EXPECT_STREQ(list.elements[3].getAttribute("note", nullptr), "last");
}

TEST(ElementText, quotesGroupInAWholeOnly) {
    const auto note = [](const QStringList& words) {
        const ElementList list = parse(words);
        const char* text =
            list.elements.isEmpty() ? nullptr : list.elements[0].getAttribute("note", nullptr);
        return std::string(text == nullptr ? "nothing" : text);
    };
    EXPECT_EQ(note({R"(Pick note="a b" keep=1)"}), "a b");
    EXPECT_EQ(note({"Pick note='a b' keep=1"}), "a b");
    EXPECT_EQ(note({R"(Pick note="say ""a b""")"}), R"(say "a b")");
    EXPECT_EQ(note({"Pick note='it''s'"}), "it's");
    EXPECT_EQ(note({"Pick note=it's keep=1"}), "it's") << "a quote opens only at the start";
    EXPECT_EQ(note({R"(Pick note="a","b")"}), R"("a","b")") << "no quotes around all of it";
    EXPECT_EQ(note({"Pick note="}), "");
    EXPECT_EQ(note({"Pick", R"(note="a b")"}), R"("a b")") << "as it stands";
    EXPECT_EQ(note({"Pick", "note=a=b c"}), "a=b c");
    EXPECT_EQ(note({"Pick", "note= a "}), " a ");
    EXPECT_EQ(note({"Pick", "note=<&'\">%1"}), "<&'\">%1");
}

TEST(ElementText, listsHaveCsvQuoting) {
    const auto entries = [](const QString& word) {
        const ElementList list = parse({QStringLiteral("Pick"), word});
        if (!list.problems.isEmpty())
            return QStringList{list.problems[0].text};
        QStringList texts;
        for (const QString& entry : fromXMLSV(list.elements[0]))
            texts += entry.isNull() ? QStringLiteral("null") : QLatin1Char('[') + entry + ']';
        return texts;
    };
    EXPECT_EQ(entries("columns=a,b"), QStringList({"[a]", "[b]"}));
    EXPECT_EQ(entries("columns=\"a,b\",\"say \"\"c\"\"\""), QStringList({"[a,b]", "[say \"c\"]"}));
    EXPECT_EQ(entries("columns= a , b"), QStringList({"[ a ]", "[ b]"}));
    EXPECT_EQ(entries("columns=a,,\"\""), QStringList({"[a]", "null", "[]"}));
    EXPECT_EQ(entries("columns=,"), QStringList({"null", "null"}));
    EXPECT_EQ(entries("columns="), QStringList());
    EXPECT_TRUE(entries("columns=\"a")[0].contains("not closed"));
    EXPECT_TRUE(entries("columns=\"a\"b")[0].contains("behind a closing quote"));

    const ElementList whole = parse({R"(Pick columns="a b",c,"d ,e" keep=0)"});
    ASSERT_TRUE(whole.problems.isEmpty());
    EXPECT_EQ(fromXMLSL(whole.elements[0]), QStringList({"a b", "c", "d ,e"}));
    EXPECT_STREQ(whole.elements[0].getAttribute("keep", nullptr), "0");
}

TEST(ElementText, listsOfChildrenAreGivenByTheChildsName) {
    EXPECT_EQ(made({"Change before=a,b quick=c"}),
              made({"<Change><before><s>a</s><s>b</s></before><Quick><s>c</s></Quick></Change>"}));
    const Problem problem = onlyProblem({"Change prefix=x"});
    EXPECT_EQ(problem.kind, Kind::Setting);
    EXPECT_EQ(problem.text, "element 1 (Change): 'prefix' belongs to the child element 'Quick': "
                            "give this element as XML to set it");
}

TEST(ElementText, settingsThatAreUnknownTwiceOrOfTheWrongKindAreTold) {
    const Problem unknown = onlyProblem({"Pick", "Pick", "colums=a"});
    EXPECT_EQ(unknown.kind, Kind::Setting);
    EXPECT_EQ(unknown.text,
              "element 2 (Pick): unknown attribute 'colums'; did you mean 'columns'?");
    EXPECT_EQ(onlyProblem({"<Pick kep='1'/>"}).text,
              "element 1 (Pick): unknown attribute 'kep'; did you mean 'keep'?");
    EXPECT_EQ(onlyProblem({"Pick note=a NOTE=b"}).text, "element 1 (Pick): 'note' is given twice");
    EXPECT_EQ(onlyProblem({"Pick columns=a list=b"}).text,
              "element 1 (Pick): 'columns' is given twice");
    EXPECT_EQ(onlyProblem({"Pick keep=maybe"}).kind, Kind::Setting);
    EXPECT_EQ(made({"Pick label=mine id=7"}).find('!'), std::string::npos)
        << "what a graph stores with every box is known";
}

TEST(ElementText, whatMakesNoElementIsRefused) {
    const Problem action = onlyProblem({"Pikc keep=1"});
    EXPECT_EQ(action.kind, Kind::Element);
    EXPECT_EQ(action.text, "unknown Action 'Pikc'; did you mean 'Pick'?");
    EXPECT_EQ(onlyProblem({"<Pikc/>"}).kind, Kind::Element);
    EXPECT_EQ(onlyProblem({"<Pick keep='1'"}).kind, Kind::Element);
    EXPECT_EQ(onlyProblem({"<Pick/><Pick/>"}).kind, Kind::Element);
    const Problem control = onlyProblem({"Pick", QStringLiteral("note=a") + QChar(1)});
    EXPECT_EQ(control.kind, Kind::Element);
    EXPECT_NE(control.text.find("U+0001"), std::string::npos);
    EXPECT_EQ(made({"Pick", QStringLiteral("columns=a") + QChar(1), "Change before=a"})
                  .find("<Change><before><s>a</s></before></Change>"),
              0U)
        << "a refused element doesn't spoil the next one";

    for (const QStringList& words :
         {QStringList{"keep=1"}, QStringList{"<Pick/>", "keep=1"}, QStringList{"Pick", "=1"},
          QStringList{"Pick note='a b"}, QStringList{"people.csv"}, QStringList{""}})
        EXPECT_EQ(onlyProblem(words).kind, Kind::Words) << onlyProblem(words).text;
}

} // namespace
