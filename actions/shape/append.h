/// Append stacks the tables of its input pins: first the rows of pin 0, then those of pin 1, ...
///
///     pin 0  a | b    pin 1  b | c     output='2'   a | b | c
///            1 | 2           3 | 4                  1 | 2 |
///                                                     | 3 | 4
///
/// `output` says which columns come out, and how those of a pin are found: by name or by place. In
/// the two rotating modes the pins with rows left are served in turn, a row each. The columns are
/// settled by the first pin that has rows, or by the first rows of all pins. The output declares no
/// order. Holds one number per output column, in a rotating mode per output column and pin.
#pragma once

#include "actions/shape/find_column_occurrence.h"
#include "plugin/plugin_action.h"

#include <QtCore/QMap>

#include <vector>

class Append final : public PluginAction<Append, ActionIndex::Append> {
public:
    enum Output : int {
        FirstPin,
        Intersection,
        Union,
        Selection,
        ByPlace,
        RotatingSelection,
        RotatingByPlace,
    };

    Append(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    void removePinIn() override;
    float computeCompletion() override { return completionIsSumOfAllCompletions(this); }
    bool beforeRun() override;
    bool afterRun() override;
    void rewindRun() override;

    // What is stored, besides `nPinIn`.
    int output = Selection;
    bool check = true; ///< all tables are checked before the first row goes out
    QStringList columns;

private:
    /// A pin that has rows left in a rotating mode.
    struct ActivePin {
        int pin;
        std::vector<int> inputs; ///< for each output column its input column; by name only
        bool hasEnded = false;   ///< left out from the next round on
    };

    /// What all pins say about a name.
    struct NameOnPins {
        int pins = 0;
        int lastPin = -1;
        MetaInfo type;
    };
    using NamesOnPins = QMap<QString, NameOnPins>;

    bool firstStep();
    bool namedStep();
    bool unionStep();
    bool placeStep();
    bool firstTurnsStep();
    bool turnsStep();

    bool settle(const OneRow& row);
    bool settleNames(const OneRow& row);
    bool settleCommonNames(const OneRow& row);
    bool countNames(const OneRow& row, int pin, NamesOnPins& names);
    void shapeByNames(const QVector<QString>& names);
    bool takeTypes(const OneRow& row);
    bool checkLaterPins();
    bool collectTurns();
    const OneRow* rowOfNextPin();

    bool mapPinColumns(const OneRow& row, int pin, std::vector<int>& inputs);
    bool checkPinTypes(const OneRow& row, int pin, const std::vector<int>& inputs, int otherPin);
    bool checkPlaces(const OneRow& row, int pin, int otherPin);
    void mapUnion(const OneRow& row);
    void passOn(const OneRow& row, const std::vector<int>& inputs);
    void passOnUnion(const OneRow& row);
    void passOnByPlace(const OneRow& row);
    void passOnTurn(const OneRow& row);
    bool startRound();

    // What the first row resolved.
    bool prefetched_ = false; ///< every pin stands on its first row already

    // What changes with the pin or per row.
    int pin_ = 0;
    std::vector<int> inputs_;  ///< for each output column its input column
    std::vector<int> outputs_; ///< of a union: the output column for each of `inputs_`
    std::vector<ActivePin> active_;
    size_t turn_ = 0; ///< place in `active_` of the next row's pin
    bool someEnded_ = false;
};
