/// What the host sees of a plug-in of Actions.
#pragma once

#include "host/xml_node.h"

#include <QtCore/QtPlugin>

class ActionItem;

class VelmorraPluginInterface {
public:
    virtual ~VelmorraPluginInterface() = default;

    /// A new prototype of the Action with this index, with every default, owned by the caller; null
    /// when there is none. The second word isn't used.
    virtual ActionItem* newAction(unsigned int index, unsigned int reserved) = 0;
    virtual void pluginHook() = 0;
    virtual double pluginVersion() = 0;
    virtual void* pluginReservedA() = 0;
    virtual void* pluginReservedB() = 0;
    virtual void* pluginFromXML(XMLNode element) = 0;
};

#define VelmorraPluginInterface_iid "VelmorraPluginInterface/1.0"
Q_DECLARE_INTERFACE(VelmorraPluginInterface, VelmorraPluginInterface_iid)
