#include "host/action_item.h"

#include "host/main_ui.h"

#include <algorithm>
#include <unordered_set>

namespace {

/// A place on the drawing or a version: anything a program wrote there is kept as it stands.
QString attributeOf(const XMLNode& element, const char* name) {
    return xmltoa(element.getAttribute(name, nullptr));
}

bool isBoxAttribute(const QString& name) {
    return boxAttributes().contains(name, Qt::CaseInsensitive);
}

} // namespace

const QStringList& boxAttributes() {
    static const QStringList names = {"id", "x", "y", "label", "version", "comment"};
    return names;
}

ActionItem::ActionItem(const XMLNode& element, GlobalParameters* parameters)
    : globalParameters(parameters),
      boxId(attributeOf(element, "id")),
      label(attributeOf(element, "label")),
      comment(attributeOf(element, "comment")),
      x(attributeOf(element, "x")),
      y(attributeOf(element, "y")),
      element_(element) {}

ActionItem::~ActionItem() = default;

void ActionItem::readStored(const StoredElement& declaration) {
    declaration.read(this, element_, globalParameters);
    for (int i = 0; i < element_.nAttribute(); ++i) {
        const QString name = QString::fromUtf8(element_.attributeName(i));
        const bool declared = std::any_of(
            declaration.attributes().begin(), declaration.attributes().end(),
            [&](const StoredAttribute& attribute) {
                return name.compare(QLatin1String(attribute.name), Qt::CaseInsensitive) == 0;
            });
        if (!declared && !isBoxAttribute(name))
            unknownAttributes_.push_back({name, QString::fromUtf8(element_.attributeText(i))});
    }
    unknownChildren_ = declaration.unknownChildren(element_);
    element_ = {};
}

void ActionItem::saveAI(XMLStream& stream, const QString& text, double version) const {
    stream << text << '<' << actionName();
    const std::pair<const char*, const QString*> places[] = {
        {"id", &boxId}, {"x", &x}, {"y", &y}, {"label", &label}, {"comment", &comment}};
    for (const auto& [name, value] : places) {
        if (!value->isEmpty())
            writeAttribute(stream, name, *value);
    }
    stream << " version='" << version << '\'';
}

void ActionItem::saveToXML(XMLStream& stream, const QString& text) const {
    const StoredElement& declaration = storedElement();
    saveAI(stream, text, declaration.version(*this));
    declaration.writeAttributes(this, globalParameters, stream);
    for (const auto& [name, value] : unknownAttributes_)
        writeAttribute(stream, name, value);
    declaration.writeContent(this, globalParameters, actionName(), stream, unknownChildren_);
    toXMLStringTool().freeBuffer();
}

UpdateClassWidget* ActionItem::createPropertyForm(QWidget*) {
    return nullptr;
}

QPixmap* ActionItem::actionIcon(double) {
    return nullptr;
}

void ActionItem::addPinIn() {
    if (pinsEditable)
        ++nPinIn;
}

void ActionItem::addPinOut() {}

void ActionItem::removePinIn() {
    if (pinsEditable && nPinIn > 1)
        --nPinIn;
}

void ActionItem::removePinOut() {}

void ActionItem::showActionHelp() {}

QStringList ActionItem::getFileTypes() const {
    return {};
}

QStringList ActionItem::getAlternativeNames() const {
    return {};
}

ActionItem* ActionItem::clone(GlobalParameters* parameters) const {
    XMLStream stream;
    saveToXML(stream, QString());
    if (stream.fail()) {
        MainUI::addLog(1, QLatin1String(actionName()) +
                              QStringLiteral(": ERROR: a setting holds the character ") +
                              toXMLStringTool().refused() +
                              QStringLiteral(", which can't be stored.\n"));
        return nullptr;
    }
    const XMLNode::Parsed parsed = XMLNode::parse(QString::fromStdU16String(stream.str()).toUtf8());
    return parsed.root.isNull() ? nullptr : newFromXML(parsed.root, parameters);
}

bool ActionItem::beforeRun() {
    return false;
}

bool ActionItem::afterRun() {
    return false;
}

void ActionItem::wakeAll() {}

float ActionItem::computeCompletion() {
    return 0;
}

bool ActionItem::completionIn2Pass() const {
    return false;
}

char ActionItem::canRunInParallel(const QString&, bool* answer) {
    *answer = false;
    return 0;
}

char ActionItem::fullTableRequiredToComputeMetas(int, bool* answer) {
    *answer = false;
    return 0;
}

QString ActionItem::getHDFile(int, bool) {
    return {};
}

quint64 ActionItem::getHDTime() const {
    return 0;
}

void ActionItem::clearHDFile() {}

bool ActionItem::needsFullTable(int pin) {
    bool answer = false;
    fullTableRequiredToComputeMetas(pin, &answer);
    return answer;
}

QString ActionItem::expandString(const QString& text) const {
    return globalParameters == nullptr ? text : globalParameters->expandString(text);
}

QString ActionItem::expandFile(const QString& file) const {
    return globalParameters == nullptr ? file : globalParameters->expandFile(file);
}

void ActionItem::copyMetaFromMasterAction() {
    for (int pin = 0; pin < nPinOut; ++pin)
        outPins_[pin].row.setShape(parallelGroup->masterAction->outPins_[pin].row.shape());
}

bool ActionItem::fail(const QString& text) {
    MainUI::addLog(1, text);
    actionFailed = true;
    if (globalParameters != nullptr)
        globalParameters->runStatus.endAs(RunStatus::Failed);
    return true;
}

float completionIsSumOfAllCompletions(ActionItem* action) {
    float sum = 0;
    int sources = 0;
    std::unordered_set<ActionItem*> met = {action};
    std::vector<ActionItem*> open = {action};
    while (!open.empty()) {
        ActionItem& box = *open.back();
        open.pop_back();
        bool isSource = &box != action;
        for (int pin = 0; box.inPins_ != nullptr && pin < box.nPinIn; ++pin) {
            ActionItem* const from = box.inPins_[pin]->from;
            isSource = isSource && from == nullptr;
            if (from != nullptr && met.insert(from).second)
                open.push_back(from);
        }
        if (isSource) {
            sum += box.computeCompletion();
            ++sources;
        }
    }
    return sources == 0 ? 0 : sum / static_cast<float>(sources);
}

void ActionItem::connectPins(InPin* const* inPins, OutPin* outPins, bool computeFull) {
    inPins_ = inPins;
    outPins_ = outPins;
    computeFull_ = computeFull;
}
