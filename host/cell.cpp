#include "host/cell.h"

#include <cstdint>

namespace {
constexpr quint32 keyCell = cell::nullKey;
constexpr quint64 floatCell = cell::nullFloatBits;
} // namespace

const uchar* cell::nullCell(qint32 metaType) {
    if (metaType == MetaTypeKey)
        return reinterpret_cast<const uchar*>(&keyCell);
    return metaType == MetaTypeFloat ? reinterpret_cast<const uchar*>(&floatCell) : &nullText;
}
