#include "actions/join/join_input.h"

#include "plugin/bounds.h"
#include "plugin/type_letter.h"

#include <algorithm>

namespace {

/// Null is a value of its own, unlike the empty text.
bool isSameText(const QString& a, const QString& b) {
    return a == b && a.isNull() == b.isNull();
}

/// The cells but that of the key. Returns the place behind them.
const uchar** copyAllBut(const OneRow& row, int keyColumn, const uchar** to) {
    to = std::copy_n(row.cells, keyColumn, to);
    return std::copy(row.cells + keyColumn + 1, row.cells + row.sz(), to);
}

} // namespace

const StoredElement& JoinInput::declaration() {
    static const StoredElement element =
        StoredElement(2.08)
            .exampleWords("JoinInput keyA=a keyBconstant=a --sorted 0=a:A --in 1=files.csv")
            .text<&JoinInput::keyA>("keyA", "", Written::Always, "key column on pin 0")
            .text<&JoinInput::prefixA>("prefixA", "", Written::WhenNotDefault,
                                       "put in front of the names of the columns of pin 0")
            .text<&JoinInput::fileColumn>("fileColumn", "filenames", Written::WhenNotDefault,
                                          "column of pin 1 with the names of the files, which may "
                                          "hold parameters")
            .text<&JoinInput::keyBconstant>("keyBconstant", "", Written::WhenNotDefault,
                                            "key column of all files, for constantKey='1'")
            .text<&JoinInput::keyBcolumn>("keyBColumn", "keys", Written::WhenNotDefault,
                                          "column of pin 1 with the name of each file's key "
                                          "column, for constantKey='0'")
            .text<&JoinInput::prefix>("prefix", "", Written::WhenNotDefault,
                                      "column of pin 1 with what is put in front of the names of "
                                      "each file's columns; empty: nothing is")
            .text<&JoinInput::partition>("partition", "", Written::WhenNotDefault,
                                         "column of pin 1: neighbouring files of one value there "
                                         "are one table; empty: each file is a table")
            .boolean<&JoinInput::constantKey>("constantKey", true, Written::WhenNotDefault,
                                              "1: all files have their key in the column "
                                              "keyBconstant; 0: pin 1 says where")
            .boolean<&JoinInput::allowNullInput>("allowNullInput", true, Written::WhenNotDefault,
                                                 "1: where no file can be opened, the rows of pin "
                                                 "0 pass through; 0: that is an error")
            .boolean<&JoinInput::skipCorruptedBlocks>("skipCorruptedBlocks", false,
                                                      Written::WhenNotDefault,
                                                      "1: damaged blocks of a file are passed "
                                                      "over, with a warning")
            .boolean<&JoinInput::doubleBuffering>("doubleBuffering", false, Written::WhenNotDefault,
                                                  "1: the next block of each file is read and "
                                                  "decompressed on a thread of its own");
    return element;
}

JoinInput::JoinInput(const XMLNode& element, GlobalParameters* parameters)
    : PluginAction(element, parameters) {
    nPinIn = 2;
    readStored(declaration());
}

void JoinInput::rewindRun() {
    setStep<&JoinInput::firstStep>();
}

bool JoinInput::beforeRun() {
    release();
    return false;
}

bool JoinInput::afterRun() {
    release();
    return false;
}

void JoinInput::release() {
    groups_.clear();
    nullCells_.clear();
    for (File& file : files_)
        file.reader->closeHD();
    files_.clear();
    key_.release();
}

char JoinInput::fullTableRequiredToComputeMetas(int pin, bool* answer) {
    *answer = pin > 0;
    return 0;
}

bool JoinInput::firstStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr || !openFiles() || !isRunning())
        return true;
    if (files_.empty())
        return passWithoutFiles(*row);
    if (!readFirstRows(*row) || !makeGroups() || !shapeOutput(*row))
        return true;
    setStep<&JoinInput::nextStep>();
    if (mustComputeFull())
        return joinFiles(*row);
    passOn(*row);
    return true;
}

