#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zam_bench {

/// Smallest and largest ratio of some rounds.
struct Spread {
    double low = 0;
    double high = 0;
};

/// One measured figure. `floor` is what the same work costs without the library, or what the row's
/// suite compares with, measured in the same run; the ratio is `value` / `floor`.
struct Row {
    std::string name;
    std::string metric;
    std::string unit;
    double value = 0;
    std::optional<double> floor{};
    std::optional<Spread> spread{};
};

/// The row of values and floors that were measured in turns: their middles, and the spread of the
/// rounds' ratios. Throws `std::invalid_argument` unless there are as many of the one as of the
/// other.
Row Compared(std::string name, std::string metric, std::string unit,
             const std::vector<double>& values, const std::vector<double>& floors);

/// Collects rows, prints them as a table and writes them as JSON. What notes say stands below the
/// table.
class Report {
public:
    /// Keeps the rows that a selection takes: the prefixes given, every row when there are none.
    explicit Report(std::vector<std::string> prefixes) : prefixes_(std::move(prefixes)) {}

    /// True when a row of that name, or `name.metric`, could be selected: measure it then.
    bool Wants(const std::string& name) const;

    void Add(Row row);
    void AddNote(std::string note) { notes_.push_back(std::move(note)); }

    /// Rows and notes as bytes for another process, the empty report that one fills with the same
    /// selection, and the way back.
    Report Empty() const { return Report(prefixes_); }
    std::string Packed() const;
    void AddPacked(const std::string& packed);

    bool IsEmpty() const noexcept { return rows_.empty(); }

    std::string Table() const;

    /// One object per row; throws `std::runtime_error` when the file cannot be written.
    void WriteJson(const std::string& path) const;

private:
    std::vector<std::string> prefixes_;
    std::vector<Row> rows_;
    std::vector<std::string> notes_;
};

/// Middle value; the upper one of two. `values` must not be empty.
double Median(std::vector<double> values);

}  // namespace zam_bench
