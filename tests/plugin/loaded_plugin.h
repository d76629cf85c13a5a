/// The built plug-in, as a host loads it.
#pragma once

#include "host/action_item.h"
#include "host/plugin_interface.h"
#include "plugin/catalogue.h"

#include <memory>

/// The file of the plug-in in the build tree.
QString pluginFile();

/// The plug-in's object; loaded at the first call. Ends the test program when it can't be loaded.
QObject& pluginObject();
VelmorraPluginInterface& plugin();

/// An instance made from an element's text, like a box of a graph.
std::unique_ptr<ActionItem> boxFrom(ActionIndex index, const char* element,
                                    GlobalParameters& parameters);
