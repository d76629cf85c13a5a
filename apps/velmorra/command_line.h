/// The program's command line: finds the command, reads its words, and tells what is wrong with
/// them in one line.
#pragma once

#include "command.h"

#include <memory>

ExitStatus runCommandLine(int argc, char** argv,
                          const std::vector<std::unique_ptr<Command>>& commands);
