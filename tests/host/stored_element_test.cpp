/// Stored elements by their declaration, and the check of a hand-written element. How lists and
/// records are laid out is told by the cases of the Actions that store them.
#include "host/stored_element.h"

#include "host/nearest_name.h"
#include "tests/plain_box.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

/// An Action with every kind of attribute and two levels of children.
class Everything : public velmorra::test::PlainBox {
public:
    Everything(const XMLNode& element, GlobalParameters* parameters)
        : PlainBox(element, parameters) {
        readStored(declaration());
    }

    static double versionOf(const Everything& action) { return action.flag ? 4.16 : 2.08; }

    static const StoredElement& declaration() {
        static const StoredElement element =
            StoredElement(2.08)
                .versionBy(&versionOf)
                .text<&Everything::always>("always", "", Written::Always, "")
                .text<&Everything::name>("outName", "sum", Written::WhenNotDefault, "")
                .integer<&Everything::number>("number", 3, Written::WhenNotDefault, "")
                .longInteger<&Everything::large>("large", 0, Written::WhenNotDefault, "")
                .number<&Everything::decay>("decay", 0.1, Written::WhenNotDefault, "")
                .boolean<&Everything::flag>("flag", true, Written::WhenNotDefault, "")
                .character<&Everything::letter>("letter", 'U', Written::WhenNotDefault, "")
                .integer<&Everything::older>("older", 5, Written::ReadOnly, "")
                .childList<&Everything::before>("before", "", {"\n", ""})
                .childList<&Everything::after>("after", "")
                .child("Quick",
                       StoredElement(0)
                           .text<&Everything::prefix>("prefix", "", Written::WhenNotDefault, "")
                           .list<&Everything::columns>("columns", ""));
        return element;
    }

    const char* actionName() const override { return "Everything"; }
    ActionItem* newFromXML(XMLNode element, GlobalParameters* parameters) const override {
        return new Everything(element, parameters);
    }
    const StoredElement& storedElement() const override { return declaration(); }

    QString always, name, prefix;
    int number = -1;
    int older = -1;
    qint64 large = -1;
    double decay = -1;
    bool flag = false;
    QChar letter;
    QStringList before, after, columns;
};

/// Records in a child element.
struct Recording {
    struct Record {
        QString name;
        QChar type;
    };
    static const StoredElement& declaration() {
        static const StoredElement element = StoredElement(2.08).child(
            "sets", StoredElement(0).records<&Recording::sets>(
                        "set", "",
                        StoredElement(0)
                            .text<&Record::name>("name", "none", Written::Always, "")
                            .character<&Record::type>("type", 'U', Written::WhenNotDefault, "")));
        return element;
    }
    std::vector<Record> sets;
};

XMLNode parsed(const QByteArray& text) {
    const XMLNode::Parsed result = XMLNode::parse(text);
    EXPECT_TRUE(result.error.isEmpty()) << result.error.toStdString();
    return result.root;
}

std::string saved(const ActionItem& action) {
    XMLStream stream;
    action.saveToXML(stream, QString());
    EXPECT_TRUE(stream.good());
    return QString::fromStdU16String(stream.str()).toStdString();
}

std::string loadedAndSaved(const QByteArray& text) {
    return saved(Everything(parsed(text), nullptr));
}

std::vector<std::string> problems(const StoredElement& declaration, const QByteArray& text) {
    std::vector<std::string> texts;
    for (const StoredProblem& problem : declaration.check(parsed(text), boxAttributes()))
        texts.push_back((problem.unknownName ? "unknown: " : "kind: ") +
                        problem.text.toStdString());
    return texts;
}

std::string nearest(const QString& name, const QStringList& known) {
    const QString found = nearestName(name, known);
    return found.isNull() ? "(none)" : found.toStdString();
}

} // namespace

TEST(StoredElement, MissingAttributesGetTheirDefaults) {
    EXPECT_EQ(saved(Everything(XMLNode::emptyNode(), nullptr)),
              "<Everything version='4.16' always=''>\n<before>\n</before><after>\n"
              "</after>\n<Quick>\n</Quick>\n</Everything>\n");
    const Everything action(XMLNode::emptyNode(), nullptr);
    EXPECT_EQ(action.name, "sum");
    EXPECT_EQ(action.decay, 0.1);
    EXPECT_EQ(action.older, 5);
}

TEST(StoredElement, WritesWhatDiffersInDeclaredOrder) {
    Everything action(XMLNode::emptyNode(), nullptr);
    action.always = "<'&\n";
    action.name = QString();
    action.number = -7;
    action.large = 9000000000;
    action.decay = 1e20;
    action.flag = false;
    action.letter = '\'';
    action.older = 6;
    action.before = QStringList{"a", QString()};
    action.after = QStringList{"b"};
    action.prefix = "x";
    action.columns = QStringList{"c"};
    const std::string text = saved(action);
    EXPECT_EQ(text, "<Everything version='2.08' always='&lt;&apos;&amp;&#10;' outName='' "
                    "number='-7' large='9000000000' decay='1e+20' flag='0' "
                    "letter='&apos;'>\n<before>\n<s>a</s>\n<s null='1'/>\n</before><after>\n"
                    "<s>b</s>\n</after>\n<Quick prefix='x'>\n<s>c</s>\n</Quick>\n</Everything>\n");
    const Everything again(parsed(QByteArray::fromStdString(text)), nullptr);
    EXPECT_EQ(again.letter, QChar('\''));
    EXPECT_EQ(again.decay, 1e20);
    EXPECT_TRUE(again.before[1].isNull());
    EXPECT_EQ(saved(again), text);
}

