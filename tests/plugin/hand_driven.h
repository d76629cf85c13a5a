/// Drives an Action by hand: pins over tables of text, a meeting point, and the messages.
#pragma once

#include "host/action_item.h"
#include "host/main_ui.h"

#include <memory>
#include <vector>

/// An input pin over rows of text cells.
class TablePin : public InPin {
public:
    TablePin(const QStringList& names, const QVector<QStringList>& rows,
             const QVector<SortInfos>& sort = {});

    int read = 0; ///< rows handed out so far

private:
    static const OneRow* nextRow(InPin& pin);
    static const PinOutMetaData* shapeOf(InPin& pin);

    RowBuffer cells_;
    std::vector<std::unique_ptr<OneRow>> rows_;
    PinOutMetaData shape_;
};

/// An Action with its wires. Everything must be made before the first step.
class HandDriven : private MessageSink {
public:
    /// `action` is driven as a copy where `master` is given.
    explicit HandDriven(std::unique_ptr<ActionItem> action, HandDriven* master = nullptr);

    /// Connects the pins and calls rewindRun and beforeRun; true when the run was refused.
    bool begin(const std::vector<InPin*>& pins);

    /// One step with its messages kept; true when the Action has finished.
    bool step();

    /// The texts of the row that the last step handed on; empty when there was none.
    QStringList row();
    bool afterRun();

    ActionItem& action() { return *action_; }
    ParallelGroup& group() { return group_; }
    const OneRow& output() const { return outPins_.front().row; }
    const QStringList& messages() const { return messages_; }

private:
    void take(const Message& message) override { messages_.push_back(message.text); }

    std::unique_ptr<ActionItem> action_;
    ParallelGroup group_;
    std::vector<InPin*> inPins_;
    std::vector<OutPin> outPins_;
    QStringList messages_;
};
