/// `velmorra apply ELEMENT...`: runs one Action, or a chain of them, on files.
#pragma once

#include "apply_tables.h"
#include "run_settings.h"

class ApplyCommand : public Command {
public:
    const char* name() const override { return "apply"; }
    const char* summary() const override { return "apply one Action, or a chain, to files"; }
    void declare(CLI::App& app) override;
    ExitStatus execute() override;

private:
    QString readWords();
    ExitStatus makeElements(velmorra::Graph& graph, const velmorra::ActionCatalog& catalog,
                            MessageLog& log) const;

    std::vector<std::string> elementWords_;
    std::vector<std::string> inWords_;
    std::vector<std::string> outWords_;
    std::vector<std::string> typesWords_;
    std::vector<std::string> sortedWords_;
    std::string limitWord_;
    TableOptions tables_;
    RunSettings settings_;
};
