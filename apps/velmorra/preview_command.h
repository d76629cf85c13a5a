/// velmorra preview: the first rows of an output pin.
#pragma once

#include "command.h"
#include "run_settings.h"

class PreviewCommand : public Command {
public:
    const char* name() const override { return "preview"; }
    const char* summary() const override { return "show the first rows of an output pin"; }
    void declare(CLI::App& app) override;
    ExitStatus execute() override;

private:
    QString readWords();

    std::string graph_;
    std::string box_;
    std::string rowsWord_;
    qint64 rows_ = 20;
    RunSettings settings_;
    bool typed_ = false;
};
