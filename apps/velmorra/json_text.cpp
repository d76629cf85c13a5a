// Qt writes arrays and objects only.
#include "json_text.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

QByteArray jsonText(const QString& text) {
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}
