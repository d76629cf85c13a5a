#include "engine/csv/text_encoding.h"

#include "engine/csv/transcode.h"

#include <algorithm>
#include <array>

namespace velmorra {

namespace {

struct EncodingName {
    const char* name;
    TextEncoding encoding;
};

constexpr EncodingName encodings[] = {
    {"utf-8", TextEncoding::Utf8},
    {"utf-8-bom", TextEncoding::Utf8WithMark},
    {"windows-1252", TextEncoding::Windows1252},
    {"utf-16", TextEncoding::Utf16},
    {"utf-16le", TextEncoding::Utf16Le},
    {"utf-16be", TextEncoding::Utf16Be},
};

/// The characters of the bytes 0x80 to 0x9F of Windows-1252; 0 where there is none. All others are
/// those of Latin-1.
constexpr std::array<char16_t, 32> windowsCharacters = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

/// Leads the two bytes that stand for a last byte without a partner. No UTF-8 holds it.
constexpr uchar oddByteLead = 0xFF;

constexpr qint64 rawBytes = 64 << 10;
/// A byte or code unit of the source becomes at most this many bytes.
constexpr qint64 growth = 3;

bool isHigh(char16_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}

bool isLow(char16_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

uchar* put(uchar* out, char32_t character) {
    return reinterpret_cast<uchar*>(encodeCharacter(character, reinterpret_cast<char*>(out)));
}

/// The byte of a character that isn't ASCII; 0 when Windows-1252 has none.
uchar windowsByte(char32_t character) {
    if (character >= 0xA0 && character <= 0xFF)
        return static_cast<uchar>(character);
    const auto found = std::find(windowsCharacters.begin(), windowsCharacters.end(), character);
    return found == windowsCharacters.end()
               ? 0
               : static_cast<uchar>(0x80 + (found - windowsCharacters.begin()));
}

/// The code unit that stands at `bytes` as three bytes, though it is half a character; else 0.
char16_t halfCharacterAt(const uchar* bytes, qsizetype available) {
    if (available < 3 || bytes[0] != 0xED || (bytes[1] & 0xE0) != 0xA0 || (bytes[2] & 0xC0) != 0x80)
        return 0;
    return static_cast<char16_t>(0xD000 | (bytes[1] & 0x3F) << 6 | (bytes[2] & 0x3F));
}

bool isOddByteAt(const uchar* bytes, qsizetype available) {
    return available >= 3 && bytes[0] == oddByteLead;
}

uchar oddByteAt(const uchar* bytes) {
    return static_cast<uchar>((bytes[1] & 0xF) << 4 | (bytes[2] & 0xF));
}

QString hexadecimal(unsigned value, int digits) {
    return QStringLiteral("0x") + QString::number(value, 16).toUpper().rightJustified(digits, u'0');
}

} // namespace

bool parseEncoding(const QString& name, TextEncoding* encoding) {
    for (const EncodingName& entry : encodings) {
        if (name.compare(QLatin1String(entry.name), Qt::CaseInsensitive) == 0) {
            *encoding = entry.encoding;
            return true;
        }
    }
    return false;
}

QString encodingName(TextEncoding encoding) {
    for (const EncodingName& entry : encodings) {
        if (entry.encoding == encoding)
            return QLatin1String(entry.name);
    }
    return {};
}

QString encodingNames() {
    QString names;
    for (const EncodingName& entry : encodings)
        names +=
            (names.isEmpty() ? QLatin1String() : QLatin1String(", ")) + QLatin1String(entry.name);
    return names;
}

QString encodingOfMark(const uchar* bytes, qsizetype size) {
    const auto begins = [&](std::initializer_list<uchar> mark) {
        return size >= qsizetype(mark.size()) && std::equal(mark.begin(), mark.end(), bytes);
    };
    if (begins({0xFF, 0xFE, 0, 0}))
        return QStringLiteral("utf-32");
    if (begins({0xFF, 0xFE}) || begins({0xFE, 0xFF}))
        return QStringLiteral("utf-16");
    return begins({0xEF, 0xBB, 0xBF}) ? QStringLiteral("utf-8") : QString();
}

QByteArray byteOrderMarkOf(TextEncoding encoding) {
    if (encoding == TextEncoding::Utf8WithMark)
        return QByteArrayLiteral("\xEF\xBB\xBF");
    return encoding == TextEncoding::Utf16 ? QByteArrayLiteral("\xFF\xFE") : QByteArray();
}

qint64 TextDecoder::read(uchar* bytes, qint64 room) {
    if (!problem_.isNull())
        return -1;
    uchar* out = bytes;
    // A code unit of which one half was there gives nothing yet.
    while (out == bytes && !atEnd_) {
        const size_t kept = raw_.size();
        const qint64 wanted = std::clamp<qint64>((room - 8) / growth - qint64(kept), 1, rawBytes);
        raw_.resize(kept + size_t(wanted));
        const qint64 got = source_(raw_.data() + kept, wanted);
        raw_.resize(kept + size_t(std::max<qint64>(got, 0)));
        if (got < 0)
            return -1;
        atEnd_ = got == 0;
        constexpr size_t longestMark = 3;
        if (!begun_ && !atEnd_ && raw_.size() < longestMark)
            continue;
        if (!begun_ && !takeMark())
            return -1;
        out = encoding_ == TextEncoding::Windows1252 ? decodeBytes(out) : decodeUnits(out);
    }
    return out - bytes;
}

/// Looks at what the file begins with. False with a problem when that speaks of another encoding.
bool TextDecoder::takeMark() {
    begun_ = true;
    const QString mark = encodingOfMark(raw_.data(), qsizetype(raw_.size()));
    const bool inUnits = encoding_ != TextEncoding::Windows1252;
    if (!mark.isNull() && (!inUnits || mark != QLatin1String("utf-16"))) {
        problem_ = QStringLiteral("the file begins with the byte order mark of ") + mark +
                   QStringLiteral(", not of ") + encodingName(encoding_);
        return false;
    }
    if (!inUnits || raw_.empty())
        return true;
    if (mark.isNull()) {
        if (encoding_ == TextEncoding::Utf16)
            problem_ = QStringLiteral("the file has no byte order mark; ask for the encoding "
                                      "utf-16le or utf-16be");
        return problem_.isNull();
    }
    const TextEncoding found = raw_[0] == 0xFF ? TextEncoding::Utf16Le : TextEncoding::Utf16Be;
    if (encoding_ != TextEncoding::Utf16 && encoding_ != found) {
        problem_ = QStringLiteral("the file begins with the byte order mark of ") +
                   encodingName(found) + QStringLiteral(", not of ") + encodingName(encoding_);
        return false;
    }
    encoding_ = found;
    hadMark_ = true;
    raw_.erase(raw_.begin(), raw_.begin() + 2);
    return true;
}

uchar* TextDecoder::decodeBytes(uchar* out) {
    for (const uchar byte : raw_) {
        const char16_t character =
            byte < 0x80 || byte >= 0xA0 ? byte : windowsCharacters[byte - 0x80u];
        if (character < 0x80 && character != 0)
            *out++ = byte;
        else if (character != 0)
            out = put(out, character);
        else // NUL, or a byte of no character: alone, that isn't UTF-8.
            *out++ = byte;
    }
    raw_.clear();
    return out;
}

uchar* TextDecoder::decodeUnits(uchar* out) {
    const int low = encoding_ == TextEncoding::Utf16Be ? 1 : 0;
    const size_t whole = raw_.size() / 2 * 2;
    for (size_t i = 0; i < whole; i += 2)
        out = putUnit(
            out, static_cast<char16_t>(raw_[i + size_t(low)] | raw_[i + size_t(1 - low)] << 8));
    raw_.erase(raw_.begin(), raw_.begin() + qsizetype(whole));
    if (!atEnd_)
        return out;
    if (high_ != 0)
        out = put(out, std::exchange(high_, 0));
    if (!raw_.empty()) {
        *out++ = oddByteLead;
        *out++ = static_cast<uchar>(0x80 | raw_[0] >> 4);
        *out++ = static_cast<uchar>(0x80 | (raw_[0] & 0xF));
        raw_.clear();
    }
    return out;
}

/// Halves of characters without their partner get the three bytes that they would have as
/// characters of their own, which no UTF-8 holds.
uchar* TextDecoder::putUnit(uchar* out, char16_t unit) {
    if (high_ != 0) {
        const char16_t high = std::exchange(high_, 0);
        if (isLow(unit))
            return put(out, 0x10000 + (char32_t(high - 0xD800) << 10) + (unit - 0xDC00u));
        out = put(out, high);
    }
    if (isHigh(unit)) {
        high_ = unit;
        return out;
    }
    return put(out, unit);
}

QString undecodable(TextEncoding encoding, const uchar* utf8, qsizetype size, qsizetype badAt) {
    const uchar* const bytes = utf8 + badAt;
    const bool inUnits = encoding == TextEncoding::Utf16 || encoding == TextEncoding::Utf16Le ||
                         encoding == TextEncoding::Utf16Be;
    if (inUnits && isOddByteAt(bytes, size - badAt))
        return QStringLiteral("the last byte, ") + hexadecimal(oddByteAt(bytes), 2) +
               QStringLiteral(", is half a code unit of UTF-16");
    const char16_t half = inUnits ? halfCharacterAt(bytes, size - badAt) : u'\0';
    if (half != 0)
        return QStringLiteral("the code unit ") + hexadecimal(half, 4) +
               QStringLiteral(" is half a character of UTF-16");
    return QStringLiteral("the byte ") + hexadecimal(*bytes, 2) + QStringLiteral(" is not valid ") +
           (encoding == TextEncoding::Windows1252 ? QStringLiteral("Windows-1252")
                                                  : QStringLiteral("UTF-8"));
}

namespace {

void appendUnit(TextEncoding encoding, char32_t unit, QByteArray* out) {
    const char low = static_cast<char>(unit & 0xFF);
    const char high = static_cast<char>(unit >> 8);
    const bool lowFirst = encoding != TextEncoding::Utf16Be;
    out->append(lowFirst ? low : high);
    out->append(lowFirst ? high : low);
}

qsizetype encodeAsBytes(const uchar* utf8, qsizetype size, QByteArray* out) {
    for (qsizetype i = 0; i < size;) {
        int length = 1;
        const char32_t character =
            utf8[i] < 0x80 ? utf8[i] : characterAt(utf8 + i, size - i, &length);
        // What isn't UTF-8 is a byte that stood in the file like that.
        const bool plain = utf8[i] < 0x80 || character == 0;
        const uchar byte = plain ? utf8[i] : windowsByte(character);
        if (!plain && byte == 0)
            return i;
        out->append(static_cast<char>(byte));
        i += plain ? 1 : length;
    }
    return -1;
}

void encodeAsUnits(TextEncoding encoding, const uchar* utf8, qsizetype size, QByteArray* out) {
    for (qsizetype i = 0; i < size;) {
        int length = 1;
        const char32_t character =
            utf8[i] < 0x80 ? utf8[i] : characterAt(utf8 + i, size - i, &length);
        if (character >= 0x10000) {
            appendUnit(encoding, 0xD7C0 + (character >> 10), out);
            appendUnit(encoding, 0xDC00 + (character & 0x3FF), out);
        } else if (character != 0 || utf8[i] == 0) {
            appendUnit(encoding, character, out);
        } else if (isOddByteAt(utf8 + i, size - i)) {
            out->append(static_cast<char>(oddByteAt(utf8 + i)));
            length = 3;
        } else {
            appendUnit(encoding, halfCharacterAt(utf8 + i, size - i), out);
            length = 3;
        }
        i += length;
    }
}

} // namespace

qsizetype encodeText(TextEncoding encoding, const char* utf8, qsizetype size, QByteArray* out) {
    const uchar* const bytes = reinterpret_cast<const uchar*>(utf8);
    switch (encoding) {
    case TextEncoding::Utf8:
    case TextEncoding::Utf8WithMark:
        out->append(utf8, size);
        return -1;
    case TextEncoding::Windows1252:
        return encodeAsBytes(bytes, size, out);
    default:
        encodeAsUnits(encoding, bytes, size, out);
        return -1;
    }
}

} // namespace velmorra
