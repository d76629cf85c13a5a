/// `velmorra actions`: the catalogue.
#pragma once

#include "command.h"

class ActionsCommand : public Command {
public:
    const char* name() const override { return "actions"; }
    const char* summary() const override { return "list the Actions"; }
    void declare(CLI::App& app) override;
    ExitStatus execute() override;

private:
    bool json_ = false;
};
