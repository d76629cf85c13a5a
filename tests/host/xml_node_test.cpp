/// Parsing of XML: what a tree keeps, what is refused and where, and the converters.
#include "host/xml_node.h"

#include <gtest/gtest.h>

namespace {

XMLNode parsed(const QByteArray& text) {
    const XMLNode::Parsed result = XMLNode::parse(text);
    EXPECT_TRUE(result.error.isEmpty()) << result.error.toStdString();
    return result.root;
}

std::string attribute(const XMLNode& node, const char* name) {
    const char* text = node.getAttribute(name, nullptr);
    return text == nullptr ? "(none)" : text;
}

/// "line:column message" of a refused text.
std::string refusal(const QByteArray& text) {
    const XMLNode::Parsed result = XMLNode::parse(text);
    EXPECT_EQ(result.root.isNull(), !result.error.isEmpty());
    return result.root.isNull()
               ? std::to_string(result.line) + ':' + std::to_string(result.column) + ' ' +
                     result.error.toStdString()
               : "accepted";
}

} // namespace

TEST(XMLNode, FindsNamesExactlyFirstThenWithoutCase) {
    const XMLNode root = parsed("<a NAME='1' Name='2' x='3'><B n='1'/>t<b n='2'/><b n='3'/></a>");
    EXPECT_EQ(attribute(root, "Name"), "2");
    EXPECT_EQ(attribute(root, "name"), "1");
    EXPECT_EQ(attribute(root, "nam"), "(none)");
    EXPECT_EQ(root.nAttribute(), 3);
    EXPECT_STREQ(root.attributeName(2), "x");
    EXPECT_STREQ(root.attributeText(2), "3");

    EXPECT_EQ(root.nChildNode(), 3);
    EXPECT_EQ(attribute(root.getChildNode(1), "n"), "2");
    EXPECT_TRUE(root.getChildNode(3).isNull());
    EXPECT_TRUE(root.getChildNode(-1).isNull());
    EXPECT_EQ(attribute(root.getChildNode("b", nullptr), "n"), "2");
    int position = 0;
    std::string found;
    for (XMLNode b = root.getChildNode("b", &position); !b.isNull();
         b = root.getChildNode("b", &position))
        found += attribute(b, "n");
    EXPECT_EQ(found, "23");
    EXPECT_EQ(position, 3);
}

TEST(XMLNode, OutlivesTheHandleOfTheRoot) {
    XMLNode child;
    {
        const QByteArray text = "<a>\n<b c='kept'/></a>";
        child = parsed(text).getChildNode(0);
        EXPECT_EQ(child.offset(), 4);
    }
    EXPECT_EQ(attribute(child, "c"), "kept");
}

TEST(XMLNode, TheEmptyNodeHasNothing) {
    const XMLNode none = XMLNode::emptyNode();
    EXPECT_TRUE(none.isNull());
    EXPECT_STREQ(none.name(), "");
    EXPECT_EQ(none.getAttribute("a", nullptr), nullptr);
    EXPECT_EQ(none.getText(), nullptr);
    EXPECT_EQ(none.nChildNode() + none.nAttribute(), 0);
    EXPECT_TRUE(none.getChildNode("a", nullptr).isNull());
    EXPECT_EQ(none.offset(), -1);
    EXPECT_TRUE(none.toText().isEmpty());
}

TEST(XMLNode, KeepsTextsToTheLetter) {
    const XMLNode root = parsed("\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?><!-- c -->\n"
                                "<a t='x&#13;&#10;&#9;y' raw='1\t2'><s>  </s><s/>"
                                "<s>&#13;&#10;&#9;&amp;&lt;</s><s><![CDATA[<&amp;]]></s>"
                                "<s>caf\xC3\xA9 \xF0\x9F\x98\x80</s></a>\n<!-- end -->");
    EXPECT_EQ(attribute(root, "t"), "x\r\n\ty");
    EXPECT_EQ(attribute(root, "raw"), "1\t2");
    const QStringList entries = fromXMLSL(root);
    ASSERT_EQ(entries.size(), 5);
    EXPECT_EQ(entries[0], "  ");
    EXPECT_EQ(entries[1], "");
    EXPECT_FALSE(entries[1].isNull());
    EXPECT_EQ(entries[2], "\r\n\t&<");
    EXPECT_EQ(entries[3], "<&amp;");
    EXPECT_EQ(entries[4], QString::fromUtf8("caf\xC3\xA9 \xF0\x9F\x98\x80"));
}

