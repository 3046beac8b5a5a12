#include "report.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "paired_ratios.h"

namespace zam_bench {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kLine[] = "{:<20} {:<34} {:>12} {:>12} {:>8} {:>14}  {}\n";

std::optional<double> RatioOf(const Row& row) {
    return row.floor ? std::optional(row.value / *row.floor) : std::nullopt;
}

Json ToJson(const Row& row) {
    Json object = {
        {"name", row.name}, {"metric", row.metric}, {"unit", row.unit}, {"value", row.value}};
    if (row.floor) {
        object["floor"] = *row.floor;
        object["ratio"] = *RatioOf(row);
    }
    if (row.spread) {
        object["lowest_ratio"] = row.spread->low;
        object["highest_ratio"] = row.spread->high;
    }
    return object;
}

Row ToRow(const Json& object) {
    Row row{object.at("name"), object.at("metric"), object.at("unit"), object.at("value")};
    if (object.contains("floor")) {
        row.floor = object.at("floor").get<double>();
    }
    if (object.contains("lowest_ratio")) {
        row.spread = Spread{object.at("lowest_ratio"), object.at("highest_ratio")};
    }
    return row;
}

Json ToJson(const std::vector<Row>& rows) {
    Json array = Json::array();
    for (const Row& row : rows) {
        array.push_back(ToJson(row));
    }
    return array;
}

}  // namespace

Row Compared(std::string name, std::string metric, std::string unit,
             const std::vector<double>& values, const std::vector<double>& floors) {
    const std::vector<double> ratios = PairedRatios(values, floors);
    const auto [low, high] = std::minmax_element(ratios.begin(), ratios.end());
    return {std::move(name), std::move(metric), std::move(unit),
            Median(values),  Median(floors),    Spread{*low, *high}};
}

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

std::string Report::Packed() const {
    return Json{{"rows", ToJson(rows_)}, {"notes", notes_}}.dump();
}

void Report::AddPacked(const std::string& packed) {
    const Json all = Json::parse(packed);
    for (const Json& object : all.at("rows")) {
        rows_.push_back(ToRow(object));
    }
    for (const Json& note : all.at("notes")) {
        notes_.push_back(note);
    }
}

std::string Report::Table() const {
    const auto shown = [](std::optional<double> number) {
        return number ? fmt::format("{:.2f}", *number) : std::string("-");
    };
    std::string table =
        fmt::format(kLine, "name", "metric", "value", "floor", "ratio", "spread", "unit");
    for (const Row& row : rows_) {
        const std::string spread =
            row.spread ? fmt::format("{:.2f}..{:.2f}", row.spread->low, row.spread->high) : "-";
        table += fmt::format(kLine, row.name, row.metric, shown(row.value), shown(row.floor),
                             shown(RatioOf(row)), spread, row.unit);
    }
    for (const std::string& note : notes_) {
        table += note + '\n';
    }
    return table;
}

void Report::WriteJson(const std::string& path) const {
    std::ofstream file(path);
    file << ToJson(rows_).dump(2) << '\n';
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
