/// A spool: rows of one output pin that wait for several readers, each at a place of its own.
///
/// Rows are packed into blocks (cells one behind the other). A full block stays in memory while the
/// store allows it, else it goes to the store's file and each reader brings it back for itself. A
/// block goes away when every reader has passed it. One thread at a time.
#pragma once

#include "engine/spool_store.h"
#include "host/one_row.h"

#include <deque>

namespace velmorra {

class SpoolReader;

class Spool {
public:
    /// `store` must outlive the spool. Blocks grow up to `blockBytes`.
    Spool(SpoolStore& store, qint64 blockBytes) : store_(store), blockBytes_(blockBytes) {}
    ~Spool();
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    /// A further reader, from the first row on. All readers come before the first row. The spool
    /// must outlive it.
    std::unique_ptr<SpoolReader> addReader();

    /// Adds a row at the end. False with `error` set when there is no place for it.
    bool append(const OneRow& row, QString* error);

private:
    friend class SpoolReader;

    struct Block {
        std::unique_ptr<uchar[]> bytes; ///< null when the block is in the file
        qint64 size = 0;
        qint64 used = 0;
        qint64 rows = 0;
        qint64 place = -1; ///< in the file
        int toCome = 0;    ///< readers that haven't passed the block
        int inside = 0;    ///< readers whose row is in `bytes`
        bool charged = false;
    };

    bool openBlock(qint64 rowBytes, QString* error);
    bool settle(Block& full, QString* error);
    bool leave(qint64 number, QString* error);
    void dropPassed();
    Block& block(qint64 number) { return blocks_[static_cast<size_t>(number - first_)]; }
    qint64 end() const { return first_ + static_cast<qint64>(blocks_.size()); }

    SpoolStore& store_;
    qint64 blockBytes_;
    qint64 nextSize_ = 4096;
    PinOutMetaData shape_;
    bool started_ = false;
    int readers_ = 0;
    qint64 first_ = 0; ///< number of the block at the front of blocks_
    std::deque<Block> blocks_;
};

class SpoolReader {
public:
    explicit SpoolReader(Spool& spool) : spool_(spool) {}

    /// The next row, valid until the next call; null when there is none yet, or with `error` set.
    const OneRow* next(QString* error);

    /// Takes no more rows: blocks that wait for this reader alone go away.
    void close();

private:
    const uchar* enterBlock(QString* error);

    Spool& spool_;
    OneRow row_;
    qint64 block_ = 0;
    qint64 rowInBlock_ = 0;
    bool entered_ = false;
    bool closed_ = false;
    const uchar* position_ = nullptr;
    std::unique_ptr<uchar[]> loaded_; ///< this reader's copy of a block that is in the file
};

} // namespace velmorra