TEST(StoredElement, KeepsWhatNobodyDeclared) {
    const std::string text = loadedAndSaved("<Everything FLAG='0' more='&lt;' id='4'><extra a='1'>"
                                            " <b>t&amp;</b></extra><Quick/></Everything>");
    EXPECT_NE(text.find("<Everything id='4' version='2.08' always='' flag='0' more='&lt;'>"),
              std::string::npos);
    EXPECT_NE(text.find("</Quick>\n<extra a='1'> <b>t&amp;</b></extra>\n</Everything>"),
              std::string::npos);
    EXPECT_EQ(loadedAndSaved(QByteArray::fromStdString(text)), text);
}

TEST(StoredElement, ASettingThatXMLCannotHoldIsNeitherSavedNorCloned) {
    Everything action(XMLNode::emptyNode(), nullptr);
    action.columns = QStringList{QString(QChar(1))};
    XMLStream stream;
    action.saveToXML(stream, QString());
    EXPECT_TRUE(stream.fail());
    EXPECT_EQ(toXMLStringTool().refused(), "U+0001");
    EXPECT_EQ(std::unique_ptr<ActionItem>(action.clone(nullptr)), nullptr);
    action.columns.clear();
    EXPECT_NE(std::unique_ptr<ActionItem>(action.clone(nullptr)), nullptr);
}

TEST(StoredElementCheck, AcceptsDeclaredNamesInAnyCase) {
    EXPECT_TRUE(problems(Everything::declaration(),
                         "<Everything ALWAYS='x' id='1' Comment='c' number=' 4 ' flag='True' "
                         "decay='inf' large='9000000000' letter='x' older='1'>\n <BEFORE>\n"
                         "<any>x</any></BEFORE> <Quick prefix=''><s/></Quick>\n</Everything>")
                    .empty());
}

TEST(StoredElementCheck, NamesWhatIsUnknownWithTheNearestName) {
    const std::vector<std::string> expected = {
        "unknown: unknown attribute 'outNam'; did you mean 'outName'?",
        "unknown: unknown attribute 'zzz'",
        "unknown: unknown attribute 'lable'; did you mean 'label'?",
        "unknown: unexpected text 'stray'",
        "unknown: unknown child element 'befor'; did you mean 'before'?",
        "unknown: child element 'Quick' stands twice; only the first is read",
        "unknown: in 'Quick': unknown attribute 'prefx'; did you mean 'prefix'?",
    };
    EXPECT_EQ(problems(Everything::declaration(),
                       "<Everything outNam='' zzz='' lable=''>stray<befor/><Quick prefx=''/>"
                       "<Quick/></Everything>"),
              expected);
}

TEST(StoredElementCheck, LooksIntoEachRecord) {
    const std::vector<std::string> expected = {
        "kind: in 'sets': in 'set 1': attribute 'type' must be one character, not 'ab'",
        "unknown: in 'sets': in 'set 2': unknown attribute 'nam'; did you mean 'name'?",
    };
    EXPECT_EQ(problems(Recording::declaration(),
                       "<Recording><sets><set type='ab'/><any nam=''/></sets>"
                       "</Recording>"),
              expected);
}

TEST(StoredElementCheck, NamesValuesOfTheWrongKind) {
    const std::vector<std::string> expected = {
        "kind: attribute 'number' must be a whole number, not 'x'",
        "kind: attribute 'large' must be a whole number, not '1.5'",
        "kind: attribute 'decay' must be a number, not ''",
        "kind: attribute 'flag' must be 0 or 1, not 'no'",
        "kind: attribute 'letter' must be one character, not 'ab'",
        "kind: attribute 'older' must be a whole number of 32 bits, not '9000000000'",
    };
    EXPECT_EQ(problems(Everything::declaration(),
                       "<Everything number='x' large='1.5' decay='' flag='no' letter='ab' "
                       "older='9000000000'/>"),
              expected);
}

TEST(StoredElementCheck, TellsABoundedNumberOfProblems) {
    EXPECT_EQ(problems(Everything::declaration(),
                       "<Everything>" + QByteArray("<befor/>").repeated(300000) + "</Everything>")
                  .size(),
              size_t{StoredElement::mostProblems});
}

TEST(NearestName, IsOneThatCanBeMeant) {
    const QStringList known = {"Join", "JoinInput", "SelectColumns", "colAcc", "colPartition"};
    EXPECT_EQ(nearest("jion", known), "Join");
    EXPECT_EQ(nearest("colAc", known), "colAcc");
    EXPECT_EQ(nearest("COLPARTITON", known), "colPartition");
    EXPECT_EQ(nearest("Slect", known), "SelectColumns");
    EXPECT_EQ(nearest("JoinInptu", known), "JoinInput");
    EXPECT_EQ(nearest("Unrelated", known), "(none)");
    EXPECT_EQ(nearest("", known), "(none)");
    EXPECT_EQ(nearest("x", {"y", "id"}), "(none)");
    EXPECT_EQ(nearest("Joni", {}), "(none)");
    EXPECT_EQ(nearest(QString(10000000, 'j'), known), "(none)");
}
