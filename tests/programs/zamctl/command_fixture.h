#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "application.h"
#include "fakes.h"
#include "record_keeper.h"

namespace zamctl::test {

using Json = nlohmann::ordered_json;

/// What one run left behind.
struct Ran {
    int status;
    std::string out;
    std::string err;

    /// The one document that was printed; a null value, with a failed check, when it is not one.
    Json Document() const;

    /// The documents of the lines that were printed.
    std::vector<Json> Documents() const;
};

/// The whole program over fakes.
class CommandTest : public ::testing::Test {
protected:
    CommandTest() { system_.MakeSound(); }

    /// Runs the program with these arguments and this standard input.
    Ran Run(const std::vector<std::string>& arguments, const std::string& input = {});

    /// Checks that a run failed with this status and printed nothing but a message.
    static void ExpectFailure(const Ran& ran, int status);

    FakeClock clock_;
    FakeProvider provider_{clock_};
    FakeSystem system_;
};

}  // namespace zamctl::test
