/// Merges sorted sources of held rows; of equal rows those of the earlier source come first.
///
/// The sources stand at the leaves of a binary tree. Each inner node keeps the loser of the
/// comparison there, so that the next row is found by comparing the new row of one source with the
/// losers on its way up.
#pragma once

#include "engine/sort/held_rows.h"
#include "engine/sort/sorted_run.h"

namespace velmorra {

class RowMerge {
public:
    /// `key` must outlive the merge.
    explicit RowMerge(const SortKey& key) : key_(key) {}

    /// Sources, in the order in which equal rows are to come. The entries must outlive the merge.
    void add(const HeldRows::Chunk& chunk);
    void add(std::unique_ptr<SortedRunReader> run);

    /// Behind the last source. False with `error` set.
    bool start(QString* error);

    /// The next row, valid until the next call; null at the end, or with `error` set.
    const uchar* next(QString* error);

private:
    struct Source {
        const SortEntry* next;
        const SortEntry* end;
        std::unique_ptr<SortedRunReader> run; ///< null for rows in memory
    };

    /// The row of a source in the tree. A source at its end has the highest piece, and loses every
    /// tie.
    struct Player {
        quint64 piece;
        size_t source;
    };

    bool refill(Source& source, QString* error);
    Player player(size_t source) const;
    Player play(size_t node);
    void replay(size_t source);
    static void prefetchNext(const Source& source);
    bool winsTie(size_t source, size_t against) const;

    bool wins(const Player& player, const Player& against) const {
        return player.piece != against.piece ? player.piece < against.piece
                                             : winsTie(player.source, against.source);
    }

    const SortKey& key_;
    std::vector<Source> sources_;
    std::vector<Player> losers_; ///< by node, from 1; the children of n are 2n and 2n + 1
    Player winner_ = {};
    bool isFirst_ = true;
};

} // namespace velmorra
