#include "tests/plugin/loaded_plugin.h"

#include <QtCore/QDebug>
#include <QtCore/QPluginLoader>

QString pluginFile() {
    return QStringLiteral(VELMORRA_BUILD_DIR "/lib/velmorra/VelmorraPluginDefaultActions.so");
}

QObject& pluginObject() {
    static QPluginLoader loader(pluginFile());
    QObject* const object = loader.instance();
    if (object == nullptr)
        qFatal("%s", qPrintable(loader.errorString()));
    return *object;
}

VelmorraPluginInterface& plugin() {
    return *qobject_cast<VelmorraPluginInterface*>(&pluginObject());
}

std::unique_ptr<ActionItem> boxFrom(ActionIndex index, const char* element,
                                    GlobalParameters& parameters) {
    const std::unique_ptr<ActionItem> prototype(plugin().newAction(unsigned(index), 0));
    return std::unique_ptr<ActionItem>(
        prototype->newFromXML(XMLNode::parse(element).root, &parameters));
}
