/// ReadCsv and WriteCsv driven by hand, step by step.
#include "engine/boxes/read_csv.h"
#include "engine/boxes/write_csv.h"
#include "engine/run.h"
#include "tests/engine/folder_test.h"
#include "tests/plain_box.h"

#include <gtest/gtest.h>

using namespace velmorra;

namespace {

/// Copies the rows of a ReadCsv to a WriteCsv through one wire, as a run would.
class CsvBoxes : public test::FolderTest {
protected:
    struct Wire : InPin {
        ActionItem* producer = nullptr;
        OutPin out;
        bool done = false;
    };

    static const OneRow* fetch(InPin& pin) {
        Wire& wire = static_cast<Wire&>(pin);
        while (!wire.done && wire.producer->isRunning()) {
            wire.out.ready = false;
            wire.done = wire.producer->runStep(wire.producer);
            if (wire.out.ready && wire.producer->isRunning())
                return &wire.out.row;
        }
        return nullptr;
    }

    void SetUp() override {
        read_.file = path("in.csv");
        write_.file = path("out.csv");
        write_.runOptions = &options_;
    }

    /// "done", or what the run said. The output is committed only when nothing failed.
    std::string run() {
        test::HeldLog log;
        parameters_.runStatus = RunStatus::Running;
        Wire wire;
        wire.producer = &read_;
        wire.fetch = fetch;
        wire.columnsOf = [](InPin& pin) { return &static_cast<Wire&>(pin).out.row.shape(); };
        InPin* const pins[] = {&wire};
        read_.connectPins(nullptr, &wire.out, true);
        write_.connectPins(pins, nullptr, true);
        read_.rewindRun();
        write_.rewindRun();
        if (!read_.beforeRun() && !write_.beforeRun()) {
            while (!write_.runStep(&write_)) {
            }
        }
        OutputKeeper* const outputs[] = {&read_, &write_};
        bool done = parameters_.runStatus == RunStatus::Running;
        for (OutputKeeper* const output : outputs)
            done = done && output->finishOutput();
        for (OutputKeeper* const output : outputs)
            done ? void(output->commitOutput()) : output->discardOutput();
        rows_ = write_.rowsWritten();
        read_.afterRun();
        write_.afterRun();
        EXPECT_TRUE(names().filter(".velmorra").isEmpty());
        return log.master.isEmpty() ? "done" : log.master.join('\n').toStdString() + '\n';
    }

    GlobalParameters parameters_;
    RunOptions options_;
    ReadCsv read_{XMLNode::emptyNode(), &parameters_};
    WriteCsv write_{XMLNode::emptyNode(), &parameters_};
    qint64 rows_ = 0;
};

} // namespace

TEST_F(CsvBoxes, CarryTypesAndOrder) {
    put("id:K:01,x:F,t:U\n1,0.10,a\n2,1e20,\n4294967295,nan,\"\"\n");
    read_.typed = write_.typed = true;
    EXPECT_EQ(run(), "[1] '" + path("in.csv").toStdString() +
                         "' line 4: the row is out of the declared order (rising by number): line "
                         "3 has 'id' = 2, line 4 has 'id' = null\n");
    EXPECT_EQ(get(), "(none)");
    read_.sorted = "t:Z";
    put("id:K,x:F,t:U\n1,0.10,b\n2,1e20,\"\"\n4294967295,nan,\n");
    EXPECT_EQ(run(), "done");
    EXPECT_EQ(get(), "id:K,x:F,t:U:Z1\n1,0.1,b\n2,1e+20,\"\"\n,nan,\n");
}

TEST_F(CsvBoxes, GiveTablesWithoutRowsOrColumns) {
    put("a,b\n");
    read_.types = "b:K";
    write_.typed = true;
    EXPECT_EQ(run(), "done");
    EXPECT_EQ(get(), "a:U,b:K\n");
    put("");
    EXPECT_EQ(run(), "done");
    EXPECT_EQ(get(), "");
    read_.header = write_.header = write_.typed = false;
    read_.types = QString();
    put("1,2\n");
    EXPECT_EQ(run(), "done");
    EXPECT_EQ(get(), "1,2\n");
}

TEST_F(CsvBoxes, LeaveTheEarlierFileWhenAnythingFails) {
    put("old", "out.csv");
    const std::string in = "'" + path("in.csv").toStdString() + "'";
    EXPECT_EQ(run(), "[1] cannot read " + in + ": No such file or directory\n");
    put("a,b\n1,2\n1\n");
    EXPECT_EQ(run(), "[1] " + in + " line 3: the row has 1 field where 2 are expected\n");
    read_.types = "B:K";
    EXPECT_EQ(run(), "[1] " + in + ": types 'B:K': there is no column 'B'; did you mean 'b'?\n");
    read_.types = QString();
    read_.fieldLimit = 0;
    EXPECT_NE(run().find("fieldLimit is 0; it must be from 1 to "), std::string::npos);
    read_.fieldLimit = 100;
    write_.file = path("none/out.csv");
    EXPECT_NE(run().find("cannot write"), std::string::npos);
    write_.file = "/dev/full";
    put("a\n1\n");
    EXPECT_EQ(run(), "[1] cannot write '/dev/full': No space left on device\n");
    EXPECT_EQ(get(), "old");
}

