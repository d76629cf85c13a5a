/// velmorra columns: the columns of output pins, without running in full.
#pragma once

#include "command.h"
#include "run_settings.h"

class ColumnsCommand : public Command {
public:
    const char* name() const override { return "columns"; }
    const char* summary() const override { return "tell the columns of a graph's output pins"; }
    void declare(CLI::App& app) override;
    ExitStatus execute() override;

private:
    std::string graph_;
    std::string box_;
    GraphSettings settings_;
    bool json_ = false;
};
