/// WriteCsv: rows as a CSV file.
///
///     id  name           file='people.csv' typed='1'    id:K,name:U
///      7  Ann      -->                                  7,Ann
///      8  (null)                                        8,
///
/// Delimiter, quoting, line ends, decimal sign and encoding can be set; `safe` keeps a spreadsheet
/// from running cells as formulas. The file takes its place when the run has succeeded; a failed or
/// cancelled run leaves what stood there. A table without rows gives its header alone, one without
/// columns an empty file. Holds a buffer of rows, and where there are threads for it up to three
/// more, which one of them writes.
#pragma once

#include "engine/csv/csv_formatter.h"
#include "engine/csv/text_encoding.h"
#include "engine/file_output_box.h"
#include "engine/writes_behind.h"

#include <memory>

namespace velmorra {

class WriteCsv : public FileOutputBox {
public:
    WriteCsv(const XMLNode& element, GlobalParameters* parameters);

    const BoxEntry& entry() const override;
    static const StoredElement& declaration();
    const StoredElement& storedElement() const override { return declaration(); }
    ActionItem* newFromXML(XMLNode element, GlobalParameters* parameters) const override;

    void rewindRun() override;
    bool beforeRun() override;
    bool afterRun() override;

    bool finishOutput() override;
    quint64 settle() override;
    void reportFailedWrite() override;

    // Stored.
    QString file;
    bool header = true;
    bool typed = false;
    QString delimiter = QStringLiteral("comma");
    QString quoting = QStringLiteral("needed");
    QString lineEnd = QStringLiteral("lf");
    QString decimal = QStringLiteral("point");
    QString encoding = QStringLiteral("utf-8");
    bool safe = false;
    qint64 limit = -1;

private:
    QString resolveLayout(CsvLayout* layout);
    bool firstStep();
    bool nextRow();
    bool takeRow(const OneRow& row);
    bool flush();
    bool writeOut();
    bool mayWrite() const;
    QString unencodable(qsizetype offset) const;
    void start(const PinOutMetaData& shape);

    // Resolved by beforeRun and the first step.
    qsizetype flushAt_ = 0;
    TextEncoding encoding_ = TextEncoding::Utf8;
    QVector<QString> names_;

    // Per row.
    CsvFormatter formatter_;
    QByteArray encoded_;
    qint64 linesWritten_ = 0; ///< lines of the table that have left the formatter
    bool markWritten_ = false;
    bool opened_ = false;                  ///< the output; set before anybody writes
    std::unique_ptr<WritesBehind> behind_; ///< null where this thread writes
};

} // namespace velmorra
