#include "qor/utils/process_exception.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <variant>

#include "qel/exception.h"

namespace {

/// A type of its own below `Base`, as libraries derive them.
template <typename Base>
class Derived : public Base {
public:
    using Base::Base;
};

class BothResultCodeAndInvalidArgument : public qel::ResultCodeException,
                                         public std::invalid_argument {
public:
    BothResultCodeAndInvalidArgument()
        : ResultCodeException(qel::FromBits(0x80000045)), invalid_argument("other base") {}
};

class BothCheckAndOutOfRange : public qel::CheckFailedException, public std::out_of_range {
public:
    BothCheckAndOutOfRange() : CheckFailedException("both", 8), out_of_range("other base") {}
};

class BothArgumentAndLength : public std::length_error, public std::invalid_argument {
public:
    BothArgumentAndLength() : length_error("length"), invalid_argument("argument") {}
};

class BothLengthAndRange : public std::out_of_range, public std::length_error {
public:
    BothLengthAndRange() : out_of_range("range"), length_error("length") {}
};

class OtherWhat : public std::exception {
public:
    const char* what() const noexcept override { return "what {} says"; }
};

class DerivedResultCode : public qel::ExceptionBase<DerivedResultCode, qel::ResultCodeException> {
public:
    using ExceptionBase::ExceptionBase;
};

std::pair<int, std::string> Process(const std::function<void()>& raise) {
    try {
        raise();
    } catch (...) {
        return qor::utils::ProcessException();
    }
    return {12345, "nothing was thrown"};
}

struct ThrownRow {
    const char* name;
    std::function<void()> raise;
    std::uint32_t code;
    std::string text;
};

const ThrownRow kRows[] = {
    {"result code", [] { throw qel::ResultCodeException(qel::FromBits(0x80000045)).At("f", 3); },
     0x80000045, "Access denied = 0x80000045. At f(3)"},
    {"result code with a text",
     [] { throw qel::ResultCodeException(7, u"gr\u00FC\u00DFe").At("f", 4); }, 7,
     "gr\xC3\xBC\xC3\x9F"
     "e. At f(4)"},
    {"result code, derived", [] { throw DerivedResultCode(qel::FromBits(0x80010116)).At("f", 5); },
     0x80010116, "Network error = 0x80010116. At f(5)"},
    {"invalid argument of the framework", [] { throw qel::InvalidArgumentException().At("g", 15); },
     0, "No error = 0x00000000. At g(15)"},
    {"invalid argument of the framework with a code",
     [] { throw qel::InvalidArgumentException(qel::FromBits(0x80000046)); }, 0x80000046,
     "Invalid argument = 0x80000046. At (0)"},
    {"plain exception, whose own code does not count",
     [] { throw qel::Exception(qel::FromBits(0x80000045), u"plain"); }, 0x8000004B,
     "plain. At (0)"},
    {"failed check", [] { throw qel::CheckFailedException("h", 27) << "pieces " << 2; }, 0x8000004B,
     "pieces 2. At h(27)"},
    {"failed check with half a surrogate pair",
     [] { throw qel::Exception(0, std::u16string{0xD800}); }, 0x8000004B, "\xEF\xBF\xBD. At (0)"},
    {"standard invalid argument", [] { throw std::invalid_argument("ia"); }, 0x80000046, "ia"},
    {"standard invalid argument, derived",
     [] { throw Derived<std::invalid_argument>("ia derived"); }, 0x80000046, "ia derived"},
    {"length", [] { throw std::length_error("le"); }, 0x8000005C, "le"},
    {"length, derived", [] { throw Derived<std::length_error>("le derived"); }, 0x8000005C,
     "le derived"},
    {"range", [] { throw std::out_of_range("oor"); }, 0x8000005E, "oor"},
    {"range, derived", [] { throw Derived<std::out_of_range>("oor derived"); }, 0x8000005E,
     "oor derived"},
    {"runtime", [] { throw std::runtime_error("rt"); }, 0x8000004B, "std::exception: rt"},
    {"logic", [] { throw std::logic_error("lo"); }, 0x8000004B, "std::exception: lo"},
    {"domain", [] { throw std::domain_error("do"); }, 0x8000004B, "std::exception: do"},
    {"range error, which is no out_of_range", [] { throw std::range_error("re"); }, 0x8000004B,
     "std::exception: re"},
    {"memory", [] { throw std::bad_alloc(); }, 0x8000004B,
     std::string("std::exception: ") + std::bad_alloc().what()},
    {"variant", [] { throw std::bad_variant_access(); }, 0x8000004B,
     std::string("std::exception: ") + std::bad_variant_access().what()},
    {"own exception with braces", [] { throw OtherWhat(); }, 0x8000004B,
     "std::exception: what {} says"},
    {"int", [] { throw 5; }, 0x8000004B, "non-std exception"},
    {"text", [] { throw "text"; }, 0x8000004B, "non-std exception"},
    {"string", [] { throw std::string("text"); }, 0x8000004B, "non-std exception"},
    // Types that match several rows tell the order of the rows.
    {"result code before invalid argument", [] { throw BothResultCodeAndInvalidArgument(); },
     0x80000045, "Access denied = 0x80000045. At (0)"},
    {"framework before range", [] { throw BothCheckAndOutOfRange(); }, 0x8000004B, ". At both(8)"},
    {"invalid argument before length", [] { throw BothArgumentAndLength(); }, 0x80000046,
     "argument"},
    {"length before range", [] { throw BothLengthAndRange(); }, 0x8000005C, "length"},
};

TEST(ProcessException, GivesCodeAndTextByTheFirstMatchingType) {
    for (const ThrownRow& row : kRows) {
        const auto [code, text] = Process(row.raise);
        EXPECT_EQ(static_cast<std::uint32_t>(code), row.code) << row.name;
        EXPECT_EQ(text, row.text) << row.name;
    }
}

TEST(ProcessException, LeavesTheExceptionInFlight) {
    try {
        try {
            throw std::out_of_range("still here");
        } catch (...) {
            qor::utils::ProcessException();
            EXPECT_EQ(qor::utils::ProcessException().second, "still here");
            throw;
        }
    } catch (const std::out_of_range& exception) {
        EXPECT_STREQ(exception.what(), "still here");
        return;
    }
    FAIL() << "the exception is gone";
}

TEST(ProcessException, TakesTheInnermostExceptionInFlight) {
    try {
        throw std::out_of_range("outer");
    } catch (...) {
        EXPECT_EQ(Process([] { throw std::length_error("inner"); }).second, "inner");
        EXPECT_EQ(qor::utils::ProcessException().second, "outer");
    }
}

TEST(ProcessExceptionDeathTest, EndsTheProcessWithoutAnExceptionInFlight) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(qor::utils::ProcessException(), ::testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
