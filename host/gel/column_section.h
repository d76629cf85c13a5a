/// The part of a gel file's header that tells the columns and the declared order.
#pragma once

#include "host/gel/growing_bytes.h"
#include "host/meta_info.h"

namespace gel {

/// Appends it. The problem where a table can't be stored, else a null string.
QString putColumns(const PinOutMetaData& columns, GrowingBytes* out);

/// False when the bytes can't be that.
bool takeColumns(ByteTaker bytes, PinOutMetaData* columns);

} // namespace gel
