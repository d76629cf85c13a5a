/// The check that a text is well-formed XML within bounds, before a tree is made of it.
///
/// The parser behind XMLNode is a forgiving one: it drops text outside of the root, cuts a text at
/// `&#0;`, and takes any depth. What would lose something, or cost more memory than the text is
/// worth, is found here by Qt's strict reader, which keeps nothing.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// What is wrong with a text, in a sentence, and where.
struct XMLFault {
    QString text;   ///< empty when nothing is wrong
    int line = 1;   ///< from 1
    int column = 1; ///< in characters, from 1
};

/// The first fault of `text`, by the bounds of XMLNode.
XMLFault findXMLFault(const QByteArray& text);

/// Whether XML can hold the character.
bool isXMLCharacter(char32_t character);

/// "U+0001".
QString characterName(char32_t character);
