#include "engine/sort/entry_sort.h"

#include <algorithm>
#include <array>

namespace velmorra {

namespace {

/// Entries that are sorted by insertion, and those for which counting bytes doesn't pay.
constexpr ptrdiff_t fewEntries = 24;
constexpr ptrdiff_t someEntries = 512;

/// Pieces of the key that are looked at before rows are compared cell by cell. Making a late piece
/// of a long text goes through all that comes before it.
constexpr int mostPieces = 6;

class EntrySorter {
public:
    EntrySorter(SortEntry* entries, SortEntry* scratch, const SortKey& key, const RunStatus& status)
        : entries_(entries),
          scratch_(scratch),
          key_(key),
          status_(status) {}

    bool sort(SortEntry* first, SortEntry* last, int piece) {
        if (!isRunning())
            return false;
        sortByPiece(first, last);
        if (piece == 0 && key_.isWholeInFirstPiece())
            return true;
        for (SortEntry* tie = first; tie < last;) {
            SortEntry* end = tie + 1;
            while (end < last && end->piece == tie->piece)
                ++end;
            if (end - tie > 1 && !sortTie(tie, end, piece + 1))
                return false;
            tie = end;
        }
        return true;
    }

private:
    bool isRunning() const { return status_ == RunStatus::Running; }

    /// Sorts entries that are the same up to a piece, by that piece and what follows.
    bool sortTie(SortEntry* first, SortEntry* last, int piece) {
        if (piece == mostPieces || last - first <= fewEntries)
            return sortByCells(first, last);
        const quint64 shared = first->piece;
        quint64 next = 0;
        // The key of all of them ends where that of one does.
        if (!key_.piece(first->row, piece, &next))
            return true;
        for (SortEntry* entry = first; entry != last; ++entry)
            key_.piece(entry->row, piece, &entry->piece);
        const bool sorted = sort(first, last, piece);
        for (SortEntry* entry = first; entry != last; ++entry)
            entry->piece = shared;
        return sorted;
    }

    bool sortByCells(SortEntry* first, SortEntry* last) {
        bool running = true;
        mergeSort(first, last, [&](const SortEntry& a, const SortEntry& b) {
            // A text may be long: a stopped run waits for one comparison at most.
            running = running && isRunning();
            return running && key_.compare(a.row, b.row) < 0;
        });
        return running;
    }

    void sortByPiece(SortEntry* first, SortEntry* last) {
        const auto less = [](const SortEntry& a, const SortEntry& b) { return a.piece < b.piece; };
        if (std::is_sorted(first, last, less))
            return;
        if (last - first <= someEntries)
            mergeSort(first, last, less);
        else
            sortByBytes(first, last);
    }

    template <class Less>
    static void insertionSort(SortEntry* first, SortEntry* last, Less less) {
        for (SortEntry* next = first + 1; next < last; ++next) {
            const SortEntry entry = *next;
            SortEntry* hole = next;
            for (; hole > first && less(entry, hole[-1]); --hole)
                *hole = hole[-1];
            *hole = entry;
        }
    }

    /// Stays in bounds whatever `less` says.
    template <class Less>
    void mergeSort(SortEntry* first, SortEntry* last, Less less) {
        if (last - first <= fewEntries) {
            insertionSort(first, last, less);
            return;
        }
        SortEntry* const middle = first + (last - first) / 2;
        mergeSort(first, middle, less);
        mergeSort(middle, last, less);
        if (!less(*middle, middle[-1]))
            return;
        SortEntry* left = scratch_ + (first - entries_);
        SortEntry* const leftEnd = std::copy(first, middle, left);
        SortEntry* right = middle;
        SortEntry* out = first;
        while (left < leftEnd && right < last)
            *out++ = less(*right, *left) ? *right++ : *left++;
        std::copy(left, leftEnd, out);
    }

    /// Deals the entries out by one byte of the piece after the other, from the lowest on; bytes
    /// that are the same everywhere are passed over.
    void sortByBytes(SortEntry* first, SortEntry* last) {
        constexpr int bytes = sizeof(quint64);
        const auto count = static_cast<quint32>(last - first);
        std::array<std::array<quint32, 256>, bytes> places = {};
        for (const SortEntry* entry = first; entry != last; ++entry) {
            for (int byte = 0; byte < bytes; ++byte)
                ++places[size_t(byte)][entry->piece >> (8 * byte) & 0xFF];
        }
        SortEntry* from = first;
        SortEntry* to = scratch_ + (first - entries_);
        for (int byte = 0; byte < bytes; ++byte) {
            std::array<quint32, 256>& place = places[size_t(byte)];
            if (place[from->piece >> (8 * byte) & 0xFF] == count)
                continue;
            quint32 sum = 0;
            for (quint32& each : place)
                sum += std::exchange(each, sum);
            for (const SortEntry* entry = from; entry != from + count; ++entry)
                to[place[entry->piece >> (8 * byte) & 0xFF]++] = *entry;
            std::swap(from, to);
        }
        if (from != first)
            std::copy(from, from + count, first);
    }

    SortEntry* entries_;
    SortEntry* scratch_;
    const SortKey& key_;
    const RunStatus& status_;
};

} // namespace

bool sortEntries(SortEntry* entries, size_t count, SortEntry* scratch, const SortKey& key,
                 const RunStatus& status) {
    return EntrySorter(entries, scratch, key, status).sort(entries, entries + count, 0);
}

} // namespace velmorra
