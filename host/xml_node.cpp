/// XML trees on pugixml, and the converters of texts. What the parser would let pass is refused
/// before it by xml_scan.
#include "host/xml_node.h"

#include "host/xml_scan.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>

namespace {

char lowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isSame(const char* a, const char* b) {
    return std::strcmp(a, b) == 0;
}

bool isSameWithoutCase(const char* a, const char* b) {
    while (*a != '\0' && lowerAscii(*a) == lowerAscii(*b)) {
        ++a;
        ++b;
    }
    return lowerAscii(*a) == lowerAscii(*b);
}

/// The first thing of `range` from `*position` on that `matches` takes, for the exact name and then
/// without regard to case; an empty handle when there is none.
template <class Range>
auto findNamed(const Range& range, const char* name, int* position) {
    using Handle = std::decay_t<decltype(*range.begin())>;
    const int first = position == nullptr ? 0 : *position;
    for (const auto matches : {&isSame, &isSameWithoutCase}) {
        int place = 0;
        for (const Handle& handle : range) {
            if (place++ < first || !matches(handle.name(), name))
                continue;
            if (position != nullptr)
                *position = place;
            return handle;
        }
    }
    return Handle();
}

/// The child elements of a node: what stands between them, texts above all, isn't counted.
class Elements {
public:
    class Iterator {
    public:
        explicit Iterator(pugi::xml_node node) : node_(elementFrom(node)) {}
        const pugi::xml_node& operator*() const { return node_; }
        Iterator& operator++() {
            node_ = elementFrom(node_.next_sibling());
            return *this;
        }
        bool operator!=(const Iterator& other) const { return node_ != other.node_; }

    private:
        static pugi::xml_node elementFrom(pugi::xml_node node) {
            while (node && node.type() != pugi::node_element)
                node = node.next_sibling();
            return node;
        }

        pugi::xml_node node_;
    };

    explicit Elements(pugi::xml_node parent) : parent_(parent) {}
    Iterator begin() const { return Iterator(parent_.first_child()); }
    static Iterator end() { return Iterator(pugi::xml_node()); }

private:
    pugi::xml_node parent_;
};

class StringWriter : public pugi::xml_writer {
public:
    void write(const void* data, size_t size) override {
        text.append(static_cast<const char*>(data), static_cast<qsizetype>(size));
    }

