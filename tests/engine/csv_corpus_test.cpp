/// Files from elsewhere, and broken ones: each reads right or is refused with its place.
#include "csv_text.h"

#include "engine/csv/csv_reader.h"
#include "engine/csv/reject_file.h"

#include <gtest/gtest.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

using namespace velmorra;

namespace {

const QString folder = QStringLiteral(VELMORRA_SOURCE_DIR "/tests/data/csv/");

struct Table {
    QVector<QString> names;
    QVector<QVector<QString>> rows;
    QString problem; ///< without the folder of the file
};

Table read(const QString& file, const CsvTableSettings& settings = {}) {
    Table table;
    CsvReader reader;
    RowBatch batch;
    if (!reader.open(folder + file, settings, {})) {
        batch.end = BatchEnd::Failed;
        batch.problem = reader.problem();
    }
    table.names = reader.shape().names;
    while (batch.end == BatchEnd::More) {
        reader.fill(batch);
        for (int i = 0; i < batch.rows; ++i) {
            QVector<QString> row;
            for (int c = 0; c < batch.columns; ++c)
                row.push_back(qStringFromBytes(batch.row(i)[c]));
            table.rows.push_back(row);
        }
    }
    table.problem = batch.problem.remove(folder);
    return table;
}

QByteArray bytesOf(const QString& file) {
    QFile opened(folder + file);
    EXPECT_TRUE(opened.open(QIODevice::ReadOnly)) << file.toStdString();
    return opened.readAll();
}

} // namespace

TEST(CsvCorpus, FilesFromElsewhereReadRight) {
    const QStringList expectations = QDir(folder + "spectrum").entryList({"*.json"});
    ASSERT_EQ(expectations.size(), 11);
    for (const QString& name : expectations) {
        SCOPED_TRACE(name.toStdString());
        const QJsonArray rows = QJsonDocument::fromJson(bytesOf("spectrum/" + name)).array();
        const QString file = QString(name).replace(".json", ".csv");
        const Table table = read("spectrum/" + file);
        EXPECT_EQ(table.problem.toStdString(), "");
        ASSERT_EQ(table.rows.size(), rows.size());
        for (qsizetype r = 0; r < rows.size(); ++r) {
            const QJsonObject row = rows[r].toObject();
            ASSERT_EQ(row.size(), table.names.size());
            // The expectations have LF where the file has CR LF inside quotes, some of them.
            for (qsizetype c = 0; c < table.names.size(); ++c)
                EXPECT_EQ(table.rows[r][c].toStdString(),
                          row[table.names[c]].toString().toStdString());
        }
    }
    // Feet and inches in a field without quotes.
    EXPECT_EQ(read("spectrum/location_coordinates.csv").problem.left(60).toStdString(),
              "'spectrum/location_coordinates.csv' line 2, column 2 'Locati");
    CsvTableSettings settings;
    settings.format.quote = CsvSettings::noQuote;
    const Table table = read("spectrum/location_coordinates.csv", settings);
    ASSERT_EQ(table.rows.size(), 1);
    EXPECT_EQ(table.rows[0][1].toStdString(), "37\uFFFD36'37.8\"N 121\uFFFD2'17.9\"W");
}

TEST(CsvCorpus, BrokenFilesAreRefusedWithTheirPlace) {
    // Each line: the file, a blank, and what is told.
    QHash<QString, QString> expected;
    for (const QByteArray& line : bytesOf("broken/expected.txt").split('\n')) {
        const QString text = QString::fromUtf8(line);
        if (!text.isEmpty())
            expected[text.section(u' ', 0, 0)] = text.section(u' ', 1);
    }
    const QStringList files = QDir(folder + "broken").entryList({"*.csv"});
    EXPECT_EQ(files.size(), expected.size());
    for (const QString& file : files) {
        SCOPED_TRACE(file.toStdString());
        QString problem = read("broken/" + file).problem;
        EXPECT_EQ(problem.replace("'broken/" + file + "'", "file").toStdString(),
                  expected[file].toStdString());
    }
}

TEST(CsvCorpus, RejectsTakeExactlyWhatIsNotRead) {
    struct Kept : CountedRejects {
        bool take(const uchar* piece, qsizetype size) override {
            bytes.append(reinterpret_cast<const char*>(piece), size);
            return true;
        }
        QByteArray bytes;
    };
    for (const QString& file : QDir(folder + "broken").entryList({"*.csv"})) {
        SCOPED_TRACE(file.toStdString());
        Kept rejects;
        CsvTableSettings settings;
        settings.rejects = &rejects;
        const Table table = read("broken/" + file, settings);
        if (table.names.isEmpty())
            continue; // The header is what is broken.
        EXPECT_EQ(table.problem.toStdString(), "");
        EXPECT_GT(rejects.rows, 0);
        // None of the rows that were read has quotes or empty lines around it.
        QByteArray text = bytesOf("broken/" + file);
        qsizetype lines = 1 + table.rows.size() + text.count("\n\n") + rejects.bytes.count('\n');
        lines += !rejects.bytes.endsWith('\n') ? 1 : 0;
        EXPECT_EQ(lines, text.count('\n') + (text.endsWith('\n') ? 0 : 1));
        for (const QByteArray& line : rejects.bytes.split('\n'))
            EXPECT_TRUE(text.contains(line));
    }
}
