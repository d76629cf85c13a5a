/// Reading, writing and checking stored elements by their declaration.
#include "host/stored_element.h"

#include "host/nearest_name.h"
#include "host/number_text.h"

#include <cmath>

namespace {

/// The member of the object. Only the readers write to it.
template <class Value>
Value& memberAs(StoredMember member, const void* object) {
    return *static_cast<Value*>(member(const_cast<void*>(object)));
}

QString fallbackOf(const StoredAttribute& attribute, const GlobalParameters* parameters) {
    return attribute.fallbackFor == nullptr ? attribute.fallback
                                            : attribute.fallbackFor(parameters);
}

qint64 settled(const StoredAttribute& attribute, qint64 number) {
    return attribute.settle == nullptr ? number : attribute.settle(number);
}

void readAttribute(const StoredAttribute& attribute, const void* object, const char* text,
                   const QString& fallback) {
    const QByteArray bytes = fallback.toUtf8();
    const char* other = bytes.constData();
    const StoredMember member = attribute.member;
    switch (attribute.kind) {
    case StoredKind::Text:
        memberAs<QString>(member, object) = xmltoa(text, fallback);
        break;
    case StoredKind::Integer:
        memberAs<int>(member, object) =
            static_cast<int>(settled(attribute, xmltoi(text, xmltoi(other, 0))));
        break;
    case StoredKind::LongInteger:
        memberAs<qint64>(member, object) = settled(attribute, xmltol(text, xmltol(other, 0)));
        break;
    case StoredKind::Number:
        memberAs<double>(member, object) = xmltof(text, xmltof(other, 0));
        break;
    case StoredKind::Boolean:
        memberAs<bool>(member, object) = xmltob(text, xmltob(other, false));
        break;
    case StoredKind::Character:
        memberAs<QChar>(member, object) =
            xmltoc(text, fallback.isEmpty() ? QChar() : fallback.front());
        break;
    }
}

QString numberAsText(double value) {
    char digits[numberTextRoom];
    return QString::fromLatin1(digits, formatFloat(value, digits));
}

/// The member's value as it is written, before escaping.
QString valueText(const StoredAttribute& attribute, const void* object) {
    const StoredMember member = attribute.member;
    switch (attribute.kind) {
    case StoredKind::Text:
        return memberAs<QString>(member, object);
    case StoredKind::Integer:
        return QString::number(memberAs<int>(member, object));
    case StoredKind::LongInteger:
        return QString::number(memberAs<qint64>(member, object));
    case StoredKind::Number:
        return numberAsText(memberAs<double>(member, object));
    case StoredKind::Boolean:
        return QLatin1String(memberAs<bool>(member, object) ? "1" : "0");
    case StoredKind::Character:
        return QString(memberAs<QChar>(member, object));
    }
    return {};
}

/// What a text of the kind must be, or null when `text` is one.
const char* kindMissed(StoredKind kind, const char* text) {
    // A converter that gives back two different defaults couldn't read the text.
    switch (kind) {
    case StoredKind::Text:
        return nullptr;
    case StoredKind::Integer:
        if (xmltoi(text, 0) == xmltoi(text, 1))
            return nullptr;
        return xmltol(text, 0) == xmltol(text, 1) ? "a whole number of 32 bits" : "a whole number";
    case StoredKind::LongInteger:
        return xmltol(text, 0) == xmltol(text, 1) ? nullptr : "a whole number";
    case StoredKind::Number: {
        const double number = xmltof(text, 0);
        return std::isnan(number) || number == xmltof(text, 1) ? nullptr : "a number";
    }
    case StoredKind::Boolean:
        return xmltob(text, false) == xmltob(text, true) ? nullptr : "0 or 1";
    case StoredKind::Character:
        return xmltoc(text, u'a') == xmltoc(text, u'b') ? nullptr : "one character";
    }
    return nullptr;
}

QString quoted(const QString& text) {
    constexpr qsizetype longest = 60;
    return QLatin1Char('\'') +
           (text.size() > longest ? text.left(longest) + QStringLiteral("...") : text) +
           QLatin1Char('\'');
}

StoredProblem unknownName(const QString& what, const QString& name, const QStringList& known) {
    const QString nearest = nearestName(name, known);
    QString text = QStringLiteral("unknown ") + what + QLatin1Char(' ') + quoted(name);
    if (!nearest.isNull())
        text += QStringLiteral("; did you mean ") + quoted(nearest) + QLatin1Char('?');
    return {text, true};
}

/// Says of the problems from `first` on that they are in a child element.
void placeProblems(QVector<StoredProblem>& problems, qsizetype first, const QString& child) {
    for (qsizetype i = first; i < problems.size(); ++i)
        problems[i].text.prepend(QStringLiteral("in '") + child + QStringLiteral("': "));
}

bool isSameName(const char* declared, const QString& name) {
    return name.compare(QLatin1String(declared), Qt::CaseInsensitive) == 0;
}

} // namespace

