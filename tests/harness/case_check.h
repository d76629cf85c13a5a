/// Compares what a case gave with what its file expects, and writes expectations from a run.
#pragma once

#include "tests/harness/case_run.h"

namespace velmorra::harness {

/// What differs: the line of the file that expects otherwise, and a text with a diff.
struct Difference {
    int line = 0;
    QString text;
};

/// Runs a case under a circumstance and compares. Empty when everything is as expected.
QVector<Difference> checkCase(const Case& expected, const ActionCatalog& catalog,
                              Circumstance circumstance);

/// Writes what a plain run gives where the block of a case says what it expects: the rows of the
/// pins that are named there, the messages, whether the run fails, the stored element.
void writeExpectations(CaseFile& file, const Case& run, const ActionCatalog& catalog);

} // namespace velmorra::harness
