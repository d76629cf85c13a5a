// A box that isn't there is answered with the nearest name, or with the boxes that are.
#include "graph_words.h"

#include "host/nearest_name.h"

#include <algorithm>
#include <cstring>

ExitStatus readGraphFile(const std::string& path, const GraphSettings& settings, MessageLog& log,
                         GraphFile& file) {
    if (const QString error = file.catalog.load(); !error.isNull()) {
        log.take({1, error, {}, {}});
        return ExitStatus::NotLoadable;
    }
    file.load = velmorra::loadGraph(textOf(path), file.catalog, settings.parameters);
    for (velmorra::GraphProblem& problem : file.load.problems) {
        problem.isError |= settings.strict;
        if (file.load.graph == nullptr)
            problem.text.prepend(textOf(path) + QLatin1String(": "));
    }
    return ExitStatus::Done;
}

ExitStatus loadGraphFile(const std::string& path, const GraphSettings& settings, MessageLog& log,
                         GraphFile& file) {
    const ExitStatus status = readGraphFile(path, settings, log, file);
    log.takeProblems(file.load.problems);
    return status == ExitStatus::Done && !file.load.isRunnable() ? ExitStatus::NotLoadable : status;
}

namespace {

/// The place of the box with this id, else of the first with this label, else -1.
int placeOf(const QString& name, const velmorra::Graph& graph) {
    if (const int place = graph.indexOfBox(name); place >= 0)
        return place;
    const auto& boxes = graph.boxes();
    const auto found = std::find_if(boxes.begin(), boxes.end(), [&](const auto& box) {
        return !name.isEmpty() && box->label == name;
    });
    return found == boxes.end() ? -1 : static_cast<int>(found - boxes.begin());
}

QString noSuchBox(const QString& name, const velmorra::Graph& graph) {
    constexpr size_t mostBoxes = 12;
    QString text = QLatin1String("there is no box '") + name + QLatin1Char('\'');
    QStringList names;
    for (const auto& box : graph.boxes())
        names << box->boxId << box->label;
    names.removeAll(QString());
    if (const QString nearest = nearestName(name, names); !nearest.isNull())
        return text + QLatin1String("; did you mean '") + nearest + QLatin1String("'?");
    if (graph.boxes().empty())
        return text + QLatin1String("; the graph has no boxes");
    QStringList titles;
    for (const auto& box : graph.boxes()) {
        if (titles.size() < static_cast<qsizetype>(mostBoxes))
            titles += velmorra::boxTitle(*box).mid(qsizetype(strlen("box ")));
    }
    if (graph.boxes().size() > mostBoxes)
        titles += QStringLiteral("...");
    return text + QLatin1String("; the boxes are ") + titles.join(QLatin1String(", "));
}

QString noSuchPin(const ActionItem& box, const QString& pin) {
    const QString pins = box.nPinOut == 0 ? QStringLiteral("no output pin")
                         : box.nPinOut == 1
                             ? QStringLiteral("the output pin 0")
                             : QStringLiteral("the output pins 0 to %1").arg(box.nPinOut - 1);
    return velmorra::boxTitle(box) + QLatin1String(" has ") + pins + QLatin1String(", not '") +
           pin + QLatin1Char('\'');
}

} // namespace

BoxWord readBoxWord(const QString& word, const velmorra::Graph& graph) {
    BoxWord result;
    result.box = placeOf(word, graph);
    const qsizetype colon = word.lastIndexOf(u':');
    if (result.box < 0 && colon >= 0)
        result.box = placeOf(word.left(colon), graph);
    else if (result.box >= 0)
        return result;
    if (result.box < 0) {
        result.error = noSuchBox(colon >= 0 ? word.left(colon) : word, graph);
        return result;
    }
    const ActionItem& box = *graph.boxes()[static_cast<size_t>(result.box)];
    const QString pin = word.mid(colon + 1);
    if (const auto number = numberBetween(pin, 0, box.nPinOut - 1))
        result.pin = static_cast<int>(*number);
    else
        result.error = noSuchPin(box, pin);
    return result;
}
