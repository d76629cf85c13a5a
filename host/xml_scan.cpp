/// One pass over the bytes of an XML text: characters, then markup with a stack of open elements.
#include "host/xml_scan.h"

#include "host/xml_node.h"

#include <QtCore/QStringList>

#include <algorithm>
#include <charconv>
#include <vector>

namespace {

constexpr std::string_view blanks = " \t\r\n";

bool isBlank(char c) {
    return blanks.find(c) != std::string_view::npos;
}

bool isNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool isNamePart(char c) {
    return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

/// A piece of the text for a message: on one line and not too long.
QString quoted(std::string_view piece) {
    constexpr qsizetype longest = 40;
    const QString text =
        QString::fromUtf8(piece.substr(0, 4 * longest).data(),
                          static_cast<qsizetype>(std::min<size_t>(piece.size(), 4 * longest)))
            .simplified();
    return QLatin1Char('\'') +
           (text.size() > longest ? text.left(longest) + QStringLiteral("...") : text) +
           QLatin1Char('\'');
}

/// Reads a character of at least two bytes; its length, or 0 where the bytes aren't UTF-8.
size_t decodeLong(std::string_view text, size_t at, char32_t& character) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const size_t length = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
    if (byte(0) < 0xC2 || byte(0) > 0xF4 || at + length > text.size())
        return 0;
    character = byte(0) & (0x7Fu >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0u) != 0x80)
            return 0;
        character = (character << 6) | (byte(i) & 0x3Fu);
    }
    const bool overlong =
        (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    return overlong || surrogate || character > 0x10FFFF ? 0 : length;
}

class Scan {
public:
    explicit Scan(std::string_view text) : text_(text) {}

    XMLFault run() {
        if (checkCharacters() && skipDeclaration())
            checkMarkup();
        return fault_;
    }

private:
    struct Open {
        std::string_view name;
        size_t offset;
    };

    bool fail(const QString& text, size_t offset) {
        fault_ = {text, static_cast<qsizetype>(offset)};
        return false;
    }

    bool startsWith(std::string_view start) const {
        return text_.substr(at_, start.size()) == start;
    }

    void skipBlanks() { at_ = std::min(text_.find_first_not_of(blanks, at_), text_.size()); }

    bool checkCharacters() {
        for (size_t i = 0; i < text_.size();) {
            char32_t character = static_cast<unsigned char>(text_[i]);
            size_t length = 1;
            if (character >= 0x80)
                length = decodeLong(text_, i, character);
            if (length == 0) {
                return fail(QStringLiteral("the text is not UTF-8: byte 0x%1 at offset %2")
                                .arg(static_cast<unsigned char>(text_[i]), 2, 16, QLatin1Char('0'))
                                .arg(i),
                            i);
            }
            if (!isXMLCharacter(character))
                return fail(
                    QStringLiteral("XML can't hold the character ") + characterName(character), i);
            i += length;
        }
        return true;
    }

    /// Passes over a byte order mark and the declaration, which may name no encoding but UTF-8.
    bool skipDeclaration() {
        if (startsWith("\xEF\xBB\xBF"))
            at_ = 3;
        if (!startsWith("<?xml") || at_ + 5 >= text_.size() || !isBlank(text_[at_ + 5]))
            return true;
        const size_t begin = at_;
        if (!skipPast("?>", "the XML declaration"))
            return false;
        std::string_view declaration = text_.substr(begin, at_ - begin);
        const size_t place = declaration.find("encoding");
        if (place == std::string_view::npos)
            return true;
        declaration.remove_prefix(place);
        const size_t open = std::min(declaration.find_first_of("'\""), declaration.size() - 1);
        const size_t close = declaration.find(declaration[open], open + 1);
        const std::string_view value = declaration.substr(open + 1, close - open - 1);
        const QString encoding =
            QString::fromUtf8(value.data(), static_cast<qsizetype>(value.size()));
        static const QStringList accepted = {"UTF-8", "UTF8", "US-ASCII"};
        return accepted.contains(encoding, Qt::CaseInsensitive) ||
               fail(QStringLiteral("the encoding must be UTF-8, not ") + quoted(value),
                    begin + place);
    }

    /// Moves behind the next `end`; `what` begins at the current place.
    bool skipPast(std::string_view end, const char* what, size_t openingLength = 0) {
        const size_t found = text_.find(end, at_ + openingLength);
        if (found == std::string_view::npos)
            return fail(QStringLiteral("the text ends inside ") + QLatin1String(what), at_);
        at_ = found + end.size();
        return true;
    }

