#include "host/gel/gel_reader.h"

#include "host/gel/block_queue.h"

namespace gel {

namespace {
constexpr size_t mostWarnings = 20;
} // namespace

GelReader::GelReader() = default;

GelReader::~GelReader() {
    close();
}

int GelReader::open(const QString& path, bool readsAhead, bool skipsDamagedBlocks) {
    close();
    readsAhead_ = readsAhead;
    skips_ = skipsDamagedBlocks;
    const int error = file_.open(path);
    problem_ = file_.problem();
    blocks_ = file_.blocks();
    return error;
}

void GelReader::close() {
    rows_ = nullptr;
    queue_.reset();
    file_.close();
    problem_ = {};
    warnings_.clear();
    skipped_ = 0;
    blocksTaken_ = 0;
}

QStringList GelReader::takeWarnings() {
    return std::exchange(warnings_, {});
}

double GelReader::share() const {
    const size_t blocks = blocks_;
    return blocks == 0 ? 1 : double(blocksTaken_) / double(blocks);
}

bool GelReader::nextBlock() {
    if (!problem_.isNull())
        return false;
    if (queue_ == nullptr)
        queue_ = std::make_unique<BlockQueue>(file_, readsAhead_);
    while ((rows_ = queue_->next()) != nullptr) {
        const size_t block = blocksTaken_++;
        if (rows_->rowsLeft() > 0)
            return true;
        if (!skips_) {
            problem_ = file_.blockProblem(block);
            rows_ = nullptr;
            return false;
        }
        if (++skipped_ <= mostWarnings)
            warnings_.push_back(file_.blockProblem(block) + QStringLiteral("; it is passed over"));
    }
    if (skipped_ > mostWarnings)
        warnings_.push_back(file_.shownName() +
                            QStringLiteral(" is damaged: %1 more blocks are passed over")
                                .arg(skipped_ - mostWarnings));
    skipped_ = 0;
    return false;
}

} // namespace gel
