/// A gel file that is open for reading: what its header, index and footer say, and its blocks.
///
/// Opening checks all but the blocks, so that a file that was cut off is refused before its first
/// row. `readBlock` may be called on another thread than `open`, by one at a time.
#pragma once

#include "host/export.h"
#include "host/gel/gel_format.h"
#include "host/gel/growing_bytes.h"
#include "host/meta_info.h"

#include <vector>

namespace gel {

class VELMORRA_CORE GelFile {
public:
    GelFile() = default;
    ~GelFile() { close(); }
    GelFile(const GelFile&) = delete;
    GelFile& operator=(const GelFile&) = delete;

    /// Opens a path, or standard input for `-` where that is a regular file. Returns 0, or the
    /// system's error number when it can't be opened; problem() is set then too. When it can be
    /// opened and isn't a sound gel file, the result is 0 and problem() says what is wrong.
    int open(const QString& path);
    void close();

    /// "'x.gel' is not a gel file"; a null string when there is nothing wrong.
    const QString& problem() const { return problem_; }

    /// The path for messages: "standard input" for `-`.
    const QString& shownName() const { return shownName_; }

    const PinOutMetaData& columns() const { return columns_; }
    quint64 rows() const { return rows_; }
    size_t blocks() const { return index_.size(); }
    const BlockEntry& block(size_t block) const { return index_[block]; }

    /// Reads a block as it is stored and checks it: false when it isn't what was written.
    bool readBlock(size_t block, GrowingBytes* stored) const;

    /// "'x.gel' is damaged: block 3 of 10 (rows 2001 to 3000) ..."
    QString blockProblem(size_t block) const;

private:
    void check();
    bool damaged(const char* what);
    bool readHeader(quint64* headerChecksum);
    bool readIndex(quint64 headerChecksum);
    bool readEntries(quint64 indexAt, quint64* sum);
    bool isSound(const BlockEntry& entry) const;
    bool readAt(quint64 place, size_t size, uchar* bytes) const;

    int file_ = -1;
    quint64 size_ = 0;
    QString shownName_;
    QString problem_;
    PinOutMetaData columns_;
    quint64 rows_ = 0;
    quint64 blocksAt_ = 0; ///< where the first block begins
    std::vector<BlockEntry> index_;
    std::vector<quint64> places_; ///< of the blocks
};

} // namespace gel
