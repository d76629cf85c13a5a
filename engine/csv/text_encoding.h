/// The encodings that a text file may have, to UTF-8 and back.
///
/// Bytes that don't decode become bytes that aren't UTF-8 either, so that the reader of the UTF-8
/// tells their place; `undecodable` says what they were, and `encodeText` gives them back as they
/// stood.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <functional>
#include <vector>

namespace velmorra {

/// Gives up to `room` bytes: their number, 0 at the end, -1 on failure or when stopped.
using ByteSource = std::function<qint64(uchar* bytes, qint64 room)>;

/// Utf16 has a byte order mark that tells its order; it is written with the low byte first.
enum class TextEncoding { Utf8, Utf8WithMark, Windows1252, Utf16, Utf16Le, Utf16Be };

/// The encoding of a name such as `windows-1252`, in any case. False when there is none.
bool parseEncoding(const QString& name, TextEncoding* encoding);
QString encodingName(TextEncoding encoding);
/// The names that parseEncoding takes, for messages.
QString encodingNames();

/// The encoding that a byte order mark at the beginning of a file speaks of; null when there is no
/// such mark.
QString encodingOfMark(const uchar* bytes, qsizetype size);

/// A source of UTF-8 over a source of another encoding. One thread at a time.
class TextDecoder {
public:
    TextDecoder(TextEncoding encoding, ByteSource source)
        : encoding_(encoding),
          source_(std::move(source)) {}

    /// As a ByteSource; `room` must be at least 16.
    qint64 read(uchar* bytes, qint64 room);

    /// The encoding, its order of bytes told once the first bytes have been read.
    TextEncoding encoding() const { return encoding_; }
    /// Whether the file began with a byte order mark.
    bool hadMark() const { return hadMark_; }

    /// Why `read` failed, where the source below didn't; else null.
    const QString& problem() const { return problem_; }

private:
    bool takeMark();
    uchar* decodeBytes(uchar* out);
    uchar* decodeUnits(uchar* out);
    uchar* putUnit(uchar* out, char16_t unit);

    TextEncoding encoding_;
    ByteSource source_;
    std::vector<uchar> raw_; ///< what hasn't been decoded yet
    bool begun_ = false;
    bool atEnd_ = false;
    bool hadMark_ = false;
    char16_t high_ = 0; ///< first half of a character, whose second hasn't been seen yet
    QString problem_;
};

/// What stands at `badAt` of decoded text, which isn't UTF-8: "the byte 0xE9 is not valid UTF-8".
QString undecodable(TextEncoding encoding, const uchar* utf8, qsizetype size, qsizetype badAt);

/// Appends UTF-8 text in another encoding, without a byte order mark. Returns the offset of the
/// first character that it can't hold (what stands in front of it is appended), or -1.
qsizetype encodeText(TextEncoding encoding, const char* utf8, qsizetype size, QByteArray* out);

/// The byte order mark that a file of this encoding begins with; empty when it has none.
QByteArray byteOrderMarkOf(TextEncoding encoding);

} // namespace velmorra
