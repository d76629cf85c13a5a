/// The check that a text is well-formed XML within bounds, before a tree is made of it.
///
/// The parser behind XMLNode is a forgiving one: it drops text outside of the root, cuts a text at
/// `&#0;`, and takes any depth. What would lose something, or cost more memory than the text is
/// worth, is found here, in one pass without recursion.
#pragma once

#include <QtCore/QString>

#include <string_view>

/// What is wrong with a text, in a sentence, and the byte offset of the place.
struct XMLFault {
    QString text; ///< empty when nothing is wrong
    qsizetype offset = 0;
};

/// The first fault of `text`, by the bounds of XMLNode.
XMLFault findXMLFault(std::string_view text);

/// Whether XML can hold the character.
bool isXMLCharacter(char32_t character);

/// "U+0001".
QString characterName(char32_t character);
