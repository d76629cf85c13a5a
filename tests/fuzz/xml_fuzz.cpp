/// Fuzzes the reading of XML: any bytes are refused with a place inside the text, or give a tree
/// that can be walked and whose text reads back to the same text.
#include "host/xml_node.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

/// Walks everything below a node; the depth is bounded by the parser.
void walk(const XMLNode& node, int depth) {
    require(depth <= XMLNode::maxDepth && node.name()[0] != '\0');
    for (int i = 0; i < node.nAttribute(); ++i) {
        require(node.attributeText(i) != nullptr);
        const char* found = node.getAttribute(node.attributeName(i), nullptr);
        require(found != nullptr && std::strcmp(found, node.attributeText(i)) == 0);
    }
    int children = 0;
    node.forEachChild([&](const XMLNode& child) {
        require(!node.getChildNode(child.name(), nullptr).isNull());
        walk(child, depth + 1);
        ++children;
    });
    require(children == node.nChildNode() && children == fromXMLSL(node).size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray text(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const XMLNode::Parsed parsed = XMLNode::parse(text);
    if (parsed.root.isNull()) {
        require(!parsed.error.isEmpty() && parsed.line >= 1 && parsed.column >= 1);
        return 0;
    }
    require(parsed.error.isEmpty());
    walk(parsed.root, 1);
    const QString written = parsed.root.toText();
    const XMLNode::Parsed again = XMLNode::parse(written.toUtf8());
    require(again.error.isEmpty() && again.root.toText() == written);
    return 0;
}
