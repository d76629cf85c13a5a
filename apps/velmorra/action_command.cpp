// The page comes from the Action's own declaration, so that it can't differ from what is read.
#include "action_command.h"

#include "action_page.h"

#include <CLI/CLI.hpp>

#include <QtCore/QJsonDocument>

void ActionCommand::declare(CLI::App& app) {
    app.add_option("NAME", action_, "the Action's name")->type_name("");
    app.add_flag("--json", json_, "as JSON");
    app.footer("Example:\n  velmorra action SelectColumns");
}

ExitStatus ActionCommand::execute() {
    if (action_.empty())
        return wrongUsage(QStringLiteral("action needs the NAME of an Action; `velmorra actions` "
                                         "lists them"));
    velmorra::ActionCatalog catalog;
    if (const QString error = catalog.load(); !error.isNull())
        return notLoadable(error);
    const ActionItem* const action = catalog.find(textOf(action_));
    if (action == nullptr)
        return wrongUsage(catalog.unknownActionText(textOf(action_)));
    return writeAnswer(json_ ? QJsonDocument(actionJson(*action)).toJson() : actionPage(*action));
}
