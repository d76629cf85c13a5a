// Options and places come from what the commands declare, attributes from the Actions.
#include "completion.h"

#include "command.h"

#include "engine/graph_file.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace {

const QString files = QStringLiteral(":files");

class Completion {
public:
    Completion(const CLI::App& command, const QStringList& words)
        : command_(command),
          words_(words.mid(0, words.size() - 1)),
          current_(words.back()) {}

    QStringList candidates() {
        readWords();
        if (awaited_ != nullptr)
            return valuesOf(*awaited_);
        if (current_.startsWith(u'-'))
            return optionNames();
        return placeWords();
    }

private:
    /// Sorts the words in front of the current one into options with their values and places.
    void readWords() {
        for (const QString& word : words_) {
            if (awaited_ != nullptr) {
                awaited_ = nullptr;
            } else if (word.startsWith(u'-') && word.size() > 1) {
                const CLI::Option* const option =
                    command_.get_option_no_throw(word.section(u'=', 0, 0).toStdString());
                if (option != nullptr && option->get_items_expected_max() > 0 &&
                    !word.contains(u'='))
                    awaited_ = option;
            } else {
                places_ += word;
            }
        }
    }

    /// The alternatives that the help names, or files.
    static QStringList valuesOf(const CLI::Option& option) {
        const QString value = textOf(option.get_type_name());
        if (value.contains(QLatin1String("FILE")))
            return {files};
        return value.contains(u'|') ? value.split(u'|') : QStringList();
    }

    QStringList optionNames() const {
        QStringList names;
        for (const CLI::Option* const option : command_.get_options()) {
            for (const std::string& name : option->get_lnames())
                names += QLatin1String("--") + textOf(name);
            for (const std::string& name : option->get_snames())
                names += QLatin1String("-") + textOf(name);
        }
        return names;
    }

    /// What may stand in a place of its own.
    QStringList placeWords() {
        std::vector<const CLI::Option*> places;
        for (const CLI::Option* const option : command_.get_options()) {
            if (option->get_positional())
                places.push_back(option);
        }
        const auto at = static_cast<size_t>(places_.size());
        const bool isElement =
            !places.empty() && places.back()->get_name(true).starts_with("ELEMENT");
        if (isElement)
            return elementWords();
        if (at >= places.size())
            return {};
        const QString name = textOf(places[at]->get_name(true));
        if (name == QLatin1String("GRAPH"))
            return {files + QLatin1String(" vgraph")};
        if (name == QLatin1String("IN") || name == QLatin1String("OUT") ||
            name == QLatin1String("FILE"))
            return {files};
        if (name == QLatin1String("NAME"))
            return actionNames();
        return name.startsWith(QLatin1String("BOX")) ? boxWords() : QStringList();
    }

    bool loadCatalog() { return catalog_.load().isNull(); }

    QStringList actionNames() {
        QStringList names;
        if (loadCatalog()) {
            for (const auto& action : catalog_.prototypes())
                names += QLatin1String(action->actionName());
        }
        return names;
    }

    /// Names of Actions, and what the last one that was named takes.
    QStringList elementWords() {
        QStringList words = actionNames();
        const ActionItem* action = nullptr;
        for (const QString& place : places_) {
            if (const ActionItem* const named = catalog_.find(place))
                action = named;
        }
        if (action != nullptr)
            addSettings(action->storedElement(), words);
        return words;
    }

    void addSettings(const StoredElement& element, QStringList& words) const {
        const QString given = current_.section(u'=', 0, 0);
        for (const StoredAttribute& attribute : element.attributes()) {
            const QString name = QString::fromUtf8(attribute.name);
            if (given == name && current_.contains(u'=')) {
                if (attribute.kind == StoredKind::Boolean)
                    words << name + QLatin1String("=0") << name + QLatin1String("=1");
                else if (name.contains(QLatin1String("file"), Qt::CaseInsensitive))
                    words << files;
            } else if (attribute.written != Written::ReadOnly) {
                words << name + u'=';
            }
        }
        if (const auto& list = element.ownList())
            words << QLatin1String(list->name) + QLatin1String("=");
        for (const StoredElement::Child& child : element.children()) {
            if (child.element.ownList())
                words << QLatin1String(child.name) + QLatin1String("=");
        }
    }

    /// Boxes of the graph that is named in front, and their pins where there are several.
    QStringList boxWords() {
        QStringList words;
        if (!loadCatalog())
            return words;
        const velmorra::GraphLoad load = velmorra::loadGraph(places_.front(), catalog_);
        if (!load.graph)
            return words;
        for (const auto& box : load.graph->boxes()) {
            if (box->nPinOut > 0)
                words << box->boxId;
            for (int pin = 0; box->nPinOut > 1 && pin < box->nPinOut; ++pin)
                words << box->boxId + u':' + QString::number(pin);
        }
        return words;
    }

    const CLI::App& command_;
    const QStringList words_;
    const QString current_;
    const CLI::Option* awaited_ = nullptr; ///< an option whose value is the next word
    QStringList places_;
    velmorra::ActionCatalog catalog_;
};

QStringList commandNames(const CLI::App& program) {
    QStringList names = {QStringLiteral("--help"), QStringLiteral("--version")};
    for (const CLI::App* const command : program.get_subcommands(nullptr))
        names += textOf(command->get_name());
    return names;
}

} // namespace

QStringList completions(const CLI::App& program, const QStringList& words) {
    if (words.isEmpty())
        return {};
    QStringList candidates;
    if (words.size() == 1) {
        candidates = commandNames(program);
    } else {
        for (const CLI::App* const command : program.get_subcommands(nullptr)) {
            if (textOf(command->get_name()) == words.front())
                candidates = Completion(*command, words.mid(1)).candidates();
        }
    }
    candidates.removeIf([&](const QString& candidate) {
        return !candidate.startsWith(u':') && !candidate.startsWith(words.back());
    });
    return candidates;
}