TEST(XMLNode, ATextWrittenBackReadsTheSame) {
    const QByteArray text = "<a t='\"&apos;&amp;&#10;&#9;'> <b/>&#13;x<![CDATA[<]]>\n<c>y</c></a>";
    const XMLNode root = parsed(text);
    const std::string written = root.toText().toStdString();
    EXPECT_EQ(written.substr(0, 6), "<a t='");
    const XMLNode again = parsed(QByteArray::fromStdString(written));
    EXPECT_EQ(again.toText().toStdString(), written);
    EXPECT_EQ(attribute(again, "t"), "\"'&\n\t");
    EXPECT_STREQ(parsed("<s>a<!-- c -->b<?p?>&amp;<![CDATA[<]]><z/>d</s>").getText(), "ab&<");
    EXPECT_EQ(parsed("<s><![CDATA[<]]>&#13;]]&gt;</s>").toText(), "<s>&lt;&#13;]]&gt;</s>");
    EXPECT_EQ(again.getChildNode(1).toText(), "<c>y</c>");
}

TEST(XMLNode, ReadsListsWithNullAndEmptyApart) {
    const XMLNode root =
        parsed("<a><s>x</s><other>y<z/>w</other><s null='1'/><s></s><s null='0'>n</s></a>");
    const QStringList list = fromXMLSL(root);
    EXPECT_EQ(list, QStringList({"x", "y", "", "", "n"}));
    EXPECT_TRUE(list[2].isNull());
    EXPECT_FALSE(list[3].isNull());
    EXPECT_EQ(fromXMLSV(root), list);
    EXPECT_TRUE(fromXMLSL(XMLNode()).isEmpty());

    EXPECT_TRUE(fromXMLS(XMLNode()).isNull());
    EXPECT_TRUE(fromXMLS(parsed("<d null='1'/>")).isNull());
    EXPECT_FALSE(fromXMLS(parsed("<d/>")).isNull());
    EXPECT_EQ(fromXMLS(parsed("<d> z</d>")), " z");
}

TEST(XMLNode, RefusesWhatWouldBeLostAndSaysWhere) {
    EXPECT_EQ(refusal("<a/>\n<b/>").substr(0, 2), "2:");
    EXPECT_EQ(refusal("<a>\n <b>\n</a>"), "3:5 Opening and ending tag mismatch.");
    EXPECT_EQ(refusal("<a>\n <b ~c='1'/></a>"), "2:5 Error parsing start element tag");
    EXPECT_EQ(refusal("<a x='1' y='2' x='3'/>"), "1:23 Attribute 'x' redefined.");
    for (const char* text :
         {"", "  \n<!-- c -->", "<a/> x", "no XML\n", "<a/><![CDATA[x]]>", "<a/></a>",
          "<a x='1'y='2'/>", "<a x/>", "<a x=1/>", "<a x='1<2'/>", "<a>1 < 2</a>"})
        EXPECT_NE(refusal(text), "accepted") << text;
}

TEST(XMLNode, RefusesReferencesThatStandForNothing) {
    for (const char* reference :
         {"&", "& ", "&file;", "&#0;", "&#x0;", "&#1;", "&#xD800;", "&#xFFFF;", "&#x110000;",
          "&#4294967361;", "&#;", "&#x;", "&#-1;", "&#65 ;"}) {
        EXPECT_NE(refusal(QByteArray("<a>x") + reference + "</a>"), "accepted") << reference;
        EXPECT_NE(refusal(QByteArray("<a x='") + reference + "'/>"), "accepted") << reference;
    }
    EXPECT_NE(refusal("<a x='&file;'/>").find("must be written &amp;"), std::string::npos);
    EXPECT_STREQ(parsed("<a>&#x41;&#0066;&#x10FFFF;</a>").getText(), "AB\xF4\x8F\xBF\xBF");
}

TEST(XMLNode, RefusesBytesThatAreNoText) {
    EXPECT_EQ(refusal(QByteArray("<a>\0</a>", 8)), "1:1 the text is not UTF-8");
    EXPECT_EQ(refusal(QByteArray("\xFF\xFE<\0a\0/\0>\0", 10)), "1:1 the text is not UTF-8");
    for (const char* bytes :
         {"\x1B", "\xEF\xBF\xBF", "\x80", "\xE9", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80",
          "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80"}) {
        EXPECT_NE(refusal(QByteArray("<a>") + bytes + "</a>"), "accepted") << bytes;
        EXPECT_NE(refusal(QByteArray("<a x='") + bytes + "'/>"), "accepted") << bytes;
    }
}

