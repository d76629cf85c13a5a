/// What may stand next on the command line, for a shell that completes words.
#pragma once

#include <QtCore/QStringList>

namespace CLI {
class App;
} // namespace CLI

/// The lines that `velmorra complete -- WORDS` answers with: each a word that the last one of
/// `words` (which may be empty) can become; those that end in `=` go on. A line `:files` stands for
/// the names of files, `:files vgraph` for those of graph files.
QStringList completions(const CLI::App& program, const QStringList& words);
