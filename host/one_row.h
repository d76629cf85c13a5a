/// A row: cell pointers with the column names, meta types and declared order of its table.
///
/// A row owns none of the bytes its cells point at. On an input row they are valid until the
/// consumer asks the pin for the next row; on an output row they must stay valid until the next
/// step of the Action that wrote them. One thread at a time.
#pragma once

#include "host/row_buffer.h"

#include <QtCore/QHash>

#include <algorithm>
#include <memory>

class VELMORRA_CORE OneRow {
public:
    /// The cell pointers and their number: plain members, for the loops that run once per row.
    const uchar** cells = nullptr;
    qint32 columns = 0;

    OneRow() = default;
    OneRow(const OneRow&) = delete;
    OneRow& operator=(const OneRow&) = delete;

    // Cells.

    /// The cell's value as a number, whatever its form. `ok` is false when it holds none: a null
    /// cell (the result is then the null Float), or a text the number parser refuses. The invalid
    /// Float is a value with `ok` true.
    double colAsDouble(int column, bool* ok) const;

    /// The cell's value as a Key: a Key that isn't null, or a whole number from 0 to 0xFFFFFFFD.
    quint32 colAsKey(int column, bool* ok) const;

    /// Room in code units that `col` needs in its scratch array.
    static constexpr int scratchUnits = 32;

    /// The text of the cell; a null string for a null cell. For a Key or Float cell the text stands
    /// in `scratch` (scratchUnits code units). The result may point into the cell or the scratch:
    /// keep it through `detach`.
    QString col(int column, ushort* scratch) const;

    /// The number of code units of the cell's text. `chars` points at them inside the cell, at any
    /// address (load through cell::unitAt or memcpy), or for a Key or Float cell in the row's own
    /// scratch, valid until the next call; it is null for a null cell.
    int col(int column, const ushort** chars) const;

    /// A text that equal cells of a column share. It may point into the cell or into the row's own
    /// scratch and is valid until the next call: keep it through `detach`. Null for a null cell.
    QString colForHash(int column) const;

    /// Bytes of the cell, length field included.
    qsizetype totalLengthField(int column) const {
        return cell::bytes(cells[column], meta_.types[column].type);
    }

    const uchar** getAllColForWrite() { return cells; }
    void setCol(int column, const uchar* bytes) { cells[column] = bytes; }
    void setColAsString(int column, RowBuffer& buffer, const QString& text);
    void setColAsString(int column, RowBuffer& buffer, long long number);

    /// Makes the cell the null cell of the column's own meta type.
    void setNull(int column);

    /// Copies the cells of all columns, one behind the other, into the buffer and returns the
    /// block.
    uchar* storeInBuffer(RowBuffer& buffer) const;

    /// Bytes that storeInBuffer takes for this row, and the same copy to a given address.
    qsizetype storedBytes() const;
    void storeAt(uchar* bytes) const;

    /// Points the cells from `firstColumn` up to and without `lastColumn` (-1: to the end) at a
    /// block that storeInBuffer made, by this row's meta types. Returns the place behind it.
    const uchar* initFromBuffer(const uchar* bytes, int firstColumn, int lastColumn);

    // Shape.

    /// On a fresh row: takes over cell pointers, names, meta types and declared order. Later: takes
    /// over the cell pointers and leaves alone what was set since.
    void copyFrom(const OneRow& row) {
        if (fresh_) {
            copyShape(row);
            return;
        }
        const qint32 shared = row.columns < columns ? row.columns : columns;
        std::copy_n(row.cells, shared, cells);
    }

    /// Columns added are nameless text columns of null cells.
    void setNumberOfColumns(int number);
    void setColName(int column, const QString& name);
    /// A null cell of the row itself becomes the null of the new type; any other cell stays.
    void setMetaType(int column, const MetaInfo& type);
    void setMetaData(const QVector<MetaInfo>& types);
    void setSortInfos(const QVector<SortInfos>& sort);

    /// Takes over the whole shape; every cell becomes null. The row is fresh no longer.
    void setShape(const PinOutMetaData& shape);

    /// As after construction: no columns, and copyFrom takes over everything again.
    void makeFresh();
    bool isFresh() const { return fresh_; }

    const PinOutMetaData& shape() const { return meta_; }

    /// The first column with exactly this name, or -1.
    int getIndexOfColumn(const QString& name) const { return indexOfColumnFrom(name, 0); }

    /// The first column at or behind `from` with exactly this name, or -1.
    int indexOfColumnFrom(const QString& name, int from) const;

    const QString& colName(int column) const { return meta_.names[column]; }
    MetaInfo getMetaType(int column) const { return meta_.types[column]; }
    const MetaInfo* vMetaData() const { return meta_.types.constData(); }
    const QVector<SortInfos>& sortInfos() const { return meta_.sort; }

    /// Copies that the caller may change.
    QVector<QString> getColNamesDeep() const;
    QVector<MetaInfo> getMetaDataDeep() const { return meta_.types; }
    QVector<SortInfos> getSortInfosDeep() const { return meta_.sort; }

    int sz() const { return columns; }

private:
    /// Where each name stands: its first column, and for each column the next of the same name.
    struct NameIndex {
        QHash<QString, int> first;
        std::vector<int> next;
    };

    void copyShape(const OneRow& row);
    void resizeCells(int number);
    void buildNameIndex() const;

    std::unique_ptr<const uchar*[]> storage_;
    int room_ = 0;
    bool fresh_ = true;
    PinOutMetaData meta_;
    mutable std::unique_ptr<NameIndex> nameIndex_;
    mutable std::vector<ushort> scratch_;
};
