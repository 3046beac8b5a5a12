#include "zuv/error.h"

#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <string>
#include <variant>

#include "qel/exception.h"
#include "zuv/value.h"

namespace zuv {
namespace {

template <typename Thrown>
std::pair<int, std::string> Process(const Thrown& thrown) {
    try {
        throw thrown;
    } catch (...) {
        return ProcessException();
    }
}

using Result = std::pair<int, std::string>;

int Code(unsigned bits) {
    return static_cast<int>(bits);
}

TEST(ZuvError, HasAFieldForItsCode) {
    const Error error(Code(0x80000046U), "text");
    EXPECT_EQ(error.code, Code(0x80000046U));
    EXPECT_STREQ(error.what(), "text");
    EXPECT_NE(dynamic_cast<const std::logic_error*>(&error), nullptr);
    EXPECT_EQ(ResultOk, 0);
}

TEST(ZuvError, HasThreeConstants) {
    EXPECT_EQ(WrongItem.code, Code(0x8000004aU));
    EXPECT_STREQ(WrongItem.what(), "zuv: Path or id does not correspond to contained item");
    EXPECT_EQ(ItemDoesNotExist.code, Code(0x8000004cU));
    EXPECT_STREQ(ItemDoesNotExist.what(), "zuv: Item with given id does not exist");
    EXPECT_EQ(ItemAlreadyExists.code, Code(0x8000004dU));
    EXPECT_STREQ(ItemAlreadyExists.what(), "zuv: Item with given id already exists");
}

TEST(ZuvProcessException, GivesAThrownResultAsItIs) {
    EXPECT_EQ(Process(Result(1, "text")), Result(1, "text"));
    EXPECT_EQ(Process(Result(0, "")), Result(0, ""));
}

TEST(ZuvProcessException, GivesAnErrorsOwnCodeAndText) {
    EXPECT_EQ(Process(Error(7, "text")), Result(7, "text"));
    EXPECT_EQ(Process(ItemAlreadyExists),
              Result(Code(0x8000004dU), "zuv: Item with given id already exists"));
}

TEST(ZuvProcessException, HasOneTextForWrongAlternatives) {
    const Result result(Code(0x8000004aU), "zuv: std::bad_variant_access");
    EXPECT_EQ(Process(std::bad_variant_access()), result);
    EXPECT_EQ(Process(BadKind(Kind::Map, Kind::Bool)), result);
}

TEST(ZuvProcessException, NamesOtherStandardExceptions) {
    EXPECT_EQ(Process(std::length_error("too long")),
              Result(Code(0x8000004bU), "zuv: std::exception: too long"));
    EXPECT_EQ(Process(std::out_of_range("outside")),
              Result(Code(0x8000004bU), "zuv: std::exception: outside"));
    EXPECT_EQ(
        Process(std::bad_alloc()),
        Result(Code(0x8000004bU), std::string("zuv: std::exception: ") + std::bad_alloc().what()));
    EXPECT_EQ(Process(qel::InvalidArgumentException()).first, Code(0x8000004bU));
}

TEST(ZuvProcessException, TakesAnythingElse) {
    EXPECT_EQ(Process(5), Result(Code(0x80000072U), "zuv: non-std exception"));
    EXPECT_EQ(Process("text"), Result(Code(0x80000072U), "zuv: non-std exception"));
}

}  // namespace
}  // namespace zuv