    void checkMarkup() {
        while (fault_.text.isEmpty() && checkText() && at_ < text_.size()) {
            if (startsWith("<!--"))
                skipPast("-->", "a comment", 4);
            else if (startsWith("<![CDATA["))
                scanCData();
            else if (startsWith("<!DOCTYPE"))
                fail(QStringLiteral("a DOCTYPE is not allowed"), at_);
            else if (startsWith("<?"))
                skipPast("?>", "a processing instruction", 2);
            else if (startsWith("</"))
                scanEndTag();
            else
                scanStartTag();
        }
        if (!fault_.text.isEmpty())
            return;
        if (!open_.empty()) {
            fail(QStringLiteral("the text ends before the element ") + quoted(open_.back().name) +
                     QStringLiteral(" is closed"),
                 open_.back().offset);
        } else if (!hadRoot_) {
            fail(QStringLiteral("there is no element"), at_);
        }
    }

    /// The text up to the next `<`.
    bool checkText() {
        const size_t begin = at_;
        at_ = std::min(text_.find('<', at_), text_.size());
        const std::string_view text = text_.substr(begin, at_ - begin);
        if (!open_.empty())
            return checkReferences(text, begin);
        const size_t stray = text.find_first_not_of(blanks);
        return stray == std::string_view::npos ||
               fail(QStringLiteral("there is text outside of the root element: ") +
                        quoted(text.substr(stray)),
                    begin + stray);
    }

    bool scanCData() {
        if (open_.empty())
            return fail(QStringLiteral("there is text outside of the root element"), at_);
        return countNode() && skipPast("]]>", "a CDATA section", 9);
    }

    bool scanEndTag() {
        const size_t begin = at_;
        at_ += 2;
        const std::string_view name = scanName();
        skipBlanks();
        if (at_ >= text_.size())
            return fail(QStringLiteral("the text ends inside a closing tag"), begin);
        if (open_.empty() || open_.back().name != name || text_[at_] != '>') {
            return fail(QStringLiteral("unexpected closing tag ") +
                            quoted(text_.substr(begin, at_ - begin + 1)) +
                            (open_.empty() ? QString()
                                           : QStringLiteral("; the open element is ") +
                                                 quoted(open_.back().name)),
                        begin);
        }
        ++at_;
        open_.pop_back();
        return true;
    }

    bool scanStartTag() {
        const size_t begin = at_++;
        const std::string_view name = scanName();
        if (name.empty()) {
            return fail(at_ >= text_.size() ? QStringLiteral("the text ends inside a tag")
                                            : QStringLiteral("'<' must be followed by a name; a "
                                                             "'<' in a text is written &lt;"),
                        begin);
        }
        if (open_.empty() && hadRoot_)
            return fail(QStringLiteral("there is more than one root element: ") + quoted(name),
                        begin);
        if (open_.size() >= XMLNode::maxDepth) {
            return fail(QStringLiteral("the elements are nested more than %1 deep")
                            .arg(int{XMLNode::maxDepth}),
                        begin);
        }
        hadRoot_ = true;
        open_.push_back({name, begin});
        return countNode() && scanAttributes(begin);
    }

    /// The attributes of the open element up to the end of its tag.
    bool scanAttributes(size_t tag) {
        attributes_.clear();
        for (;;) {
            const bool spaced = at_ < text_.size() && isBlank(text_[at_]);
            skipBlanks();
            if (at_ >= text_.size() || text_.substr(at_) == "/")
                return fail(QStringLiteral("the text ends inside the tag of ") +
                                quoted(open_.back().name),
                            tag);
            if (text_[at_] == '>') {
                ++at_;
                return true;
            }
            if (startsWith("/>")) {
                at_ += 2;
                open_.pop_back();
                return true;
            }
            if (!spaced || !isNameStart(text_[at_]))
                return fail(QStringLiteral("unexpected ") + quoted(text_.substr(at_, 1)) +
                                QStringLiteral(" in the tag of ") + quoted(open_.back().name),
                            at_);
            if (!scanAttribute(tag))
                return false;
        }
    }

