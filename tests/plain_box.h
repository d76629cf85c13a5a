/// What tests of boxes share: a log, and the frame of a box.
#pragma once

#include "host/action_item.h"
#include "host/main_ui.h"

#include <mutex>

namespace velmorra::test {

/// The messages of a run as `[level] text` without the line feed at the end, those of parallel
/// copies apart.
class CollectedLog : public MessageSink {
public:
    void take(const Message& message) override {
        QString text = message.text;
        if (text.endsWith(QLatin1Char('\n')))
            text.chop(1);
        const RunContext* const context = RunContextScope::current();
        const ActionItem* const box = context == nullptr ? nullptr : context->box;
        const bool ofCopy =
            box != nullptr && box->parallelGroup != nullptr && box->isParallelCopy();
        const std::lock_guard<std::mutex> lock(mutex_);
        (ofCopy ? copies : master)
            .push_back(QLatin1Char('[') + QString::number(message.level) + QLatin1String("] ") +
                       text);
    }
    QStringList master;
    QStringList copies;

private:
    std::mutex mutex_;
};

/// Collects the messages of the thread for as long as it lives.
class HeldLog : public CollectedLog {
    RunContext context_{this, nullptr};
    RunContextScope scope_{&context_};
};

/// What every box must answer that is in no catalogue and stores nothing.
class PlainBox : public ActionItem {
public:
    using ActionItem::ActionItem;
    QString actionDescription() const override { return {}; }
    QStringList actionCategories() const override { return {}; }
    QStringList actionKeywords() const override { return {}; }
    const StoredElement& storedElement() const override {
        static const StoredElement element(2.08);
        return element;
    }
    ActionItem* newFromXML(XMLNode, GlobalParameters* parameters) const override {
        return clone(parameters);
    }
    void rewindRun() override {}
};

} // namespace velmorra::test
