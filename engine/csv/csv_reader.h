/// A CSV file as a table: its columns, and its rows in batches.
#pragma once

#include "engine/csv/csv_parser.h"
#include "engine/input_file.h"

namespace velmorra {

/// How a CSV file is to be read.
struct CsvTableSettings {
    CsvSettings format;
    bool header = true; ///< else the columns are named col1, col2, ...
    bool typed = false; ///< the header's cells are name:TYPE or name:TYPE:SORT
    QString types;      ///< as applyTypes takes it
    QString sorted;     ///< as applySorted takes it; what a typed header declares otherwise
};

/// One thread at a time, but for `share`.
class CsvReader {
public:
    /// Opens the file (`-`: standard input) and reads its header. False with a problem, or without
    /// one when the run was stopped.
    bool open(const QString& file, const CsvTableSettings& settings, StopCheck stop);

    const QString& problem() const { return problem_; }

    /// Names, types and declared order.
    const PinOutMetaData& shape() const { return shape_; }

    /// Columns whose cells nobody reads: their cells are null in every row, and their values aren't
    /// looked at. To be told in front of the first `fill`. Columns of the order are read anyway.
    void setWanted(const std::vector<bool>& wanted);

    /// The next rows. `batch.end` says what comes behind them.
    void fill(RowBatch& batch, int maxRows = RowBatch::maxRows);

    /// Lets go of the file and of all memory.
    void close();

    /// How much of the file has been read, from 0 to 1; negative when unknown.
    double share() const { return file_.share(); }

private:
    bool readShape(const CsvTableSettings& settings);
    QString shapeFromFirstRow(const RowBatch& first, const CsvTableSettings& settings);
    bool fails(const RowBatch& batch);

    InputFile file_;
    std::unique_ptr<CsvParser> parser_;
    PinOutMetaData shape_;
    std::vector<bool> wanted_;
    bool header_ = true;
    quint32 largestKey_ = 0;
    bool columnsSet_ = false;
    QString problem_;
};

} // namespace velmorra
