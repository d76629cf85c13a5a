/// JoinInput left-joins a sorted table with stored tables, which the rows of pin 1 name.
///
///     id | city   keyA='id'             filenames     id | city | phone | mail
///      1 | BRU    keyBconstant='id'     phones.gel     1 | BRU  | 123   |
///      2 | OSL                          mails.gel      2 | OSL  |       | a@b
///
/// Every row of pin 0 comes out once, in order, with the cells of the first row of its key in each
/// file, or nulls. Neighbouring files with the same value in the column `partition` form a group,
/// one table that lies in several files: the first file that has the key gives its cells. All
/// tables must be sorted on their key by the same order; each is read once, row by row. Holds the
/// current block of each file.
#pragma once

#include "actions/join/join_key.h"
#include "host/citem_hd_reader.h"
#include "plugin/plugin_action.h"

#include <memory>
#include <vector>

class JoinInput final : public PluginAction<JoinInput, ActionIndex::JoinInput> {
public:
    JoinInput(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    bool beforeRun() override;
    bool afterRun() override;
    void rewindRun() override;
    char fullTableRequiredToComputeMetas(int pin, bool* answer) override;

    // What is stored. What names a column may not hold parameters; a file's name may.
    QString keyA, prefixA;
    QString fileColumn, keyBcolumn, prefix, partition; ///< columns of pin 1
    QString keyBconstant;
    bool constantKey = true;      ///< all files have their key in the column `keyBconstant`
    bool allowNullInput = true;   ///< without files the rows of pin 0 pass through
    bool doubleBuffering = false; ///< the next block of a file is read on a thread
    bool skipCorruptedBlocks = false;

private:
    /// Columns of pin 1; -1 where there is none.
    struct FileTable {
        int file = -1, key = -1, prefix = -1, partition = -1;
    };

    /// An open file.
    struct File {
        QString keyName, prefix, partition;
        std::unique_ptr<PinOutMetaData> columns; ///< filled by the reader
        std::unique_ptr<CItemHDReader> reader;
        int keyColumn = -1;
        bool hasRows = false;
        bool hasKey = false; ///< the reader stands on a row of the current key
    };

    /// Neighbouring files that stand for one table.
    struct Group {
        size_t begin, end;
        size_t named; ///< the first one with a row, whose columns the output has
    };

    bool firstStep();
    bool nextStep();
    bool passStep();

    bool openFiles();
    void openFile(const OneRow& row, const FileTable& table);
    bool passWithoutFiles(const OneRow& row);
    bool readFirstRows(const OneRow& row);
    bool makeGroups();
    bool checkSameColumns(const File& file, const File& other);
    bool shapeOutput(const OneRow& row);
    void release();

    bool joinFiles(const OneRow& row);
    bool advance(File& file);
    void passOn(const OneRow& row);

    // What the first row resolved.
    JoinKey key_;
    std::vector<File> files_;
    std::vector<Group> groups_;
    std::vector<const uchar*> nullCells_; ///< of the output's columns behind those of pin 0
    int mainColumns_ = 0;
};
