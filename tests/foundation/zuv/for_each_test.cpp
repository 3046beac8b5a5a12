#include "zuv/for_each.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "common/id_specification.h"
#include "support/literal_list.h"

namespace zuv {
namespace {

using for_each::Option;

/// What a walk visited, in order, as "PATH=KIND".
struct Walk {
    using Answer = std::function<Option(const std::string& text)>;

    explicit Walk(const TValue& tree, Path path = {}, const Answer& answer = nullptr) {
        const Path before = path;
        result = ForEach(
            tree,
            [&](const Path& at, const TValue& node) {
                const std::string text =
                    ToString<Path>(at, zam_connector::common::meta::IdSpecification()).first;
                visits.push_back(text + "=" + KindName(node.Kind()));
                return answer ? answer(text) : Option::Continue;
            },
            path);
        EXPECT_EQ(path, before);
    }

    std::vector<std::string> visits;
    Option result = Option::Continue;
};

Option At(const std::string& text, const std::string& place, Option option) {
    return text == place ? option : Option::Continue;
}

const TValue& Tree() {
    static const TValue tree =
        Map{{"b", MakeVector(1, Map{{"x", 2}}, Vector{})}, {"a", Map{}}, {"c", "text"}};
    return tree;
}

TEST(ForEach, VisitsParentsFirstPositionsRisingAndKeysAscending) {
    const Walk walk(Tree());
    EXPECT_EQ(walk.visits,
              (std::vector<std::string>{"=map", "a/=map", "b/=vector", "b/0/=int32", "b/1/=map",
                                        "b/1/x/=int32", "b/2/=vector", "c/=string"}));
    EXPECT_EQ(walk.result, Option::Continue);
}

TEST(ForEach, BeginsAtThePathGiven) {
    const Walk walk(MakeVector(true), {"root", 3UL});
    EXPECT_EQ(walk.visits, (std::vector<std::string>{"root/3/=vector", "root/3/0/=bool"}));
}

TEST(ForEach, VisitsAnEmptyContainerOnce) {
    EXPECT_EQ(Walk(Vector{}).visits, std::vector<std::string>{"=vector"});
    EXPECT_EQ(Walk(Map{}).visits, std::vector<std::string>{"=map"});
}

TEST(ForEach, VisitsKeysInByteOrderWhateverTheOrderOfInsertion) {
    Map map;
    for (const char* key : {"m", "z", "a", "\xFF", "Z"}) {
        map.emplace(key, 1);
    }
    EXPECT_EQ(Walk(map).visits, (std::vector<std::string>{"=map", "Z/=int32", "a/=int32",
                                                          "m/=int32", "z/=int32", "\xFF/=int32"}));
}

TEST(ForEach, EndsAtOnceWithStopOrAbort) {
    for (const Option option : {Option::Stop, Option::Abort}) {
        const auto endAt = [option](const std::string& place) {
            return Walk(Tree(), {},
                        [=](const std::string& text) { return At(text, place, option); });
        };
        const Walk atRoot = endAt("");
        EXPECT_EQ(atRoot.result, option);
        EXPECT_EQ(atRoot.visits.size(), 1U);
        const Walk atContainer = endAt("b/");
        EXPECT_EQ(atContainer.result, option);
        EXPECT_EQ(atContainer.visits.back(), "b/=vector") << "before its children";
        const Walk atLeaf = endAt("b/1/x/");
        EXPECT_EQ(atLeaf.result, option);
        EXPECT_EQ(atLeaf.visits.back(), "b/1/x/=int32");
        EXPECT_EQ(endAt("a/").result, option) << "an empty container";
    }
}

TEST(ForEach, GivesThePathBackWhenItIsEnded) {
    const TValue tree = zuv::MakeVector(1, Map{{"x", MakeVector(2)}});
    const Walk walk(tree, {"root", 1UL}, [](const std::string& text) {
        return At(text, "root/1/1/x/0/", Option::Stop);
    });
    EXPECT_EQ(walk.result, Option::Stop);
    EXPECT_EQ(walk.visits.back(), "root/1/1/x/0/=int32");
}

TEST(ForEach, RemembersOneAndSkipsNothing) {
    const auto remember = [](const TValue& tree, const std::string& place) {
        return Walk(tree, {}, [&place](const std::string& text) {
            return At(text, place, Option::Remember);
        });
    };
    for (const std::string place : {"", "b/", "b/0/", "b/1/", "b/1/x/", "c/"}) {
        const Walk walk = remember(Tree(), place);
        EXPECT_EQ(walk.result, Option::Remember) << place;
        EXPECT_EQ(walk.visits.size(), 8U) << place;
    }
    EXPECT_EQ(remember(5, "").result, Option::Remember);
}

TEST(ForEach, GivesContinueForAnEmptyContainer) {
    const auto walk = [](const TValue& tree, const std::string& place) {
        return Walk(tree, {}, [&place](const std::string& text) {
            return At(text, place, Option::Remember);
        });
    };
    EXPECT_EQ(walk(Vector{}, "").result, Option::Continue);
    EXPECT_EQ(walk(Map{}, "").result, Option::Continue);
    EXPECT_EQ(walk(Tree(), "a/").result, Option::Continue);
    EXPECT_EQ(walk(Tree(), "b/2/").result, Option::Continue);
}

TEST(ForEach, StopsAfterHavingRemembered) {
    const Walk walk(Tree(), {}, [](const std::string& text) {
        return text == "b/0/" ? Option::Remember : At(text, "c/", Option::Abort);
    });
    EXPECT_EQ(walk.result, Option::Abort);
}

TEST(ForEach, GivesThePathBackWhenAVisitThrows) {
    Path path{"root"};
    EXPECT_THROW(ForEach(
                     Tree(),
                     [](const Path& at, const TValue&) -> Option {
                         if (at.size() == 4) {
                             throw std::runtime_error("enough");
                         }
                         return Option::Continue;
                     },
                     path),
                 std::runtime_error);
    EXPECT_EQ(path, Path{"root"});
}

TEST(ForEach, KnowsItsCodes) {
    EXPECT_EQ(sizeof(Option), 1U);
    EXPECT_EQ(static_cast<int>(Option::Continue), 0);
    EXPECT_EQ(static_cast<int>(Option::Remember), 1);
    EXPECT_EQ(static_cast<int>(Option::Stop), 2);
    EXPECT_EQ(static_cast<int>(Option::Abort), 3);
}

TEST(ForEach, VisitsAValueWithoutAlternative) {
    const TValue value = zam_test::ValuelessValue();
    EXPECT_EQ(Walk(value).visits, std::vector<std::string>{"=valueless"});
}

}  // namespace
}  // namespace zuv
