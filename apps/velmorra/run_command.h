/// `velmorra run GRAPH`: runs a graph file.
#pragma once

#include "run_settings.h"

class RunCommand : public Command {
public:
    const char* name() const override { return "run"; }
    const char* summary() const override { return "run a graph file"; }
    void declare(CLI::App& app) override;
    ExitStatus execute() override;

private:
    std::string graph_;
    RunSettings settings_;
};
