/// What the tests share that make their tables themselves.
#pragma once

#include "tests/harness/case_file.h"

#include <QtCore/QStringList>

#include <memory>

namespace velmorra::harness {

/// The table that the lines of a typed table make.
std::shared_ptr<const PackedTable> tableOf(const QStringList& lines);

/// Runs the elements under every circumstance and compares what comes out of the last one with the
/// lines of a typed table.
void expectTable(Case run, const QStringList& lines);

} // namespace velmorra::harness
