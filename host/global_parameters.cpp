#include "host/global_parameters.h"

#include <QtCore/QDir>

#include <algorithm>

GlobalParameters::GlobalParameters(const GlobalParameters& other)
    : fileVersion(other.fileVersion),
      parameters_(other.parameters_),
      graphFolder_(other.graphFolder_) {}

void GlobalParameters::set(const QString& name, const QString& value) {
    const auto known = std::find_if(parameters_.begin(), parameters_.end(),
                                    [&](const auto& entry) { return entry.first == name; });
    if (known == parameters_.end())
        parameters_.push_back({name, value});
    else
        known->second = value;
}

const QString* GlobalParameters::find(QStringView name) const {
    for (const auto& [known, value] : parameters_) {
        if (known == name)
            return &value;
    }
    return nullptr;
}

QString GlobalParameters::expandString(const QString& text) const {
    const QStringView view(text);
    QString expanded = QStringLiteral(""); // what isn't null expands to no null
    qsizetype copied = 0;
    qsizetype close = -1;
    for (qsizetype open = view.indexOf(u"${"); open >= 0;) {
        // The brace found for an earlier opening is still the next one, so that a text of openings
        // alone costs one pass.
        if (close < open)
            close = view.indexOf(u'}', open + 2);
        if (close < 0)
            break;
        const QString* const found = find(view.mid(open + 2, close - open - 2));
        if (found != nullptr) {
            expanded += view.mid(copied, open - copied);
            expanded += *found;
            copied = close + 1;
        }
        // What stands between the braces may hold the opening of a known parameter.
        open = view.indexOf(u"${", found != nullptr ? copied : open + 2);
    }
    if (copied == 0)
        return text;
    expanded += view.mid(copied);
    return expanded;
}

QString GlobalParameters::expandFile(const QString& file) const {
    const QString name = expandString(file);
    if (!name.startsWith(QLatin1String(":/")))
        return name;
    return graphFolder_.isEmpty() ? name.mid(2) : QDir(graphFolder_).filePath(name.mid(2));
}

QString GlobalParameters::contractFile(const QString& file) const {
    if (graphFolder_.isEmpty() || !QDir::isAbsolutePath(file))
        return file;
    QString folder = QDir::cleanPath(QDir(graphFolder_).absolutePath());
    if (!folder.endsWith(QLatin1Char('/')))
        folder += QLatin1Char('/');
    const QString name = QDir::cleanPath(file);
    return name.startsWith(folder) ? QLatin1String(":/") + name.mid(folder.size()) : file;
}
