#include "actions/join/row_group.h"

namespace {

constexpr qint64 linkBytes = sizeof(uchar*);

// Rows may stand at any address, and so may the links.

void setLink(uchar* row, uchar* next) {
    std::memcpy(row, &next, sizeof next);
}

const uchar* linkOf(const uchar* row) {
    const uchar* next;
    std::memcpy(&next, row, sizeof next);
    return next;
}

} // namespace

void RowGroup::add(const uchar* const* cells) {
    uchar* const row = rows_.alloc(linkBytes + packedSize(descriptor_, cells));
    setLink(row, nullptr);
    packRow(descriptor_, cells, row + linkBytes);
    if (last_ != nullptr)
        setLink(last_, row);
    else
        first_ = row;
    last_ = row;
}

bool RowGroup::unpackNext(const uchar** out) {
    unpackRow(descriptor_, out, next_ + linkBytes);
    next_ = linkOf(next_);
    return next_ != nullptr;
}

void RowGroup::clear() {
    rows_.reset();
    first_ = last_ = nullptr;
    next_ = nullptr;
}

void RowGroup::release() {
    clear();
    rows_.deepReset(0);
    releaseDescriptor(descriptor_);
}