bool JoinInput::openFiles() {
    const OneRow* row = getNextRowFromInPin(1);
    if (row == nullptr)
        return true;
    FileTable table;
    const auto find = [&](const QString& name, bool isUsed, int& place) {
        place = isUsed ? row->getIndexOfColumn(name) : -1;
        return place >= 0 || !isUsed ||
               !fail(QStringLiteral("Column '%1' not found on Pin 1.").arg(name));
    };
    if (!find(fileColumn, true, table.file) || !find(keyBcolumn, !constantKey, table.key) ||
        !find(prefix, !prefix.isEmpty(), table.prefix) ||
        !find(partition, !partition.isEmpty(), table.partition))
        return false;
    for (; row != nullptr && isRunning(); row = getNextRowFromInPin(1)) {
        stepBudget = 1;
        openFile(*row, table);
    }
    return true;
}

void JoinInput::openFile(const OneRow& row, const FileTable& table) {
    const auto textAt = [&](int column) {
        return column < 0 ? QString() : detach(row.colForHash(column));
    };
    File file;
    file.columns = std::make_unique<PinOutMetaData>();
    file.reader = std::make_unique<CItemHDReader>(file.columns.get(), true);
    const QString name = expandFile(textAt(table.file));
    if (file.reader->init(globalParameters, name, -1, doubleBuffering ? 2 : 1, false,
                          skipCorruptedBlocks) != 0) {
        MainUI::addLog(2,
                       QLatin1String("WARNING: cannot open file '") + name + QLatin1String("'?"));
        hasWarning = true;
        return;
    }
    file.keyName = constantKey ? keyBconstant : textAt(table.key);
    file.prefix = textAt(table.prefix);
    file.partition = textAt(table.partition);
    files_.push_back(std::move(file));
}

bool JoinInput::passWithoutFiles(const OneRow& row) {
    if (!allowNullInput)
        return fail(QStringLiteral("MergeSortInput: Error: no input files?"));
    MainUI::addLog(2, QStringLiteral("MergeSortInput: Warning: no input files?"));
    hasWarning = true;
    setStep<&JoinInput::passStep>();
    getOutputRowForOutputPin(0)->copyFrom(row);
    setRowReadyForOutput(0);
    return !mustComputeFull();
}

bool JoinInput::passStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr)
        return true;
    getOutputRowForOutputPin(0)->copyFrom(*row);
    setRowReadyForOutput(0);
    return false;
}

/// Checks the keys of pin 0 and of every file that has a row.
bool JoinInput::readFirstRows(const OneRow& row) {
    QString problem = key_.checkMaster(row, keyA);
    for (size_t i = 0; problem.isNull() && i < files_.size(); ++i) {
        File& file = files_[i];
        const OneRow* const first = file.reader->readFromHD();
        if (file.reader->status > 2)
            return !failLogged();
        hasWarning = hasWarning || file.reader->status != 0;
        if (!isRunning())
            return false;
        file.hasRows = first != nullptr;
        if (file.hasRows)
            problem =
                key_.checkSlave(*first, file.keyName,
                                QLatin1String("File '") + file.reader->fileName + QLatin1Char('\''),
                                &file.keyColumn);
    }
    if (problem.isNull())
        problem = key_.choose(JoinKey::Keeps::Number);
    return problem.isNull() || !fail(problem);
}

/// Without a partition column every file is a group of its own.
bool JoinInput::makeGroups() {
    for (size_t i = 0; i < files_.size(); ++i) {
        const File& file = files_[i];
        const bool isNext =
            i > 0 && !partition.isEmpty() && isSameText(files_[i - 1].partition, file.partition);
        if (!isNext)
            groups_.push_back({i, i, i});
        else if (files_[i - 1].hasRows && file.hasRows && !checkSameColumns(files_[i - 1], file))
            return false;
        Group& group = groups_.back();
        if (!files_[group.named].hasRows)
            group.named = i;
        group.end = i + 1;
    }
    std::erase_if(groups_, [&](const Group& group) { return !files_[group.named].hasRows; });
    return true;
}

