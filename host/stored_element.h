/// What an Action stores, declared once: attributes and child lists in the order in which they are
/// written, each with type, default, rule of writing and meaning.
///
/// Reading and writing an element, the check of a hand-written one, the reference page and the
/// command line's help all come from this declaration. An Action declares it in a static function:
///
///     const StoredElement& Accumulator::declaration() {
///         static const StoredElement element = StoredElement(2.14)
///             .text<&Accumulator::colAcc>("colAcc", "", Written::Always, "name of the column to
///             sum")
///             ...;
///         return element;
///     }
#pragma once

#include "host/xml_node.h"
#include "host/xml_stream.h"

#include <memory>
#include <optional>
#include <type_traits>
#include <vector>

class ActionItem;
class GlobalParameters;

enum class StoredKind { Text, Integer, LongInteger, Number, Boolean, Character };

/// When an attribute is written. ReadOnly: for older files, never written.
enum class Written { Always, WhenNotDefault, ReadOnly };

/// Gives the address of a member of what is stored: of an Action, which is given as an ActionItem,
/// or of a record.
using StoredMember = void* (*)(void* object);

struct StoredAttribute {
    const char* name;
    StoredKind kind;
    Written written;
    QString fallback; ///< the default, as it would be written
    const char* meaning;
    StoredMember member;
    /// Where the default depends on the graph: gives it as text; else null.
    QString (*fallbackFor)(const GlobalParameters*) = nullptr;
    /// Where the format takes some whole numbers for others: what a number that was read counts as.
    qint64 (*settle)(qint64) = nullptr;
    const char* gap = " "; ///< what stands in front of it: one or more blanks
};

/// A list of strings, stored as child elements `<s>`.
struct StoredList {
    const char* name; ///< for messages, help and the command line
    const char* meaning;
    StoredMember member;
};

/// The line feeds and blanks around the tags and the content of an element, as the format has them.
struct StoredLayout {
    const char* afterOpen = "\n";
    const char* afterClose = "\n";
    const char* beforeClose = "";
    const char* beforeOpen = ""; ///< of a record
    /// An element that has no records is written as `<name/>`, not as a pair of tags.
    bool closedWithoutRecords = false;
    /// The same for an element whose list has no entries.
    bool closedWithoutEntries = false;
    const char* afterEntries = ""; ///< behind a list that has entries
};

/// A problem in a hand-written element.
struct StoredProblem {
    QString text;             ///< one sentence, with the nearest known name where there is one
    bool unknownName = false; ///< something that isn't declared, not a value of the wrong kind
};

class VELMORRA_CORE StoredElement {
public:
    /// A fixed child element, which stores members of the same Action.
    struct Child;

    /// Child elements of any number, each of which stores a record of a vector.
    struct Records;

    /// `formatVersion` is the format version that the element needs.
    explicit StoredElement(double formatVersion);

    /// The version where it depends on what is stored.
    template <class Action>
    StoredElement& versionBy(double (*versionOf)(const Action&)) {
        versionOf_ = reinterpret_cast<AnyFunction>(versionOf);
        callVersion_ = [](AnyFunction f, const ActionItem& action) {
            return reinterpret_cast<double (*)(const Action&)>(f)(
                static_cast<const Action&>(action));
        };
        return *this;
    }

    template <auto Member>
    StoredElement& text(const char* name, const QString& fallback, Written written,
                        const char* meaning) {
        return add<Member, QString>(name, StoredKind::Text, fallback, written, meaning);
    }

    template <auto Member>
    StoredElement& integer(const char* name, int fallback, Written written, const char* meaning) {
        return add<Member, int>(name, StoredKind::Integer, QString::number(fallback), written,
                                meaning);
    }

    template <auto Member>
    StoredElement& longInteger(const char* name, qint64 fallback, Written written,
                               const char* meaning) {
        return add<Member, qint64>(name, StoredKind::LongInteger, QString::number(fallback),
                                   written, meaning);
    }

