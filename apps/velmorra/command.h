/// A command of the program: its words on the command line, and what it does.
#pragma once

#include "exit_status.h"

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

class Command {
public:
    virtual ~Command() = default;
    virtual const char* name() const = 0;

    /// One line for the list of commands.
    virtual const char* summary() const = 0;

    /// Declares options and words, and the text below them in the help.
    virtual void declare(CLI::App& app) = 0;

    /// Does it, after the command line was read into what was declared.
    virtual ExitStatus execute() = 0;
};

/// Declares an option that takes one value, the last one given.
CLI::Option* addValue(CLI::App& app, const char* name, std::string& value, const char* valueName,
                      const char* meaning);

/// Declares an option that takes one value and may be given again.
CLI::Option* addValues(CLI::App& app, const char* name, std::vector<std::string>& values,
                       const char* valueName, const char* meaning);

/// A word of the command line as text, and words as texts.
QString textOf(const std::string& word);
QStringList textsOf(const std::vector<std::string>& words);
