/// Where the rows that wait between boxes may be: a memory limit shared by all spools of a run, and
/// behind it one unlinked temporary file.
///
/// One thread at a time.
#pragma once

#include "engine/temporary_file.h"

#include <map>
#include <vector>

namespace velmorra {

class SpoolStore {
public:
    /// `folder` is where the temporary file goes; empty: the system's folder for such files.
    SpoolStore(qint64 memoryLimit, qint64 fileLimit, const QString& folder);

    /// Whether `bytes` more may be held in memory; if so they count until `release`.
    bool reserve(qint64 bytes);
    void release(qint64 bytes) { memory_ -= bytes; }

    /// Writes a block to the temporary file, into a place of `room` bytes (at least `size`, above
    /// 0), and returns the place; -1 with `error` set when the file is full, can't be made or can't
    /// be written.
    qint64 write(const uchar* bytes, qint64 size, qint64 room, QString* error);

    /// Reads a block back. False with `error` set.
    bool read(qint64 place, uchar* bytes, qint64 size, QString* error) const {
        return file_.read(place, bytes, size, error);
    }

    /// Gives the place of a block in the file back for reuse.
    void free(qint64 place, qint64 room) { free_[room].push_back(place); }

    qint64 memory() const { return memory_; }
    qint64 fileSize() const { return end_; }

private:
    qint64 memoryLimit_;
    qint64 fileLimit_;
    qint64 memory_ = 0;
    TemporaryFile file_;
    qint64 end_ = 0;
    std::map<qint64, std::vector<qint64>> free_; ///< places by their room
};

} // namespace velmorra
