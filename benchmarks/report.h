#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace zam_bench {

/// One measured figure. `floor` is what the same work costs without the library, measured in the
/// same run; the ratio is `value` / `floor`.
struct Row {
    std::string name;
    std::string metric;
    std::string unit;
    double value = 0;
    std::optional<double> floor;
};

/// Collects rows, prints them as a table and writes them as JSON.
class Report {
public:
    /// Keeps the rows that a selection takes: the prefixes given, every row when there are none.
    explicit Report(std::vector<std::string> prefixes) : prefixes_(std::move(prefixes)) {}

    /// True when a row of that name, or `name.metric`, could be selected: measure it then.
    bool Wants(const std::string& name) const;

    void Add(Row row);
    bool IsEmpty() const noexcept { return rows_.empty(); }

    std::string Table() const;

    /// One object per row; throws `std::runtime_error` when the file cannot be written.
    void WriteJson(const std::string& path) const;

private:
    std::vector<std::string> prefixes_;
    std::vector<Row> rows_;
};

/// Middle value; the upper one of two. `values` must not be empty.
double Median(std::vector<double> values);

}  // namespace zam_bench
