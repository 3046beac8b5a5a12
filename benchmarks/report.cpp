#include "report.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

namespace zam_bench {

bool Report::Wants(const std::string& name) const {
    return prefixes_.empty() ||
           std::any_of(prefixes_.begin(), prefixes_.end(), [&name](std::string_view prefix) {
               return std::string_view(name).starts_with(prefix) || prefix.starts_with(name);
           });
}

void Report::Add(Row row) {
    const std::string whole = row.name + "." + row.metric;
    if (prefixes_.empty() ||
        std::any_of(prefixes_.begin(), prefixes_.end(),
                    [&whole](const std::string& prefix) { return whole.starts_with(prefix); })) {
        rows_.push_back(std::move(row));
    }
}

std::string Report::Table() const {
    std::string table = fmt::format("{:<28} {:<20} {:>12} {:>12} {:>8}  {}\n", "name", "metric",
                                    "value", "floor", "ratio", "unit");
    for (const Row& row : rows_) {
        const std::string floor = row.floor ? fmt::format("{:.2f}", *row.floor) : "-";
        const std::string ratio = row.floor ? fmt::format("{:.2f}", row.value / *row.floor) : "-";
        fmt::format_to(std::back_inserter(table), "{:<28} {:<20} {:>12.2f} {:>12} {:>8}  {}\n",
                       row.name, row.metric, row.value, floor, ratio, row.unit);
    }
    return table;
}

void Report::WriteJson(const std::string& path) const {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const Row& row : rows_) {
        nlohmann::ordered_json object = {
            {"name", row.name}, {"metric", row.metric}, {"unit", row.unit}, {"value", row.value}};
        if (row.floor) {
            object["floor"] = *row.floor;
            object["ratio"] = row.value / *row.floor;
        }
        all.push_back(std::move(object));
    }
    std::ofstream file(path);
    file << all.dump(2) << '\n';
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace zam_bench