    QByteArray text;
};

bool isText(pugi::xml_node node) {
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

/// Makes one text of neighbours, since neither a comment nor a CDATA section ends a text.
void mergeTexts(pugi::xml_node parent) {
    for (pugi::xml_node node = parent.first_child(); node;) {
        const bool isWhole = node.type() == pugi::node_pcdata && !isText(node.next_sibling());
        if (!isText(node) || isWhole) {
            mergeTexts(node);
            node = node.next_sibling();
            continue;
        }
        std::string text;
        while (isText(node)) {
            text += node.value();
            const pugi::xml_node next = node.next_sibling();
            parent.remove_child(node);
            node = next;
        }
        pugi::xml_node whole = node ? parent.insert_child_before(pugi::node_pcdata, node)
                                    : parent.append_child(pugi::node_pcdata);
        whole.set_value(text.c_str());
    }
}

/// The tree's parser refuses some names that the check before it takes.
XMLNode::Parsed failedAt(const QByteArray& text, const pugi::xml_parse_result& result) {
    const QByteArray before = text.left(result.offset);
    XMLNode::Parsed parsed;
    parsed.error = QString::fromUtf8(result.description());
    parsed.line = 1 + static_cast<int>(before.count('\n'));
    parsed.column = static_cast<int>(before.size() - before.lastIndexOf('\n'));
    return parsed;
}

std::string_view trimmed(const char* text) {
    constexpr const char* blanks = " \t\r\n";
    std::string_view view = text;
    view.remove_prefix(std::min(view.find_first_not_of(blanks), view.size()));
    view.remove_suffix(view.size() - (view.find_last_not_of(blanks) + 1));
    return view;
}

template <class Number>
Number numberFrom(const char* text, Number fallback) {
    if (text == nullptr)
        return fallback;
    std::string_view view = trimmed(text);
    if (view.starts_with('+') && !view.starts_with("+-"))
        view.remove_prefix(1);
    Number number{};
    const char* end = view.data() + view.size();
    const std::from_chars_result result = std::from_chars(view.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? number : fallback;
}

/// An entry of a list: the element's first text.
QString entryText(const XMLNode& entry) {
    if (xmltob(entry.getAttribute("null", nullptr), false))
        return {};
    const char* text = entry.getText();
    return text == nullptr ? QLatin1String("") : QString::fromUtf8(text);
}

} // namespace

pugi::xml_node XMLNode::node() const {
    return pugi::xml_node(node_);
}

XMLNode::Parsed XMLNode::parse(const QByteArray& text) {
    Parsed parsed;
    const XMLFault fault = findXMLFault(text);
    if (!fault.text.isEmpty()) {
        parsed.error = fault.text;
        parsed.line = fault.line;
        parsed.column = fault.column;
        return parsed;
    }
    auto tree = std::make_shared<pugi::xml_document>();
    const pugi::xml_parse_result result = tree->load_buffer(
        text.constData(), static_cast<size_t>(text.size()),
        pugi::parse_cdata | pugi::parse_escapes | pugi::parse_eol | pugi::parse_ws_pcdata,
        pugi::encoding_utf8);
    if (!result)
        return failedAt(text, result);
    mergeTexts(*tree);
    pugi::xml_node_struct* root = tree->document_element().internal_object();
    parsed.root = XMLNode(std::move(tree), root);
    return parsed;
}

const char* XMLNode::name() const {
    return node().name();
}

const char* XMLNode::getAttribute(const char* name, int* position) const {
    const pugi::xml_attribute found = findNamed(node().attributes(), name, position);
    return found ? found.value() : nullptr;
}

int XMLNode::nAttribute() const {
    const auto attributes = node().attributes();
    return static_cast<int>(std::distance(attributes.begin(), attributes.end()));
}

const char* XMLNode::attributeName(int i) const {
    return std::next(node().attributes_begin(), i)->name();
}

const char* XMLNode::attributeText(int i) const {
    return std::next(node().attributes_begin(), i)->value();
}

int XMLNode::nChildNode() const {
    int count = 0;
    for ([[maybe_unused]] const pugi::xml_node& child : Elements(node()))
        ++count;
    return count;
}

XMLNode XMLNode::getChildNode(int i) const {
    for (const pugi::xml_node& child : Elements(node())) {
        if (i-- == 0)
            return {tree_, child.internal_object()};
    }
    return {};
}

XMLNode XMLNode::getChildNode(const char* name, int* position) const {
    const pugi::xml_node found = findNamed(Elements(node()), name, position);
    return found ? XMLNode(tree_, found.internal_object()) : XMLNode();
}

void XMLNode::forEachChild(const std::function<void(const XMLNode&)>& visit) const {
    for (const pugi::xml_node& child : Elements(node()))
        visit(XMLNode(tree_, child.internal_object()));
}

const char* XMLNode::getText() const {
    for (const pugi::xml_node& child : node().children()) {
        if (isText(child))
            return child.value();
    }
    return nullptr;
}

QString XMLNode::toText() const {
    if (isNull())
        return {};
    StringWriter writer;
    node().print(writer, "", pugi::format_raw | pugi::format_attribute_single_quote,
                 pugi::encoding_utf8);
    // The printer leaves a carriage return in a text as it is, where a parser makes a line feed of
    // it.
    return QString::fromUtf8(writer.text.replace("\r", "&#13;"));
}

qsizetype XMLNode::offset() const {
    return isNull() ? -1 : node().offset_debug() - 1;
}

QString xmltoa(const char* text, const QString& fallback) {
    return text == nullptr ? fallback : QString::fromUtf8(text);
}

bool xmltob(const char* text, bool fallback) {
    if (text == nullptr)
        return fallback;
    const std::string_view value = trimmed(text);
    const auto word = QLatin1String(value.data(), static_cast<qsizetype>(value.size()));
    if (word == QLatin1String("1") || word.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0)
        return true;
    if (word == QLatin1String("0") ||
        word.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0)
        return false;
    return fallback;
}

QChar xmltoc(const char* text, QChar fallback) {
    if (text == nullptr)
        return fallback;
    const QString characters = QString::fromUtf8(text);
    return characters.size() == 1 ? characters.front() : fallback;
}

double xmltof(const char* text, double fallback) {
    return numberFrom(text, fallback);
}

int xmltoi(const char* text, int fallback) {
    return numberFrom(text, fallback);
}

qint64 xmltol(const char* text, qint64 fallback) {
    return numberFrom(text, fallback);
}

QStringList fromXMLSL(const XMLNode& node) {
    QStringList list;
    node.forEachChild([&list](const XMLNode& entry) { list.push_back(entryText(entry)); });
    return list;
}

QVector<QString> fromXMLSV(const XMLNode& node) {
    return fromXMLSL(node);
}

QString fromXMLS(const XMLNode& node) {
    return node.isNull() ? QString() : entryText(node);
}
