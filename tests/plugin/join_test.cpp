/// What Join does that a case file can't say: what it reads of its pins, that a cancelled run stops
/// it in every loop, and how its lists and pins go with its mode.
#include "tests/plugin/hand_driven.h"
#include "tests/plugin/loaded_plugin.h"

#include <gtest/gtest.h>

namespace {

/// A table of keys, one digit each, that may end the run when it hands out a row.
class KeysPin : public InPin {
public:
    KeysPin(const char* keys, GlobalParameters& parameters, int lastRow = 0)
        : keys_({QStringLiteral("k"), QStringLiteral("v")}, rowsOf(keys), {{0, SortNumberRising}}),
          parameters_(parameters),
          lastRow_(lastRow) {
        fetch = [](InPin& pin) -> const OneRow* {
            auto& self = static_cast<KeysPin&>(pin);
            const OneRow* const row = self.keys_.fetch(self.keys_);
            if (row != nullptr && self.keys_.read == self.lastRow_)
                self.parameters_.runStatus.endAs(RunStatus::Cancelled);
            return row;
        };
    }
    int read() const { return keys_.read; }

private:
    static QVector<QStringList> rowsOf(const char* keys) {
        QVector<QStringList> rows;
        for (; *keys != 0; ++keys)
            rows.push_back({QString(QLatin1Char(*keys)), QStringLiteral("cell")});
        return rows;
    }

    TablePin keys_;
    GlobalParameters& parameters_;
    int lastRow_;
};

std::unique_ptr<ActionItem> joinOf(int mode, bool closeB, GlobalParameters& parameters) {
    const QByteArray element =
        "<Join keyA='k' joinMode='" + QByteArray::number(mode) + "' closeB='" +
        QByteArray::number(int(closeB)) +
        "'><SlaveKeys><s>k</s></SlaveKeys><Prefixes><s/><s/></Prefixes></Join>";
    return boxFrom(ActionIndex::Join, element.constData(), parameters);
}

QByteArray savedText(const ActionItem& action) {
    XMLStream stream;
    action.saveToXML(stream, QString());
    return QString::fromStdU16String(stream.str()).toUtf8();
}

} // namespace

TEST(Join, ReadsTheRestOfATableWhereItIsToldTo) {
    struct Sample {
        int mode;
        const char* a;
        const char* b;
        int readOfA, readOfB;             ///< what the rows take
        int closedReadOfA, closedReadOfB; ///< with closeB
    };
    const Sample samples[] = {
        {0, "12", "12345", 2, 3, 2, 5}, // one more of each slave table at the end of A
        {1, "12", "12345", 2, 2, 2, 5}, {3, "12", "12345", 2, 2, 2, 5},
        {6, "12", "12345", 2, 3, 2, 5}, {7, "12", "12345", 2, 3, 2, 5},
        {9, "12", "12345", 2, 2, 2, 5}, {5, "12", "12345", 2, 1, 2, 1},
        {2, "12", "12345", 2, 5, 2, 5}, {4, "12", "12345", 2, 5, 2, 5},
        {8, "12", "12345", 2, 5, 2, 5}, {11, "12", "12345", 2, 5, 2, 5},
        {1, "12345", "1", 2, 1, 5, 1},  {7, "12345", "1", 2, 1, 5, 1},
        {1, "12345", "", 1, 0, 5, 0},   {6, "12345", "1", 5, 1, 5, 1},
    };
    for (const Sample& sample : samples) {
        for (const bool closeB : {false, true}) {
            SCOPED_TRACE(testing::Message() << "mode " << sample.mode << " close " << closeB);
            GlobalParameters parameters;
            KeysPin a(sample.a, parameters);
            KeysPin b(sample.b, parameters);
            HandDriven driven(joinOf(sample.mode, closeB, parameters));
            EXPECT_FALSE(driven.begin({&a, &b}));
            while (!driven.step()) {
            }
            EXPECT_EQ(a.read(), closeB ? sample.closedReadOfA : sample.readOfA);
            EXPECT_EQ(b.read(), closeB ? sample.closedReadOfB : sample.readOfB);
            EXPECT_EQ(driven.messages(), QStringList());
            driven.afterRun();
        }
    }
}

