// Each Action is listed once, under its first category.
#include "actions_command.h"

#include "action_page.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

namespace {

QByteArray listText(const velmorra::ActionCatalog& catalog) {
    std::map<QString, QByteArrayList> namesByCategory;
    qsizetype width = 0;
    for (const auto& action : catalog.prototypes())
        width = std::max(width, QByteArray(action->actionName()).size());
    for (const auto& action : catalog.prototypes()) {
        const QByteArray name = QByteArray(action->actionName()).leftJustified(width + 2);
        namesByCategory[action->actionCategories().value(0)] +=
            "  " + name + action->actionDescription().toUtf8() + '\n';
    }
    QByteArray text;
    for (const auto& [category, lines] : namesByCategory) {
        if (!text.isEmpty())
            text += '\n';
        text += categoryTitle(category).toUtf8() + '\n' + lines.join();
    }
    return text;
}

QByteArray listJson(const velmorra::ActionCatalog& catalog) {
    QJsonArray actions;
    for (const auto& action : catalog.prototypes())
        actions += actionJson(*action);
    return QJsonDocument(actions).toJson();
}

} // namespace

void ActionsCommand::declare(CLI::App& app) {
    app.add_flag("--json", json_, "everything that is known of each Action, as JSON");
    app.footer("Example:\n  velmorra actions --json | jq -r '.[].name'");
}

ExitStatus ActionsCommand::execute() {
    velmorra::ActionCatalog catalog;
    if (const QString error = catalog.load(); !error.isNull())
        return notLoadable(error);
    return writeAnswer(json_ ? listJson(catalog) : listText(catalog));
}
