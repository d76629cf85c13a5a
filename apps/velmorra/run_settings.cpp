// Values are read here rather than by CLI11, for messages that say what would have been right.
#include "run_settings.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <thread>

namespace {

constexpr int maxThreads = 256;

/// The value that belongs to a word, by their order; what is wrong goes to `error`.
template <class Value, size_t count>
Value valueOf(const std::string& word, const char* option,
              const std::array<std::pair<const char*, Value>, count>& values, QString& error) {
    if (word.empty())
        return values.front().second;
    QStringList names;
    for (const auto& [name, value] : values) {
        if (word == name)
            return value;
        names += QString::fromUtf8(name);
    }
    const QString last = names.takeLast();
    error = QLatin1String(option) + QLatin1String(" takes ") + names.join(QLatin1String(", ")) +
            QLatin1String(" or ") + last + QLatin1String(", not '") + textOf(word) +
            QLatin1Char('\'');
    return values.front().second;
}

} // namespace

std::optional<qint64> numberBetween(const QString& text, qint64 lowest, qint64 highest) {
    const bool isNumber = !text.isEmpty() && std::all_of(text.begin(), text.end(), [](QChar c) {
        return c >= u'0' && c <= u'9';
    });
    bool ok = false;
    const qint64 number = text.toLongLong(&ok);
    if (!isNumber || !ok || number < lowest || number > highest)
        return std::nullopt;
    return number;
}

void GraphSettings::declare(CLI::App& app) {
    addValues(app, "--set", parameterWords_, "NAME=VALUE",
              "sets a parameter, which wins over the graph's own");
    app.add_flag("--strict", strict, "refuse unknown attributes");
}

void RunSettings::declare(CLI::App& app) {
    GraphSettings::declare(app);
    addValue(app, "--threads", threadsWord_, "N",
             "threads that the run may use (one for each core)");
    addValue(app, "--progress", progressWord_, "auto|always|never",
             "draw progress; auto: on a terminal (auto)");
    addValue(app, "--log", logWord_, "text|json",
             "messages as text, or as JSON, a line each (text)");
}

QString RunSettings::read() {
    QString error = GraphSettings::read();
    const auto cores = static_cast<int>(std::thread::hardware_concurrency());
    runOptions.threads = std::clamp(cores, 1, maxThreads);
    if (!threadsWord_.empty()) {
        if (const auto threads = numberBetween(textOf(threadsWord_), 1, maxThreads))
            runOptions.threads = static_cast<int>(*threads);
        else
            error = QStringLiteral("--threads takes a number from 1 to %1, not '").arg(maxThreads) +
                    textOf(threadsWord_) + QLatin1Char('\'');
    }
    progress = valueOf<ProgressMode, 3>(progressWord_, "--progress",
                                        {{{"auto", ProgressMode::Auto},
                                          {"always", ProgressMode::Always},
                                          {"never", ProgressMode::Never}}},
                                        error);
    logFormat = valueOf<LogFormat, 2>(
        logWord_, "--log", {{{"text", LogFormat::Text}, {"json", LogFormat::Json}}}, error);
    return error;
}

QString GraphSettings::read() {
    for (const QString& word : textsOf(parameterWords_)) {
        const qsizetype equals = word.indexOf(u'=');
        if (equals < 1)
            return QLatin1String("--set takes NAME=VALUE, not '") + word + QLatin1Char('\'');
        parameters.push_back({word.left(equals), word.mid(equals + 1)});
    }
    return {};
}
