/// The options that every run takes.
#pragma once

#include "command.h"
#include "message_log.h"

#include <optional>

enum class ProgressMode { Auto, Always, Never };

class RunSettings {
public:
    void declare(CLI::App& app);

    /// Takes over what was given; what is wrong with it, or a null string.
    QString read();

    QVector<std::pair<QString, QString>> parameters;
    velmorra::RunOptions runOptions;
    ProgressMode progress = ProgressMode::Auto;
    LogFormat logFormat = LogFormat::Text;
    bool strict = false;

private:
    QString readParameters();

    std::vector<std::string> parameterWords_;
    std::string threadsWord_;
    std::string progressWord_;
    std::string logWord_;
};

/// The number that the whole text is, when it lies between the bounds; else nothing.
std::optional<qint64> numberBetween(const QString& text, qint64 lowest, qint64 highest);