TEST_F(CsvBoxes, TranslateDialectsAndEncodings) {
    put("n\xE9;x\r\n'\x80;';1,5\r\n");
    read_.encoding = "windows-1252";
    read_.delimiter = ";";
    read_.quote = "single";
    read_.decimal = "comma";
    read_.types = "n\u00E9:U,x:F";
    EXPECT_EQ(run(), "done");
    EXPECT_EQ(get(), "n\u00E9,x\n\u20AC;,1.5\n");
    write_.encoding = "utf-16";
    write_.delimiter = "tab";
    write_.lineEnd = "crlf";
    EXPECT_EQ(run(), "done");
    EXPECT_EQ(get(), std::string("\xFF\xFEn\0\xE9\0\t\0x\0\r\0\n\0\xAC\x20;\0\t\0"
                                 "1\0.\0"
                                 "5\0\r\0\n\0",
                                 30));
    write_.encoding = "utf-8-bom";
    EXPECT_EQ(run(), "done");
    EXPECT_EQ(get(), "\xEF\xBB\xBFn\u00E9\tx\r\n\u20AC;\t1.5\r\n");
    read_.delimiter = "";
    EXPECT_NE(run().find("delimiter is ''; it must be comma, "), std::string::npos);
}

TEST_F(CsvBoxes, NameThePlaceOfACharacterThatCannotBeWritten) {
    write_.encoding = "windows-1252";
    std::string rows = "a,b\n";
    for (int i = 0; i < 40000; ++i)
        rows += "\"x\ny\",\u00E9\u20AC\n";
    put(rows + "\"1,\",\u0416\n");
    EXPECT_EQ(run(),
              "[1] row 40001, column 2 'b': the character '\u0416' (U+0416) can't be written "
              "in windows-1252\n");
    EXPECT_EQ(get(), "(none)");
    put("a,\u0416\n1,2\n");
    EXPECT_EQ(run(),
              "[1] header, column 2 '\u0416': the character '\u0416' (U+0416) can't be written "
              "in windows-1252\n");
    write_.header = false;
    EXPECT_EQ(run(), "done");
    EXPECT_EQ(get(), "1,2\n");
}

TEST_F(CsvBoxes, SendBrokenRowsToTheRejectFile) {
    put("a,b\n1,x\n2\n\xE9,y\n\"3\"z,\n4,w\n");
    read_.types = "a:K";
    read_.rejects = path("bad.csv");
    EXPECT_EQ(run(), "[2] 3 rows went to the reject file '" + read_.rejects.toStdString() +
                         "'; the first: '" + path("in.csv").toStdString() +
                         "' line 3: the row has 1 field where 2 are expected\n");
    EXPECT_EQ(get(), "a,b\n1,x\n4,w\n");
    EXPECT_EQ(get("bad.csv"), "2\n\xE9,y\n\"3\"z,\n");
    read_.encoding = "windows-1252";
    put("a,b\n\x81,y\n");
    EXPECT_NE(run().find("is not a Key"), std::string::npos);
    EXPECT_EQ(get("bad.csv"), "\x81,y\n");
    put("a,b\n1,\xE9\n");
    EXPECT_EQ(run(), "done");
    EXPECT_EQ(get("bad.csv"), "");
    read_.rejects = "/dev/full";
    put("a,b\nx,\xE9\n");
    EXPECT_EQ(run(), "[1] cannot write '/dev/full': No space left on device\n");
    read_.rejects = read_.file;
    EXPECT_NE(run().find("rejects is the file that is read"), std::string::npos);
}

TEST_F(CsvBoxes, WarnOnceOfHalfCharacters) {
    OutPin out;
    PinOutMetaData shape{{QStringLiteral("t")}, {MetaInfo()}, {}};
    out.row.setShape(shape);
    RowBuffer buffer;
    out.row.setColAsString(0, buffer, QString(QChar(0xD800)));
    InPin pin;
    static const OneRow* next = nullptr;
    next = &out.row;
    pin.fetch = [](InPin&) { return std::exchange(next, nullptr); };
    InPin* const pins[] = {&pin};
    test::HeldLog log;
    write_.connectPins(pins, nullptr, true);
    write_.rewindRun();
    ASSERT_FALSE(write_.beforeRun());
    while (!write_.runStep(&write_)) {
    }
    EXPECT_TRUE(write_.finishOutput() && write_.commitOutput());
    write_.afterRun();
    EXPECT_EQ(get(), "t\n\xEF\xBF\xBD\n");
    EXPECT_EQ(log.master.join('\n').left(26), "[2] 1 half characters (lon");
}
