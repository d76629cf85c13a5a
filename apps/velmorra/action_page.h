/// What the catalogue and the declaration of an Action say, for a person and for a program.
#pragma once

#include "engine/catalog.h"

#include <QtCore/QJsonObject>

/// Description, categories, pins, attributes, lists and an example.
QByteArray actionPage(const ActionItem& action);

/// The same and the rest of the catalogue's data.
QJsonObject actionJson(const ActionItem& action);

/// A command line that applies the Action, with the attributes that it can't do without.
QString exampleCommand(const ActionItem& action);

/// A category without the number that orders it: "Standard" of "150_Standard".
QString categoryTitle(const QString& category);