TEST(XMLNode, RefusesDoctypesAndOtherEncodings) {
    EXPECT_NE(refusal("<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]>\n<a>&e;</a>")
                  .find("a DOCTYPE is not allowed"),
              std::string::npos);
    EXPECT_NE(refusal("<?xml version='1.0' encoding='ISO-8859-1'?><a/>")
                  .find("the encoding must be UTF-8, not 'ISO-8859-1'"),
              std::string::npos);
    EXPECT_EQ(refusal("<?xml version='1.0' encoding=\"UTF-8\"?><a/>"), "accepted");
}

TEST(XMLNode, RefusesATextCutOffAnywhere) {
    const QByteArray whole = "<?xml version='1.0'?><!-- c --><a b='1&amp;'>x<c d=\"2\"/>"
                             "<![CDATA[y]]><?p q?><e></e></a>";
    ASSERT_EQ(refusal(whole), "accepted");
    for (qsizetype length = 0; length < whole.size(); ++length)
        EXPECT_NE(refusal(whole.left(length)), "accepted") << length;
    EXPECT_EQ(refusal("<a>\n<b c='1'>x"), "2:11 Premature end of document.");
}

TEST(XMLNode, BoundsDepthAndSize) {
    const auto nested = [](int depth) {
        return QByteArray("<a>").repeated(depth) + QByteArray("</a>").repeated(depth);
    };
    const std::string tooDeep = "1:196 the elements are nested more than 64 deep";
    EXPECT_EQ(refusal(nested(XMLNode::maxDepth)), "accepted");
    EXPECT_EQ(refusal(nested(XMLNode::maxDepth + 1)), tooDeep);
    EXPECT_EQ(refusal(nested(1000000)), tooDeep);
    EXPECT_EQ(refusal(QByteArray("<a>").repeated(1000000)), tooDeep);

    QByteArray attributes = "<a";
    for (int i = 0; i <= XMLNode::maxAttributes; ++i)
        attributes += " a" + QByteArray::number(i) + "=''";
    EXPECT_NE(refusal(attributes + "/>").find("an element has more than 1024 attributes"),
              std::string::npos);
    EXPECT_NE(refusal("<a>" + QByteArray("<b/>").repeated(XMLNode::maxNodes) + "</a>")
                  .find("there are more than 4194304 elements"),
              std::string::npos);
    EXPECT_EQ(refusal(QByteArray(XMLNode::maxBytes + 1, ' ')),
              "1:1 the text is larger than 64 MiB");
}

TEST(XMLConverters, TakeTheDefaultForWhatIsNotOfTheKind) {
    EXPECT_EQ(xmltoi("12", 7), 12);
    EXPECT_EQ(xmltoi(" +12 ", 7), 12);
    EXPECT_EQ(xmltoi("-2147483648", 7), -2147483647 - 1);
    for (const char* text : {"", " ", "x", "12x", "1.5", "2147483648", "+-1", "1 2"})
        EXPECT_EQ(xmltoi(text, 7), 7) << text;
    EXPECT_EQ(xmltoi(nullptr, 7), 7);
    EXPECT_EQ(xmltol("-9000000000", 7), -9000000000);
    EXPECT_EQ(xmltol("9223372036854775808", 7), 7);

    EXPECT_EQ(xmltof("-1.5e3", 7), -1500);
    EXPECT_EQ(xmltof("inf", 7), std::numeric_limits<double>::infinity());
    EXPECT_EQ(xmltof("1,5", 7), 7);
    EXPECT_EQ(xmltof("", 7), 7);

    EXPECT_TRUE(xmltob("1", false) && xmltob("TRUE", false) && xmltob("true", false));
    EXPECT_FALSE(xmltob("0", true) || xmltob("False", true));
    EXPECT_TRUE(xmltob("yes", true) && xmltob("", true) && xmltob(nullptr, true));

    EXPECT_EQ(xmltoc("U", 'x'), QChar('U'));
    EXPECT_EQ(xmltoc("", 'x'), QChar('x'));
    EXPECT_EQ(xmltoc("UV", 'x'), QChar('x'));
    EXPECT_EQ(xmltoc("\xC3\xA9", 'x'), QChar(0xE9));

    EXPECT_EQ(xmltoa(nullptr, "d"), "d");
    EXPECT_TRUE(xmltoa(nullptr).isNull());
    EXPECT_FALSE(xmltoa("", "d").isNull());
    EXPECT_TRUE(xmltoa("", "d").isEmpty());
}
