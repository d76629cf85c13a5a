/// KeyOrder: how many branches stand on the way to each of a set of distinct keys, in the tree that
/// tells them apart byte by byte.
///
/// Sorted by their bytes, the keys below one branch are neighbours, and the branch stands at the
/// byte up to which all of them agree. So the branches are the ranges in which neighbours share at
/// least n bytes, somewhere exactly n; a stack finds them in one pass over the sorted keys. No
/// recursion: a text of a megabyte may pass a million branches.
#pragma once

#include "rows/big_malloc.h"

#include <algorithm>

template <class Key>
class KeyOrder {
public:
    explicit KeyOrder(qint64 mostKeys)
        : keys_(room<Entry>(mostKeys)),
          stack_(room<Range>(mostKeys)) {}
    KeyOrder(const KeyOrder&) = delete;
    KeyOrder& operator=(const KeyOrder&) = delete;
    ~KeyOrder() {
        giveBack(keys_);
        giveBack(stack_);
    }

    /// False when memory failed; nothing else may be called then.
    bool hasRoom() const { return keys_ != nullptr && stack_ != nullptr; }

    /// `place` is what `visit` gets.
    void add(const Key& key, uchar& place) { keys_[count_++] = {key, &place, 0}; }

    template <class IsLess>
    void sort(IsLess isLess) {
        std::sort(keys_, keys_ + count_,
                  [&](const Entry& a, const Entry& b) { return isLess(a.key, b.key); });
    }

    /// Calls `visit` with each place on the way to whose key the number of branches is odd.
    /// Requires: sorted.
    template <class SharedBytes, class Visit>
    void forEachWithOddBranches(SharedBytes sharedBytes, Visit visit) {
        if (count_ == 0)
            return;
        for (qint64 i = 1; i < count_; ++i)
            step(i, sharedBytes(keys_[i - 1].key, keys_[i].key));
        step(count_, -1);
        bool isOdd = false;
        for (qint64 i = 0; i < count_; ++i) {
            isOdd ^= (keys_[i].bounds & 1) != 0;
            if (isOdd)
                visit(keys_[i].place);
        }
    }

private:
    struct Entry {
        Key key;
        uchar* place;
        qint64 bounds; ///< of branches: how many begin here, and how many ended one place before
    };
    struct Range {
        qint64 shared;
        qint64 first;
    };

    /// Key `i` shares `shared` bytes with the one before: branches that share more end there.
    void step(qint64 i, qint64 shared) {
        qint64 first = i - 1;
        while (depth_ > 0 && stack_[depth_ - 1].shared > shared) {
            first = stack_[--depth_].first;
            ++keys_[first].bounds;
            if (i < count_)
                ++keys_[i].bounds;
        }
        if (shared >= 0 && (depth_ == 0 || stack_[depth_ - 1].shared < shared))
            stack_[depth_++] = {shared, first};
    }

    template <class Item>
    static Item* room(qint64 count) {
        return static_cast<Item*>(
            static_cast<void*>(bigMalloc(std::max<qint64>(count, 1) * qint64(sizeof(Item)))));
    }
    static void giveBack(void* items) { bigFree(static_cast<uchar*>(items)); }

    Entry* keys_;
    Range* stack_;
    qint64 count_ = 0;
    qint64 depth_ = 0;
};
