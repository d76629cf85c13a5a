#include "engine/catalog.h"

#include "engine/boxes/read_csv.h"
#include "engine/boxes/read_gel.h"
#include "engine/boxes/sort.h"
#include "engine/boxes/write_csv.h"
#include "engine/boxes/write_gel.h"
#include "host/nearest_name.h"
#include "host/plugin_interface.h"

#include <QtCore/QFileInfo>
#include <QtCore/QPluginLoader>

#include <algorithm>

namespace velmorra {

namespace {

constexpr unsigned mostActionsOfAPlugin = 256;
constexpr const char* pluginName = "VelmorraPluginDefaultActions.so";

/// Folders where the plug-in may be: what the user says, else relative to the program, in a build
/// tree or an installed one.
QStringList pluginFolders() {
    const QString chosen = qEnvironmentVariable("VELMORRA_PLUGINS");
    if (!chosen.isEmpty())
        return {chosen};
    const QString program =
        QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget()).path();
    return {program + QLatin1String("/../lib/velmorra"),
            program + QLatin1String("/../" VELMORRA_LIBRARY_FOLDER "/velmorra")};
}

bool hasName(const ActionItem& prototype, const QString& name) {
    return name.compare(QLatin1String(prototype.actionName()), Qt::CaseInsensitive) == 0 ||
           prototype.getAlternativeNames().contains(name, Qt::CaseInsensitive);
}

} // namespace

QString ActionCatalog::load() {
    const QStringList folders = pluginFolders();
    QString file;
    for (const QString& folder : folders) {
        if (file.isEmpty() && QFileInfo::exists(folder + QLatin1Char('/') + pluginName))
            file = folder + QLatin1Char('/') + pluginName;
    }
    if (file.isEmpty())
        return QStringLiteral("the plug-in %1 isn't in %2 (set VELMORRA_PLUGINS to its folder)")
            .arg(QLatin1String(pluginName), folders.join(QLatin1String(" or ")));
    QPluginLoader loader(QFileInfo(file).canonicalFilePath());
    auto* const plugin = qobject_cast<VelmorraPluginInterface*>(loader.instance());
    if (plugin == nullptr)
        return QStringLiteral("the plug-in '%1' can't be loaded: %2")
            .arg(file, loader.isLoaded() ? QStringLiteral("it isn't a plug-in of Actions")
                                         : loader.errorString());
    for (unsigned index = 0; index < mostActionsOfAPlugin; ++index) {
        if (ActionItem* const action = plugin->newAction(index, 0))
            add(std::unique_ptr<ActionItem>(action));
    }
    add(std::make_unique<ReadCsv>(XMLNode::emptyNode(), nullptr));
    add(std::make_unique<ReadGel>(XMLNode::emptyNode(), nullptr));
    add(std::make_unique<Sort>(XMLNode::emptyNode(), nullptr));
    add(std::make_unique<WriteCsv>(XMLNode::emptyNode(), nullptr));
    add(std::make_unique<WriteGel>(XMLNode::emptyNode(), nullptr));
    return {};
}

void ActionCatalog::add(std::unique_ptr<ActionItem> prototype) {
    prototypes_.push_back(std::move(prototype));
}

const ActionItem* ActionCatalog::find(const QString& name) const {
    const auto found =
        std::find_if(prototypes_.begin(), prototypes_.end(),
                     [&](const auto& prototype) { return hasName(*prototype, name); });
    return found == prototypes_.end() ? nullptr : found->get();
}

QString ActionCatalog::unknownActionText(const QString& name) const {
    QStringList names;
    for (const auto& prototype : prototypes_)
        names.push_back(QLatin1String(prototype->actionName()));
    const QString nearest = nearestName(name, names);
    const QString text = QStringLiteral("unknown Action '") + name + QLatin1Char('\'');
    return nearest.isNull() ? text : text + QLatin1String("; did you mean '") + nearest + "'?";
}

std::unique_ptr<ActionItem> ActionCatalog::create(const XMLNode& element,
                                                  GlobalParameters* parameters) const {
    const ActionItem* const prototype = find(QString::fromUtf8(element.name()));
    return std::unique_ptr<ActionItem>(
        prototype == nullptr ? nullptr : prototype->newFromXML(element, parameters));
}

} // namespace velmorra
