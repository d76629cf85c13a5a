/// A CSV file as a table: its columns, and its rows in batches.
#pragma once

#include "engine/csv/csv_parser.h"
#include "engine/csv/csv_proposal.h"
#include "engine/input_file.h"

#include <QtCore/QStringList>

namespace velmorra {

/// How a CSV file is to be read.
struct CsvTableSettings {
    CsvSettings format;
    // What is to be proposed by the file's beginning, in place of what `format` says.
    bool proposeDelimiter = false;
    bool proposeDecimal = false;
    bool proposeEncoding = false;
    bool proposeTypes = false; ///< in place of `types`
    bool header = true;        ///< else the columns are named col1, col2, ...
    bool typed = false;        ///< the header's cells are name:TYPE or name:TYPE:SORT
    QString types;             ///< as applyTypes takes it
    QString sorted;            ///< as applySorted takes it; what a typed header declares otherwise
    RejectedRows* rejects = nullptr; ///< takes rows that can't be read; null: they end the table
};

/// One thread at a time, but for `share`.
class CsvReader {
public:
    /// Opens the file (`-`: standard input) and reads its header. False with a problem, or without
    /// one when the run was stopped.
    bool open(const QString& file, const CsvTableSettings& settings, StopCheck stop);

    const QString& problem() const { return problem_; }

    /// What was proposed, in the words in which it can be set.
    const QStringList& notices() const { return notices_; }

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
    bool failsWith(const QString& reason);
    bool takeSample(ByteSource* source, CsvSample* sample);
    bool openText(CsvTableSettings* settings, ByteSource* source);
    bool proposeDialect(CsvTableSettings* settings);
    void takeProposedTypes(const CsvSettings& format);
    QString sourceProblem() const;
    bool readShape(const CsvTableSettings& settings);
    QString shapeFromFirstRow(const RowBatch& first, const CsvTableSettings& settings);
    bool fails(const RowBatch& batch);

    InputFile file_;
    std::unique_ptr<TextDecoder> decoder_; ///< null where the file is UTF-8 as it stands
    std::unique_ptr<CsvParser> parser_;
    PinOutMetaData shape_;
    std::vector<bool> wanted_;
    CsvSample sample_; ///< empty where nothing is to be proposed
    QStringList notices_;
    bool typesProposed_ = false;
    bool header_ = true;
    quint32 largestKey_ = 0;
    bool columnsSet_ = false;
    QString problem_;
};

} // namespace velmorra