    template <auto Member>
    StoredElement& number(const char* name, double fallback, Written written, const char* meaning) {
        return add<Member, double>(name, StoredKind::Number, numberText(fallback), written,
                                   meaning);
    }

    template <auto Member>
    StoredElement& boolean(const char* name, bool fallback, Written written, const char* meaning) {
        return add<Member, bool>(name, StoredKind::Boolean, QLatin1String(fallback ? "1" : "0"),
                                 written, meaning);
    }

    template <auto Member>
    StoredElement& character(const char* name, QChar fallback, Written written,
                             const char* meaning) {
        return add<Member, QChar>(name, StoredKind::Character, QString(fallback), written, meaning);
    }

    /// The default of the attribute declared last, where it depends on the graph.
    StoredElement& fallbackBy(QString (*fallback)(const GlobalParameters*)) {
        attributes_.back().fallbackFor = fallback;
        return *this;
    }

    /// What a number of the attribute declared last counts as when it is read.
    StoredElement& settledBy(qint64 (*settle)(qint64)) {
        attributes_.back().settle = settle;
        return *this;
    }

    /// What stands in front of the attribute declared last, where that isn't one blank.
    StoredElement& gap(const char* blanks) {
        attributes_.back().gap = blanks;
        return *this;
    }

    /// The layout of an element that has children.
    StoredElement& layout(StoredLayout layout) {
        layout_ = layout;
        return *this;
    }

    /// What an example on the command line says behind the Action's name, where settings alone,
    /// made from the declaration, wouldn't run; the input and output of pin 0 are added.
    StoredElement& exampleWords(const char* words) {
        exampleWords_ = words;
        return *this;
    }

    /// The list whose entries are the element's own children. At most one, and no children then.
    template <auto Member>
    StoredElement& list(const char* name, const char* meaning, StoredLayout layout = {}) {
        static_assert(std::is_same_v<typename decltype(valueOf(Member))::type, QVector<QString>>,
                      "the member of a list must be a list of strings");
        list_ = StoredList{name, meaning, memberOf<Member>()};
        layout_ = layout;
        return *this;
    }

    /// A child element that holds a list: `<name>` entries `</name>`.
    template <auto Member>
    StoredElement& childList(const char* name, const char* meaning, StoredLayout layout = {});

    /// A child element with attributes, and a list or children of its own.
    StoredElement& child(const char* name, StoredElement element);

    /// A vector of records, each stored as a child element `<name>` by its own declaration, which
    /// stands for members of the record; `layout` is that of the child elements. When it is read,
    /// every child is a record, whatever its name. At most one vector, and no list or children
    /// beside it.
    template <auto Member>
    StoredElement& records(const char* name, const char* meaning, StoredElement record);

    // What was declared.

    const std::vector<StoredAttribute>& attributes() const { return attributes_; }
    const char* exampleWords() const { return exampleWords_; } ///< null when none were given
    const std::optional<StoredList>& ownList() const { return list_; }
    const std::vector<Child>& children() const { return children_; }
    const Records* ownRecords() const { return records_.get(); }
    double version(const ActionItem& action) const {
        return versionOf_ != nullptr ? callVersion_(versionOf_, action) : version_;
    }

    // What is done with it.

    // `object` is the Action, as an ActionItem, or a record.

    /// Reads the element into the object's members; what is missing gets its default.
    void read(void* object, const XMLNode& node, const GlobalParameters* parameters) const;

    /// Writes the attributes, each with a blank in front. The stream fails where XML can't hold a
    /// text (see ToXMLStringTool).
    void writeAttributes(const void* object, const GlobalParameters* parameters,
                         XMLStream& stream) const;

    /// Writes what stands behind the attributes: ">", the content, `furtherChildren` (each the text
    /// of an element) and the closing tag of the element `name`, or "/>" where there is none.
    void writeContent(const void* object, const GlobalParameters* parameters, const char* name,
                      XMLStream& stream, const QStringList& furtherChildren = {}) const;

    /// The children of `node` that aren't declared, each as the text of an element.
    QStringList unknownChildren(const XMLNode& node) const;

