/// Checks the rows of a table against its declared order.
#pragma once

#include "engine/csv/row_batch.h"
#include "host/cell_order.h"

#include <utility>

namespace velmorra {

/// One thread at a time. A sort type without a comparison can't be checked: the columns in front of
/// the first such are.
class OrderCheck {
public:
    void declare(const PinOutMetaData& shape);

    bool isNeeded() const { return !keys_.empty(); }

    /// The next row. False when it may not come behind the one before; then `problem` says why.
    bool accept(const uchar* const* row, qint64 line) {
        const uchar* const* const earlier = previous_;
        previous_ = row;
        const qint64 earlierLine = std::exchange(line_, line);
        if (earlier == nullptr)
            return true;
        for (const Key& key : keys_) {
            const int order = key.compare(earlier[key.column], row[key.column]);
            if (order != 0)
                return order < 0 || refuse(key, earlier, earlierLine);
        }
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

    bool refuse(const Key& key, const uchar* const* earlier, qint64 earlierLine);

    std::vector<Key> keys_;
    const uchar* const* previous_ = nullptr;
    qint64 line_ = 0;
    std::vector<const uchar*> keptRow_;
    std::vector<uchar> keptBytes_;
    QString problem_;
};

} // namespace velmorra
