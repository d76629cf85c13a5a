/// Random rows for the tests of row storage: cells at odd addresses, texts of many lengths.
#pragma once

#include "host/one_row.h"

#include <random>
#include <string>
#include <vector>

using Bytes = std::vector<uchar>;

inline Bytes textCell(const std::u16string& text) {
    Bytes bytes(static_cast<size_t>(cell::textCellBytes(static_cast<int>(text.size()))));
    cell::writeText(bytes.data(), text.data(), static_cast<int>(text.size()));
    return bytes;
}

inline Bytes keyCell(quint32 key) {
    Bytes bytes(4);
    cell::storeKey(bytes.data(), key);
    return bytes;
}

inline Bytes floatCell(double number) {
    Bytes bytes(8);
    cell::storeFloat(bytes.data(), number);
    return bytes;
}

inline const Bytes nullTextCell{cell::nullText};

/// A table in memory: cells by row and column.
struct CellTable {
    std::vector<qint32> types;
    std::vector<std::vector<Bytes>> rows;
};

inline Bytes randomCell(std::mt19937& random, qint32 type, unsigned range) {
    if (type == MetaTypeKey)
        return keyCell(random() % 9 == 0 ? cell::nullKey : random() % range);
    if (type == MetaTypeFloat)
        return random() % 9 == 0 ? Bytes(8, 0xFF) : floatCell(int(random() % range) / 4.0);
    if (random() % 9 == 0)
        return nullTextCell;
    std::u16string text = u"t" + std::u16string(random() % 3 == 0 ? random() % 200 : 0, u'x');
    for (unsigned value = random() % range; value > 0; value /= 7)
        text += static_cast<char16_t>(u'a' + value % 7);
    return textCell(text);
}

inline CellTable randomTable(std::mt19937& random, std::vector<qint32> types, size_t rows,
                             unsigned range) {
    CellTable table{std::move(types), {}};
    for (size_t i = 0; i < rows; ++i) {
        std::vector<Bytes> cells;
        for (const qint32 type : table.types)
            cells.push_back(randomCell(random, type, range));
        table.rows.push_back(std::move(cells));
    }
    return table;
}

inline void setTypes(OneRow& row, const std::vector<qint32>& types) {
    row.setNumberOfColumns(static_cast<int>(types.size()));
    for (size_t i = 0; i < types.size(); ++i) {
        row.setColName(static_cast<int>(i), QStringLiteral("c%1").arg(i));
        row.setMetaType(static_cast<int>(i), MetaInfo(types[i], -1));
    }
}

inline void pointAt(OneRow& row, const std::vector<Bytes>& cells) {
    for (size_t i = 0; i < cells.size(); ++i)
        row.cells[i] = cells[i].data();
}

inline Bytes bytesOf(const uchar* cellBytes, qint32 type) {
    return {cellBytes, cellBytes + cell::bytes(cellBytes, type)};
}
