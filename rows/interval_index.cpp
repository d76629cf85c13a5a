#include "rows/interval_index.h"

#include <algorithm>
#include <limits>
#include <new>
#include <numeric>
#include <queue>

namespace {

size_t at(qint32 place) {
    return static_cast<size_t>(place);
}

/// Segments are counted in 32 bits, and each interval may make two.
constexpr size_t mostIntervals = size_t(1) << 30;

/// How many of `count` rising numbers don't exceed a point: halving without a branch to guess.
size_t countUpTo(const double* numbers, size_t count, double point) {
    const double* from = numbers;
    while (count > 1) {
        const size_t half = count / 2;
        from = from[half - 1] <= point ? from + half : from;
        count -= half;
    }
    return static_cast<size_t>(from - numbers) + (count == 1 && *from <= point ? 1 : 0);
}

template <class Item>
size_t heldBytes(const std::vector<Item>& items) {
    return items.capacity() * sizeof(Item);
}

} // namespace

void IntervalIndex::add(double low, double high) {
    if (bounds_.size() / 2 == mostIntervals)
        throw std::bad_alloc();
    bounds_.push_back(low);
    bounds_.push_back(high);
}

void IntervalIndex::build(Preference preference) {
    findSegments();
    sortByFirst();
    if (preference == All)
        makeCheckpoints();
    else
        findBest(preference);
    bounds_ = {};
    firsts_ = {};
    if (preference == All)
        return;
    ends_ = {};
    byFirst_ = {};
    begins_ = {};
}

size_t IntervalIndex::bytes() const {
    return heldBytes(endpoints_) + heldBytes(landmarks_) + heldBytes(ends_) + heldBytes(byFirst_) +
           heldBytes(begins_) + heldBytes(answers_) + heldBytes(checkpoints_) + heldBytes(lists_) +
           heldBytes(ranks_) + heldBytes(best_);
}

void IntervalIndex::findSegments() {
    endpoints_ = bounds_;
    std::sort(endpoints_.begin(), endpoints_.end());
    endpoints_.erase(std::unique(endpoints_.begin(), endpoints_.end()), endpoints_.end());
    endpoints_.shrink_to_fit();
    for (size_t i = 0; i < endpoints_.size(); i += landmarkStep)
        landmarks_.push_back(endpoints_[i]);
    const auto placeOf = [&](double bound) {
        const auto found = std::lower_bound(endpoints_.begin(), endpoints_.end(), bound);
        return static_cast<qint32>(found - endpoints_.begin());
    };
    firsts_.resize(bounds_.size() / 2);
    ends_.resize(firsts_.size());
    for (size_t i = 0; i < firsts_.size(); ++i) {
        firsts_[i] = placeOf(bounds_[2 * i]);
        ends_[i] = placeOf(bounds_[2 * i + 1]);
    }
}

void IntervalIndex::sortByFirst() {
    begins_.assign(segments() + 1, 0);
    for (const qint32 first : firsts_)
        ++begins_[at(first) + 1];
    std::partial_sum(begins_.begin(), begins_.end(), begins_.begin());
    byFirst_.resize(firsts_.size());
    std::vector<qint32> next = begins_;
    for (size_t i = 0; i < firsts_.size(); ++i)
        byFirst_[at(next[at(firsts_[i])]++)] = static_cast<qint32>(i);
}

