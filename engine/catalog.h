/// The Actions at hand: those of the plug-ins, and the engine's own boxes.
#pragma once

#include "host/action_item.h"

#include <memory>
#include <vector>

namespace velmorra {

class ActionCatalog {
public:
    /// Loads the engine's own boxes and the plug-in VelmorraPluginDefaultActions. It is looked for
    /// in the folder named by the environment variable VELMORRA_PLUGINS, then in ../lib/velmorra
    /// seen from the program. An error text when it can't be loaded; else a null string.
    QString load();

    /// Prototypes in catalogue order: the plug-ins' Actions, then the engine's boxes. They live as
    /// long as the catalogue.
    const std::vector<std::unique_ptr<ActionItem>>& prototypes() const { return prototypes_; }

    /// Takes a further prototype, for boxes that a program adds.
    void add(std::unique_ptr<ActionItem> prototype);

    /// The prototype with this name or alternative name, in any case; null when there is none.
    const ActionItem* find(const QString& name) const;

    /// "unknown Action 'Slect'; did you mean 'SelectColumns'?"
    QString unknownActionText(const QString& name) const;

    /// A new box from a stored element; null when no Action has its name. `parameters` must outlive
    /// the box. Messages of the constructor go to the current RunContext.
    std::unique_ptr<ActionItem> create(const XMLNode& element, GlobalParameters* parameters) const;

private:
    std::vector<std::unique_ptr<ActionItem>> prototypes_;
};

} // namespace velmorra
