#include "tests/harness/table_check.h"

#include "tests/harness/case_check.h"
#include "tests/harness/case_tests.h"
#include "tests/harness/typed_table.h"

#include <gtest/gtest.h>

namespace velmorra::harness {

std::shared_ptr<const PackedTable> tableOf(const QStringList& lines) {
    const TypedTable parsed = parseTypedTable(lines.join(QLatin1Char('\n')));
    EXPECT_EQ(parsed.error.toStdString(), "") << lines.join(QLatin1Char('\n')).toStdString();
    return parsed.table;
}

void expectTable(Case run, const QStringList& lines) {
    run.file = QStringLiteral(VELMORRA_SOURCE_DIR "/tests/cases/random.case");
    ExpectedTable expected;
    expected.lines = typedLines(*tableOf(lines));
    run.outputs[{run.lastElement(), 0}] = expected;
    const auto given = [&run] {
        QString text = run.elements.join(QLatin1Char('\n'));
        for (const auto& [place, table] : run.inputs)
            text += QLatin1String("\n\n") + typedLines(*table).join(QLatin1Char('\n'));
        return text.toStdString();
    };
    for (const Circumstance circumstance : circumstances) {
        if (copiesOf(circumstance) > 0 && !parallelPartition(run, testCatalog()))
            continue;
        for (const Difference& each : checkCase(run, testCatalog(), circumstance))
            FAIL() << nameOf(circumstance) << ": " << each.text.toStdString() << "\nfrom\n"
                   << given();
    }
}

} // namespace velmorra::harness
