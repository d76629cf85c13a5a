/// Large blocks of memory straight from the operating system.
///
/// Any thread may call these.
#pragma once

#include <QtCore/QtGlobal>

/// `size` bytes, zero-filled, writable and page-aligned; to be given back through bigFree. Where
/// the system has none, it is asked again every 100 ms, each time with a notice at level 4; null
/// after the 50th time, or when `size` isn't positive.
uchar* bigMalloc(qint64 size);

/// Gives a block of bigMalloc back; does nothing for null.
void bigFree(uchar* block);

/// What tests see and change of bigMalloc.
struct BigMallocWatch {
    /// The number of blocks that weren't given back.
    static int livingBlocks();

    /// The call behind the next `successes` calls fails, and all further ones, at once and with a
    /// single notice. A negative number ends this.
    static void failAfter(int successes);
};
