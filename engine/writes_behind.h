/// Writes a file behind the run that makes its bytes.
///
/// At most `mostWaiting` blocks wait to be written, of `mostBytes` together unless it is a single
/// one. A failure shows later than it happens; the run asks `settle` before it tells anything, so
/// that it tells what it would if each block were written at once.
#pragma once

#include "engine/output_file.h"
#include "engine/side_work.h"

#include <array>

namespace velmorra {

class WritesBehind : private SideWork {
public:
    /// Nobody else writes to the open file until the end of this object.
    WritesBehind(SideThreads& threads, OutputFile& file);
    /// What waits is dropped.
    ~WritesBehind() override;
    WritesBehind(const WritesBehind&) = delete;
    WritesBehind& operator=(const WritesBehind&) = delete;

    /// Takes a block over for writing and gives an empty array for it. False when a write has
    /// failed: the file then says why, unless memory ran out, and nobody writes to it any more.
    bool put(QByteArray& block);

    /// Waits until everything is written. False when a write has failed.
    bool settle();

    /// The number, from 1, that the first block that failed has among all of the run's; 0: none.
    quint64 failedBlock();

    /// Whether the file's reader has gone.
    bool readerGone();

private:
    static constexpr size_t mostWaiting = 3;
    static constexpr qsizetype mostBytes = 1 << 20;

    struct Block {
        QByteArray bytes;
        quint64 number = 0;
    };

    bool isDue() const override { return written_ != put_ && failedBlock_ == 0; }
    void doUnit() noexcept override;
    void unitDone() override;
    Block& oldest() { return ring_[written_ % mostWaiting]; }

    SideThreads& threads_;
    OutputFile& file_;
    std::array<Block, mostWaiting> ring_;
    size_t put_ = 0; ///< blocks so far
    size_t written_ = 0;
    qsizetype bytesWaiting_ = 0;
    quint64 failedBlock_ = 0;
    bool readerGone_ = false;
    bool succeeded_ = true; ///< of the block that is being written
};

} // namespace velmorra
