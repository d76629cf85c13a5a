/// Texts in JSON.
#pragma once

#include <QtCore/QString>

/// The text as a JSON string, with its quotes.
QByteArray jsonText(const QString& text);
