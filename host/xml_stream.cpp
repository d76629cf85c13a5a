/// The 16-bit stream's own output of texts and numbers, and the escaping of texts.
#include "host/xml_stream.h"

#include "host/number_text.h"
#include "host/xml_scan.h"

#include <charconv>
#include <cstring>
#include <string_view>

namespace {

XMLStream& writeAscii(XMLStream& stream, std::string_view text) {
    for (const char c : text)
        stream.put(static_cast<char16_t>(static_cast<unsigned char>(c)));
    return stream;
}

XMLStream& writeWhole(XMLStream& stream, qint64 number) {
    char digits[24];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, number);
    return writeAscii(stream, {digits, static_cast<size_t>(result.ptr - digits)});
}

} // namespace

XMLStream& operator<<(XMLStream& stream, const char16_t* text) {
    stream.write(text, static_cast<std::streamsize>(std::u16string_view(text).size()));
    return stream;
}

XMLStream& operator<<(XMLStream& stream, const QString& text) {
    for (const QChar character : text)
        stream.put(character.unicode());
    return stream;
}

XMLStream& operator<<(XMLStream& stream, const char* text) {
    return writeAscii(stream, text);
}

XMLStream& operator<<(XMLStream& stream, char character) {
    return writeAscii(stream, {&character, 1});
}

XMLStream& operator<<(XMLStream& stream, int number) {
    return writeWhole(stream, number);
}

XMLStream& operator<<(XMLStream& stream, qint64 number) {
    return writeWhole(stream, number);
}

XMLStream& operator<<(XMLStream& stream, double number) {
    char digits[numberTextRoom];
    const int length = formatFloat(number, digits);
    return writeAscii(stream, {digits, static_cast<size_t>(length)});
}

const char16_t* ToXMLStringTool::toXML(const QString& text) {
    refused_ = QString();
    buffer_.clear();
    buffer_.reserve(static_cast<size_t>(text.size()));
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar unit = text[i];
        const bool isPair =
            unit.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        escape(isPair ? QChar::surrogateToUcs4(unit, text[i + 1]) : char32_t{unit.unicode()});
        i += isPair ? 1 : 0;
    }
    return buffer_.c_str();
}

void ToXMLStringTool::escape(char32_t character) {
    switch (character) {
    case U'&':
        buffer_ += u"&amp;";
        return;
    case U'<':
        buffer_ += u"&lt;";
        return;
    case U'>':
        buffer_ += u"&gt;";
        return;
    case U'\'':
        buffer_ += u"&apos;";
        return;
    case U'"':
        buffer_ += u"&quot;";
        return;
    case U'\t':
        buffer_ += u"&#9;";
        return;
    case U'\n':
        buffer_ += u"&#10;";
        return;
    case U'\r':
        buffer_ += u"&#13;";
        return;
    default:
        break;
    }
    if (!isXMLCharacter(character)) {
        if (refused_.isNull())
            refused_ = characterName(character);
        character = QChar::ReplacementCharacter;
    }
    if (QChar::requiresSurrogates(character)) {
        buffer_ += QChar::highSurrogate(character);
        buffer_ += QChar::lowSurrogate(character);
    } else {
        buffer_ += static_cast<char16_t>(character);
    }
}

void ToXMLStringTool::freeBuffer() {
    buffer_ = std::u16string();
}

ToXMLStringTool& toXMLStringTool() {
    static thread_local ToXMLStringTool tool;
    return tool;
}

void writeEscaped(XMLStream& stream, const QString& text) {
    if (stream.fail())
        return;
    ToXMLStringTool& tool = toXMLStringTool();
    const char16_t* escaped = tool.toXML(text);
    if (tool.refused().isNull())
        stream << escaped;
    else
        stream.setstate(std::ios_base::failbit);
}

void writeAttribute(XMLStream& stream, const QString& name, const QString& text) {
    stream << ' ' << name << "='";
    writeEscaped(stream, text);
    stream << '\'';
}

void toXML(const QVector<QString>& list, XMLStream& stream) {
    for (const QString& entry : list) {
        if (entry.isNull()) {
            stream << "<s null='1'/>\n";
            continue;
        }
        stream << "<s>";
        writeEscaped(stream, entry);
        stream << "</s>\n";
    }
}
