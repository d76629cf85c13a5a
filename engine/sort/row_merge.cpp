#include "engine/sort/row_merge.h"

#include <utility>

namespace velmorra {

void RowMerge::add(const HeldRows::Chunk& chunk) {
    const SortEntry* const first = chunk.entries.get();
    sources_.push_back({first, first + chunk.count, nullptr});
}

void RowMerge::add(std::unique_ptr<SortedRunReader> run) {
    sources_.push_back({nullptr, nullptr, std::move(run)});
}

bool RowMerge::refill(Source& source, QString* error) {
    if (!source.run)
        return true;
    if (!source.run->fill(error))
        return false;
    source.next = source.run->rows().data();
    source.end = source.next + source.run->rows().size();
    return true;
}

RowMerge::Player RowMerge::player(size_t source) const {
    const Source& from = sources_[source];
    return {from.next == from.end ? ~0ull : from.next->piece, source};
}

bool RowMerge::winsTie(size_t source, size_t against) const {
    const Source& a = sources_[source];
    const Source& b = sources_[against];
    if (a.next == a.end || b.next == b.end)
        return a.next != a.end;
    const int order = key_.isWholeInFirstPiece() ? 0 : key_.compare(a.next->row, b.next->row);
    return order != 0 ? order < 0 : source < against;
}

/// Plays the matches below a node, and the one of the node itself: its winner.
RowMerge::Player RowMerge::play(size_t node) {
    if (node >= sources_.size())
        return player(node - sources_.size());
    Player first = play(2 * node);
    Player second = play(2 * node + 1);
    if (!wins(first, second))
        std::swap(first, second);
    losers_[node] = second;
    return first;
}

bool RowMerge::start(QString* error) {
    for (Source& source : sources_) {
        if (source.next == source.end && !refill(source, error))
            return false;
    }
    losers_.resize(sources_.size());
    if (!sources_.empty())
        winner_ = play(1);
    return true;
}

/// The rows of a chunk lie anywhere in memory, and what this source needs next is handed on only
/// after the rows of many others: time enough to bring it in.
void RowMerge::prefetchNext(const Source& source) {
    constexpr int cacheLine = 64;
    constexpr int entriesAhead = 2 * cacheLine / int(sizeof(SortEntry));
    if (source.end - source.next > 1) {
        __builtin_prefetch(source.next + entriesAhead);
        __builtin_prefetch(source.next[1].row);
        __builtin_prefetch(source.next[1].row + cacheLine);
    }
}

/// Takes the new row of a source up the tree. Which of two rows is the smaller one can't be
/// predicted, so that they change places without a branch.
void RowMerge::replay(size_t source) {
    Player winner = player(source);
    for (size_t node = (source + sources_.size()) / 2; node > 0; node /= 2) {
        Player& loser = losers_[node];
        const bool changes = loser.piece == winner.piece ? winsTie(loser.source, winner.source)
                                                         : loser.piece < winner.piece;
        const quint64 mask = -static_cast<quint64>(changes);
        const quint64 pieces = (loser.piece ^ winner.piece) & mask;
        const quint64 places = (loser.source ^ winner.source) & mask;
        loser = {loser.piece ^ pieces, loser.source ^ places};
        winner = {winner.piece ^ pieces, winner.source ^ places};
    }
    winner_ = winner;
}

const uchar* RowMerge::next(QString* error) {
    if (sources_.empty())
        return nullptr;
    if (!std::exchange(isFirst_, false)) {
        Source& source = sources_[winner_.source];
        if (source.next == source.end || (++source.next == source.end && !refill(source, error)))
            return nullptr;
        prefetchNext(source);
        replay(winner_.source);
    }
    const Source& source = sources_[winner_.source];
    return source.next == source.end ? nullptr : source.next->row;
}

} // namespace velmorra
