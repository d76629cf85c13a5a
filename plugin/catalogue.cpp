#include "plugin/catalogue.h"

#include <array>

namespace {

constexpr size_t actionCount = static_cast<size_t>(ActionIndex::Count);

// Names, keys and paths are known to stored graphs, help pages and programs: odd ones stay.
const std::array<CatalogueEntry, actionCount>& catalogue() {
    static const std::array<CatalogueEntry, actionCount> entries = {{
        {ActionIndex::JoinInput,
         "JoinInput",
         "5_2_22_join_input",
         "Join several gel files into one table",
         ":/VelmorraPlugin//joinInput.svg",
         {"Uncommon"},
         {"in", "read", "gel", "gel_velmorra", "load", "input", "import", "file", "join", "sort",
          "left", "key"}},
        {ActionIndex::SelectColumns,
         "SelectColumns",
         "5_5_8_column_filter_high_speed",
         "Select (or drop) some columns",
         ":/VelmorraPlugin/SelectColumns.svg",
         {"150_Standard"},
         {"select", "drop", "remove", "column"}},
        {ActionIndex::NaiveDeduplicate,
         "NaiveDeduplicate",
         "5_6_1_naive_deduplicate_high_s",
         "Remove and/or find duplicate rows",
         ":/VelmorraPlugin/removeDuplicate.svg",
         {"200_Cleaning"},
         {"naive", "deduplicate", "duplicate", "row", "key", "remove", "find"}},
        {ActionIndex::Flatten,
         "Flatten",
         "5_5_9_flatten_high_speed_acti",
         "Flatten the input table to get an output table with less rows",
         ":/VelmorraPlugin/flatten.svg",
         {"150_Standard"},
         {"flatten", "table", "pivot", "unpivot"}},
        {ActionIndex::Unflatten,
         "Unflatten",
         "5_5_10_unflatten_high_speed_a",
         "UnFlatten the input table to get an output table with more rows",
         ":/VelmorraPlugin/unflatten.svg",
         {"150_Standard"},
         {"unflatten", "flatten", "table", "pivot", "unpivot"}},
        {ActionIndex::InsertKey,
         "InsertKey",
         "5_5_11_insert_key_high_speed_",
         "Add a column with a counter or a constant",
         ":/VelmorraPlugin/key.svg",
         {"150_Standard"},
         {"add", "column", "counter", "constant", "key"}},
        {ActionIndex::ReplaceStrings,
         "ReplaceStrings",
         "5_5_12_replace_string_high_spe",
         "Search & Replace strings",
         ":/VelmorraPlugin/replaceString.svg",
         {"150_Standard", "200_Cleaning"},
         {"search", "replace", "string", "reg", "exp", "regular", "expression", "regexp"}},
        {ActionIndex::ColumnRename,
         "ColumnRename",
         "5_5_13_column_rename_high_spee",
         "Rename columns (and add missing columns)",
         ":/VelmorraPlugin/ColumnRename.svg",
         {"150_Standard", "200_Cleaning"},
         {"rename", "column", "add", "missing"}},
        {ActionIndex::Append,
         "Append",
         "5_4_1_append_high_speed__acti",
         "Append several input tables into one",
         ":/VelmorraPlugin/append.svg",
         {"100_Join Tables"},
         {"append", "union", "table", "select"}},
        {ActionIndex::Join,
         "Join",
         "5_4_2_join_high_speed__action",
         "Join tables (requires a preliminary sort)",
         nullptr,
         {"100_Join Tables"},
         {"join", "sort", "left", "inner", "full", "outer", "cross", "product", "duplicate", "key",
          "minus", "xor", "juxtapose"}},
        {ActionIndex::MultiJoin,
         "MultiJoin",
         "5_4_3_multi_join_high_speed_a",
         "Join several tables without sort (left or inner join)",
         ":/VelmorraPlugin/multiJoin.svg",
         {"100_Join Tables"},
         {"join", "multi", "memory", "ram", "left", "inner"}},
        {ActionIndex::FilterOnKey,
         "FilterOnKey",
         "5_4_4_filter_on_key_high_speed",
         "Filter input table based on a set of keys",
         ":/VelmorraPlugin/filterHash.svg",
         {"100_Join Tables", "200_Cleaning"},
         {"filter", "hash", "key"}},
        {ActionIndex::ReadSquareFiles,
         "ReadSquareFiles",
         "5_2_17_square_file_reader",
         "Read a file with constant-width columns",
         ":/VelmorraPlugin/fixed-width.svg",
         {"Uncommon"},
         {"in", "read", "square", "txt", "text", "parse", "load", "input", "import", "file",
          "constant", "width"}},
        {ActionIndex::AggregateOnColumns,
         "AggregateOnColumns",
         "5_17_1_aggregate_on_columns_hi",
         "Compute Aggregates (count,sum,mean,etc.) on a row",
         ":/VelmorraPlugin/SumOnColumns.svg",
         {"250_Data Mining (Modelling)", "450_Time Series"},
         {"aggregate", "row", "count", "sum", "mean", "average", "min", "max", "fist", "last",
          "stddev", "group", "distinct"}},
        {ActionIndex::RegularExpressionTest,
         "RegularExpressionTest",
         "5_6_2_regular_expression_test_",
         "Use a Regular Expression",
         ":/VelmorraPlugin/regex.svg",
         {"300_Graph Mining", "200_Cleaning"},
         {"reg", "exp", "regular", "expression", "regexp", "add", "column", "filter", "test",
          "remove", "row"}},
        {ActionIndex::IntervalJoin,
         "IntervalJoin",
         "5_4_7_interval_join_high_speed_",
         "Join tables when the keys are intervals & points",
         ":/VelmorraPlugin/IntervalJoin.svg",
         {"100_Join Tables"},
         {"join", "table", "key", "interval", "point"}},
        {ActionIndex::PropagateDown,
         "PropagateDown",
         "",
         "Propagate the cell contents to empty cells below",
         ":/VelmorraPlugin/PropagateDown.svg",
         {"500_Formatter"},
         {"propagate", "fill", "down", "up", "cell", "empty", "null"}},
        {ActionIndex::ActionCRC,
         "ActionCRC",
         "5_19_5_crc",
         "On each row, compute the checksum of several columns",
         ":/VelmorraPlugin/crc.png",
         {"500_Formatter"},
         {"md5", "checksum", "check", "crc", "sha256", "key"}},
        {ActionIndex::ActionMD5,
         "ActionMD5",
         "5_19_5_crc",
         "On each row, compute the MD5 checksum of several columns",
         ":/VelmorraPlugin/md5.png",
         {"500_Formatter"},
         {"md5", "checksum", "check"}},
        {ActionIndex::Split,
         "Split",
         "5_19_4_split",
         "Split a column into several columns",
         ":/VelmorraPlugin/split.svg",
         {"500_Formatter"},
         {"split", "column"}},
        {ActionIndex::TimeTravel,
         "TimeTravel",
         "5_17_4_time_travel",
         "Access the content of the rows above&below",
         ":/VelmorraPlugin/timeTravel.svg",
         {"450_Time Series"},
         {"time", "travel", "row", "above", "up", "below", "down"}},
        {ActionIndex::TimeAggregate,
         "TimeAggregate",
         "5_17_5_time_aggregate",
         "Aggregate columns on a sliding time window",
         ":/VelmorraPlugin/timeAggregate.svg",
         {"450_Time Series"},
         {"aggregate", "column", "time", "window", "count", "sum", "mean", "average", "min", "max",
          "fist", "last", "stddev", "slope", "group", "distinct"}},
        {ActionIndex::SmoothenRows,
         "SmoothenRows",
         "5_17_2_smoothen_rows_high_spee",
         "Compute sums & means on a fixed-size rolling time-window",
         ":/VelmorraPlugin/SumOnRowSecond.png",
         {"450_Time Series"},
         {"aggregate", "column", "fixed", "time", "window", "sum", "mean", "average"}},
        {ActionIndex::InMemoryJoin,
         "InMemoryJoin",
         "5_4_9_in_memory_join_high_spee",
         "Left or Inner join with in-memory slave table with duplicate slave keys",
         ":/VelmorraPlugin/memoryJoin.svg",
         {"100_Join Tables"},
         {"join", "table", "memory", "duplicate", "key", "left", "inner"}},
        {ActionIndex::Accumulator,
         "Accumulator",
         "5_6_8_accumulator",
         "Add a column with a running sum",
         ":/VelmorraPlugin/sum2.svg",
         {"200_Cleaning", "450_Time Series"},
         {"sum", "running", "accumulator"}},
        {ActionIndex::ListFiles,
         "ListFiles",
         "5_21_4_list_files",
         "List Files inside directory",
         ":/VelmorraPlugin/listFilesDeprecated.svg",
         {"600_System Tools"},
         {"list", "files", "directory"}},
    }};
    return entries;
}

} // namespace

const CatalogueEntry& catalogueEntry(ActionIndex index) {
    return catalogue()[static_cast<size_t>(index)];
}

const char* joinIcon(int joinMode) {
    switch (joinMode) {
    case 0:
        return ":/VelmorraPlugin/merge.svg";
    case 1:
    case 7:
        return ":/VelmorraPlugin/set_AandB.svg";
    case 2:
    case 8:
        return ":/VelmorraPlugin/set_AorB.svg";
    case 3:
    case 9:
        return ":/VelmorraPlugin/set_AOnly.svg";
    case 4:
    case 10:
        return ":/VelmorraPlugin/set_AonlyOrBOnly.svg";
    case 5:
        return ":/VelmorraPlugin/juxtapose.svg";
    case 6:
        return ":/VelmorraPlugin/set_A.svg";
    case 11:
        return ":/VelmorraPlugin/crossproduct.svg";
    default:
        return nullptr;
    }
}
