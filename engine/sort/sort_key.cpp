#include "engine/sort/sort_key.h"

#include "host/number_parser.h"
#include "host/number_text.h"

namespace velmorra {

namespace {

constexpr int pieceBytes = 8;

// Ranks in front of all numbers. The bits of minus infinity are above them.
constexpr quint64 nullTextRank = 0;
constexpr quint64 nullFloatRank = 1;
constexpr quint64 noNumberRank = 2;

// By text: bytes in front of all code units.
constexpr quint64 nullMark = 0;
constexpr quint64 endMark = 1;

// A code unit takes one byte below the first bound, two below the second, else three.
constexpr unsigned oneByteBase = 2;
constexpr unsigned twoByteLead = 0x80;
constexpr unsigned threeByteLead = 0xC0;
constexpr unsigned oneByteUnits = twoByteLead - oneByteBase;
constexpr unsigned twoByteUnits = oneByteUnits + ((threeByteLead - twoByteLead) << 8);

quint64 numberRank(double value) {
    if (value != value)
        return std::bit_cast<quint64>(value) == cell::nullFloatBits ? nullFloatRank : noNumberRank;
    constexpr quint64 signBit = 1ull << 63;
    // The two zeros are equal.
    const quint64 bits = value == 0 ? 0 : std::bit_cast<quint64>(value);
    return (bits & signBit) != 0 ? ~bits : bits | signBit;
}

quint64 textNumberRank(const uchar* bytes) {
    const cell::TextView text = cell::text(bytes);
    if (text.isNull())
        return nullTextRank;
    bool ok = false;
    const double value = parseCellNumber(text.chars, text.size(), &ok);
    return ok ? numberRank(value) : noNumberRank;
}

} // namespace

/// Takes the bytes of a key one after the other and keeps those of one piece.
class SortKey::PieceWriter {
public:
    explicit PieceWriter(int piece) : skip_(qint64(piece) * pieceBytes) {}

    quint64 flip = 0;

    /// The lowest `bytes` bytes of a number, the highest of these first. Requires: not full.
    void put(quint64 number, int bytes) {
        number ^= flip;
        if (skip_ >= bytes) {
            skip_ -= bytes;
            return;
        }
        bytes -= static_cast<int>(skip_);
        skip_ = 0;
        if (bytes < pieceBytes)
            number &= (1ull << (8 * bytes)) - 1;
        room_ -= bytes;
        piece_ |= room_ >= 0 ? number << (8 * room_) : number >> (-8 * room_);
    }

    bool isFull() const { return room_ <= 0; }
    bool isEmpty() const { return room_ == pieceBytes; }
    quint64 piece() const { return piece_; }

private:
    quint64 piece_ = 0;
    int room_ = pieceBytes;
    qint64 skip_;
};

SortKey::Form SortKey::formOf(const SortInfos& sort, qint32 metaType) {
    const bool byText = sort.SortType == SortTextRising || sort.SortType == SortTextFalling;
    if (metaType == MetaTypeKey)
        return byText ? Form::KeyText : Form::KeyNumber;
    if (metaType == MetaTypeFloat)
        return Form::FloatNumber;
    return byText ? Form::Text : Form::TextNumber;
}

SortKey::SortKey(const PinOutMetaData& shape, const QVector<SortInfos>& order) {
    int bytes = 0;
    for (const SortInfos& sort : order) {
        const qint32 metaType = shape.types[sort.column].type;
        const Form form = formOf(sort, metaType);
        const bool falling = sort.SortType == SortNumberFalling || sort.SortType == SortTextFalling;
        columns_.push_back(
            {metaType, form, falling ? ~0ull : 0, cellOrder(sort.SortType, metaType)});
        if (form == Form::KeyNumber)
            bytes += 4;
        else
            bytes += form == Form::FloatNumber || form == Form::TextNumber ? 8 : pieceBytes + 1;
    }
    isWholeInFirstPiece_ = bytes <= pieceBytes;
}

void SortKey::putText(const uchar* chars, int units, PieceWriter& writer) {
    for (int i = 0; i < units && !writer.isFull(); ++i) {
        const unsigned unit = cell::unitAt(chars, i);
        if (unit < oneByteUnits)
            writer.put(unit + oneByteBase, 1);
        else if (unit < twoByteUnits)
            writer.put((twoByteLead << 8) + (unit - oneByteUnits), 2);
        else
            writer.put((threeByteLead << 16) + (unit - twoByteUnits), 3);
    }
    if (!writer.isFull())
        writer.put(endMark, 1);
}

void SortKey::putColumn(const Column& column, const uchar* cellBytes, PieceWriter& writer) {
    writer.flip = column.flip;
    switch (column.form) {
    case Form::KeyNumber: {
        const quint32 key = cell::loadKey(cellBytes);
        writer.put(key >= cell::firstNullKey ? 0 : key + 1, 4);
        return;
    }
    case Form::FloatNumber:
        writer.put(numberRank(cell::loadFloat(cellBytes)), 8);
        return;
    case Form::TextNumber:
        writer.put(textNumberRank(cellBytes), 8);
        return;
    case Form::KeyText: {
        const quint32 key = cell::loadKey(cellBytes);
        if (key >= cell::firstNullKey) {
            writer.put(nullMark, 1);
            return;
        }
        char digits[numberTextRoom];
        const int length = formatKey(key, digits);
        for (int i = 0; i < length && !writer.isFull(); ++i)
            writer.put(static_cast<uchar>(digits[i]), 1);
        if (!writer.isFull())
            writer.put(endMark, 1);
        return;
    }
    case Form::Text: {
        const cell::TextView text = cell::text(cellBytes);
        if (text.isNull())
            writer.put(nullMark, 1);
        else
            putText(text.chars, text.size(), writer);
        return;
    }
    }
}

bool SortKey::piece(const uchar* held, int number, quint64* value) const {
    PieceWriter writer(number);
    for (const Column& column : columns_) {
        putColumn(column, held, writer);
        if (writer.isFull())
            break;
        held += cell::bytes(held, column.metaType);
    }
    *value = writer.piece();
    return !writer.isEmpty();
}

int SortKey::compare(const uchar* a, const uchar* b) const {
    for (const Column& column : columns_) {
        if (const int order = column.compare(a, b))
            return order;
        a += cell::bytes(a, column.metaType);
        b += cell::bytes(b, column.metaType);
    }
    return 0;
}

} // namespace velmorra
