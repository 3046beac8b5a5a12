#include "json_text/json_text.h"

#include <fmt/format.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "json_text/place_tracker.h"

namespace zam_json {
namespace {

using nlohmann::json;

/// Empties a tree from its leaves up. Its destructor would want memory for a list of what it is to
/// destroy, and end the process without.
void TakeApart(json& tree) noexcept {
    for (json& child : tree) {
        if (child.is_structured()) {
            TakeApart(child);
        }
    }
    tree.clear();
}

class TreeBuilder final : public PlaceTracker {
public:
    using PlaceTracker::PlaceTracker;
    TreeBuilder(const TreeBuilder&) = delete;
    TreeBuilder& operator=(const TreeBuilder&) = delete;
    ~TreeBuilder() override {
        if (tree.is_structured()) {
            TakeApart(tree);
        }
    }

    json tree;

private:
    bool OnValue(json value) override {
        const bool isContainer = value.is_structured();
        json* place = &tree;
        if (!open_.empty()) {
            json& parent = *open_.back();
            if (parent.is_array()) {
                parent.push_back(nullptr);
                place = &parent.back();
            } else {
                place = &parent[key_];
            }
        }
        *place = std::move(value);
        if (isContainer) {
            open_.push_back(place);
        }
        return true;
    }

    bool OnKey(std::string& key) override {
        // The parser would let the last of them win without a word.
        if (open_.back()->contains(key)) {
            Fail(TokenOffset(), "the key stands twice in the same object");
            return false;
        }
        key_ = std::move(key);
        return true;
    }

    // An array's elements move when it grows, but only while none of them is open.
    void OnEnd() override { open_.pop_back(); }

    std::vector<json*> open_;
    std::string key_;
};

class PartFinder final : public PlaceTracker {
public:
    PartFinder(std::string_view text, std::string_view pointer, JsonPart part)
        // The text was accepted once: bounds would find nothing in it any more.
        : PlaceTracker(text, std::numeric_limits<std::size_t>::max(), WideIntegers::Float),
          wanted_(pointer),
          part_(part) {}

    std::optional<std::size_t> found;

private:
    bool OnValue(json /*value*/) override { return part_ != JsonPart::Value || !Matches(); }
    bool OnKey(std::string& /*key*/) override { return part_ != JsonPart::Key || !Matches(); }
    void OnEnd() override {}

    bool Matches() {
        // From the end, where neighbours differ: a long way down to them is not compared for each.
        if (Pointer().size() != wanted_.size() ||
            !std::equal(wanted_.rbegin(), wanted_.rend(), Pointer().rbegin())) {
            return false;
        }
        found = TokenOffset();
        return true;
    }

    std::string_view wanted_;
    JsonPart part_;
};

}  // namespace

JsonOutcome::JsonOutcome() = default;
JsonOutcome::JsonOutcome(JsonOutcome&&) noexcept = default;
JsonOutcome::~JsonOutcome() = default;

void JsonTreeDeleter::operator()(json* tree) const noexcept {
    if (tree->is_structured()) {
        TakeApart(*tree);
    }
    delete tree;
}

JsonOutcome ParseJson(std::string_view text, std::size_t maxDepth, WideIntegers wideIntegers) {
    TreeBuilder builder(text, maxDepth, wideIntegers);
    JsonOutcome outcome;
    if (builder.Walk()) {
        outcome.tree.reset(new json(std::move(builder.tree)));
    } else {
        outcome.fault = std::move(builder.fault);
    }
    return outcome;
}

std::optional<std::size_t> FindInJson(std::string_view text, std::string_view pointer,
                                      JsonPart part) {
    PartFinder finder(text, pointer, part);
    finder.Walk();
    return finder.found;
}

std::string RefusalText(const nlohmann::json& value, std::string_view text,
                        std::string_view pointer, std::string_view allowed) {
    std::string seen;
    // Only scalars are shown: an array or object may be as long as the text.
    if (value.is_object()) {
        seen = "an object";
    } else if (value.is_array()) {
        seen = "an array";
    } else {
        seen = ShownTokenAt(text, FindInJson(text, pointer, JsonPart::Value).value_or(0));
    }
    return fmt::format("is {}, allowed is {}", seen, allowed);
}

}  // namespace zam_json
