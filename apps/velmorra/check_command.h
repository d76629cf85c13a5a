/// velmorra check: what is wrong with a graph, without running it.
#pragma once

#include "command.h"
#include "run_settings.h"

class CheckCommand : public Command {
public:
    const char* name() const override { return "check"; }
    const char* summary() const override {
        return "tell what is wrong with a graph before it runs";
    }
    void declare(CLI::App& app) override;
    ExitStatus execute() override;

private:
    std::string graph_;
    GraphSettings settings_;
    bool json_ = false;
};