bool JoinInput::checkSameColumns(const File& file, const File& other) {
    const PinOutMetaData& a = *file.columns;
    const PinOutMetaData& b = *other.columns;
    const auto sayOf = [](const char* what, const File& each) {
        return QLatin1String(what) + each.reader->fileName;
    };
    if (a.names.size() != b.names.size())
        return !fail(
            sayOf("joinInput: Error: the number of columns between file '", file) +
            sayOf("' and file '", other) +
            QStringLiteral("' is different (%1!=%2)").arg(a.names.size()).arg(b.names.size()));
    for (qsizetype column = 0; column < a.names.size(); ++column) {
        const QString numbered = QStringLiteral("'(column name %1 is: '").arg(column);
        if (a.names[column] != b.names[column])
            return !fail(sayOf("joinInput: Error: column's name mismatch between file '", file) +
                         numbered + a.names[column] + sayOf("') and file '", other) + numbered +
                         b.names[column] + QLatin1String("')"));
        if (a.types[column].type != b.types[column].type)
            return !fail(sayOf("joinInput: Error: column's type mismatch between file '", file) +
                         QLatin1String("'(column '") + a.names[column] +
                         QLatin1String("' is of type '") + typeLetter(a.types[column].type) +
                         sayOf("') and file '", other) + QLatin1String("'(column '") +
                         b.names[column] + QLatin1String("' is of type '") +
                         typeLetter(b.types[column].type) + QLatin1String("''')"));
    }
    return true;
}

bool JoinInput::shapeOutput(const OneRow& row) {
    qint64 count = row.sz();
    for (const Group& group : groups_)
        count += files_[group.named].columns->names.size() - 1;
    if (count > mostColumns)
        return !fail(tooManyColumns(count));
    OneRow& out = *getOutputRowForOutputPin(0);
    mainColumns_ = row.sz();
    out.copyFrom(row);
    out.setNumberOfColumns(static_cast<int>(count));
    for (int column = 0; column < mainColumns_; ++column)
        out.setColName(column, prefixA + row.colName(column));
    int place = mainColumns_;
    for (const Group& group : groups_) {
        const File& file = files_[group.named];
        for (int column = 0; column < file.columns->names.size(); ++column) {
            if (column == file.keyColumn)
                continue;
            const MetaInfo type = file.columns->types[column];
            out.setColName(place, file.prefix + file.columns->names[column]);
            out.setMetaType(place++, type);
            nullCells_.push_back(cell::nullCell(type.type));
        }
    }
    std::copy(nullCells_.begin(), nullCells_.end(), out.cells + mainColumns_);
    return true;
}

bool JoinInput::nextStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr)
        return true;
    if (key_.isNew(row->cells[key_.column()]))
        return joinFiles(*row);
    passOn(*row);
    return false;
}

/// Makes the row's key the current one and brings the files to it. True when the run has ended
/// meanwhile.
bool JoinInput::joinFiles(const OneRow& row) {
    key_.setCurrentKey(row.cells[key_.column()]);
    for (File& file : files_) {
        if (!advance(file))
            return true;
    }
    const uchar** cells = getOutputRowForOutputPin(0)->cells + mainColumns_;
    const uchar* const* nulls = nullCells_.data();
    for (const Group& group : groups_) {
        const auto begin = files_.begin() + std::ptrdiff_t(group.begin);
        const auto end = files_.begin() + std::ptrdiff_t(group.end);
        const auto found = std::find_if(begin, end, [](const File& file) { return file.hasKey; });
        const auto width = files_[group.named].columns->names.size() - 1;
        if (found == end)
            std::copy_n(nulls, width, cells);
        else
            copyAllBut(*found->reader->currentRow, found->keyColumn, cells);
        cells += width;
        nulls += width;
    }
    passOn(row);
    return false;
}

bool JoinInput::advance(File& file) {
    file.hasKey = false;
    const OneRow* row = file.reader->currentRow;
    while (row != nullptr) {
        const int order = key_.compareKeys(row->cells[file.keyColumn]);
        if (order <= 0) {
            file.hasKey = order == 0;
            return true;
        }
        row = file.reader->readFromHD();
        if (!isRunning())
            return false;
    }
    return true;
}

void JoinInput::passOn(const OneRow& row) {
    std::copy_n(row.cells, mainColumns_, getOutputRowForOutputPin(0)->cells);
    setRowReadyForOutput(0);
}