    /// Names in a hand-written element that aren't declared, and values of the wrong kind. `known`
    /// names further attributes that the element may have. At most `mostProblems` are told.
    QVector<StoredProblem> check(const XMLNode& node, const QStringList& known = {}) const;
    static constexpr int mostProblems = 100;

private:
    using AnyFunction = void (*)();

    template <class Class, class Value>
    static std::type_identity<Class> classOf(Value Class::*);
    template <class Class, class Value>
    static std::type_identity<Value> valueOf(Value Class::*);

    template <auto Member>
    static StoredMember memberOf() {
        return [](void* object) -> void* {
            using Class = typename decltype(classOf(Member))::type;
            if constexpr (std::is_base_of_v<ActionItem, Class>)
                return &(static_cast<Class*>(static_cast<ActionItem*>(object))->*Member);
            else
                return &(static_cast<Class*>(object)->*Member);
        };
    }

    template <auto Member, class Value>
    StoredElement& add(const char* name, StoredKind kind, const QString& fallback, Written written,
                       const char* meaning) {
        static_assert(std::is_same_v<typename decltype(valueOf(Member))::type, Value>,
                      "the member has another type than the attribute");
        attributes_.push_back({name, kind, written, fallback, meaning, memberOf<Member>()});
        return *this;
    }

    static QString numberText(double value);

    bool hasContent(const void* object) const;
    void writeRecords(const void* object, const GlobalParameters* parameters,
                      XMLStream& stream) const;
    const Child* childNamed(const char* name) const;
    bool takesChild(const char* name) const {
        return list_ || records_ || childNamed(name) != nullptr;
    }
    void checkAttributes(const XMLNode& node, const QStringList& known,
                         QVector<StoredProblem>& problems) const;
    void checkContent(const XMLNode& node, QVector<StoredProblem>& problems) const;
    void checkRecords(const XMLNode& node, QVector<StoredProblem>& problems) const;

    double version_;
    const char* exampleWords_ = nullptr;
    AnyFunction versionOf_ = nullptr;
    double (*callVersion_)(AnyFunction, const ActionItem&) = nullptr;
    std::vector<StoredAttribute> attributes_;
    std::optional<StoredList> list_;
    StoredLayout layout_;
    std::vector<Child> children_;
    std::shared_ptr<const Records> records_;
};

struct StoredElement::Child {
    const char* name;
    StoredElement element;
};

struct StoredElement::Records {
    const char* name;
    const char* meaning;
    StoredElement record;

    // The vector in the object that stores it, and a record of it.
    size_t (*count)(const void* object);
    void* (*at)(void* object, size_t place);
    /// All records anew, with the defaults of their type.
    void (*reset)(void* object, size_t count);
};

// Behind these, since the following need them whole.

inline StoredElement::StoredElement(double formatVersion) : version_(formatVersion) {}

template <auto Member>
StoredElement& StoredElement::childList(const char* name, const char* meaning,
                                        StoredLayout layout) {
    StoredElement element(0);
    element.list<Member>(name, meaning, layout);
    return child(name, std::move(element));
}

template <auto Member>
StoredElement& StoredElement::records(const char* name, const char* meaning, StoredElement record) {
    using Vector = typename decltype(valueOf(Member))::type;
    static constexpr auto vectorIn = [](const void* object) -> Vector& {
        return *static_cast<Vector*>(memberOf<Member>()(const_cast<void*>(object)));
    };
    records_ = std::make_shared<const Records>(
        Records{name, meaning, std::move(record),
                [](const void* object) { return static_cast<size_t>(vectorIn(object).size()); },
                [](void* object, size_t place) -> void* {
                    return &vectorIn(object)[static_cast<typename Vector::size_type>(place)];
                },
                [](void* object, size_t count) {
                    Vector fresh;
                    fresh.resize(static_cast<typename Vector::size_type>(count));
                    vectorIn(object) = std::move(fresh);
                }});
    return *this;
}
