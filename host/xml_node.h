/// An element of an XML tree, and the converters that read values out of its texts.
///
/// The tree is read-only. A node is a cheap handle that keeps the whole tree alive. Texts are
/// UTF-8.
#pragma once

#include "host/export.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <functional>
#include <memory>

namespace pugi {
class xml_document;
class xml_node;
struct xml_node_struct;
} // namespace pugi

class VELMORRA_CORE XMLNode {
public:
    /// Bounds on what is parsed; a text beyond them is refused.
    static constexpr int maxDepth = 64;
    static constexpr int maxAttributes = 1024; ///< of one element
    static constexpr int maxNodes = 4 << 20;   ///< elements, attributes and CDATA sections in all
    static constexpr qsizetype maxBytes = 64 << 20;

    /// What `parse` gives: the root element, or a null node with what is wrong and where.
    struct Parsed;

    XMLNode() = default;

    /// An element without a name, attributes or children.
    static XMLNode emptyNode() { return {}; }

    /// Parses one XML document: UTF-8, no DOCTYPE, no external entities, bounded depth and size.
    /// It must be well-formed: nothing of it is dropped but comments and processing instructions.
    /// Blank texts are kept, and raw tabs and line feeds in attributes too.
    static Parsed parse(const QByteArray& text);

    bool isNull() const { return node_ == nullptr; }

    /// The element's name; empty for the empty node. Valid as long as any node of the tree.
    const char* name() const;

    /// The attribute's text, or null when it isn't there. The name is looked up exactly first, then
    /// without regard to ASCII case. `position`, where given, is the place in the list of
    /// attributes to start from, and becomes the place behind the one found; it stays where none
    /// is found.
    const char* getAttribute(const char* name, int* position) const;

    /// Number of attributes, and their names and texts in written order.
    int nAttribute() const;
    const char* attributeName(int i) const;
    const char* attributeText(int i) const;

    /// Child elements: their number, by place, and the first of a name (looked up as an attribute
    /// is), from `*position` on where given. A missing one is the empty node.
    int nChildNode() const;
    XMLNode getChildNode(int i) const;
    XMLNode getChildNode(const char* name, int* position) const;

    /// Calls `visit` for each child element in order; linear where getChildNode(i) is not.
    void forEachChild(const std::function<void(const XMLNode&)>& visit) const;

    /// The first text of the element (text or CDATA, up to a child element), or null when it has
    /// none.
    const char* getText() const;

    /// The element as XML text that reads back the same; line feeds stand only where the element
    /// has them between its tags.
    QString toText() const;

    /// Byte offset of the element's `<` in the parsed text, or -1.
    qsizetype offset() const;

private:
    XMLNode(std::shared_ptr<const pugi::xml_document> tree, pugi::xml_node_struct* node)
        : tree_(std::move(tree)),
          node_(node) {}
    pugi::xml_node node() const;

    std::shared_ptr<const pugi::xml_document> tree_;
    pugi::xml_node_struct* node_ = nullptr;
};

struct XMLNode::Parsed {
    XMLNode root;
    QString error;  ///< empty when root is set; else a sentence without the file's name
    int line = 0;   ///< of the error, from 1
    int column = 0; ///< of the error in characters, from 1
};

// Converters of an attribute's text. A null text, or one that isn't of the kind, gives the default.
// Blanks around a number or a boolean don't count. A boolean is 1, 0, true or false in any case.

VELMORRA_CORE QString xmltoa(const char* text, const QString& fallback = {});
VELMORRA_CORE bool xmltob(const char* text, bool fallback);
VELMORRA_CORE QChar xmltoc(const char* text, QChar fallback);
VELMORRA_CORE double xmltof(const char* text, double fallback);
VELMORRA_CORE int xmltoi(const char* text, int fallback);
VELMORRA_CORE qint64 xmltol(const char* text, qint64 fallback);

// List readers, each on the element whose children (`<s>text</s>`, `<s null='1'/>`) are the
// entries. Children of any name count. A missing element (the empty node) gives an empty list.

VELMORRA_CORE QStringList fromXMLSL(const XMLNode& node);
VELMORRA_CORE QVector<QString> fromXMLSV(const XMLNode& node);

/// One string: the element's text; null when the element is missing or has null='1', the empty
/// text when it has no text.
VELMORRA_CORE QString fromXMLS(const XMLNode& node);
