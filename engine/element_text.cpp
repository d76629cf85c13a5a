// Words to elements in three steps: words are split into names and settings, a name with its
// settings is written as XML by what its Action declares, and that is parsed like any other XML.
#include "engine/element_text.h"

#include "host/nearest_name.h"

#include <algorithm>
#include <optional>

namespace velmorra {
namespace {

using Kind = ElementProblem::Kind;

/// `name=text`. In a whole a value may still stand in double quotes; what a list does with them
/// differs from what an attribute does.
struct Setting {
    QString name;
    QString text;
    bool mayBeQuoted = false;
};

struct ShortForm {
    QString name;
    QVector<Setting> settings;
};

bool isBlank(QChar c) {
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

/// The place behind the quote that closes the one at `open`, or -1. A doubled quote doesn't close.
qsizetype behindQuote(QStringView text, qsizetype open) {
    const QChar quote = text[open];
    for (qsizetype i = open + 1; i < text.size(); ++i) {
        if (text[i] != quote)
            continue;
        if (i + 1 == text.size() || text[i + 1] != quote)
            return i + 1;
        ++i;
    }
    return -1;
}

/// The place behind the value that begins at `start` in a whole, or -1 when a quote in it isn't
/// closed. A quote opens only where the value, or an entry of a list, begins.
qsizetype behindValue(QStringView word, qsizetype start) {
    bool mayOpen = true;
    for (qsizetype at = start; at >= 0;) {
        if (at == word.size() || isBlank(word[at]))
            return at;
        const bool opens = mayOpen && (word[at] == u'"' || (word[at] == u'\'' && at == start));
        mayOpen = word[at] == u',';
        at = opens ? behindQuote(word, at) : at + 1;
    }
    return -1;
}

/// The text between two quotes, with doubled quotes made single.
QString unquoted(QStringView text) {
    const QString quote(text.front());
    return text.mid(1, text.size() - 2).toString().replace(quote + quote, quote);
}

/// Entries of a list in CSV quoting; nothing when the quoting is wrong.
std::optional<QVector<QString>> listEntries(const QString& text) {
    QVector<QString> entries;
    if (text.isEmpty())
        return entries;
    for (qsizetype at = 0; at <= text.size();) {
        if (at < text.size() && text[at] == u'"') {
            const qsizetype end = behindQuote(text, at);
            if (end < 0 || (end < text.size() && text[end] != u','))
                return std::nullopt;
            entries.push_back(unquoted(QStringView(text).mid(at, end - at)));
            at = end + 1;
        } else {
            qsizetype end = text.indexOf(u',', at);
            if (end < 0)
                end = text.size();
            entries.push_back(end == at ? QString() : text.mid(at, end - at));
            at = end + 1;
        }
    }
    return entries;
}

/// Whether a word is a name, or a whole that begins with one: no `=` before its first blank.
bool beginsWithName(const QString& word) {
    const auto end = std::find_if(word.begin(), word.end(), isBlank);
    return std::find(word.begin(), end, u'=') == end;
}

bool canBeName(const QString& text) {
    return std::all_of(text.begin(), text.end(),
                       [](QChar c) { return c.isLetterOrNumber() || c == u'_'; });
}

/// How a name that a person wrote compares with a declared one.
bool isNamed(const QString& written, const char* declared) {
    return written.compare(QLatin1String(declared), Qt::CaseInsensitive) == 0;
}

/// What a setting's name stands for, with the name as it is declared.
struct Target {
    enum Kind { Unknown, Attribute, OwnList, ChildList };
    Kind kind = Unknown;
    QString name;
};

Target targetOf(const StoredElement& declaration, const QString& name) {
    for (const StoredAttribute& attribute : declaration.attributes()) {
        if (isNamed(name, attribute.name))
            return {Target::Attribute, QString::fromUtf8(attribute.name)};
    }
    const std::optional<StoredList>& list = declaration.ownList();
    if (list && (isNamed(name, list->name) || isNamed(name, "list")))
        return {Target::OwnList, QString::fromUtf8(list->name)};
    for (const StoredElement::Child& child : declaration.children()) {
        if (child.element.ownList() && isNamed(name, child.name))
            return {Target::ChildList, QString::fromUtf8(child.name)};
    }
    if (boxAttributes().contains(name, Qt::CaseInsensitive))
        return {Target::Attribute, name.toLower()};
    return {};
}

/// "unknown attribute 'colums'; did you mean 'columns'?"
QString unknownSettingText(const StoredElement& declaration, const QString& name) {
    QStringList known;
    for (const StoredAttribute& attribute : declaration.attributes())
        known += QString::fromUtf8(attribute.name);
    if (declaration.ownList())
        known += {QString::fromUtf8(declaration.ownList()->name), QStringLiteral("list")};
    for (const StoredElement::Child& child : declaration.children()) {
        if (child.element.ownList())
            known += QString::fromUtf8(child.name);
        for (const StoredAttribute& attribute : child.element.attributes()) {
            if (isNamed(name, attribute.name))
                return QLatin1Char('\'') + name +
                       QLatin1String("' belongs to the child element '") +
                       QLatin1String(child.name) +
                       QLatin1String("': give this element as XML to set it");
        }
    }
    if (const auto* const records = declaration.ownRecords()) {
        for (const StoredAttribute& attribute : records->record.attributes()) {
            if (isNamed(name, attribute.name))
                return QLatin1Char('\'') + name + QLatin1String("' belongs to child elements '") +
                       QLatin1String(records->name) +
                       QLatin1String("': give this element as XML to set it");
        }
    }
    const QString text = QLatin1String("unknown attribute '") + name + QLatin1Char('\'');
    const QString nearest = nearestName(name, known);
    return nearest.isNull()
               ? text
               : text + QLatin1String("; did you mean '") + nearest + QLatin1String("'?");
}

/// An attribute's value: in a whole, quotes around all of it are not part of it.
QString attributeText(const Setting& setting) {
    const bool quoted = setting.mayBeQuoted && setting.text.startsWith(u'"') &&
                        behindQuote(setting.text, 0) == setting.text.size();
    return quoted ? unquoted(setting.text) : setting.text;
}

/// The elements of the words, and what is wrong with them, one by one.
class ElementReader {
public:
    explicit ElementReader(const ActionCatalog& catalog) : catalog_(catalog) {}

    ElementList read(const QStringList& words);

private:
    void addProblem(Kind kind, const QString& text) { result_.problems.push_back({kind, text}); }
    void addSettingProblem(const QString& text) { addProblem(Kind::Setting, title_ + text); }

    void takeWhole(const QString& word);
    void takeName(const QString& name);
    void takeSetting(const Setting& setting);
    void takeXml(const QString& word);
    void finishShortForm();

    /// False when the element can't be made, with the problem told.
    bool writeSettings(const StoredElement& declaration, const QVector<Setting>& settings);
    void writeList(const Target& target, const QString& text);
    void beginElement(const ActionItem& action);
    void addElement(const XMLNode& element, const ActionItem& action);

    const ActionCatalog& catalog_;
    ElementList result_;
    std::optional<ShortForm> current_;
    int place_ = 0; ///< of the element being read, from 1
    QString title_; ///< "element 2 (Join): "

    // The XML of a short form, while it is written.
    XMLStream attributes_;
    XMLStream content_;
};

ElementList ElementReader::read(const QStringList& words) {
    for (const QString& given : words) {
        const QString word = given.trimmed();
        if (word.startsWith(u'<'))
            takeXml(word);
        else if (beginsWithName(word))
            takeWhole(word);
        else if (const qsizetype equals = given.indexOf(u'='); equals >= 0)
            takeSetting({given.left(equals).trimmed(), given.mid(equals + 1), false});
    }
    finishShortForm();
    return result_;
}

void ElementReader::takeWhole(const QString& word) {
    if (word.isEmpty())
        addProblem(Kind::Words, QStringLiteral("an empty word is no element"));
    for (qsizetype at = 0; at < word.size();) {
        if (isBlank(word[at])) {
            ++at;
            continue;
        }
        const qsizetype start = at;
        while (at < word.size() && !isBlank(word[at]) && word[at] != u'=')
            ++at;
        const QString name = word.mid(start, at - start);
        if (at == word.size() || word[at] != u'=') {
            takeName(name);
            continue;
        }
        const qsizetype value = at + 1;
        at = behindValue(word, value);
        if (at < 0) {
            addProblem(Kind::Words, QLatin1String("the quote behind '") + name +
                                        QLatin1String("=' is not closed"));
            return;
        }
        const QString text = word.mid(value, at - value);
        if (text.startsWith(u'\'') && behindQuote(text, 0) == text.size())
            takeSetting({name, unquoted(text), false});
        else
            takeSetting({name, text, true});
    }
}

void ElementReader::takeName(const QString& name) {
    finishShortForm();
    ++place_;
    if (canBeName(name))
        current_ = ShortForm{name, {}};
    else
        addProblem(Kind::Words,
                   QStringLiteral("'%1' is neither the name of an Action nor attr=value; files are "
                                  "given with --in and --out")
                       .arg(name));
}

void ElementReader::takeSetting(const Setting& setting) {
    if (setting.name.isEmpty())
        addProblem(Kind::Words,
                   QLatin1String("'=") + setting.text + QLatin1String("' has no name before '='"));
    else if (current_)
        current_->settings.push_back(setting);
    else if (place_ == 0)
        addProblem(Kind::Words, QLatin1Char('\'') + setting.name +
                                    QLatin1String("=' stands before any Action's name"));
    else if (result_.problems.isEmpty()) // else it may belong to a name that was no name
        addProblem(Kind::Words, QLatin1Char('\'') + setting.name +
                                    QLatin1String("=' stands behind an element given as XML, which "
                                                  "holds its attributes itself"));
}

void ElementReader::takeXml(const QString& word) {
    finishShortForm();
    ++place_;
    const XMLNode::Parsed parsed = XMLNode::parse(word.toUtf8());
    if (parsed.root.isNull()) {
        addProblem(Kind::Element, QStringLiteral("element %1, line %2, byte %3: ")
                                          .arg(place_)
                                          .arg(parsed.line)
                                          .arg(parsed.column) +
                                      parsed.error);
        return;
    }
    const QString name = QString::fromUtf8(parsed.root.name());
    if (const ActionItem* const action = catalog_.find(name)) {
        beginElement(*action);
        addElement(parsed.root, *action);
    } else {
        addProblem(Kind::Element, catalog_.unknownActionText(name));
    }
}

void ElementReader::finishShortForm() {
    if (!current_)
        return;
    const ShortForm form = *std::exchange(current_, std::nullopt);
    const ActionItem* const action = catalog_.find(form.name);
    if (action == nullptr) {
        addProblem(Kind::Element, catalog_.unknownActionText(form.name));
        return;
    }
    beginElement(*action);
    attributes_ = {};
    content_ = {};
    if (!writeSettings(action->storedElement(), form.settings))
        return;
    XMLStream text;
    text << '<' << action->actionName();
    text << QString::fromStdU16String(attributes_.str()) << '>';
    text << QString::fromStdU16String(content_.str());
    text << "</" << action->actionName() << '>';
    const XMLNode::Parsed parsed = XMLNode::parse(QString::fromStdU16String(text.str()).toUtf8());
    if (parsed.root.isNull())
        addProblem(Kind::Element, title_ + parsed.error);
    else
        addElement(parsed.root, *action);
}

bool ElementReader::writeSettings(const StoredElement& declaration,
                                  const QVector<Setting>& settings) {
    QStringList given;
    for (const Setting& setting : settings) {
        const Target target = targetOf(declaration, setting.name);
        if (target.kind == Target::Unknown) {
            addSettingProblem(unknownSettingText(declaration, setting.name));
            continue;
        }
        if (given.contains(target.name)) {
            addSettingProblem(QLatin1Char('\'') + target.name + QLatin1String("' is given twice"));
            continue;
        }
        given += target.name;
        if (target.kind == Target::Attribute)
            writeAttribute(attributes_, target.name, attributeText(setting));
        else
            writeList(target, setting.text);
        if (attributes_.fail() || content_.fail()) {
            addProblem(Kind::Element, title_ + QLatin1Char('\'') + target.name +
                                          QLatin1String("' holds the character ") +
                                          toXMLStringTool().refused() +
                                          QLatin1String(", which can't be stored"));
            return false;
        }
    }
    return true;
}

void ElementReader::writeList(const Target& target, const QString& text) {
    const std::optional<QVector<QString>> entries = listEntries(text);
    if (!entries) {
        addSettingProblem(QLatin1String("the list '") + target.name +
                          QLatin1String("' has a quote that is not closed, or text behind a "
                                        "closing quote"));
        return;
    }
    if (target.kind == Target::ChildList)
        content_ << '<' << target.name << '>';
    toXML(*entries, content_);
    if (target.kind == Target::ChildList)
        content_ << "</" << target.name << '>';
}

void ElementReader::beginElement(const ActionItem& action) {
    title_ = QStringLiteral("element %1 (").arg(place_) + QLatin1String(action.actionName()) +
             QLatin1String("): ");
}

void ElementReader::addElement(const XMLNode& element, const ActionItem& action) {
    for (const StoredProblem& problem : action.storedElement().check(element, boxAttributes()))
        addSettingProblem(problem.text);
    result_.elements.push_back(element);
}

} // namespace

ElementList parseElements(const QStringList& words, const ActionCatalog& catalog) {
    return ElementReader(catalog).read(words);
}

} // namespace velmorra
