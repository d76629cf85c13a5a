/// The options that every run takes, and those of everything that loads a graph.
#pragma once

#include "command.h"
#include "message_log.h"

#include <optional>

enum class ProgressMode { Auto, Always, Never };

/// The options of everything that loads a graph.
class GraphSettings {
public:
    void declare(CLI::App& app);

    /// Takes over what was given; what is wrong with it, or a null string.
    QString read();

    QVector<std::pair<QString, QString>> parameters;
    bool strict = false;

private:
    std::vector<std::string> parameterWords_;
};

class RunSettings : public GraphSettings {
public:
    void declare(CLI::App& app);
    QString read();

    velmorra::RunOptions runOptions;
    ProgressMode progress = ProgressMode::Auto;
    LogFormat logFormat = LogFormat::Text;

private:
    std::string threadsWord_;
    std::string progressWord_;
    std::string logWord_;
};

/// The number that the whole text is, when it lies between the bounds; else nothing.
std::optional<qint64> numberBetween(const QString& text, qint64 lowest, qint64 highest);