QString StoredElement::numberText(double value) {
    return numberAsText(value);
}

StoredElement& StoredElement::child(const char* name, StoredElement element) {
    children_.push_back({name, std::move(element)});
    return *this;
}

const StoredElement::Child* StoredElement::childNamed(const char* name) const {
    const QString wanted = QString::fromUtf8(name);
    for (const Child& child : children_) {
        if (isSameName(child.name, wanted))
            return &child;
    }
    return nullptr;
}

void StoredElement::read(void* object, const XMLNode& node,
                         const GlobalParameters* parameters) const {
    for (const StoredAttribute& attribute : attributes_)
        readAttribute(attribute, object, node.getAttribute(attribute.name, nullptr),
                      fallbackOf(attribute, parameters));
    if (list_)
        memberAs<QVector<QString>>(list_->member, object) = fromXMLSV(node);
    for (const Child& child : children_)
        child.element.read(object, node.getChildNode(child.name, nullptr), parameters);
    if (!records_)
        return;
    records_->reset(object, static_cast<size_t>(node.nChildNode()));
    size_t place = 0;
    node.forEachChild([&](const XMLNode& child) {
        records_->record.read(records_->at(object, place++), child, parameters);
    });
}

void StoredElement::writeAttributes(const void* object, const GlobalParameters* parameters,
                                    XMLStream& stream) const {
    for (const StoredAttribute& attribute : attributes_) {
        if (attribute.written == Written::ReadOnly)
            continue;
        const QString value = valueText(attribute, object);
        if (attribute.written == Written::Always || value != fallbackOf(attribute, parameters)) {
            // One blank is written with the attribute.
            stream << attribute.gap + 1;
            writeAttribute(stream, QLatin1String(attribute.name), value);
        }
    }
}

/// Whether anything may stand between the opening and the closing tag.
bool StoredElement::hasContent(const void* object) const {
    if (records_)
        return !layout_.closedWithoutRecords || records_->count(object) > 0;
    if (list_)
        return !layout_.closedWithoutEntries ||
               !memberAs<QVector<QString>>(list_->member, object).isEmpty();
    return !children_.empty();
}

void StoredElement::writeContent(const void* object, const GlobalParameters* parameters,
                                 const char* name, XMLStream& stream,
                                 const QStringList& furtherChildren) const {
    if (!hasContent(object) && furtherChildren.isEmpty()) {
        stream << "/>" << layout_.afterClose;
        return;
    }
    stream << '>' << layout_.afterOpen;
    if (list_) {
        const auto& entries = memberAs<QVector<QString>>(list_->member, object);
        toXML(entries, stream);
        if (!entries.isEmpty())
            stream << layout_.afterEntries;
    }
    for (const Child& child : children_) {
        stream << '<' << child.name;
        child.element.writeAttributes(object, parameters, stream);
        child.element.writeContent(object, parameters, child.name, stream);
    }
    if (records_)
        writeRecords(object, parameters, stream);
    for (const QString& further : furtherChildren)
        stream << further << '\n';
    stream << layout_.beforeClose << "</" << name << '>' << layout_.afterClose;
}

