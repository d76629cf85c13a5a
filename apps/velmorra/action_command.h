/// `velmorra action NAME`: the reference page of an Action.
#pragma once

#include "command.h"

class ActionCommand : public Command {
public:
    const char* name() const override { return "action"; }
    const char* summary() const override { return "tell what an Action does and takes"; }
    void declare(CLI::App& app) override;
    ExitStatus execute() override;

private:
    std::string action_;
    bool json_ = false;
};
