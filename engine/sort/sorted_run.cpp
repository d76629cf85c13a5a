#include "engine/sort/sorted_run.h"

#include <algorithm>

namespace velmorra {

namespace {

constexpr int mostSizeBytes = 10;

uchar* writeSize(uchar* to, quint64 size) {
    for (; size >= 0x80; size >>= 7)
        *to++ = static_cast<uchar>(size | 0x80);
    *to++ = static_cast<uchar>(size);
    return to;
}

/// The place behind a size, or null when it doesn't end in front of `end`.
const uchar* readSize(const uchar* from, const uchar* end, qint64* size) {
    quint64 sum = 0;
    for (int shift = 0; from < end && shift < 7 * mostSizeBytes; shift += 7) {
        const quint64 byte = *from++;
        sum |= (byte & 0x7F) << shift;
        if (byte < 0x80) {
            *size = static_cast<qint64>(sum);
            return from;
        }
    }
    return nullptr;
}

} // namespace

SortedRunWriter::SortedRunWriter(TemporaryFile& file, qint64 place, qint64 bufferBytes)
    : file_(file),
      run_{place, 0},
      room_(std::max<qint64>(bufferBytes, mostSizeBytes)) {
    buffer_.reset(new uchar[size_t(room_)]);
}

bool SortedRunWriter::flush(QString* error) {
    const qint64 size = std::exchange(used_, 0);
    if (size > 0 && !file_.write(run_.place + run_.size, buffer_.get(), size, error))
        return false;
    run_.size += size;
    return true;
}

bool SortedRunWriter::write(const uchar* row, qsizetype size, QString* error) {
    if (room_ - used_ < mostSizeBytes && !flush(error))
        return false;
    used_ = writeSize(buffer_.get() + used_, quint64(size)) - buffer_.get();
    while (size > 0) {
        const qsizetype part = std::min(size, room_ - used_);
        std::memcpy(buffer_.get() + used_, row, size_t(part));
        used_ += part;
        row += part;
        size -= part;
        if (used_ == room_ && !flush(error))
            return false;
    }
    return true;
}

SortedRunReader::SortedRunReader(const TemporaryFile& file, SortedRun run, qint64 bufferBytes,
                                 const SortKey& key)
    : file_(file),
      key_(key),
      rest_(run),
      room_(bufferBytes) {}

/// Takes a row that is in the buffer as a whole.
bool SortedRunReader::takeRow() {
    const uchar* const start = buffer_.get() + at_;
    qint64 size = 0;
    const uchar* const row = readSize(start, buffer_.get() + end_, &size);
    if (row == nullptr) {
        wanted_ = mostSizeBytes;
        return false;
    }
    wanted_ = row - start + size;
    if (wanted_ > end_ - at_)
        return false;
    rows_.push_back({key_.firstPiece(row), row});
    at_ += wanted_;
    return true;
}

/// Moves what is left to the front of the buffer and fills it up.
bool SortedRunReader::load(QString* error) {
    if (!buffer_ || wanted_ > room_) {
        room_ = std::max(room_, wanted_);
        std::unique_ptr<uchar[]> larger(new uchar[size_t(room_)]);
        std::copy_n(buffer_.get() + at_, end_ - at_, larger.get());
        buffer_ = std::move(larger);
    } else {
        std::copy(buffer_.get() + at_, buffer_.get() + end_, buffer_.get());
    }
    end_ -= std::exchange(at_, 0);
    const qint64 part = std::min(room_ - end_, rest_.size);
    if (!file_.read(rest_.place, buffer_.get() + end_, part, error))
        return false;
    rest_.place += part;
    rest_.size -= part;
    end_ += part;
    return true;
}

bool SortedRunReader::fill(QString* error) {
    rows_.clear();
    const auto most = size_t(std::max<qint64>(1, room_ / bytesForEntry));
    rows_.reserve(most);
    while (rows_.size() < most && at_ < end_ && takeRow()) {
    }
    if (!rows_.empty())
        return true;
    while (rows_.empty() && (at_ < end_ || rest_.size > 0)) {
        if (!load(error))
            return false;
        while (rows_.size() < most && at_ < end_ && takeRow()) {
        }
    }
    return true;
}

} // namespace velmorra
