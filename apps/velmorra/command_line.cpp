// CLI11 reads the words; unknown ones are left over and get their nearest known name here.
#include "command_line.h"

#include "completion.h"
#include "manual.h"

#include "host/nearest_name.h"

#include <CLI/CLI.hpp>

CLI::Option* addValue(CLI::App& app, const char* name, std::string& value, const char* valueName,
                      const char* meaning) {
    return app.add_option(name, value, meaning)->take_last()->type_name(valueName);
}

CLI::Option* addValues(CLI::App& app, const char* name, std::vector<std::string>& values,
                       const char* valueName, const char* meaning) {
    return app.add_option(name, values, meaning)
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name(valueName);
}

QString textOf(const std::string& word) {
    return QString::fromLocal8Bit(word.c_str());
}

QStringList textsOf(const std::vector<std::string>& words) {
    QStringList texts;
    for (const std::string& word : words)
        texts += textOf(word);
    return texts;
}

namespace {

const char* const examples = R"(Examples:
  velmorra apply SelectColumns columns=id,name --in people.csv --out names.csv
  velmorra check graph.vgraph
  velmorra run graph.vgraph --set year=2024
  velmorra action SelectColumns

Exit status: 0 done, 1 the run failed, 2 wrong usage, 3 a graph or an element that
can't be loaded, 130 cancelled.)";

QString withNearest(const QString& text, const QString& name, const QStringList& known) {
    const QString nearest = nearestName(name, known);
    return nearest.isNull()
               ? text
               : text + QLatin1String("; did you mean '") + nearest + QLatin1String("'?");
}

QStringList optionNames(const CLI::App& app) {
    QStringList names;
    for (const CLI::Option* const option : app.get_options()) {
        for (const std::string& name : option->get_lnames())
            names += QLatin1String("--") + textOf(name);
    }
    return names;
}

/// What to say of words that no option or place took; null when there are none.
QString leftoverText(const CLI::App& app) {
    for (const std::string& leftover : app.remaining()) {
        const QString word = textOf(leftover);
        const QString option = word.section(u'=', 0, 0);
        if (word.startsWith(u'-') && word.size() > 1)
            return withNearest(QLatin1String("unknown option '") + option + QLatin1Char('\''),
                               option, optionNames(app));
        if (app.get_parent() != nullptr)
            return textOf(app.get_name()) + QLatin1String(" takes no further word: '") + word +
                   QLatin1Char('\'');
        QStringList commands;
        for (const CLI::App* const command : app.get_subcommands(nullptr))
            commands += textOf(command->get_name());
        return withNearest(QLatin1String("unknown command '") + word + QLatin1Char('\''), word,
                           commands);
    }
    return {};
}

QString parseErrorText(const CLI::ParseError& error) {
    const QString text = textOf(error.what()).simplified();
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr)
        return QLatin1String("option '") + text.section(u':', 0, 0) +
               QLatin1String("' needs a value");
    return text;
}

/// Answers a shell: `velmorra complete -- WORDS`.
ExitStatus complete(const CLI::App& program, const std::vector<std::string>& words) {
    if (words.empty() || words.front() != "--")
        return wrongUsage(QStringLiteral("complete needs -- and the words typed so far"));
    QByteArray answer;
    for (const QString& candidate : completions(program, textsOf(words).mid(1)))
        answer += candidate.toLocal8Bit() + '\n';
    return writeAnswer(answer);
}

} // namespace

ExitStatus runCommandLine(int argc, char** argv,
                          const std::vector<std::unique_ptr<Command>>& commands) {
    CLI::App program("Runs graphs of streaming row operators on tables.", "velmorra");
    program.set_version_flag("--version", "velmorra " VELMORRA_VERSION, "the program's version");
    program.set_help_flag("-h,--help", "this text");
    program.require_subcommand(0, 1);
    program.allow_extras();
    program.footer(examples);
    program.get_formatter()->column_width(28);
    for (const auto& command : commands) {
        CLI::App& app = *program.add_subcommand(command->name(), command->summary());
        app.allow_extras();
        command->declare(app);
    }
    const std::string_view first = argc > 1 ? argv[1] : "";
    if (first == "manual")
        return writeAnswer(manualPage(program));
    if (first == "complete")
        return complete(program, {argv + 2, argv + argc});
    try {
        program.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return writeAnswer(QByteArray::fromStdString(program.help()));
    } catch (const CLI::CallForVersion& version) {
        return writeAnswer(QByteArray(version.what()) + '\n');
    } catch (const CLI::ParseError& error) {
        return wrongUsage(parseErrorText(error));
    }
    const std::vector<CLI::App*> given = program.get_subcommands();
    if (const QString text = leftoverText(program); !text.isNull())
        return wrongUsage(text);
    if (given.empty())
        return wrongUsage(QStringLiteral("no command given; see velmorra --help"));
    if (const QString text = leftoverText(*given.front()); !text.isNull())
        return wrongUsage(text);
    for (const auto& command : commands) {
        if (given.front()->get_name() == command->name())
            return command->execute();
    }
    return ExitStatus::WrongUsage;
}