TEST(Join, StopsInEveryLoopWhenTheRunHasEnded) {
    struct Sample {
        const char* what;
        int mode;
        const char* a;
        const char* b;
        int lastOfA, lastOfB; ///< the row with which the run ends
    };
    const Sample samples[] = {
        {"advancing", 0, "59", "123456789", 0, 3},   {"advancing", 1, "59", "123456789", 0, 3},
        {"advancing", 3, "59", "123456789", 0, 3},   {"advancing", 7, "59", "123456789", 0, 3},
        {"buffering", 6, "1", "111111111", 0, 3},    {"buffering", 8, "1", "111111111", 0, 3},
        {"all of B", 11, "1", "123456789", 0, 3},    {"equal keys", 4, "1111111112", "12", 3, 0},
        {"equal keys", 4, "12", "1111111112", 0, 3}, {"closing B", 1, "1", "123456789", 0, 3},
        {"closing A", 1, "123456789", "1", 4, 0},    {"first rows", 5, "1", "1", 0, 1},
    };
    for (const Sample& sample : samples) {
        SCOPED_TRACE(testing::Message() << sample.what << " in mode " << sample.mode);
        GlobalParameters parameters;
        KeysPin a(sample.a, parameters, sample.lastOfA);
        KeysPin b(sample.b, parameters, sample.lastOfB);
        HandDriven driven(joinOf(sample.mode, true, parameters));
        EXPECT_FALSE(driven.begin({&a, &b}));
        while (!driven.step() && parameters.runStatus == RunStatus::Running) {
        }
        EXPECT_EQ(parameters.runStatus, RunStatus::Cancelled);
        EXPECT_EQ(sample.lastOfA != 0 ? a.read() : b.read(), sample.lastOfA + sample.lastOfB);
        EXPECT_EQ(driven.row(), QStringList());
        driven.afterRun();
    }
}

TEST(Join, KeepsItsListsInLineWithItsPins) {
    GlobalParameters parameters;
    const auto left = joinOf(0, false, parameters);
    EXPECT_TRUE(left->pinsEditable);
    left->addPinIn();
    left->addPinIn();
    EXPECT_EQ(left->nPinIn, 4);
    EXPECT_TRUE(savedText(*left).contains("<SlaveKeys><s>k</s>\n<s></s>\n<s></s>\n</SlaveKeys>\n"
                                          "<Prefixes><s></s>\n<s></s>\n<s>T2_</s>\n<s>T3_</s>\n"))
        << savedText(*left).constData();
    for (int pins = 3; pins > 0; --pins) {
        left->removePinIn();
        EXPECT_EQ(left->nPinIn, std::max(pins, 2));
    }
    EXPECT_EQ(savedText(*left), savedText(*joinOf(0, false, parameters)));
    const auto inner = joinOf(1, false, parameters);
    EXPECT_FALSE(inner->pinsEditable);
    inner->addPinIn();
    EXPECT_EQ(savedText(*inner), savedText(*joinOf(1, false, parameters)));
}

TEST(Join, TakesTheModesOfOlderFiles) {
    const int modes[] = {0, 2, 1, 3, 4, 8, 5};
    GlobalParameters parameters;
    for (int old = 0; old < 7; ++old) {
        const QByteArray element =
            "<Join joinMode='11' mergeMode='" + QByteArray::number(old) + "'/>";
        const auto join = boxFrom(ActionIndex::Join, element.constData(), parameters);
        EXPECT_TRUE(savedText(*join).startsWith("<Join version='2.08' joinMode='" +
                                                QByteArray::number(modes[old]) + "' keyA=''>"));
        EXPECT_EQ(join->pinsEditable, modes[old] == 0 || modes[old] == 5);
    }
}
