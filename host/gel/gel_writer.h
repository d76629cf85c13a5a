/// Rows as the bytes of a gel file.
///
/// The bytes come in pieces, which the caller takes to where they belong; they don't depend on the
/// number of threads. One thread at a time calls; workers compress blocks meanwhile.
#pragma once

#include "host/export.h"
#include "host/gel/gel_format.h"
#include "host/gel/growing_bytes.h"
#include "host/one_row.h"

#include <vector>

namespace gel {

class CompressionQueue;

class VELMORRA_CORE GelWriter {
public:
    /// With no workers the calling thread compresses. `blockRows` is the most rows of a block.
    explicit GelWriter(int workers = 0, quint32 blockRows = mostBlockRows);
    ~GelWriter();
    GelWriter(const GelWriter&) = delete;
    GelWriter& operator=(const GelWriter&) = delete;

    /// Begins the table. The problem where it can't be stored, else a null string.
    QString start(const PinOutMetaData& columns);

    /// Adds a row of these columns' types; the problem, or a null string. Throws std::bad_alloc.
    QString add(const uchar* const* cells);

    /// Ends the file. Requires: started. Throws std::bad_alloc.
    void finish();

    /// What is to be written next, up to where `clear` was called last.
    const char* bytes() const;
    qint64 size() const { return static_cast<qint64>(bytes_.size()); }
    void clear() { bytes_.clear(); }

private:
    void takeBlocks(size_t mostPending);

    int workers_;
    quint32 blockRows_;
    std::unique_ptr<CompressionQueue> queue_;
    GrowingBytes bytes_;
    quint64 headerChecksum_ = 0;
    std::vector<BlockEntry> index_;
    quint64 rows_ = 0;
    quint64 written_ = 0; ///< bytes of the file up to the end of the blocks
};

} // namespace gel
