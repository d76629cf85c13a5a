// The program velmorra: runs graphs and single Actions on files, and tells what Actions there are.
#include "action_command.h"
#include "actions_command.h"
#include "apply_command.h"
#include "check_command.h"
#include "columns_command.h"
#include "command_line.h"
#include "convert_command.h"
#include "preview_command.h"
#include "run_command.h"

#include <QtCore/QCoreApplication>

#include <csignal>

#include <sys/resource.h>

namespace {

/// A graph may read and write many files at once.
void allowAllOpenFiles() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    allowAllOpenFiles();
    const QCoreApplication application(argc, argv);
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<RunCommand>());
    commands.push_back(std::make_unique<ApplyCommand>());
    commands.push_back(std::make_unique<ConvertCommand>());
    commands.push_back(std::make_unique<CatCommand>());
    commands.push_back(std::make_unique<CheckCommand>());
    commands.push_back(std::make_unique<ColumnsCommand>());
    commands.push_back(std::make_unique<PreviewCommand>());
    commands.push_back(std::make_unique<ActionsCommand>());
    commands.push_back(std::make_unique<ActionCommand>());
    return static_cast<int>(runCommandLine(argc, argv, commands));
}
