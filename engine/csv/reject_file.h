/// The file that takes the rows of a CSV file that can't be read.
///
/// It holds the bytes as they stood in the file that is read, in its encoding, and can be read with
/// the same settings and without a header. Like every output it appears whole or not at all.
#pragma once

#include "engine/csv/csv_parser.h"
#include "engine/output_file.h"

#include <utility>

namespace velmorra {

/// One thread at a time, but for `discard`.
class RejectFile : public RejectedRows {
public:
    /// False with an error, or without one when the wait for a pipe's reader was stopped.
    bool open(const QString& path, StopCheck stop) { return file_.open(path, std::move(stop)); }

    void start(TextEncoding encoding, bool mark) override;
    void begin(const QString& problem) override;
    bool take(const uchar* bytes, qsizetype size) override;
    QString failure() const override { return file_.error(); }

    bool finish();
    bool commit() { return file_.commit(); }
    void discard() { file_.discard(); }

    qint64 rows() const { return rows_; }
    /// What was wrong with the first of them.
    const QString& firstProblem() const { return firstProblem_; }

private:
    bool flush();

    OutputFile file_;
    TextEncoding encoding_ = TextEncoding::Utf8;
    QByteArray waiting_;
    qint64 rows_ = 0;
    QString firstProblem_;
};

/// Drops what it is given and counts it.
class CountedRejects : public RejectedRows {
public:
    void begin(const QString&) override { ++rows; }
    bool take(const uchar*, qsizetype) override { return true; }
    QString failure() const override { return {}; }

    qint64 rows = 0;
};

} // namespace velmorra
