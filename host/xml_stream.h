/// Writing stored elements: a 16-bit stream, and the escaping of texts.
#pragma once

#include "host/export.h"

#include <QtCore/QString>
#include <QtCore/QVector>

#include <sstream>
#include <string>

/// The string stream that Actions' savers take, of UTF-16 code units.
using XMLStream = std::basic_ostringstream<char16_t>;

// What a saver streams. The standard library has no facets for char16_t, so its own `<< 12` and
// `<< 'c'` would fail; these stand in front of them. Numbers are written in the C locale.

VELMORRA_CORE XMLStream& operator<<(XMLStream& stream, const char16_t* text);
VELMORRA_CORE XMLStream& operator<<(XMLStream& stream, const QString& text);

/// An 8-bit fixed text, widened character by character.
VELMORRA_CORE XMLStream& operator<<(XMLStream& stream, const char* text);
VELMORRA_CORE XMLStream& operator<<(XMLStream& stream, char character);
VELMORRA_CORE XMLStream& operator<<(XMLStream& stream, int number);
VELMORRA_CORE XMLStream& operator<<(XMLStream& stream, qint64 number);
/// The shortest digits that read back (see formatFloat).
VELMORRA_CORE XMLStream& operator<<(XMLStream& stream, double number);

/// Escapes texts for attributes and elements. There is one shared instance, `toXMLStringTool()`.
///
/// A character that XML can't hold must not vanish: the writers below make the stream fail
/// (failbit) at the text that holds it, and take no text any more then. So a stream that has failed
/// behind a saver means that the element can't be stored as it is, and `refused` names the
/// character.
class VELMORRA_CORE ToXMLStringTool {
public:
    /// An escaped copy in the tool's buffer, valid until the next call. `&`, `<`, `>` and both
    /// quotes become entities; tabs, line feeds and carriage returns become character references. A
    /// character that XML can't hold (a control, a lone surrogate, U+FFFE, U+FFFF) becomes U+FFFD
    /// and is told by `refused`.
    const char16_t* toXML(const QString& text);

    /// The first character of the last text that XML can't hold, as "U+0001", or null.
    const QString& refused() const { return refused_; }

    /// Ends the use of the tool for one element.
    void freeBuffer();

private:
    void escape(char32_t character);

    std::u16string buffer_;
    QString refused_;
};

/// The instance of this thread.
VELMORRA_CORE ToXMLStringTool& toXMLStringTool();

/// Writes the text in its escaped form; the stream fails if XML can't hold the text. A stream that
/// has failed before takes nothing.
VELMORRA_CORE void writeEscaped(XMLStream& stream, const QString& text);

/// Writes a blank, the name, and the escaped text between `='` and `'`.
VELMORRA_CORE void writeAttribute(XMLStream& stream, const QString& name, const QString& text);

/// Writes a list of strings, an element each: `<s>text</s>` or `<s null='1'/>`, and a line feed.
VELMORRA_CORE void toXML(const QVector<QString>& list, XMLStream& stream);
