#include "plugin/partition_run.h"

void PartitionRun::begin(const OneRow& row, int column) {
    column_ = column;
    metaType_ = row.getMetaType(column).type;
    isSame_ = metaType_ == MetaTypeKey     ? &isSameKey
              : metaType_ == MetaTypeFloat ? &isSameFloat
                                           : &isSameText;
    keep(row.cells[column]);
}

void PartitionRun::keep(const uchar* bytes) {
    cell_.assign(bytes, bytes + cell::bytes(bytes, metaType_));
}

bool PartitionRun::isSameText(const PartitionRun& run, const uchar* bytes) {
    // Not byte by byte: one length can be written in more than one way.
    const cell::TextView kept = cell::text(run.cell_.data());
    const cell::TextView text = cell::text(bytes);
    return kept.length == text.length &&
           std::memcmp(kept.chars, text.chars, 2 * static_cast<size_t>(text.size())) == 0;
}

bool PartitionRun::isSameKey(const PartitionRun& run, const uchar* bytes) {
    const quint32 kept = cell::loadKey(run.cell_.data());
    const quint32 key = cell::loadKey(bytes);
    return kept == key || (kept >= cell::firstNullKey && key >= cell::firstNullKey);
}

bool PartitionRun::isSameFloat(const PartitionRun& run, const uchar* bytes) {
    const quint64 kept = cell::loadFloatBits(run.cell_.data());
    const quint64 bits = cell::loadFloatBits(bytes);
    if (kept == bits)
        return true;
    const auto isInvalid = [](quint64 pattern) {
        const double value = std::bit_cast<double>(pattern);
        return value != value && pattern != cell::nullFloatBits;
    };
    return isInvalid(kept) && isInvalid(bits);
}
