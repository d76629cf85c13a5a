/// The frame between ActionItem and the Actions of this plug-in.
///
/// An Action derives from PluginAction with itself and its place in the catalogue, which answers
/// for its name, description, icon, categories, keywords and help. It has a static function
/// `declaration()` for what it stores, and a constructor from an element and the parameters, which
/// ends with `readStored(declaration())`.
#pragma once

#include "host/action_item.h"
#include "host/main_ui.h"
#include "plugin/action_picture.h"
#include "plugin/catalogue.h"

#include <new>

/// A new Action from a stored element, owned by the caller; null when there is no memory for it.
template <class Action>
ActionItem* makeAction(const XMLNode& element, GlobalParameters* parameters) {
    try {
        return new Action(element, parameters);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

template <class Action, ActionIndex index>
class PluginAction : public ActionItem {
public:
    static constexpr ActionIndex catalogueIndex = index;

    const char* actionName() const override { return entry().name; }
    QString actionDescription() const override { return QLatin1String(entry().description); }
    QStringList actionCategories() const override { return entry().categories; }
    QStringList actionKeywords() const override { return entry().keywords; }
    void showActionHelp() override { openHelp(entry().helpKey, QString()); }

    QPixmap* actionIcon(double size) override {
        if (!ActionPicture::canDraw())
            return nullptr;
        static ActionPicture picture(entry().icon);
        return picture.atSize(size);
    }

    ActionItem* newFromXML(XMLNode element, GlobalParameters* parameters) const override {
        return makeAction<Action>(element, parameters);
    }

    const StoredElement& storedElement() const override { return Action::declaration(); }

protected:
    using ActionItem::ActionItem;

    static const CatalogueEntry& entry() { return catalogueEntry(index); }

    /// The next row of a pin that one step reads to its end; null also when the run has ended.
    const OneRow* nextRowToDrain(int pin) {
        constexpr int rowBudget = 10;
        stepBudget = rowBudget;
        return isRunning() ? getNextRowFromInPin(pin) : nullptr;
    }

    /// Ends the run like `fail`, for an error that was logged where it was found. Always true.
    bool failLogged() {
        actionFailed = true;
        globalParameters->runStatus.endAs(RunStatus::Failed);
        return true;
    }
};
