/// The 16-bit stream's own operators, escaping, and characters that XML can't hold.
#include "host/xml_stream.h"

#include "host/xml_node.h"

#include <gtest/gtest.h>

namespace {

QString written(const XMLStream& stream) {
    return QString::fromStdU16String(stream.str());
}

QString escaped(const QString& text) {
    return QString::fromUtf16(toXMLStringTool().toXML(text));
}

} // namespace

TEST(XMLStream, TakesTextsAndNumbersOfEveryKind) {
    XMLStream stream;
    stream << "a" << 'b' << u"\u00E9" << QString("d") << ' ' << -12 << ' ' << 0 << ' '
           << qint64{-9223372036854775807} << ' ' << 2.14 << ' ' << 100000.0;
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(written(stream), QString::fromUtf8("ab\u00E9d -12 0 -9223372036854775807 2.14 "
                                                 "100000"));
}

TEST(ToXMLStringTool, EscapesSoThatXMLReadsTheSame) {
    EXPECT_EQ(escaped("<a b='\"&\t\n\r"), "&lt;a b=&apos;&quot;&amp;&#9;&#10;&#13;");
    EXPECT_EQ(escaped(QString()), "");
    QString everything;
    for (char32_t character = 1; character < 0x11000; ++character) {
        const bool inXML =
            character >= 0x20
                ? !QChar::isSurrogate(character) && character != 0xFFFE && character != 0xFFFF
                : character == '\t' || character == '\n' || character == '\r';
        if (inXML)
            everything += QString::fromUcs4(&character, 1);
    }
    XMLStream stream;
    stream << "<a";
    writeAttribute(stream, "t", everything);
    stream << '>';
    writeEscaped(stream, everything);
    stream << "</a>";
    ASSERT_TRUE(stream.good());
    const XMLNode::Parsed parsed = XMLNode::parse(written(stream).toUtf8());
    ASSERT_TRUE(parsed.error.isEmpty()) << parsed.error.toStdString();
    EXPECT_EQ(QString::fromUtf8(parsed.root.getAttribute("t", nullptr)), everything);
    EXPECT_EQ(QString::fromUtf8(parsed.root.getText()), everything);
}

TEST(ToXMLStringTool, NamesTheFirstCharacterThatXMLCannotHold) {
    EXPECT_EQ(escaped(QString("a") + QChar(1) + QChar(2)), QString("a\uFFFD\uFFFD"));
    EXPECT_EQ(toXMLStringTool().refused(), "U+0001");
    EXPECT_EQ(escaped("a"), "a");
    EXPECT_TRUE(toXMLStringTool().refused().isNull());

    const std::pair<QString, const char*> refused[] = {
        {QString(QChar(0)), "U+0000"},
        {QString(QChar(0xD83D)), "U+D83D"},
        {QString(QChar(0xDE00)) + QChar(0xD83D), "U+DE00"},
        {QString(QChar(0xFFFE)), "U+FFFE"},
        {QString("x") + QChar(0xFFFF), "U+FFFF"}};
    for (const auto& [text, name] : refused) {
        escaped(text);
        EXPECT_EQ(toXMLStringTool().refused(), name);
    }
}

TEST(ToXMLStringTool, AStreamFailsAtATextThatXMLCannotHold) {
    XMLStream stream;
    writeAttribute(stream, "good", "x");
    EXPECT_TRUE(stream.good());
    writeAttribute(stream, "bad", QString(QChar(7)));
    writeAttribute(stream, "later", "y");
    toXMLStringTool().freeBuffer();
    EXPECT_TRUE(stream.fail());
    EXPECT_EQ(toXMLStringTool().refused(), "U+0007");

    XMLStream another;
    toXML({"a", QString(QChar(0x1F))}, another);
    EXPECT_TRUE(another.fail());
    EXPECT_EQ(toXMLStringTool().refused(), "U+001F");
}

TEST(ToXML, ListsReadBackWithNullAndEmptyApart) {
    const QVector<QString> list = {"a&b", "  ", QString(""), QString(), "\n"};
    XMLStream stream;
    toXML(list, stream);
    EXPECT_EQ(written(stream), "<s>a&amp;b</s>\n<s>  </s>\n<s></s>\n<s null='1'/>\n<s>&#10;</s>\n");
    const XMLNode::Parsed parsed = XMLNode::parse("<l>" + written(stream).toUtf8() + "</l>");
    const QVector<QString> read = fromXMLSV(parsed.root);
    ASSERT_EQ(read, list);
    for (qsizetype i = 0; i < list.size(); ++i)
        EXPECT_EQ(read[i].isNull(), list[i].isNull()) << i;
}
