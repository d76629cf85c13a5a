/// Checks the rows of a table against its declared order.
#pragma once

#include "engine/csv/row_batch.h"
#include "host/cell_order.h"

namespace velmorra {

/// One thread at a time. A sort type without a comparison can't be checked: the columns in front of
/// the first such are.
class OrderCheck {
public:
    void declare(const PinOutMetaData& shape);

    bool isNeeded() const { return !keys_.empty(); }

    /// The next row. False when it may not come behind the one before, and then doesn't count;
    /// `problem` says why.
    bool accept(const uchar* const* row, qint64 line) {
        if (previous_ != nullptr) {
            for (const Key& key : keys_) {
                const int order = key.compare(previous_[key.column], row[key.column]);
                if (order > 0)
                    return refuse(key, row, line);
                if (order < 0)
                    break;
            }
        }
        previous_ = row;
        line_ = line;
        return true;
    }

    /// Copies what is needed of the last row, so that its memory can be used again.
    void keep();

    const QString& problem() const { return problem_; }

private:
    struct Key {
        int column;
        qint32 sortType;
        qint32 metaType;
        CellOrder compare;
        QString name;
    };

    bool refuse(const Key& key, const uchar* const* row, qint64 line);

    std::vector<Key> keys_;
    const uchar* const* previous_ = nullptr;
    qint64 line_ = 0;
    std::vector<const uchar*> keptRow_;
    std::vector<uchar> keptBytes_;
    QString problem_;
};

} // namespace velmorra
