// One walk over the declaration for the page, one for the JSON, and the example.
#include "action_page.h"

#include "aligned_lines.h"

#include <QtCore/QJsonArray>

#include <algorithm>

namespace {

QString kindName(StoredKind kind) {
    switch (kind) {
    case StoredKind::Text:
        return QStringLiteral("text");
    case StoredKind::Integer:
    case StoredKind::LongInteger:
        return QStringLiteral("integer");
    case StoredKind::Number:
        return QStringLiteral("number");
    case StoredKind::Boolean:
        return QStringLiteral("boolean");
    case StoredKind::Character:
        break;
    }
    return QStringLiteral("character");
}

QString fallbackOf(const StoredAttribute& attribute) {
    return attribute.fallbackFor != nullptr ? attribute.fallbackFor(nullptr) : attribute.fallback;
}

QString fallbackText(const StoredAttribute& attribute) {
    const QString fallback = fallbackOf(attribute);
    const bool isText =
        attribute.kind == StoredKind::Text || attribute.kind == StoredKind::Character;
    return isText ? QLatin1Char('"') + fallback + QLatin1Char('"') : fallback;
}

QVector<QStringList> attributeLines(const StoredElement& declaration) {
    QVector<QStringList> lines;
    for (const StoredAttribute& attribute : declaration.attributes()) {
        QString meaning = QString::fromUtf8(attribute.meaning);
        if (attribute.written == Written::ReadOnly)
            meaning += QLatin1String(" (read from older files)");
        lines += QStringList{QString::fromUtf8(attribute.name), kindName(attribute.kind),
                             fallbackText(attribute), meaning};
    }
    return lines;
}

/// Lists that the short form takes: the element's own, and those of its children.
QVector<QStringList> listLines(const StoredElement& declaration) {
    QVector<QStringList> lines;
    if (const auto& list = declaration.ownList())
        lines += QStringList{QString::fromUtf8(list->name), QString::fromUtf8(list->meaning)};
    for (const StoredElement::Child& child : declaration.children()) {
        if (const auto& list = child.element.ownList())
            lines += QStringList{QString::fromUtf8(child.name), QString::fromUtf8(list->meaning)};
    }
    return lines;
}

QString pinsText(int count, bool isEditable) {
    QString text = count == 0   ? QStringLiteral("none")
                   : count == 1 ? QStringLiteral("0")
                                : QStringLiteral("0 to %1").arg(count - 1);
    if (isEditable)
        text += QLatin1String(", more can be added");
    return text;
}

QJsonObject elementJson(const StoredElement& declaration) {
    static const char* const writtenNames[] = {"always", "when not default", "never"};
    QJsonArray attributes;
    for (const StoredAttribute& attribute : declaration.attributes())
        attributes += QJsonObject{{"name", attribute.name},
                                  {"kind", kindName(attribute.kind)},
                                  {"default", fallbackOf(attribute)},
                                  {"written", writtenNames[static_cast<int>(attribute.written)]},
                                  {"meaning", attribute.meaning}};
    QJsonArray children;
    for (const StoredElement::Child& child : declaration.children()) {
        QJsonObject object = elementJson(child.element);
        object.insert(QStringLiteral("name"), child.name);
        children += object;
    }
    QJsonObject result{{"attributes", attributes}, {"children", children}};
    if (const auto& list = declaration.ownList())
        result.insert(QStringLiteral("list"),
                      QJsonObject{{"name", list->name}, {"meaning", list->meaning}});
    if (const auto* const records = declaration.ownRecords()) {
        QJsonObject object = elementJson(records->record);
        object.insert(QStringLiteral("name"), records->name);
        object.insert(QStringLiteral("meaning"), records->meaning);
        result.insert(QStringLiteral("records"), object);
    }
    return result;
}

/// One child element with what it always has.
QString exampleWithRecord(const ActionItem& action, const StoredElement::Records& records) {
    const QLatin1String name(action.actionName());
    QString text = QLatin1String("velmorra apply \"<") + name + QLatin1String("><") +
                   QLatin1String(records.name);
    for (const StoredAttribute& attribute : records.record.attributes()) {
        if (attribute.written == Written::Always)
            text += QStringLiteral(" %1='%2'")
                        .arg(QLatin1String(attribute.name), attribute.kind == StoredKind::Text
                                                                ? QStringLiteral("a")
                                                                : attribute.fallback);
    }
    text += QLatin1String("/></") + name + QLatin1String(">\"");
    for (int pin = 0; pin < action.nPinIn; ++pin)
        text += QStringLiteral(" --in %1=in%1.csv").arg(pin);
    return text + QLatin1String(" --out out.csv");
}

/// What an example writes for a text: a column's name, unless the attribute's name says otherwise.
const char* exampleValue(std::string_view attribute) {
    if (attribute == "file")
        return "table.csv";
    return attribute == "by" ? "a:A" : "a";
}

/// The settings that the Action can't do without, each with a blank in front.
QString exampleSettings(const StoredElement& declaration) {
    QString text;
    for (const StoredAttribute& attribute : declaration.attributes()) {
        if (attribute.kind != StoredKind::Text || attribute.written != Written::Always ||
            !fallbackOf(attribute).isEmpty())
            continue;
        text += QLatin1Char(' ') + QLatin1String(attribute.name) + QLatin1Char('=') +
                QLatin1String(exampleValue(attribute.name));
    }
    if (const auto& list = declaration.ownList())
        text += QLatin1Char(' ') + QLatin1String(list->name) + QLatin1String("=a,b");
    for (const StoredElement::Child& child : declaration.children()) {
        if (child.element.ownList() && child.element.attributes().empty())
            text += QLatin1Char(' ') + QLatin1String(child.name) + QLatin1String("=a,b");
    }
    return text;
}

} // namespace

