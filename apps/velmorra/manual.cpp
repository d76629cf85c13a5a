// A text in the language of man must not begin a line with a dot or quote of its own.
#include "manual.h"

#include "command.h"

#include <CLI/CLI.hpp>

#include <cstring>

namespace {

QByteArray escaped(const std::string& text) {
    QByteArray result;
    for (const char c : text) {
        const bool atLineStart = result.isEmpty() || result.endsWith('\n');
        if (atLineStart && (c == '.' || c == '\''))
            result += "\\&";
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else
            result += c;
    }
    return result;
}

QByteArray optionTitle(const CLI::Option& option) {
    if (option.get_positional())
        return "\\fI" + escaped(option.get_name(true)) + "\\fR";
    QByteArray title = "\\fB" + escaped(option.get_name(false, true)) + "\\fR";
    title.replace(",", "\\fR, \\fB");
    if (!option.get_type_name().empty() && option.get_items_expected_max() > 0)
        title += " \\fI" + escaped(option.get_type_name()) + "\\fR";
    return title;
}

QByteArray optionsText(const CLI::App& command) {
    QByteArray text;
    for (const CLI::Option* const option : command.get_options())
        text += ".TP\n" + optionTitle(*option) + '\n' + escaped(option->get_description()) + '\n';
    return text;
}

/// The text below a help, line by line as it stands there.
QByteArray asItStands(const std::string& text) {
    return text.empty() ? QByteArray() : ".PP\n.nf\n" + escaped(text) + "\n.fi\n";
}

QByteArray commandText(const CLI::App& command) {
    QByteArray synopsis = "\\fBvelmorra " + escaped(command.get_name()) + "\\fR";
    for (const CLI::Option* const option : command.get_options()) {
        if (option->get_positional())
            synopsis += ' ' + optionTitle(*option);
    }
    return ".SS " + synopsis + "\n" + escaped(command.get_description()) + ".\n" +
           optionsText(command) + asItStands(command.get_footer());
}

} // namespace

QByteArray manualPage(const CLI::App& program) {
    QByteArray page = ".TH VELMORRA 1 \"\" \"velmorra " VELMORRA_VERSION "\"\n"
                      ".SH NAME\nvelmorra \\- " +
                      escaped(program.get_description()) +
                      "\n.SH SYNOPSIS\n\\fBvelmorra\\fR \\fICOMMAND\\fR [\\fIOPTION\\fR]...\n"
                      ".SH OPTIONS\n" +
                      optionsText(program) + ".SH COMMANDS\n";
    for (const CLI::App* const command : program.get_subcommands(nullptr))
        page += commandText(*command);
    return page + ".SH NOTES" + asItStands(program.get_footer()).mid(qsizetype(strlen(".PP"))) +
           ".SH FOR OTHER PROGRAMS\n"
           ".TP\n\\fBvelmorra complete \\-\\- \\fIWORD\\fR...\n"
           "The words that the last WORD can become, a line each; \\fB:files\\fR stands for the "
           "names of files.\n"
           ".TP\n\\fBvelmorra manual\\fR\nThis page.\n";
}
