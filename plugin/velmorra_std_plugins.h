/// The plug-in object that a host loads.
#pragma once

#include "host/plugin_interface.h"

#include <QtCore/QObject>

/// One instance per process, made by the exported qt_plugin_instance. It holds no data.
class MyVelmorraStdPlugins : public QObject, public VelmorraPluginInterface {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID VelmorraPluginInterface_iid)
    Q_INTERFACES(VelmorraPluginInterface)

public:
    ActionItem* newAction(unsigned int index, unsigned int reserved) override;
    void pluginHook() override {}
    double pluginVersion() override { return 4.2; }
    void* pluginReservedA() override { return nullptr; }
    void* pluginReservedB() override { return nullptr; }
    void* pluginFromXML(XMLNode) override { return nullptr; }
};

/// The block that loaders of the older kind look for in a plug-in's exports.
extern "C" Q_DECL_EXPORT const char* qt_plugin_query_verification_data();
