/// `velmorra convert IN OUT`: between CSV and stored tables.
/// `velmorra cat FILE`: a table as CSV on standard output.
#pragma once

#include "run_settings.h"
#include "table_file.h"

class ConvertCommand : public Command {
public:
    const char* name() const override { return "convert"; }
    const char* summary() const override { return "turn CSV into a stored table, or back"; }
    void declare(CLI::App& app) override;
    ExitStatus execute() override;

private:
    QString readWords(SourceTable* source, TargetTable* target);

    std::string in_;
    std::string out_;
    std::string types_;
    std::string sorted_;
    std::string limitWord_;
    bool typed_ = false;
    RunSettings settings_;
};

class CatCommand : public Command {
public:
    const char* name() const override { return "cat"; }
    const char* summary() const override { return "print a stored table as CSV"; }
    void declare(CLI::App& app) override;
    ExitStatus execute() override;

private:
    std::string file_;
    std::string limitWord_;
    bool typed_ = false;
    RunSettings settings_;
};
