/// IntervalIndex: intervals [low, high), numbered as they are added, and which of them cover a
/// point or overlap another interval.
///
/// The distinct bounds cut the line into segments, which an interval covers from its first segment
/// up to, and without, its end. Answers are lists of numbers: first the intervals that cover the
/// segment of the point, rising; then, for an interval, those that begin in each further segment,
/// segment by segment.
///
/// Listing all of them for each segment would take space quadratic in the number of nested
/// intervals. A list is kept only at checkpoints, each as soon as an eighth of the last one has
/// come or gone; between two checkpoints an answer is the list of the first without what has ended,
/// and what has begun since. So space is linear, an answer costs little more than its length, and
/// where few intervals overlap every segment is a checkpoint. A segment that one interval covers,
/// or none, holds its answer itself.
///
/// Lookups may be made by many threads once the index is built, each with a scratch of its own.
#pragma once

#include <QtCore/QtGlobal>

#include <span>
#include <vector>

class IntervalIndex {
public:
    /// Which one is wanted; of equal ones, the first.
    enum Preference { All, SmallestLow, HighestLow, SmallestHigh, HighestHigh };

    using Numbers = std::span<const qint32>;

    /// A list that was put together, and for what.
    struct Scratch {
        std::vector<qint32> numbers;
        const IntervalIndex* of = nullptr;
        qint32 segment = -1;
    };

    /// The answer to an interval.
    struct Overlaps {
        Numbers covering; ///< those that cover its first segment
        Numbers beginning;
        bool isEmpty() const { return covering.empty() && beginning.empty(); }
    };

    /// Requires: low < high, both finite.
    void add(double low, double high);

    /// Throws std::bad_alloc, as add does.
    void build(Preference preference);

    // With All. Valid until the scratch is used again.

    Numbers covering(double point, Scratch& scratch) const;
    Overlaps overlapping(double low, double high, Scratch& scratch) const;

    // With another preference: the number, or -1.

    qint32 bestCovering(double point) const;
    qint32 bestOverlapping(double low, double high) const;

    /// Bytes held once it is built.
    size_t bytes() const;

private:
    struct Checkpoint {
        qint32 segment;
        size_t begin, end; ///< in the lists
    };

    static constexpr size_t listShare = 8;
    static constexpr size_t landmarkStep = 32;
    static constexpr qint32 noInterval = -1;

    /// How a segment says that its checkpoint has this place.
    static qint32 atCheckpoint(size_t place) { return -2 - static_cast<qint32>(place); }
    const Checkpoint& checkpointOf(qint32 answer) const {
        return checkpoints_[static_cast<size_t>(-2 - answer)];
    }

    size_t segments() const { return endpoints_.empty() ? 0 : endpoints_.size() - 1; }
    qint32 segmentOf(double point) const;
    qint32 endOf(qint32 segment, double high) const;
    Numbers coveringSegment(qint32 segment, Scratch& scratch) const;
    Numbers begunIn(qint32 first, qint32 end) const;
    void collect(const Checkpoint& from, qint32 segment, std::vector<qint32>& numbers) const;
    void findSegments();
    void sortByFirst();
    void makeCheckpoints();
    void findBest(Preference preference);
    qint32 betterOf(qint32 a, qint32 b) const;

    std::vector<double> bounds_; ///< low and high of each, until the build
    std::vector<double> endpoints_;
    std::vector<double> landmarks_; ///< each 32nd endpoint, so that a search begins in few bytes
    std::vector<qint32> firsts_, ends_; ///< of each interval
    std::vector<qint32> byFirst_;       ///< numbers, by first segment
    std::vector<qint32> begins_;        ///< of each segment in byFirst_, and their end

    // With All.
    std::vector<qint32> answers_; ///< of each segment: a number, none, or its checkpoint
    std::vector<Checkpoint> checkpoints_;
    std::vector<qint32> lists_;

    // With another preference.
    std::vector<double> ranks_; ///< of each interval: the smallest is wanted
    std::vector<qint32> best_;  ///< a tree of bests, the segments' in its second half
};

/// PointIndex: points, numbered as they are added, in rising order.
class PointIndex {
public:
    void add(double point) { points_.push_back(point); }

    /// Throws std::bad_alloc, as add does.
    void build();

    /// The place of the first point that [low, high) may hold: of points equal to `low`, the last.
    /// The end when there is none.
    qsizetype begin(double low) const;

    /// Whether the point at a place is below `high`; false at the end.
    bool isBelow(qsizetype place, double high) const {
        return place < static_cast<qsizetype>(points_.size()) &&
               points_[static_cast<size_t>(place)] < high;
    }
    qint32 numberAt(qsizetype place) const { return order_[static_cast<size_t>(place)]; }

private:
    std::vector<double> points_;
    std::vector<qint32> order_;
};
