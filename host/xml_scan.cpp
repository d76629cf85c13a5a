#include "host/xml_scan.h"

#include "host/xml_node.h"

#include <QtCore/QXmlStreamReader>

namespace {

/// What the current token breaks of the bounds; a null string when nothing.
QString brokenBound(const QXmlStreamReader& reader, int depth, qint64 nodes) {
    const QString encoding = reader.documentEncoding().toString();
    if (reader.isStartDocument() && !encoding.isEmpty() &&
        encoding.compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) != 0)
        return QLatin1String("the encoding must be UTF-8, not '") + encoding + QLatin1Char('\'');
    if (reader.isDTD())
        return QStringLiteral("a DOCTYPE is not allowed");
    if (depth > XMLNode::maxDepth)
        return QStringLiteral("the elements are nested more than %1 deep")
            .arg(int{XMLNode::maxDepth});
    if (reader.isStartElement() && reader.attributes().size() > XMLNode::maxAttributes)
        return QStringLiteral("an element has more than %1 attributes")
            .arg(int{XMLNode::maxAttributes});
    if (nodes > XMLNode::maxNodes)
        return QStringLiteral("there are more than %1 elements and attributes")
            .arg(int{XMLNode::maxNodes});
    return {};
}

/// The reader's words for the two mistakes that people make by hand don't say what to do.
QString errorText(const QXmlStreamReader& reader) {
    const QString text = reader.errorString().trimmed();
    const bool reference = text.contains(QLatin1String("Entity"), Qt::CaseInsensitive) ||
                           text.contains(QLatin1String("reference"), Qt::CaseInsensitive);
    return reference ? text + QLatin1String(" (a '&' in a text must be written &amp;)") : text;
}

} // namespace

XMLFault findXMLFault(const QByteArray& text) {
    if (text.size() > XMLNode::maxBytes)
        return {QStringLiteral("the text is larger than %1 MiB").arg(XMLNode::maxBytes >> 20)};
    // Qt's reader would decode UTF-16, which the tree's parser is not asked to.
    if (text.startsWith("\xFF\xFE") || text.startsWith("\xFE\xFF") || text.contains('\0'))
        return {QStringLiteral("the text is not UTF-8")};
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(false);
    int depth = 0;
    qint64 nodes = 0;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            ++depth;
            nodes += 1 + reader.attributes().size();
        } else if (reader.isEndElement()) {
            --depth;
        }
        nodes += reader.isCDATA() ? 1 : 0;
        const QString broken = brokenBound(reader, depth, nodes);
        if (!broken.isNull())
            return {broken, static_cast<int>(reader.lineNumber()),
                    static_cast<int>(reader.columnNumber()) + 1};
    }
    if (reader.hasError())
        return {errorText(reader), static_cast<int>(reader.lineNumber()),
                static_cast<int>(reader.columnNumber()) + 1};
    return {};
}

bool isXMLCharacter(char32_t character) {
    return character == '\t' || character == '\n' || character == '\r' ||
           (character >= 0x20 && character <= 0xD7FF) ||
           (character >= 0xE000 && character <= 0xFFFD) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}

QString characterName(char32_t character) {
    return QStringLiteral("U+%1").arg(
        QString::number(static_cast<uint>(character), 16).toUpper().rightJustified(4, u'0'));
}