void StoredElement::writeRecords(const void* object, const GlobalParameters* parameters,
                                 XMLStream& stream) const {
    const StoredElement& record = records_->record;
    for (size_t place = 0; place < records_->count(object); ++place) {
        const void* const each = records_->at(const_cast<void*>(object), place);
        stream << record.layout_.beforeOpen << '<' << records_->name;
        record.writeAttributes(each, parameters, stream);
        record.writeContent(each, parameters, records_->name, stream);
    }
}

QStringList StoredElement::unknownChildren(const XMLNode& node) const {
    QStringList unknown;
    node.forEachChild([&](const XMLNode& child) {
        if (!takesChild(child.name()))
            unknown.push_back(child.toText());
    });
    return unknown;
}

QVector<StoredProblem> StoredElement::check(const XMLNode& node, const QStringList& known) const {
    QVector<StoredProblem> problems;
    checkAttributes(node, known, problems);
    checkContent(node, problems);
    for (const Child& child : children_) {
        const XMLNode element = node.getChildNode(child.name, nullptr);
        const qsizetype first = problems.size();
        problems += child.element.check(element);
        placeProblems(problems, first, QLatin1String(child.name));
    }
    if (records_)
        checkRecords(node, problems);
    if (problems.size() > mostProblems)
        problems.resize(mostProblems);
    return problems;
}

void StoredElement::checkAttributes(const XMLNode& node, const QStringList& known,
                                    QVector<StoredProblem>& problems) const {
    QStringList names;
    for (const StoredAttribute& attribute : attributes_) {
        names.push_back(QLatin1String(attribute.name));
        const char* text = node.getAttribute(attribute.name, nullptr);
        const char* kind = text == nullptr ? nullptr : kindMissed(attribute.kind, text);
        if (kind != nullptr) {
            problems.push_back({QStringLiteral("attribute '") + QLatin1String(attribute.name) +
                                QStringLiteral("' must be ") + QLatin1String(kind) +
                                QStringLiteral(", not ") + quoted(QString::fromUtf8(text))});
        }
    }
    names += known;
    for (int i = 0; i < node.nAttribute() && problems.size() < mostProblems; ++i) {
        const QString name = QString::fromUtf8(node.attributeName(i));
        if (!names.contains(name, Qt::CaseInsensitive))
            problems.push_back(unknownName(QStringLiteral("attribute"), name, names));
    }
}

void StoredElement::checkContent(const XMLNode& node, QVector<StoredProblem>& problems) const {
    const QString text = QString::fromUtf8(node.getText()).simplified();
    if (!text.isEmpty())
        problems.push_back({QStringLiteral("unexpected text ") + quoted(text), true});
    QStringList names;
    for (const Child& child : children_)
        names.push_back(QLatin1String(child.name));
    QStringList seen;
    node.forEachChild([&](const XMLNode& child) {
        if (list_ || records_ || problems.size() >= mostProblems)
            return;
        const QString name = QString::fromUtf8(child.name());
        if (!takesChild(child.name()))
            problems.push_back(unknownName(QStringLiteral("child element"), name, names));
        else if (seen.contains(name, Qt::CaseInsensitive))
            problems.push_back({QStringLiteral("child element ") + quoted(name) +
                                    QStringLiteral(" stands twice; only the first is read"),
                                true});
        else
            seen.push_back(name);
    });
}

void StoredElement::checkRecords(const XMLNode& node, QVector<StoredProblem>& problems) const {
    int number = 0;
    node.forEachChild([&](const XMLNode& child) {
        ++number;
        if (problems.size() >= mostProblems)
            return;
        const qsizetype first = problems.size();
        problems += records_->record.check(child);
        placeProblems(problems, first,
                      QLatin1String(records_->name) + QLatin1Char(' ') + QString::number(number));
    });
}
