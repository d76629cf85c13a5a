/// ELEMENT words, as the command line and case files take them: each element as it would stand in a
/// graph file, or in its short form.
///
///     SelectColumns keep=1 columns=id,name                    words of their own
///     "SelectColumns keep=1 columns=id,name"                  a whole in one word
///     "<SelectColumns keep='1'><s>id</s></SelectColumns>"     XML
///
/// A name begins an element, and `attr=value` words belong to the last name. A value in a word of
/// its own is taken as it stands. A whole is split at blanks outside of quotes: a value may stand
/// in single or double quotes, a doubled quote in it stands for one.
///
/// A list (the element's own by its declared name or as `list`, that of a child by the child's
/// name) is given as `name=a,b,c` with CSV quoting: `"a,b"` is one entry, `""` the empty text,
/// nothing between two commas a null, and nothing at all the empty list.
#pragma once

#include "engine/catalog.h"

namespace velmorra {

struct ElementProblem {
    enum class Kind {
        Words,   ///< the words make no element
        Element, ///< no Action has this name, or the XML is broken
        Setting, ///< an unknown attribute, or a value of the wrong kind; the element is made
    };
    Kind kind = Kind::Words;
    QString text; ///< one sentence, with the element's place and the nearest known name
};

/// Elements in the order of the words, with what is wrong with them. Places in `elements` are those
/// in the words only when no problem is one of words or elements.
struct ElementList {
    QVector<XMLNode> elements;
    QVector<ElementProblem> problems;
};

ElementList parseElements(const QStringList& words, const ActionCatalog& catalog);

} // namespace velmorra