void IntervalIndex::makeCheckpoints() {
    // A set of numbers, folded: of one number, it is the number.
    struct Folded {
        size_t count = 0;
        qint32 numbers = 0;
    };
    std::vector<Folded> endings(segments() + 1);
    for (size_t i = 0; i < ends_.size(); ++i) {
        ++endings[at(ends_[i])].count;
        endings[at(ends_[i])].numbers ^= static_cast<qint32>(i);
    }
    answers_.resize(segments());
    Folded open;
    std::vector<qint32> numbers;
    size_t changes = 0;
    for (size_t segment = 0; segment < segments(); ++segment) {
        const auto place = static_cast<qint32>(segment);
        const Numbers begun = begunIn(place, place + 1);
        changes += begun.size() + endings[segment].count;
        open.count += begun.size() - endings[segment].count;
        open.numbers ^= endings[segment].numbers;
        for (const qint32 number : begun)
            open.numbers ^= number;
        if (open.count < 2) {
            answers_[segment] = open.count == 0 ? noInterval : open.numbers;
            continue;
        }
        const Checkpoint last = checkpoints_.empty() ? Checkpoint{-1, 0, 0} : checkpoints_.back();
        if (checkpoints_.empty() || changes * listShare > last.end - last.begin) {
            numbers.clear();
            collect(last, place, numbers);
            checkpoints_.push_back({place, lists_.size(), lists_.size() + numbers.size()});
            lists_.insert(lists_.end(), numbers.begin(), numbers.end());
            changes = 0;
        }
        answers_[segment] = atCheckpoint(checkpoints_.size() - 1);
    }
    checkpoints_.shrink_to_fit();
    lists_.shrink_to_fit();
}

/// The numbers of those that cover a segment at or behind a checkpoint, rising.
void IntervalIndex::collect(const Checkpoint& from, qint32 segment,
                            std::vector<qint32>& numbers) const {
    const auto isOpen = [&](qint32 number) { return ends_[at(number)] > segment; };
    std::copy_if(lists_.begin() + static_cast<std::ptrdiff_t>(from.begin),
                 lists_.begin() + static_cast<std::ptrdiff_t>(from.end),
                 std::back_inserter(numbers), isOpen);
    const auto listed = static_cast<std::ptrdiff_t>(numbers.size());
    const Numbers begun = begunIn(from.segment + 1, segment + 1);
    std::copy_if(begun.begin(), begun.end(), std::back_inserter(numbers), isOpen);
    std::sort(numbers.begin() + listed, numbers.end());
    std::inplace_merge(numbers.begin(), numbers.begin() + listed, numbers.end());
}

IntervalIndex::Numbers IntervalIndex::begunIn(qint32 first, qint32 end) const {
    const size_t most = segments();
    const size_t from = std::min(at(first), most);
    const size_t to = std::clamp(at(end), from, most);
    return Numbers(byFirst_).subspan(at(begins_[from]), at(begins_[to] - begins_[from]));
}

/// The segment that holds a point: -1 in front of all, and that of the last endpoint behind all.
qint32 IntervalIndex::segmentOf(double point) const {
    const size_t mark = countUpTo(landmarks_.data(), landmarks_.size(), point);
    if (mark == 0)
        return -1;
    const size_t from = (mark - 1) * landmarkStep;
    const size_t count = std::min(landmarkStep, endpoints_.size() - from);
    return static_cast<qint32>(from + countUpTo(&endpoints_[from], count, point)) - 1;
}

/// The first segment from `segment` on that doesn't begin below `high`.
qint32 IntervalIndex::endOf(qint32 segment, double high) const {
    // Near the segment most of the time: doubling steps, then bisection.
    const size_t count = endpoints_.size();
    size_t low = static_cast<size_t>(std::max(segment, 0));
    size_t step = 1;
    while (low + step < count && endpoints_[low + step] < high) {
        low += step;
        step *= 2;
    }
    const auto from = endpoints_.begin() + static_cast<std::ptrdiff_t>(low);
    const auto to = endpoints_.begin() + static_cast<std::ptrdiff_t>(std::min(low + step, count));
    return static_cast<qint32>(std::lower_bound(from, to, high) - endpoints_.begin());
}

IntervalIndex::Numbers IntervalIndex::coveringSegment(qint32 segment, Scratch& scratch) const {
    if (segment < 0 || at(segment) >= segments())
        return {};
    const qint32& answer = answers_[at(segment)];
    if (answer >= noInterval)
        return Numbers(&answer, answer == noInterval ? 0 : 1);
    const Checkpoint& from = checkpointOf(answer);
    if (from.segment == segment)
        return Numbers(lists_).subspan(from.begin, from.end - from.begin);
    if (scratch.of != this || scratch.segment != segment) {
        scratch.numbers.clear();
        collect(from, segment, scratch.numbers);
        scratch.of = this;
        scratch.segment = segment;
    }
    return scratch.numbers;
}

