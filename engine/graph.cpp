#include "engine/graph.h"

#include <QtCore/QSet>

namespace velmorra {

namespace {

QString pinList(int pins) {
    if (pins == 0)
        return QStringLiteral("none");
    return pins == 1 ? QStringLiteral("only pin 0") : QStringLiteral("pins 0 to %1").arg(pins - 1);
}

GraphProblem error(const QString& text) {
    GraphProblem problem;
    problem.text = text;
    return problem;
}

/// The place of a box that is on a loop, or -1: what remains when boxes that wait for no other are
/// taken away again and again.
int boxOnLoop(const Graph& graph) {
    const size_t count = graph.boxes().size();
    std::vector<int> waitsFor(count, 0);
    std::vector<std::vector<int>> consumers(count);
    for (const Link& link : graph.links()) {
        ++waitsFor[static_cast<size_t>(link.to)];
        consumers[static_cast<size_t>(link.from)].push_back(link.to);
    }
    std::vector<int> ready;
    for (size_t box = 0; box < count; ++box) {
        if (waitsFor[box] == 0)
            ready.push_back(static_cast<int>(box));
    }
    for (size_t done = 0; done < ready.size(); ++done) {
        for (const int consumer : consumers[static_cast<size_t>(ready[done])]) {
            if (--waitsFor[static_cast<size_t>(consumer)] == 0)
                ready.push_back(consumer);
        }
    }
    if (ready.size() == count)
        return -1;
    // A box that still waits may only hang behind the loop: going upstream from it, along boxes
    // that wait too, ends up on the loop.
    std::vector<int> upstream(count, -1);
    for (const Link& link : graph.links()) {
        if (waitsFor[static_cast<size_t>(link.from)] > 0)
            upstream[static_cast<size_t>(link.to)] = link.from;
    }
    int box = 0;
    while (waitsFor[static_cast<size_t>(box)] == 0)
        ++box;
    for (size_t step = 0; step < count; ++step)
        box = upstream[static_cast<size_t>(box)];
    return box;
}

} // namespace

QString boxTitle(const ActionItem& box) {
    QString title = QLatin1String("box ") + box.boxId;
    if (!box.label.isEmpty())
        title += QLatin1String(" '") + box.label + QLatin1Char('\'');
    return title + QLatin1String(" (") + QLatin1String(box.actionName()) + QLatin1Char(')');
}

int Graph::addBox(std::unique_ptr<ActionItem> box) {
    const int place = static_cast<int>(boxes_.size());
    for (int number = place + 1; box->boxId.isEmpty(); ++number) {
        if (!places_.contains(QString::number(number)))
            box->boxId = QString::number(number);
    }
    if (!places_.contains(box->boxId))
        places_.insert(box->boxId, place);
    boxes_.push_back(std::move(box));
    return place;
}

GraphProblem boxProblem(const ActionItem& box, const QString& text, bool isError, int pin) {
    const QString title = boxTitle(box) + QLatin1String(": ");
    GraphProblem problem;
    problem.text = title + text;
    problem.isError = isError;
    problem.boxId = box.boxId;
    problem.boxName = QString::fromUtf8(box.actionName());
    problem.pin = pin;
    problem.titleSize = title.size();
    return problem;
}

int Graph::indexOfBox(const QString& id) const {
    return places_.value(id, -1);
}

QVector<GraphProblem> Graph::checkWiring() const {
    QVector<GraphProblem> problems;
    if (boxes_.size() > maxBoxes)
        problems.push_back(error(QStringLiteral("the graph has %1 boxes; at most %2 are possible")
                                     .arg(boxes_.size())
                                     .arg(maxBoxes)));
    qint64 inputPins = 0;
    for (const auto& box : boxes_) {
        inputPins += box->nPinIn;
        if (inputPins <= maxInputPins)
            continue;
        problems.push_back(
            error(boxTitle(*box) + QStringLiteral(": it has %1 input pins; at most %2 are possible "
                                                  "in a graph")
                                       .arg(box->nPinIn)
                                       .arg(maxInputPins)));
        break;
    }
    for (size_t i = 0; i < boxes_.size(); ++i) {
        if (indexOfBox(boxes_[i]->boxId) != static_cast<int>(i))
            problems.push_back(
                boxProblem(*boxes_[i], QStringLiteral("another box has the same id")));
    }
    QSet<std::pair<int, int>> taken;
    bool sound = true;
    for (const Link& link : links_) {
        const ActionItem& from = *boxes_[static_cast<size_t>(link.from)];
        const ActionItem& to = *boxes_[static_cast<size_t>(link.to)];
        if (link.out < 0 || link.out >= from.nPinOut) {
            sound = false;
            problems.push_back(
                boxProblem(from,
                           QStringLiteral("a link leaves output pin %1, but the box has %2")
                               .arg(QString::number(link.out), pinList(from.nPinOut)),
                           true, link.out));
        }
        if (link.in < 0 || link.in >= to.nPinIn) {
            sound = false;
            problems.push_back(
                boxProblem(to,
                           QStringLiteral("a link leads to input pin %1, but the box has %2")
                               .arg(QString::number(link.in), pinList(to.nPinIn)),
                           true, link.in));
        } else if (taken.contains({link.to, link.in})) {
            sound = false;
            problems.push_back(boxProblem(
                to, QStringLiteral("input pin %1 has two links").arg(link.in), true, link.in));
        }
        taken.insert({link.to, link.in});
    }
    const int looped = sound ? boxOnLoop(*this) : -1;
    if (looped >= 0)
        problems.push_back(boxProblem(*boxes_[static_cast<size_t>(looped)],
                                      QStringLiteral("the links make a loop through this box")));
    return problems;
}

} // namespace velmorra
