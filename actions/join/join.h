/// Join merges tables that are sorted on their key, in one pass over each.
///
///     id | who     keyA="id" SlaveKeys="nr"     id | who | what
///      1 | Ann     joinMode="0"                  1 | Ann |
///      2 | Bob                                   2 | Bob | bike
///
///     nr | what
///      2 | bike
///      3 | boat
///
/// Pin 0 is table A, pin 1 table B; a left join of unique keys and a juxtaposition take further
/// tables. Keys are compared in the order that the tables declare; null keys equal each other.
///
/// | joinMode | keeps | of B's rows of one key | order of the output |
/// |---|---|---|---|
/// | 0, 1 | A's rows: all; with a match | the first | A's |
/// | 2 | all rows of A and B | the first where A has the key, else all | by key |
/// | 3, 9 | A's rows without a match | | A's |
/// | 4, 10 | rows of A and of B without a match | all | by key |
/// | 5 | A's rows, each with the first row of every other table | | A's |
/// | 6, 7 | as 0, 1 | all | A's, for a row of A then B's |
/// | 8 | all rows of A and B | all | by key, for a row of A then B's |
/// | 11 | each row of A with each of B | | A's, for a row of A then B's |
///
/// Modes 6, 7 and 8 hold B's rows of the current key, mode 11 all of B, the others nothing.
#pragma once

#include "actions/join/join_key.h"
#include "actions/join/row_group.h"
#include "plugin/plugin_action.h"

#include <vector>

class Join final : public PluginAction<Join, ActionIndex::Join> {
public:
    Join(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    QPixmap* actionIcon(double size) override;
    void addPinIn() override;
    void removePinIn() override;
    void rewindRun() override;
    bool beforeRun() override;
    bool afterRun() override;

    enum Mode {
        LeftUnique,
        InnerUnique,
        FullUnique,
        MinusUnique,
        XorUnique,
        Juxtapose,
        LeftAll,
        InnerAll,
        FullAll,
        MinusAll,
        XorAll,
        CrossProduct,
    };

    // What is stored.
    int mergeMode = noMergeMode; ///< what older files have for joinMode
    int joinMode = LeftUnique;
    QString keyA;
    bool closeB = false;
    QVector<QString> slaveKeys; ///< of pins 1, 2, ...
    QVector<QString> prefixes;  ///< of pins 0, 1, ...

private:
    static constexpr int noMergeMode = 9;

    /// What becomes of the rows that have no match.
    enum class Kind { Left, Inner, Minus, Xor, Full };

    /// A table that is joined to A, and has rows.
    struct Slave {
        int pin;
        int key; ///< column, or -1 where all columns are put out
        int columns;
        int place = 0;               ///< of its first column in the output
        const uchar** out = nullptr; ///< there
        bool matches = false;        ///< its row has the current key
    };

    bool hasEditablePins() const { return joinMode == LeftUnique || joinMode == Juxtapose; }
    void fitListsToPins();
    void release();

    // The first row.
    bool firstStep();
    bool startWithoutA();
    bool resolve(const OneRow& a);
    bool checkKeys(const OneRow& a);
    bool readFirstRows();
    bool shapeOutput(const OneRow& a);
    bool handOnColumns(const OneRow& a);
    bool start(const OneRow& a);
    template <auto Handle>
    bool begin(const OneRow& a);

    // Steps; what handles a row of A is told apart from reading it.
    template <auto Handle>
    bool eachRowOfA();
    template <Kind kind>
    bool uniqueRow(const OneRow& a);
    bool manySlavesRow(const OneRow& a);
    template <Kind kind>
    bool groupRow(const OneRow& a);
    template <Kind kind>
    bool meetGroup(const OneRow& a);
    bool heldRowStep();
    bool replay(const OneRow& a);
    bool replayStep();
    template <Kind kind>
    bool mergeStep();
    template <Kind kind>
    bool merge();
    void skipKey();
    bool startCrossProduct(const OneRow& a);
    bool handOnA(const OneRow& a);
    bool onlyBStep();
    bool copyBStep();

    // What the steps share.
    void putB(const Slave& slave, const OneRow& b);
    void putNulls(const Slave& slave);
    bool handOnAWithNulls(const OneRow& a);
    bool handOnBAlone(const OneRow& b);
    const OneRow* nextRow(int pin) { return isRunning() ? getNextRowFromInPin(pin) : nullptr; }
    const OneRow* advance(Slave& slave);
    template <Kind kind>
    bool restWithoutB(const OneRow& a);
    bool endOfA();
    bool restOfB();
    void drain(int pin);

    // What the first row resolved.
    JoinKey key_;
    int columnsOfA_ = 0;
    std::vector<Slave> slaves_;
    std::vector<const uchar*> nulls_; ///< by output column
    const uchar** out_ = nullptr;
    Step stepBehindReplay_ = nullptr;

    // What changes by row.
    RowGroup group_;         ///< B's rows of the current key, or all of B
    bool isMatched_ = false; ///< in a full join of unique keys, whether B's row has been put out
    int pinToRead_ = 0;      ///< in a merge, the one whose row was put out last
};