QString categoryTitle(const QString& category) {
    const qsizetype underscore = category.indexOf(u'_');
    const bool isNumbered =
        underscore > 0 && std::all_of(category.begin(), category.begin() + underscore,
                                      [](QChar c) { return c.isDigit(); });
    return isNumbered ? category.mid(underscore + 1) : category;
}

QString exampleCommand(const ActionItem& action) {
    if (const auto* const records = action.storedElement().ownRecords())
        return exampleWithRecord(action, *records);
    const char* const given = action.storedElement().exampleWords();
    QString text = QLatin1String("velmorra apply ") +
                   (given != nullptr ? QString::fromUtf8(given)
                                     : QLatin1String(action.actionName()) +
                                           exampleSettings(action.storedElement()));
    if (action.nPinIn > 0)
        text += QLatin1String(" --in in.csv");
    if (action.nPinOut > 0)
        text += QLatin1String(" --out out.csv");
    return text;
}

QByteArray actionPage(const ActionItem& action) {
    const StoredElement& declaration = action.storedElement();
    QStringList categories;
    for (const QString& category : action.actionCategories())
        categories += categoryTitle(category);
    QByteArray page =
        QByteArray(action.actionName()) + "\n  " + action.actionDescription().toUtf8() + "\n\n";
    page +=
        alignedLines({{QStringLiteral("Categories"), categories.join(QLatin1String(", "))},
                      {QStringLiteral("Input pins"), pinsText(action.nPinIn, action.pinsEditable)},
                      {QStringLiteral("Output pins"), pinsText(action.nPinOut, false)}},
                     0);
    if (!declaration.attributes().empty())
        page +=
            "\nAttributes, with kind and default\n" + alignedLines(attributeLines(declaration), 2);
    if (const auto lists = listLines(declaration); !lists.isEmpty())
        page += "\nLists, given as name=a,b,c\n" + alignedLines(lists, 2);
    for (const StoredElement::Child& child : declaration.children()) {
        if (!child.element.attributes().empty())
            page += QByteArray("\nAttributes of the child element ") + child.name +
                    ", which needs XML\n" + alignedLines(attributeLines(child.element), 2);
    }
    if (const auto* const records = declaration.ownRecords()) {
        page += QByteArray("\nChild elements ") + records->name +
                ", which need XML: " + records->meaning + '\n' +
                alignedLines(attributeLines(records->record), 2);
        if (const auto& list = records->record.ownList())
            page += QByteArray("  with a list of ") + list->name + ": " + list->meaning + '\n';
    }
    return page + "\nExample\n  " + exampleCommand(action).toUtf8() + '\n';
}

QJsonObject actionJson(const ActionItem& action) {
    QJsonObject json = elementJson(action.storedElement());
    json.insert(QStringLiteral("name"), action.actionName());
    json.insert(QStringLiteral("alternativeNames"),
                QJsonArray::fromStringList(action.getAlternativeNames()));
    json.insert(QStringLiteral("description"), action.actionDescription());
    json.insert(QStringLiteral("categories"),
                QJsonArray::fromStringList(action.actionCategories()));
    json.insert(QStringLiteral("keywords"), QJsonArray::fromStringList(action.actionKeywords()));
    json.insert(QStringLiteral("fileTypes"), QJsonArray::fromStringList(action.getFileTypes()));
    json.insert(QStringLiteral("inputPins"), action.nPinIn);
    json.insert(QStringLiteral("outputPins"), action.nPinOut);
    json.insert(QStringLiteral("pinsEditable"), action.pinsEditable);
    json.insert(QStringLiteral("example"), exampleCommand(action));
    return json;
}
