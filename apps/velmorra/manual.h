/// The manual page, from what the commands declare.
#pragma once

#include <QtCore/QByteArray>

namespace CLI {
class App;
} // namespace CLI

/// The page in the language of man.
QByteArray manualPage(const CLI::App& program);
