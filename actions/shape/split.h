/// Split cuts the texts of columns at a separator and adds the pieces as columns behind the others.
///
///     x        sep=';'     x     | x_S0 | x_S1 | x_S2
///     a;b;c                a;b;c | a    | b    | c
///     a;                   a;    | a    | ""   |
///
/// The first row decides on the number of new columns, unless `number` does; later rows that have
/// fewer pieces get null cells, and pieces beyond that number are dropped. Row by row; rows keep
/// their order, and the table its declared order. Holds the pieces of one row.
#pragma once

#include "plugin/row_by_row_action.h"

#include <optional>
#include <vector>

class Split final : public RowByRowAction<Split, ActionIndex::Split> {
public:
    Split(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    bool beforeRun() override;

    // What is stored.
    QString sep; ///< its first character separates; "LB" for a line break; empty for a blank
    QString suffix;
    bool useSuffix = true; ///< new columns are named by suffix and number
    bool fixed = false;    ///< `number` decides where there is one column to split
    bool trim = true;
    QString number; ///< may hold parameters of the graph
    QStringList columns;

private:
    friend FirstRowAction;
    friend RowByRowAction;

    /// A column to split.
    struct Source {
        int column;
        int end; ///< the output column behind its last piece
    };

    bool resolve(const OneRow& row);
    void takeFrom(const Split& master);
    void passOn(const OneRow& row);
    void release();

    std::optional<qint64> wantedCount() const;
    qint64 countPieces(const OneRow& row, int column) const;
    void namePieces(OneRow& out, int column, int first, int end) const;
    template <bool atLineBreaks>
    void cut(const uchar* chars, int units, const uchar** first, const uchar** end);
    const uchar* pieceAt(uchar* chars, int units);

    // What the first row resolved.
    std::vector<Source> sources_;
    char16_t separator_ = u' ';    ///< a carriage return stands for all line breaks
    char16_t secondBlank_ = u'\t'; ///< stripped from the pieces like the blank

    // What changes per row.
    RowBuffer pieces_;
};