IntervalIndex::Numbers IntervalIndex::covering(double point, Scratch& scratch) const {
    return coveringSegment(segmentOf(point), scratch);
}

IntervalIndex::Overlaps IntervalIndex::overlapping(double low, double high,
                                                   Scratch& scratch) const {
    const qint32 segment = segmentOf(low);
    const qint32 end = endOf(segment, high);
    if (end <= segment)
        return {};
    return {coveringSegment(segment, scratch), begunIn(segment + 1, end)};
}

void IntervalIndex::findBest(Preference preference) {
    const bool isLow = preference == SmallestLow || preference == HighestLow;
    const bool isHighest = preference == HighestLow || preference == HighestHigh;
    ranks_.resize(firsts_.size());
    for (size_t i = 0; i < ranks_.size(); ++i) {
        const double bound = bounds_[2 * i + (isLow ? 0 : 1)];
        ranks_[i] = isHighest ? -bound : bound;
    }
    // The open intervals, the best on top; those that have ended leave when they get there.
    const auto isWorse = [this](qint32 a, qint32 b) {
        return ranks_[at(a)] != ranks_[at(b)] ? ranks_[at(a)] > ranks_[at(b)] : a > b;
    };
    std::priority_queue<qint32, std::vector<qint32>, decltype(isWorse)> open(isWorse);
    best_.assign(2 * segments(), -1);
    for (size_t segment = 0; segment < segments(); ++segment) {
        const auto place = static_cast<qint32>(segment);
        for (const qint32 number : begunIn(place, place + 1))
            open.push(number);
        while (!open.empty() && ends_[at(open.top())] <= place)
            open.pop();
        if (!open.empty())
            best_[segments() + segment] = open.top();
    }
    for (size_t i = segments(); i-- > 1;)
        best_[i] = betterOf(best_[2 * i], best_[2 * i + 1]);
}

/// The better one; of equal ones the first, which belongs to the earlier segment.
qint32 IntervalIndex::betterOf(qint32 a, qint32 b) const {
    if (a < 0 || b < 0)
        return a < 0 ? b : a;
    return ranks_[at(b)] < ranks_[at(a)] ? b : a;
}

qint32 IntervalIndex::bestCovering(double point) const {
    const qint32 segment = segmentOf(point);
    return segment < 0 || at(segment) >= segments() ? -1 : best_[segments() + at(segment)];
}

qint32 IntervalIndex::bestOverlapping(double low, double high) const {
    const qint32 segment = segmentOf(low);
    const size_t end = std::min(at(std::max(endOf(segment, high), 0)), segments());
    size_t left = segments() + static_cast<size_t>(std::max(segment, 0));
    size_t right = segments() + end;
    qint32 fromLeft = -1;
    qint32 fromRight = -1;
    for (; left < right; left /= 2, right /= 2) {
        if ((left & 1) != 0)
            fromLeft = betterOf(fromLeft, best_[left++]);
        if ((right & 1) != 0)
            fromRight = betterOf(best_[--right], fromRight);
    }
    return betterOf(fromLeft, fromRight);
}

void PointIndex::build() {
    if (points_.size() > mostIntervals)
        throw std::bad_alloc();
    order_.resize(points_.size());
    std::iota(order_.begin(), order_.end(), 0);
    std::stable_sort(order_.begin(), order_.end(),
                     [&](qint32 a, qint32 b) { return points_[at(a)] < points_[at(b)]; });
    std::vector<double> sorted;
    sorted.reserve(points_.size());
    for (const qint32 number : order_)
        sorted.push_back(points_[at(number)]);
    points_ = std::move(sorted);
}

qsizetype PointIndex::begin(double low) const {
    const qsizetype behind =
        std::upper_bound(points_.begin(), points_.end(), low) - points_.begin();
    const bool isAtLow = behind > 0 && points_[static_cast<size_t>(behind - 1)] == low;
    return isAtLow ? behind - 1 : behind;
}
