// What is wrong is the answer, so it goes to standard output.
#include "check_command.h"

#include "graph_words.h"

#include "engine/graph_check.h"
#include "host/main_ui.h"

#include <CLI/CLI.hpp>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <cstring>

namespace {

const char* const help =
    R"(Files are opened, their headers and first rows read, but nothing is run in full and
nothing written. Each problem is a line: its level (1 error, 2 warning), the box, what the box
says of itself, and in parentheses the setting and the pin; behind it, where that can
be told, what would mend it. What hangs on a file that can't be read isn't checked.
Exit status: 0 without errors, 3 with errors; --strict makes unknown attributes errors.

Example:
  velmorra check prices.vgraph --set year=2024)";

/// A problem of the graph or of one of its boxes.
struct Problem {
    int level = 1;
    QString title; ///< of the box; null where none is meant
    QString boxId;
    QString boxName;
    QString label;
    int pin = -1;
    QString setting;
    QString text;
    QString advice;
};

Problem problemOf(const velmorra::GraphProblem& found) {
    Problem problem;
    problem.level = found.isError ? 1 : 2;
    if (found.titleSize > 0)
        problem.title = found.text.left(found.titleSize - qsizetype(strlen(": ")));
    problem.boxId = found.boxId;
    problem.boxName = found.boxName;
    problem.pin = found.pin;
    problem.setting = found.setting;
    problem.text = found.ownText();
    return problem;
}

Problem problemOf(const velmorra::BoxProblem& found, const ActionItem& box) {
    return {found.level,   velmorra::boxTitle(box),
            box.boxId,     QString::fromUtf8(box.actionName()),
            box.label,     found.pin,
            found.setting, found.text,
            found.advice};
}

QString lineOf(const Problem& problem) {
    QString line = QStringLiteral("[%1] ").arg(problem.level);
    if (!problem.title.isNull())
        line += problem.title + QLatin1String(": ");
    line += problem.text.trimmed();
    QStringList places;
    if (!problem.setting.isEmpty())
        places += QLatin1String("setting ") + problem.setting;
    if (problem.pin >= 0)
        places += QStringLiteral("pin %1").arg(problem.pin);
    if (!places.isEmpty())
        line += QLatin1String(" (") + places.join(QLatin1String(", ")) + QLatin1Char(')');
    if (!problem.advice.isNull())
        line += QLatin1String(": ") + problem.advice;
    return line.replace(u'\n', u' ') + u'\n';
}

QJsonObject jsonOf(const Problem& problem) {
    QJsonObject json{{"level", problem.level}, {"text", problem.text.trimmed()}};
    const std::pair<const char*, const QString*> texts[] = {{"box", &problem.boxId},
                                                            {"action", &problem.boxName},
                                                            {"label", &problem.label},
                                                            {"setting", &problem.setting},
                                                            {"advice", &problem.advice}};
    for (const auto& [name, text] : texts) {
        if (!text->isEmpty())
            json.insert(QLatin1String(name), *text);
    }
    if (problem.pin >= 0)
        json.insert(QLatin1String("pin"), problem.pin);
    return json;
}

QByteArray textAnswer(const QVector<Problem>& problems) {
    if (problems.isEmpty())
        return "no problems\n";
    QString text;
    for (const Problem& problem : problems)
        text += lineOf(problem);
    return text.toUtf8();
}

QByteArray jsonAnswer(const QVector<Problem>& problems, qsizetype errors) {
    QJsonArray array;
    for (const Problem& problem : problems)
        array += jsonOf(problem);
    const QJsonObject answer{
        {"errors", errors}, {"warnings", problems.size() - errors}, {"problems", array}};
    return QJsonDocument(answer).toJson();
}

/// What is wrong with the graph itself and, where its wires hold, with its boxes.
QVector<Problem> problemsOf(const velmorra::GraphLoad& load) {
    QVector<Problem> problems;
    for (const velmorra::GraphProblem& problem : load.problems)
        problems += problemOf(problem);
    if (load.graph == nullptr || !load.graph->checkWiring().isEmpty())
        return problems;
    for (const velmorra::BoxProblem& problem : velmorra::lookAt(*load.graph, load.cutPins).problems)
        problems += problemOf(problem, *load.graph->boxes()[static_cast<size_t>(problem.box)]);
    return problems;
}

} // namespace

void CheckCommand::declare(CLI::App& app) {
    app.add_option("GRAPH", graph_, "the graph file (.vgraph)")->type_name("");
    settings_.declare(app);
    app.add_flag("--json", json_, "as JSON");
    app.footer(help);
}

ExitStatus CheckCommand::execute() {
    if (graph_.empty())
        return wrongUsage(QStringLiteral("check needs a GRAPH, the name of a graph file"));
    if (const QString error = settings_.read(); !error.isNull())
        return wrongUsage(error);
    MessageLog log;
    const WindowlessMainUI ui(log);
    GraphFile file;
    if (const ExitStatus status = readGraphFile(graph_, settings_, log, file);
        status != ExitStatus::Done)
        return status;
    const QVector<Problem> problems = problemsOf(file.load);
    const qsizetype errors =
        std::count_if(problems.begin(), problems.end(),
                      [](const Problem& problem) { return problem.level == 1; });
    const ExitStatus written =
        writeAnswer(json_ ? jsonAnswer(problems, errors) : textAnswer(problems));
    return errors > 0 ? ExitStatus::NotLoadable : written;
}
