#include "engine/sort/row_sorter.h"

#include <algorithm>

namespace velmorra {

namespace {

constexpr qint64 smallestBuffer = 64;
constexpr qint64 usualBuffer = 256 << 10;
constexpr qint64 largestBuffer = 1 << 20;
constexpr qint64 shareOfLimit = 32;
constexpr qint64 mostRunsAtATime = 1024;

qint64 bufferUnder(qint64 limit) {
    return std::clamp(limit / shareOfLimit, smallestBuffer, usualBuffer);
}

} // namespace

RowSorter::RowSorter(const PinOutMetaData& shape, qint64 memoryLimit, const QString& folder,
                     const RunStatus& status)
    : form_(shape, shape.sort),
      key_(shape, shape.sort),
      status_(status),
      limit_(memoryLimit),
      bufferBytes_(bufferUnder(memoryLimit)),
      mostRuns_(size_t(std::clamp<qint64>(limit_ / SortedRunReader::bytesFor(bufferBytes_) - 1, 2,
                                          mostRunsAtATime))),
      held_(key_, limit_ - bufferBytes_, status),
      file_(QStringLiteral("sorted rows"), folder) {}

bool RowSorter::add(const OneRow& row) {
    const qsizetype bytes = form_.measure(row);
    if (!held_.hasRoom(bytes) && !spill())
        return false;
    form_.store(row, held_.place(bytes));
    return held_.take(bytes);
}

bool RowSorter::writeRun(RowMerge& merge, SortedRun* run) {
    SortedRunWriter writer(file_, fileEnd_, bufferBytes_);
    if (!merge.start(&problem_))
        return false;
    while (const uchar* const row = merge.next(&problem_)) {
        if (!isRunning() || !writer.write(row, form_.bytes(row), &problem_))
            return false;
    }
    if (!problem_.isNull() || !writer.finish(&problem_))
        return false;
    *run = writer.run();
    fileEnd_ += run->size;
    return true;
}

bool RowSorter::spill() {
    RowMerge merge(key_);
    if (!held_.finish())
        return false;
    for (const HeldRows::Chunk& chunk : held_.chunks())
        merge.add(chunk);
    SortedRun run;
    if (!writeRun(merge, &run))
        return false;
    runs_.push_back(run);
    held_.clear();
    return true;
}

void RowSorter::addRuns(RowMerge& merge, size_t first, size_t count, qint64 bufferBytes) {
    for (size_t i = first; i < first + count; ++i)
        merge.add(std::make_unique<SortedRunReader>(file_, runs_[i], bufferBytes, key_));
}

/// Merges neighbours, of which the first one's place keeps the order of equal rows, until the runs
/// can be read at a time.
bool RowSorter::reduceRuns() {
    for (size_t first = 0; runs_.size() > mostRuns_; ++first) {
        if (first + 1 >= runs_.size())
            first = 0;
        const size_t count =
            std::min({mostRuns_, runs_.size() - mostRuns_ + 1, runs_.size() - first});
        RowMerge merge(key_);
        addRuns(merge, first, count, bufferBytes_);
        SortedRun longer;
        if (!writeRun(merge, &longer))
            return false;
        for (size_t i = first; i < first + count; ++i)
            file_.discard(runs_[i].place, runs_[i].size);
        runs_[first] = longer;
        runs_.erase(runs_.begin() + ptrdiff_t(first) + 1, runs_.begin() + ptrdiff_t(first + count));
    }
    return true;
}

bool RowSorter::finish() {
    if (!runs_.empty()) {
        held_.releaseSpare();
        const qint64 forRuns = qint64(runs_.size()) * SortedRunReader::bytesFor(bufferBytes_);
        if (held_.bytes() + forRuns > limit_ && !spill())
            return false;
        held_.releaseSpare();
        if (!reduceRuns())
            return false;
    }
    if (!held_.finish())
        return false;
    merge_.emplace(key_);
    if (!runs_.empty()) {
        // Two thirds of a reader's memory are its buffer.
        const qint64 share = (limit_ - held_.bytes()) / qint64(runs_.size()) / 3 * 2;
        addRuns(*merge_, 0, runs_.size(), std::clamp(share, bufferBytes_, largestBuffer));
    }
    for (const HeldRows::Chunk& chunk : held_.chunks())
        merge_->add(chunk);
    return merge_->start(&problem_);
}

bool RowSorter::next(OneRow& row) {
    const uchar* const held = merge_->next(&problem_);
    if (held == nullptr)
        return false;
    form_.load(held, row);
    return true;
}

} // namespace velmorra
