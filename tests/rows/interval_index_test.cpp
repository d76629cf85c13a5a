/// IntervalIndex and PointIndex against searches through all intervals and points.
#include "rows/interval_index.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <set>

namespace {

struct Interval {
    double low, high;
};

std::vector<Interval> randomIntervals(std::mt19937& random) {
    std::vector<Interval> intervals(random() % 60);
    const unsigned range = 1 + random() % 80;
    const bool nested = random() % 3 == 0;
    for (size_t i = 0; i < intervals.size(); ++i) {
        const double low = nested ? double(i) : int(random() % range) / 2.0 - 10;
        const double length = nested ? 200.0 - 2 * double(i) : 0.5 + random() % range;
        intervals[i] = {low, low + length};
    }
    return intervals;
}

std::vector<double> endpointsOf(const std::vector<Interval>& intervals) {
    std::set<double> ends;
    for (const Interval& each : intervals)
        ends.insert({each.low, each.high});
    return {ends.begin(), ends.end()};
}

/// What one segment after the other lists, each interval once.
std::vector<int> overlapsByTheBook(const std::vector<Interval>& intervals, double low,
                                   double high) {
    std::vector<double> cuts = endpointsOf(intervals);
    cuts.insert(cuts.begin(), -std::numeric_limits<double>::infinity());
    cuts.push_back(std::numeric_limits<double>::infinity());
    size_t segment = 0;
    while (segment + 1 < cuts.size() && cuts[segment + 1] <= low)
        ++segment;
    std::vector<int> found;
    for (; segment + 1 < cuts.size() && cuts[segment] < high; ++segment) {
        for (size_t i = 0; i < intervals.size(); ++i) {
            const bool covers =
                intervals[i].low <= cuts[segment] && cuts[segment + 1] <= intervals[i].high;
            if (covers && std::find(found.begin(), found.end(), int(i)) == found.end())
                found.push_back(int(i));
        }
    }
    return found;
}

/// The first of the best in the order in which the segments list them.
int bestByTheBook(const std::vector<Interval>& intervals, const std::vector<int>& found,
                  IntervalIndex::Preference preference) {
    int best = -1;
    for (const int number : found) {
        const Interval& each = intervals[size_t(number)];
        if (best < 0) {
            best = number;
            continue;
        }
        const Interval& other = intervals[size_t(best)];
        const bool isBetter = preference == IntervalIndex::SmallestLow    ? each.low < other.low
                              : preference == IntervalIndex::HighestLow   ? each.low > other.low
                              : preference == IntervalIndex::SmallestHigh ? each.high < other.high
                                                                          : each.high > other.high;
        if (isBetter)
            best = number;
    }
    return best;
}

std::vector<int> listOf(const IntervalIndex::Overlaps& overlaps) {
    std::vector<int> list(overlaps.covering.begin(), overlaps.covering.end());
    list.insert(list.end(), overlaps.beginning.begin(), overlaps.beginning.end());
    return list;
}

IntervalIndex indexOf(const std::vector<Interval>& intervals,
                      IntervalIndex::Preference preference) {
    IntervalIndex index;
    for (const Interval& each : intervals)
        index.add(each.low, each.high);
    index.build(preference);
    return index;
}

TEST(IntervalIndex, findsAllInTheOrderOfTheSegments) {
    for (unsigned seed = 0; seed < 150; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const std::vector<Interval> intervals = randomIntervals(random);
        const IntervalIndex index = indexOf(intervals, IntervalIndex::All);
        IntervalIndex::Scratch scratch;
        for (int probe = 0; probe < 60; ++probe) {
            const double low = int(random() % 500) / 4.0 - 15;
            const double high = low + int(random() % 40) / 4.0 - 1;
            EXPECT_EQ(listOf(index.overlapping(low, high, scratch)),
                      overlapsByTheBook(intervals, low, high));
            std::vector<int> covering;
            for (size_t i = 0; i < intervals.size(); ++i) {
                if (intervals[i].low <= low && low < intervals[i].high)
                    covering.push_back(int(i));
            }
            const auto found = index.covering(low, scratch);
            EXPECT_EQ(std::vector<int>(found.begin(), found.end()), covering);
        }
        const double infinity = std::numeric_limits<double>::infinity();
        EXPECT_EQ(listOf(index.overlapping(-100, infinity, scratch)).size(), intervals.size());
    }
}

TEST(IntervalIndex, findsTheBestOfTheEarliestSegment) {
    for (unsigned seed = 0; seed < 150; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const std::vector<Interval> intervals = randomIntervals(random);
        for (const auto preference : {IntervalIndex::SmallestLow, IntervalIndex::HighestLow,
                                      IntervalIndex::SmallestHigh, IntervalIndex::HighestHigh}) {
            const IntervalIndex index = indexOf(intervals, preference);
            // What each segment puts first, then the best of these.
            const std::vector<double> cuts = endpointsOf(intervals);
            std::vector<int> firsts;
            for (size_t i = 0; i + 1 < cuts.size(); ++i)
                firsts.push_back(bestByTheBook(
                    intervals, overlapsByTheBook(intervals, cuts[i], cuts[i + 1]), preference));
            for (int probe = 0; probe < 40; ++probe) {
                const double low = int(random() % 500) / 4.0 - 15;
                const double high = low + int(random() % 80) / 4.0 - 1;
                std::vector<int> met;
                int covering = -1;
                for (size_t i = 0; i + 1 < cuts.size(); ++i) {
                    const bool holdsLow = cuts[i] <= low && low < cuts[i + 1];
                    if (holdsLow)
                        covering = firsts[i];
                    if (cuts[i] < high && low < cuts[i + 1] && firsts[i] >= 0)
                        met.push_back(firsts[i]);
                }
                EXPECT_EQ(index.bestCovering(low), covering);
                EXPECT_EQ(index.bestOverlapping(low, high),
                          bestByTheBook(intervals, met, preference));
            }
        }
    }
}

TEST(IntervalIndex, ofNestedIntervalsTakesLinearSpace) {
    constexpr int count = 20000;
    IntervalIndex index;
    for (int i = 0; i < count; ++i)
        index.add(i, 3.0 * count - i);
    index.build(IntervalIndex::All);
    EXPECT_LT(index.bytes(), 128u * count);
    IntervalIndex::Scratch scratch;
    const auto all = index.covering(count + 0.5, scratch);
    EXPECT_EQ(all.size(), size_t(count));
    EXPECT_EQ(index.covering(2.5 * count + 0.5, scratch).size(), size_t(count / 2));
}

TEST(IntervalIndex, withoutIntervalsFindsNothing) {
    IntervalIndex::Scratch scratch;
    EXPECT_TRUE(indexOf({}, IntervalIndex::All).covering(1, scratch).empty());
    EXPECT_TRUE(indexOf({}, IntervalIndex::All).overlapping(1, 2, scratch).isEmpty());
    EXPECT_EQ(indexOf({}, IntervalIndex::HighestLow).bestCovering(1), -1);
    EXPECT_EQ(indexOf({}, IntervalIndex::HighestLow).bestOverlapping(1, 2), -1);
}

} // namespace