    bool scanAttribute(size_t tag) {
        const size_t begin = at_;
        const std::string_view name = scanName();
        skipBlanks();
        if (at_ < text_.size() && text_[at_] != '=')
            return fail(QStringLiteral("the attribute ") + quoted(name) +
                            QStringLiteral(" has no value"),
                        begin);
        at_ = std::min(at_ + 1, text_.size());
        skipBlanks();
        if (at_ < text_.size() && text_[at_] != '\'' && text_[at_] != '"')
            return fail(QStringLiteral("the value of ") + quoted(name) +
                            QStringLiteral(" must stand in quotes"),
                        at_);
        const size_t value = at_ + 1;
        const size_t end =
            at_ < text_.size() ? text_.find(text_[at_], value) : std::string_view::npos;
        if (end == std::string_view::npos)
            return fail(QStringLiteral("the text ends inside the attribute ") + quoted(name),
                        begin);
        at_ = end + 1;
        const std::string_view content = text_.substr(value, end - value);
        if (const size_t bad = content.find('<'); bad != std::string_view::npos)
            return fail(QStringLiteral("a '<' in the attribute ") + quoted(name) +
                            QStringLiteral(" must be written &lt;"),
                        value + bad);
        if (std::find(attributes_.begin(), attributes_.end(), name) != attributes_.end())
            return fail(QStringLiteral("the attribute ") + quoted(name) +
                            QStringLiteral(" is given twice"),
                        begin);
        attributes_.push_back(name);
        if (attributes_.size() > XMLNode::maxAttributes)
            return fail(
                QStringLiteral("the element ") + quoted(open_.back().name) +
                    QStringLiteral(" has more than %1 attributes").arg(int{XMLNode::maxAttributes}),
                tag);
        return countNode() && checkReferences(content, value);
    }

    std::string_view scanName() {
        const size_t begin = at_;
        if (at_ < text_.size() && isNameStart(text_[at_]))
            at_ = static_cast<size_t>(std::find_if_not(text_.begin() + static_cast<ptrdiff_t>(at_),
                                                       text_.end(), isNamePart) -
                                      text_.begin());
        return text_.substr(begin, at_ - begin);
    }

    /// Each `&` must begin a reference to a character that XML can hold.
    bool checkReferences(std::string_view text, size_t offset) {
        static constexpr std::string_view names[] = {"amp", "lt", "gt", "quot", "apos"};
        constexpr size_t longest = 32;
        for (size_t at = text.find('&'); at != std::string_view::npos; at = text.find('&', at)) {
            const std::string_view rest = text.substr(at + 1, longest);
            const size_t end = rest.find(';');
            if (end == std::string_view::npos)
                return fail(QStringLiteral("a '&' in a text must be written &amp;"), offset + at);
            const std::string_view name = rest.substr(0, end);
            const bool known = name.starts_with('#') ? isCharacterReference(name.substr(1))
                                                     : std::find(std::begin(names), std::end(names),
                                                                 name) != std::end(names);
            if (!known)
                return fail(QStringLiteral("unknown reference ") +
                                quoted(text.substr(at, end + 2)) +
                                QStringLiteral("; a '&' in a text must be written &amp;"),
                            offset + at);
            at += end + 2;
        }
        return true;
    }

    static bool isCharacterReference(std::string_view number) {
        const int base = number.starts_with('x') ? 16 : 10;
        if (base == 16)
            number.remove_prefix(1);
        quint32 character = 0;
        const char* end = number.data() + number.size();
        const std::from_chars_result result = std::from_chars(number.data(), end, character, base);
        return result.ec == std::errc() && result.ptr == end && isXMLCharacter(character);
    }

    bool countNode() {
        return ++nodes_ <= XMLNode::maxNodes ||
               fail(QStringLiteral("there are more than %1 elements and attributes")
                        .arg(int{XMLNode::maxNodes}),
                    at_);
    }

    std::string_view text_;
    size_t at_ = 0;
    XMLFault fault_;
    std::vector<Open> open_;
    std::vector<std::string_view> attributes_; ///< of the element whose tag is read
    int nodes_ = 0;
    bool hadRoot_ = false;
};

} // namespace

bool isXMLCharacter(char32_t character) {
    if (character < 0x20)
        return character == U'\t' || character == U'\n' || character == U'\r';
    return character <= 0xD7FF || (character >= 0xE000 && character <= 0xFFFD) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}

QString characterName(char32_t character) {
    return QStringLiteral("U+%1").arg(
        QString::number(static_cast<uint>(character), 16).toUpper().rightJustified(4, u'0'));
}

XMLFault findXMLFault(std::string_view text) {
    if (text.size() > static_cast<size_t>(XMLNode::maxBytes))
        return {QStringLiteral("the text is larger than %1 MiB").arg(XMLNode::maxBytes >> 20), 0};
    return Scan(text).run();
}
