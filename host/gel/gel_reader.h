/// The rows of a gel file, one after the other.
///
/// One thread at a time, but for `share`; the reader has a thread of its own where it reads ahead.
#pragma once

#include "host/gel/block_rows.h"
#include "host/gel/gel_file.h"

#include <QtCore/QStringList>

#include <atomic>

namespace gel {

class BlockQueue;

class VELMORRA_CORE GelReader {
public:
    GelReader();
    ~GelReader();
    GelReader(const GelReader&) = delete;
    GelReader& operator=(const GelReader&) = delete;

    /// As GelFile::open. With `readsAhead` the next block is read and decompressed on a thread
    /// while the current one is handed out. With `skipsDamagedBlocks` a block that is damaged
    /// counts as one without rows.
    int open(const QString& path, bool readsAhead, bool skipsDamagedBlocks);
    void close();

    /// What is wrong with the file; once it is there, no more rows come.
    const QString& problem() const { return problem_; }

    /// Whether there is a problem or a warning that wasn't taken.
    bool hasNews() const { return !problem_.isNull() || !warnings_.isEmpty(); }

    /// What was passed over since the last call: a line for each block, up to a number of them, and
    /// one for all others at the end of the table.
    QStringList takeWarnings();

    const PinOutMetaData& columns() const { return file_.columns(); }

    /// Points the cells at the next row, until the next call; false at the end and on a problem.
    bool nextRow(const uchar** cells) {
        if (rows_ == nullptr || rows_->rowsLeft() == 0) {
            if (!nextBlock())
                return false;
        }
        rows_->takeRow(cells);
        return true;
    }

    /// How much has been handed out, from 0 to 1, by blocks.
    double share() const;

private:
    bool nextBlock();

    GelFile file_;
    std::unique_ptr<BlockQueue> queue_;
    BlockRows* rows_ = nullptr; ///< the current block, in the queue
    bool readsAhead_ = false;
    bool skips_ = false;
    QString problem_;
    QStringList warnings_;
    size_t skipped_ = 0;
    std::atomic<size_t> blocksTaken_{0};
    std::atomic<size_t> blocks_{0};
};

} // namespace gel
