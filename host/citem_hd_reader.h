/// The reader of stored tables (gel files) for Actions that open files of their own.
///
/// What the system refuses to open fails in `init`, without a message. What is wrong with the
/// content of a file is logged at level 1 by `readFromHD`, which then hands out no row, sets
/// `status` to 3 and ends the run as failed: a damaged table is never a shorter one. One thread at
/// a time; the reader may have a thread of its own.
#pragma once

#include "host/one_row.h"

#include <memory>

class GlobalParameters;

namespace gel {
class GelReader;
}

class VELMORRA_CORE CItemHDReader {
public:
    /// A reader that fills `columns` when it opens a file, where that isn't null: not owned, and to
    /// be kept until closeHD. The flag is there for callers of the older form and isn't used.
    CItemHDReader(PinOutMetaData* columns, bool);
    ~CItemHDReader();
    CItemHDReader(const CItemHDReader&) = delete;
    CItemHDReader& operator=(const CItemHDReader&) = delete;

    /// Opens a file. With 2 buffers the next block is read and decompressed on a thread while the
    /// current one is handed out. With `skipCorruptedBlocks` a block that is damaged is passed over
    /// with a warning. Returns 0, or else the system's error number. `parameters` is those of the
    /// run and must live until closeHD.
    int init(GlobalParameters* parameters, const QString& file, int, int buffers, bool,
             bool skipCorruptedBlocks);

    /// The next row, valid until the next call; null at the end of the table, on a problem, and
    /// when the run has been stopped. It carries the columns and the declared order of the table.
    OneRow* readFromHD();

    void closeHD();

    OneRow* currentRow = nullptr; ///< of the last readFromHD
    QString fileName;
    /// 0 good, 1 or 2 a problem that was reported, above 2 a fatal one.
    qint32 status = 0;

private:
    void report();

    PinOutMetaData* columns_;
    GlobalParameters* parameters_ = nullptr;
    std::unique_ptr<gel::GelReader> reader_;
    OneRow row_;
};
