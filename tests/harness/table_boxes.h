/// Boxes for tests: a table in memory as the start of a graph, and one that takes the rows at its
/// end.
#pragma once

#include "engine/packed_table.h"
#include "tests/plain_box.h"

#include <atomic>
#include <memory>

namespace velmorra::harness {

/// How a TableSource hands on its rows. None of it may change what a graph makes of them.
struct SourceHabits {
    /// Each row has memory of its own, with numbers at odd addresses and texts whose length field
    /// or payload is at one. It is overwritten when the next row is asked for, so that a pointer
    /// kept too long shows.
    bool oddAddresses = false;
    /// Steps without a row in between.
    bool late = false;
    /// The rows again and again, without an end.
    bool endless = false;
};

class TableSource : public test::PlainBox {
public:
    TableSource(std::shared_ptr<const PackedTable> table, SourceHabits habits,
                GlobalParameters* parameters);

    const char* actionName() const override { return "TableSource"; }
    ActionItem* clone(GlobalParameters* parameters) const override;
    bool afterRun() override;
    void rewindRun() override;

private:
    bool step();
    void placeAtOddAddresses(OneRow& row);

    std::shared_ptr<const PackedTable> table_;
    SourceHabits habits_;

    OneRow packed_;
    size_t next_ = 0;
    unsigned steps_ = 0;
    std::vector<uchar> current_;  ///< bytes of the row that was handed on
    std::vector<uchar> previous_; ///< the overwritten ones of the row before
};

class TableSink : public test::PlainBox {
public:
    explicit TableSink(GlobalParameters* parameters);

    const char* actionName() const override { return "TableSink"; }
    ActionItem* clone(GlobalParameters* parameters) const override;
    void rewindRun() override;

    /// The rows of the last run, copied as they came, with the columns of the pin. Once per run.
    PackedTable takeTable() { return std::move(table_); }
    /// What is wrong with how the rows came; empty when nothing is.
    const QString& defect() const { return defect_; }
    /// Rows taken so far; callable from another thread.
    size_t rowsTaken() const { return rowsTaken_; }

    bool keepRows = true;    ///< else they are only counted
    bool asksColumns = true; ///< of a table without rows

private:
    bool firstStep();
    bool step();
    void take(const OneRow& row);

    PackedTable table_;
    QString defect_;
    std::atomic<size_t> rowsTaken_{0};
};

} // namespace velmorra::harness
