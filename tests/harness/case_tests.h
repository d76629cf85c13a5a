/// What the tests of this program share.
#pragma once

#include "engine/catalog.h"
#include "tests/harness/case_file.h"

namespace velmorra::harness {

/// The Actions that the plug-in and the engine bring.
ActionCatalog& testCatalog();

/// The files under tests/cases, in name order.
std::vector<CaseFile>& caseFiles();

} // namespace velmorra::harness
