// Options to pins: each option is checked against the elements' pins before anything is opened.
#include "apply_tables.h"

#include "table_file.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QSet>

#include <algorithm>
#include <map>

using velmorra::Graph;

namespace {

const QString standardStream = QStringLiteral("-");

/// `[N.]PIN=` in front of a text; without it the pin is 0 and the element left open.
struct PinWord {
    bool hasPin = false;
    std::optional<qint64> element; ///< from 1
    qint64 pin = 0;
    QString text;
};

/// Reads digits; nothing when there are none or too many to be a place.
std::optional<qint64> readNumber(const QString& word, qsizetype& at) {
    const qsizetype start = at;
    while (at < word.size() && word[at] >= u'0' && word[at] <= u'9')
        ++at;
    if (at == start || at - start > 9)
        return std::nullopt;
    return word.mid(start, at - start).toLongLong();
}

PinWord parsePinWord(const QString& word) {
    PinWord result{false, {}, 0, word};
    qsizetype at = 0;
    std::optional<qint64> element;
    std::optional<qint64> pin = readNumber(word, at);
    if (pin && at < word.size() && word[at] == u'.') {
        element = pin;
        pin = readNumber(word, ++at);
    }
    if (pin && at < word.size() && word[at] == u'=')
        result = {true, element, *pin, word.mid(at + 1)};
    return result;
}

QString quoted(const QString& text) {
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

SourceTable sourceOf(const PinTable& table, const TableOptions& options) {
    return {table.file, table.types, table.sorted, options.typed, false};
}

enum class Direction { In, Out };

/// "the input pins 0 and 1", "no input pin"
QString pinsText(int count, Direction direction) {
    const QString kind =
        direction == Direction::In ? QStringLiteral("input") : QStringLiteral("output");
    if (count == 0)
        return QLatin1String("no ") + kind + QLatin1String(" pin");
    if (count == 1)
        return QLatin1String("the ") + kind + QLatin1String(" pin 0");
    return QLatin1String("the ") + kind + QLatin1String(" pins 0 ") +
           QLatin1String(count == 2 ? "and" : "to") + QLatin1Char(' ') + QString::number(count - 1);
}

class TablePlanner {
public:
    TablePlanner(const TableOptions& options,
                 const std::vector<std::unique_ptr<ActionItem>>& elements)
        : options_(options),
          elements_(elements),
          count_(static_cast<int>(elements.size())) {}

    TablePlan plan();

private:
    using Place = std::pair<int, int>; ///< element and pin
    using Tables = std::map<Place, PinTable>;

    bool fail(const QString& text) {
        if (error_.isNull())
            error_ = text;
        return false;
    }
    QString title(int element) const;
    bool checkChain();
    std::optional<Place> placeOf(const PinWord& word, Direction direction);
    void takeFiles(const QStringList& words, Direction direction, Tables& tables);
    void takeDeclarations(const QStringList& words, const char* option, QString PinTable::*member);
    void checkStreamsAndFiles();

    const TableOptions& options_;
    const std::vector<std::unique_ptr<ActionItem>>& elements_;
    const int count_;
    Tables inputs_;
    Tables outputs_;
    QString error_;
};

TablePlan TablePlanner::plan() {
    checkChain();
    takeFiles(options_.in, Direction::In, inputs_);
    takeFiles(options_.out, Direction::Out, outputs_);
    const Place last{count_ - 1, 0};
    if (elements_.front()->nPinIn > 0)
        inputs_.try_emplace({0, 0}, PinTable{0, 0, standardStream, {}, {}});
    // Who asks for another pin on standard output wants that one.
    const bool isTaken = std::any_of(outputs_.begin(), outputs_.end(), [](const auto& entry) {
        return entry.second.file == standardStream;
    });
    if (elements_.back()->nPinOut > 0 && !isTaken)
        outputs_.try_emplace(last, PinTable{last.first, 0, standardStream, {}, {}});
    takeDeclarations(options_.types, "--types", &PinTable::types);
    takeDeclarations(options_.sorted, "--sorted", &PinTable::sorted);
    checkStreamsAndFiles();
    TablePlan plan{{}, {}, error_};
    for (const auto& [place, table] : inputs_)
        plan.inputs.push_back(table);
    for (const auto& [place, table] : outputs_)
        plan.outputs.push_back(table);
    return plan;
}

QString TablePlanner::title(int element) const {
    const QString name = QString::fromUtf8(elements_[static_cast<size_t>(element)]->actionName());
    if (count_ == 1)
        return name;
    return QStringLiteral("element %1 (").arg(element + 1) + name + QLatin1Char(')');
}

bool TablePlanner::checkChain() {
    for (int i = 0; i + 1 < count_; ++i) {
        if (elements_[static_cast<size_t>(i)]->nPinOut == 0)
            return fail(title(i) + QLatin1String(" has no output pin, so nothing can follow it"));
        if (elements_[static_cast<size_t>(i) + 1]->nPinIn == 0)
            return fail(title(i + 1) +
                        QLatin1String(" has no input pin, so it can't follow another element"));
    }
    return true;
}

std::optional<TablePlanner::Place> TablePlanner::placeOf(const PinWord& word, Direction direction) {
    const bool isIn = direction == Direction::In;
    if (word.element && (*word.element < 1 || *word.element > count_)) {
        fail(QStringLiteral("there is no element %1: elements go from 1 to %2")
                 .arg(QString::number(*word.element), QString::number(count_)));
        return std::nullopt;
    }
    const int element = word.element ? static_cast<int>(*word.element) - 1 : isIn ? 0 : count_ - 1;
    const ActionItem& action = *elements_[static_cast<size_t>(element)];
    const int pins = isIn ? action.nPinIn : action.nPinOut;
    if (word.pin >= pins) {
        fail(title(element) + QLatin1String(" has ") + pinsText(pins, direction) +
             QLatin1String(", not ") + QString::number(word.pin));
        return std::nullopt;
    }
    return Place{element, static_cast<int>(word.pin)};
}

void TablePlanner::takeFiles(const QStringList& words, Direction direction, Tables& tables) {
    const QString option =
        direction == Direction::In ? QStringLiteral("--in") : QStringLiteral("--out");
    for (const QString& word : words) {
        const PinWord pinWord = parsePinWord(word);
        if (!pinWord.hasPin && word.contains(u'=')) {
            fail(option + QLatin1Char(' ') + quoted(word) +
                 QLatin1String(" has no pin number before '='; for a file name with '=' give ") +
                 quoted(QLatin1String("0=") + word));
            continue;
        }
        if (pinWord.text.isEmpty()) {
            fail(option + QLatin1Char(' ') + quoted(word) + QLatin1String(" names no file"));
            continue;
        }
        const auto place = placeOf(pinWord, direction);
        if (!place)
            continue;
        if (direction == Direction::In && place->first > 0 && place->second == 0)
            fail(QLatin1String("the input pin 0 of ") + title(place->first) +
                 QLatin1String(" takes the rows of the element before it"));
        else if (!tables
                      .try_emplace(*place,
                                   PinTable{place->first, place->second, pinWord.text, {}, {}})
                      .second)
            fail(option + QLatin1String(" names pin ") + QString::number(place->second) +
                 QLatin1String(" of ") + title(place->first) + QLatin1String(" twice"));
    }
}

void TablePlanner::takeDeclarations(const QStringList& words, const char* option,
                                    QString PinTable::*member) {
    for (const QString& word : words) {
        const PinWord pinWord = parsePinWord(word);
        const auto place = placeOf(pinWord, Direction::In);
        if (!place)
            continue;
        const auto table = inputs_.find(*place);
        const QString what = QLatin1String(option) + QLatin1Char(' ') + quoted(word);
        if (table == inputs_.end())
            fail(what + QLatin1String(": no table is read on that pin"));
        else if (pinWord.text.isEmpty())
            fail(what + QLatin1String(" declares nothing"));
        else if (!(table->second.*member).isNull())
            fail(what + QLatin1String(": this was given for that pin before"));
        else
            table->second.*member = pinWord.text;
    }
}

/// What tells whether two names mean one file: its path without symbolic links.
QString identityOf(const QString& file) {
    const QFileInfo info(file);
    if (info.exists())
        return info.canonicalFilePath();
    const QString folder = info.absoluteDir().canonicalPath();
    return folder.isEmpty() ? QDir::cleanPath(info.absoluteFilePath())
                            : folder + QLatin1Char('/') + info.fileName();
}

void TablePlanner::checkStreamsAndFiles() {
    const auto readsInput = std::count_if(inputs_.begin(), inputs_.end(), [](const auto& entry) {
        return entry.second.file == standardStream;
    });
    if (readsInput > 1)
        fail(QStringLiteral("standard input can feed one pin only; give the others a file with "
                            "--in"));
    for (const auto& [place, table] : inputs_) {
        const QString problem = settingsProblem(sourceOf(table, options_));
        if (!problem.isNull())
            fail(problem);
    }
    QSet<QString> files;
    for (const auto& [place, table] : outputs_) {
        const QString identity = table.file == standardStream ? table.file : identityOf(table.file);
        if (identity == QLatin1String("/dev/null"))
            continue;
        if (files.contains(identity))
            fail(table.file == standardStream
                     ? QStringLiteral("two output pins go to standard output; give a file with "
                                      "--out")
                     : QLatin1String("two output pins go to the file ") + quoted(table.file));
        files.insert(identity);
    }
}

/// "2.1", or "1" when the element is the one meant where none is named.
QString boxPlace(const PinTable& table, int impliedElement) {
    const QString pin = QString::number(table.pin);
    return table.element == impliedElement
               ? pin
               : QString::number(table.element + 1) + QLatin1Char('.') + pin;
}

} // namespace

bool TablePlan::readsStandardInput() const {
    return std::any_of(inputs.begin(), inputs.end(),
                       [](const PinTable& table) { return table.file == standardStream; });
}

TablePlan planTables(const TableOptions& options,
                     const std::vector<std::unique_ptr<ActionItem>>& elements) {
    return TablePlanner(options, elements).plan();
}

void addTableBoxes(Graph& graph, const TablePlan& plan, const TableOptions& options) {
    const int last = static_cast<int>(graph.boxes().size()) - 1;
    for (int i = 0; i < last; ++i)
        graph.addLink({i, 0, i + 1, 0});
    for (const PinTable& table : plan.inputs) {
        const QString id = QLatin1String("in ") + boxPlace(table, 0);
        const int box = addTableBox(graph, sourceOf(table, options), id);
        graph.addLink({box, 0, table.element, table.pin});
    }
    for (const PinTable& table : plan.outputs) {
        const QString id = QLatin1String("out ") + boxPlace(table, last);
        const int box =
            addTableBox(graph, TargetTable{table.file, options.typed, options.limit}, id);
        graph.addLink({table.element, table.pin, box, 0});
    }
}
