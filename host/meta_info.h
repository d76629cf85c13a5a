/// The type of a column and the declared order of a table.
#pragma once

#include <QtCore/QString>
#include <QtCore/QVector>

/// Meta type of a column; the value is the code of its letter.
enum MetaTypeColumn : qint32 {
    MetaTypeFloat = 70, ///< 'F', a double
    MetaTypeKey = 75,   ///< 'K', an unsigned 32-bit integer
    MetaTypeText = 85,  ///< 'U', UTF-16 text
};

/// Meta type of a column with the number that belongs to it (-1 for all built here). A type other
/// than 'F' and 'K' stands for a text column.
struct MetaInfo {
    MetaTypeColumn type = MetaTypeText;
    int info = -1;

    MetaInfo() = default;
    MetaInfo(int metaType, int number)
        : type(static_cast<MetaTypeColumn>(metaType)),
          info(number) {}

    friend bool operator==(const MetaInfo&, const MetaInfo&) = default;
};

/// Sort types, each the code of a letter.
enum SortTypes : qint32 {
    SortNumberRising = '0',
    SortNumberFalling = '9',
    SortTextRising = 'A',
    SortTextFalling = 'Z',
};

/// One column of a table's declared order. The first entry of a list is the main sort column.
struct SortInfos {
    qint32 column = -1;
    qint32 SortType = SortTextRising;

    friend bool operator==(const SortInfos&, const SortInfos&) = default;
};

/// What is known of a table besides its rows: column names, meta types, and declared order.
/// `names` and `types` have the same length.
struct PinOutMetaData {
    QVector<QString> names;
    QVector<MetaInfo> types;
    QVector<SortInfos> sort;

    friend bool operator==(const PinOutMetaData&, const PinOutMetaData&) = default;
};
