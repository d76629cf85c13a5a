/// JoinKey: the current key of a sorted merge, the checks of key columns, and the order of keys.
///
/// A merge goes through sorted tables side by side. The master table's key column says by which
/// sort type and meta type; every slave table must have the same two. Tables may come from any
/// source: what is checked of one is its first row, with names, meta types and declared order.
///
/// Order of use in a run: `checkMaster`, `checkSlave` for each slave table, `choose`, and then,
/// once per row, the rest; `release` at its end. The checks return what is wrong, as a message for
/// ActionItem::fail, or a null string.
///
/// One thread at a time.
#pragma once

#include "host/cell_order.h"
#include "host/one_row.h"

class JoinKey {
public:
    /// As what the current key of a text column that is sorted by number is kept; for all other
    /// columns the two give the same.
    enum class Keeps {
        Number, ///< its number, read once per key; null Float for a null and for no number
        Cell,   ///< its text: texts that are no numbers are then keys that equal each other
    };

    /// Checks the key column `name` of the master table, which is pin 0, and notes it.
    QString checkMaster(const OneRow& row, const QString& name);

    /// Checks the key column `name` of a slave table and gives its place. `source` stands for the
    /// table in messages: "Pin 1", "File 'a.gel'". Requires: checkMaster found nothing wrong.
    QString checkSlave(const OneRow& row, const QString& name, const QString& source,
                       int* column) const;

    /// Chooses how keys are kept and compared. No key is current then. Requires: checkMaster found
    /// nothing wrong.
    QString choose(Keeps keeps);

    /// Frees the current key.
    void release();

    /// The key's column in the master table.
    int column() const { return column_; }

    /// Whether a key of the master table differs from the current key; true while there is none, so
    /// that the first row of a run counts as a new key whatever its key is.
    bool isNew(const uchar* key) const { return current_ == nullptr || compareKeys(key) != 0; }

    /// Makes a key of the master table the current one; its row may go away.
    void setCurrentKey(const uchar* key) { current_ = keep_(*this, key); }

    /// The same for as long as the row stays, with nothing copied: for where a key isn't compared
    /// with those of later rows of the master table.
    void lookAt(const uchar* key) { current_ = readsNumbers_ ? keepNumber(*this, key) : key; }

    /// Negative, 0 or positive as the current key comes in front of, equals or comes behind `key`.
    /// Requires: there is a current key.
    int compareKeys(const uchar* key) const { return order_(current_, key); }

    /// The same for two keys of rows. Requires: chosen to keep cells.
    int compareKeys(const uchar* a, const uchar* b) const { return order_(a, b); }

private:
    /// Copies a key and returns the copy, as the left side of `order_`.
    using Keep = const uchar* (*)(JoinKey& joinKey, const uchar* key);

    static const uchar* keepKey(JoinKey& joinKey, const uchar* key);
    static const uchar* keepFloat(JoinKey& joinKey, const uchar* key);
    static const uchar* keepNumber(JoinKey& joinKey, const uchar* key);
    static const uchar* keepText(JoinKey& joinKey, const uchar* key);

    // What the master table says.
    int column_ = -1;
    qint32 sortType_ = 0;
    qint32 metaType_ = 0;

    // What was chosen.
    CellOrder order_ = nullptr; ///< left a kept key, right a cell
    Keep keep_ = nullptr;
    bool readsNumbers_ = false; ///< a kept key is not of the form of a cell

    // The current key.
    const uchar* current_ = nullptr; ///< a cell or in `fixed_` or `texts_`; null: there is none
    uchar fixed_[sizeof(double)] = {};
    RowBuffer texts_; ///< the text of the current key, nothing else
};
