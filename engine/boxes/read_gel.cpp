#include "engine/boxes/read_gel.h"

#include "engine/run.h"
#include "host/main_ui.h"

#include <new>

namespace velmorra {

const BoxEntry& ReadGel::entry() const {
    static const BoxEntry entry = {"ReadGel",
                                   "Reads the rows of a stored table (gel file).",
                                   {QStringLiteral("gel"), QStringLiteral("file"),
                                    QStringLiteral("import"), QStringLiteral("read"),
                                    QStringLiteral("source"), QStringLiteral("stored")}};
    return entry;
}

const StoredElement& ReadGel::declaration() {
    static const StoredElement element =
        StoredElement(4.2)
            .text<&ReadGel::file>("file", "", Written::Always,
                                  "the file to read; - is standard input, where that is a file")
            .boolean<&ReadGel::skipCorruptedBlocks>(
                "skipCorruptedBlocks", false, Written::WhenNotDefault,
                "blocks that are damaged are passed over with a warning; else the first one ends "
                "the run")
            .exampleWords("ReadGel file=table.gel");
    return element;
}

ReadGel::ReadGel(const XMLNode& element, GlobalParameters* parameters)
    : SourceBox(element, parameters) {
    nPinIn = 0;
    nPinOut = 1;
    readStored(declaration());
}

ActionItem* ReadGel::newFromXML(XMLNode element, GlobalParameters* parameters) const {
    return new (std::nothrow) ReadGel(element, parameters);
}

void ReadGel::rewindRun() {
    setStep<&ReadGel::firstStep>();
}

bool ReadGel::beforeRun() {
    reader_.close();
    return false;
}

bool ReadGel::afterRun() {
    reader_.close();
    return false;
}

bool ReadGel::firstStep() {
    const bool readsAhead = mustComputeFull() && runOptions != nullptr && runOptions->threads > 1;
    reader_.open(expandFile(file), readsAhead, skipCorruptedBlocks);
    if (!reader_.problem().isNull())
        return fail(reader_.problem());
    output_ = getOutputRowForOutputPin(0);
    output_->setShape(reader_.columns());
    if (!mustComputeFull())
        return nextRow(), true;
    setStep<&ReadGel::nextRow>();
    return nextRow();
}

bool ReadGel::nextRow() {
    const bool hasRow = reader_.nextRow(output_->cells);
    if (reader_.hasNews())
        report();
    if (hasRow)
        setRowReadyForOutput(0);
    return !hasRow;
}

void ReadGel::report() {
    for (const QString& warning : reader_.takeWarnings()) {
        hasWarning = true;
        MainUI::addLog(2, warning);
    }
    if (!reader_.problem().isNull())
        fail(reader_.problem());
}

} // namespace velmorra
