/// The key of a row in a sort.
///
/// Besides comparing the cells of two rows there is a quicker way: the key of a row as bytes, in
/// such a form that the rows stand in the order of these bytes. It is made in pieces of eight, each
/// as a number, and mostly the first one decides:
///
///     Key by number     4 bytes: 0 for null, else the value + 1
///     Float by number   8 bytes: 0 for null, 1 for what is no number, else the double's bits,
///     those
///                       of a negative one complemented, with the highest one flipped
///     text by number    the same of the number in the text, with one more place for the null cell
///     by text           one to three bytes a code unit, more for higher ones, and an end mark that
///                       is lower than any; a null cell is a byte lower still
///
/// No column's bytes are the beginning of others of that column, so that they can stand one behind
/// the other. Falling orders have them complemented. The number in a text is read once, not in each
/// comparison.
#pragma once

#include "engine/sort/row_form.h"
#include "host/cell_order.h"

namespace velmorra {

class SortKey {
public:
    /// Requires: cellOrder knows each order of `order`.
    SortKey(const PinOutMetaData& shape, const QVector<SortInfos>& order);

    /// Makes a piece of a held row's key, with zeros behind its end. False when the key ends in
    /// front of the piece, which is zero then.
    bool piece(const uchar* held, int number, quint64* value) const;
    quint64 firstPiece(const uchar* held) const {
        quint64 value = 0;
        piece(held, 0, &value);
        return value;
    }

    /// Whether rows whose first piece is the same are equal.
    bool isWholeInFirstPiece() const { return isWholeInFirstPiece_; }

    /// Compares two held rows: negative, 0 or positive.
    int compare(const uchar* a, const uchar* b) const;

private:
    enum class Form { KeyNumber, FloatNumber, TextNumber, KeyText, Text };

    struct Column {
        qint32 metaType;
        Form form;
        quint64 flip; ///< all bits set for a falling order
        CellOrder compare;
    };
    class PieceWriter;

    static Form formOf(const SortInfos& sort, qint32 metaType);
    static void putColumn(const Column& column, const uchar* cellBytes, PieceWriter& writer);
    static void putText(const uchar* chars, int units, PieceWriter& writer);

    std::vector<Column> columns_;
    bool isWholeInFirstPiece_;
};

} // namespace velmorra
