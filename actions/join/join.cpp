#include "actions/join/join.h"

#include "plugin/bounds.h"

#include <iterator>
#include <map>

namespace {

constexpr int fewestPins = 2;

constexpr int modeOfMergeMode[] = {Join::LeftUnique,  Join::FullUnique, Join::InnerUnique,
                                   Join::MinusUnique, Join::XorUnique,  Join::FullAll,
                                   Join::Juxtapose};
constexpr int mergeModes = std::size(modeOfMergeMode);

double versionOf(const Join& join) {
    if (join.joinMode == Join::CrossProduct)
        return 2.28;
    return join.closeB ? 2.21 : 2.08;
}

} // namespace

const StoredElement& Join::declaration() {
    static const StoredElement element =
        StoredElement(2.08)
            .versionBy<Join>(&versionOf)
            .exampleWords("Join keyA=a SlaveKeys=a --sorted a:A --in 1=slaves.csv --sorted 1=a:A")
            .integer<&Join::mergeMode>("mergeMode", noMergeMode, Written::ReadOnly,
                                       "the mode in older files, in another count: 0 to 6 stand "
                                       "for joinMode 0, 2, 1, 3, 4, 8, 5")
            .integer<&Join::joinMode>(
                "joinMode", LeftUnique, Written::Always,
                "how the tables A (pin 0) and B (pin 1) are joined. Of B's rows with one key the "
                "first is joined, 0: left join; 1: inner join; 2: full outer join. 3: A minus B; "
                "4: A xor B. 5: juxtapose, each row of A with the first row of every other table. "
                "All of B's rows with one key are joined, 6: left join; 7: inner join; 8: full "
                "outer join. 9: as 3; 10: as 4. 11: cross-product, each row of A with each of B. "
                "0 and 5 take further tables on pins 2, 3, ...")
            .text<&Join::keyA>(
                "keyA", "", Written::Always,
                "key column on pin 0, on which the table must be sorted; in texts sorted "
                "by number, one that is no number joins as a null does, but in "
                "modes 2, 4 and 10 as any other of its kind")
            .boolean<&Join::closeB>("closeB", false, Written::WhenNotDefault,
                                    "1: where the rest of a table can't change the result it is "
                                    "read to its end all the same")
            .childList<&Join::slaveKeys>("SlaveKeys",
                                         "key columns on pins 1, 2, ..., on which the tables must "
                                         "be sorted as pin 0 is on its own",
                                         {.afterOpen = ""})
            .childList<&Join::prefixes>("Prefixes",
                                        "put in front of the names of the columns of pins 0, 1, "
                                        "...; may hold parameters; in modes 0 and 5 there are as "
                                        "many pins as prefixes, and at least 2",
                                        {.afterOpen = ""});
    return element;
}

Join::Join(const XMLNode& element, GlobalParameters* parameters)
    : PluginAction(element, parameters) {
    readStored(declaration());
    if (mergeMode >= 0 && mergeMode < mergeModes)
        joinMode = modeOfMergeMode[mergeMode];
    if (slaveKeys.isEmpty())
        slaveKeys.push_back(QStringLiteral(""));
    if (prefixes.size() < fewestPins)
        prefixes += QVector<QString>(fewestPins, QStringLiteral(""));
    pinsEditable = hasEditablePins();
    nPinIn = pinsEditable ? static_cast<qint32>(prefixes.size()) : fewestPins;
}

QPixmap* Join::actionIcon(double size) {
    const char* const path = joinIcon(joinMode);
    if (path == nullptr || !ActionPicture::canDraw())
        return nullptr;
    static std::map<const char*, ActionPicture> pictures; // of a path, whose text is a literal
    return pictures.try_emplace(path, path).first->second.atSize(size);
}

void Join::addPinIn() {
    ++nPinIn;
    fitListsToPins();
}

void Join::removePinIn() {
    if (nPinIn > fewestPins)
        --nPinIn;
    fitListsToPins();
}

void Join::fitListsToPins() {
    if (!hasEditablePins())
        return;
    while (prefixes.size() < nPinIn)
        prefixes.push_back(QLatin1Char('T') + QString::number(prefixes.size()) + QLatin1Char('_'));
    while (slaveKeys.size() < nPinIn - 1)
        slaveKeys.push_back(QStringLiteral(""));
    prefixes.resize(nPinIn);
    slaveKeys.resize(nPinIn - 1);
}

void Join::rewindRun() {
    setStep<&Join::firstStep>();
}

bool Join::beforeRun() {
    release();
    if (mergeMode != noMergeMode && (mergeMode < 0 || mergeMode >= mergeModes))
        return fail(outOfRange("mergeMode", QString::number(mergeMode), 0, mergeModes - 1));
    if (joinMode < LeftUnique || joinMode > CrossProduct)
        return fail(outOfRange("joinMode", QString::number(joinMode), LeftUnique, CrossProduct));
    return false;
}

bool Join::afterRun() {
    release();
    return false;
}

void Join::release() {
    key_.release();
    group_.release();
    slaves_.clear();
    nulls_.clear();
    isMatched_ = false;
    pinToRead_ = 0;
}
