#include "qel/exception.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <utility>

namespace {

using qel::CheckFailedException;
using qel::Exception;
using qel::InvalidArgumentException;
using qel::ResultCodeException;

constexpr int kAccessDenied = qel::FromBits(0x80000045);

/// A type that takes its `Throw` and `Clone` from the template, as a user of it would write one.
class QuotaException : public qel::ExceptionBase<QuotaException, CheckFailedException> {
public:
    explicit QuotaException(int limit) : ExceptionBase("quota", 77), limit_(limit) {}

    int Limit() const { return limit_; }

private:
    int limit_;
};

static_assert(std::is_base_of_v<std::exception, Exception>);
static_assert(std::is_base_of_v<Exception, ResultCodeException>);
static_assert(std::is_base_of_v<ResultCodeException, InvalidArgumentException>);
static_assert(std::is_base_of_v<Exception, CheckFailedException>);
static_assert(!std::is_base_of_v<ResultCodeException, CheckFailedException>);

// A base reference here would slice in a throw expression.
template <typename Piece>
using Streamed = decltype(std::declval<CheckFailedException>() << std::declval<Piece>());
static_assert(std::is_same_v<Streamed<const char*>, CheckFailedException&>);
static_assert(std::is_same_v<Streamed<const char (&)[4]>, CheckFailedException&>);
static_assert(std::is_same_v<Streamed<std::string>, CheckFailedException&>);
static_assert(std::is_same_v<Streamed<std::string_view>, CheckFailedException&>);
static_assert(std::is_same_v<Streamed<int>, CheckFailedException&>);
static_assert(
    std::is_same_v<decltype(InvalidArgumentException().At("", 0)), InvalidArgumentException&>);
static_assert(std::is_same_v<decltype(ResultCodeException().At("", 0)), ResultCodeException&>);

/// The exception that `raise` throws, copied as the type that it is thrown as.
template <typename Raise>
std::unique_ptr<Exception> Caught(Raise&& raise) {
    try {
        raise();
    } catch (const Exception& exception) {
        return exception.Clone();
    }
    return nullptr;
}

std::type_index TypeOf(const Exception& exception) {
    return typeid(exception);
}

TEST(QelException, CarriesItsCodeAndText) {
    const Exception exception(kAccessDenied, u"no way in");
    EXPECT_EQ(exception.Code(), kAccessDenied);
    EXPECT_EQ(exception.Text(), u"no way in");
    EXPECT_STREQ(exception.File(), "");
    EXPECT_EQ(exception.Line(), 0);
}

TEST(QelException, DisplaysTextFileAndLine) {
    Exception exception(kAccessDenied, u"no way in");
    EXPECT_EQ(exception.DisplayText(), u"no way in. At (0)");
    exception.SetLocation("gate", 25);
    EXPECT_EQ(exception.DisplayText(), u"no way in. At gate(25)");
    EXPECT_STREQ(exception.File(), "gate");
    EXPECT_EQ(exception.Line(), 25);
}

TEST(QelException, DisplaysAFileNameThatIsNoUtf8) {
    Exception exception(0, u"text");
    exception.SetLocation("g\xFFte", 1);
    EXPECT_EQ(exception.DisplayText(), u"text. At g\uFFFDte(1)");
}

TEST(QelException, CopiesWithItsPlace) {
    Exception exception(3, u"first");
    exception.SetLocation("file", 9);
    const Exception copy = exception;
    exception = Exception(4, u"second");
    EXPECT_EQ(copy.Code(), 3);
    EXPECT_EQ(copy.DisplayText(), u"first. At file(9)");
    EXPECT_EQ(exception.DisplayText(), u"second. At (0)");
}

TEST(ResultCodeExceptionText, IsThatOfTheCodeWithItsNumber) {
    EXPECT_EQ(ResultCodeException(kAccessDenied).Text(), u"Access denied = 0x80000045");
    EXPECT_EQ(ResultCodeException(qel::FromBits(0x80010116)).Text(), u"Network error = 0x80010116");
    EXPECT_EQ(ResultCodeException(42).Text(), u"Unknown result code = 0x0000002A");
    EXPECT_EQ(ResultCodeException(kAccessDenied).At("f", 2).DisplayText(),
              u"Access denied = 0x80000045. At f(2)");
}

TEST(ResultCodeExceptionText, IsTheGivenOneWhereThereIsOne) {
    ResultCodeException exception(kAccessDenied, u"not today");
    EXPECT_EQ(exception.Text(), u"not today");
    EXPECT_EQ(exception.At("f", 2).DisplayText(), u"not today. At f(2)");
    EXPECT_EQ(InvalidArgumentException(kAccessDenied, u"not today").Text(), u"not today");
}

TEST(QelExceptionCodes, AreThoseOfTheDefaults) {
    EXPECT_EQ(ResultCodeException().Code(), 0);
    EXPECT_EQ(ResultCodeException().Text(), u"No error = 0x00000000");
    EXPECT_EQ(InvalidArgumentException().Code(), 0);
    EXPECT_EQ(InvalidArgumentException().Text(), u"No error = 0x00000000");
    EXPECT_EQ(InvalidArgumentException(kAccessDenied).Code(), kAccessDenied);
    EXPECT_EQ(CheckFailedException("f", 1).Code(), qel::FromBits(0x8000004B));
}

TEST(QelExceptionWhat, NamesTheClass) {
    EXPECT_STREQ(Exception(0, u"text").what(), "Exception");
    EXPECT_STREQ(ResultCodeException().what(), "ResultCodeException");
    EXPECT_STREQ(InvalidArgumentException().what(), "InvalidArgumentException");
    EXPECT_STREQ(CheckFailedException("f", 1).what(), "CheckFailedException");
    const std::unique_ptr<Exception> clone = InvalidArgumentException().Clone();
    EXPECT_STREQ(static_cast<const std::exception&>(*clone).what(), "InvalidArgumentException");
}

TEST(CheckFailedException, IsBuiltFromPieces) {
    CheckFailedException exception("proxy_init", 27);
    EXPECT_EQ(exception.Text(), u"");
    exception << "Handle for " << std::string("name") << std::string_view(" wasn't") << 32;
    EXPECT_EQ(exception.Text(), u"Handle for name wasn't32");
    EXPECT_EQ(exception.DisplayText(), u"Handle for name wasn't32. At proxy_init(27)");
}

TEST(CheckFailedException, TakesIntegersInDecimal) {
    CheckFailedException exception("f", 1);
    exception << std::numeric_limits<std::int64_t>::min() << "/"
              << std::numeric_limits<std::uint64_t>::max() << "/" << std::int8_t{-5} << "/"
              << std::uint16_t{65535};
    EXPECT_EQ(exception.Text(), u"-9223372036854775808/18446744073709551615/-5/65535");
}

TEST(CheckFailedException, TakesNullAndEmptyPiecesAsNothing) {
    CheckFailedException exception("f", 1);
    exception << static_cast<const char*>(nullptr) << "" << std::string() << "x";
    EXPECT_EQ(exception.Text(), u"x");
}

TEST(CheckFailedException, KeepsWhatStandsInPiecesAsItStands) {
    CheckFailedException exception("f", 1);
    exception << "{} %s " << std::string("a\0b", 3) << "\xC3\xA4";
    EXPECT_EQ(exception.Text(), std::u16string(u"{} %s a\0b\u00E4", 10));
}

TEST(CheckFailedException, ReplacesWhatIsNoUtf8) {
    CheckFailedException exception("f", 1);
    exception << "a\xFF\xC0z" << std::string("\xE1\x80");
    EXPECT_EQ(exception.Text(), u"a\uFFFD\uFFFDz\uFFFD");
}

TEST(CheckFailedException, IsNotSlicedByAThrowExpression) {
    try {
        throw CheckFailedException("f", 12) << "streamed " << 7;
    } catch (const CheckFailedException& exception) {
        EXPECT_EQ(exception.DisplayText(), u"streamed 7. At f(12)");
        return;
    } catch (...) {
    }
    FAIL() << "another type was thrown";
}

TEST(InvalidArgumentException, IsNotSlicedByAThrowExpression) {
    const auto caught = Caught([] { throw InvalidArgumentException().At("f", 15); });
    ASSERT_NE(caught, nullptr);
    EXPECT_EQ(TypeOf(*caught), std::type_index(typeid(InvalidArgumentException)));
    EXPECT_EQ(caught->DisplayText(), u"No error = 0x00000000. At f(15)");
}

TEST(QelExceptionClone, HasTheMostDerivedTypeAndAllContent) {
    Exception plain(5, u"plain");
    plain.SetLocation("a", 1);
    CheckFailedException check("c", 3);
    check << "pieces";
    QuotaException quota(99);
    quota << "over";
    const ResultCodeException result = ResultCodeException(kAccessDenied, u"given").At("b", 2);
    const InvalidArgumentException argument = InvalidArgumentException().At("d", 4);
    for (const Exception* original :
         std::initializer_list<const Exception*>{&plain, &check, &quota, &result, &argument}) {
        const std::unique_ptr<Exception> clone = original->Clone();
        ASSERT_NE(clone, nullptr);
        EXPECT_NE(clone.get(), original);
        EXPECT_EQ(TypeOf(*clone), TypeOf(*original));
        EXPECT_EQ(clone->Code(), original->Code());
        EXPECT_EQ(clone->DisplayText(), original->DisplayText());
    }
    EXPECT_EQ(dynamic_cast<const QuotaException&>(*quota.Clone()).Limit(), 99);
}

TEST(QelExceptionClone, IsIndependentOfItsOriginal) {
    CheckFailedException check("c", 3);
    check << "before";
    const std::unique_ptr<Exception> clone = check.Clone();
    check << " and after";
    EXPECT_EQ(clone->Text(), u"before");
}

TEST(QelExceptionThrow, ThrowsTheMostDerivedType) {
    const Exception plain(5, u"plain");
    const ResultCodeException result(kAccessDenied);
    const InvalidArgumentException argument = InvalidArgumentException().At("d", 4);
    CheckFailedException check("c", 3);
    check << "pieces";
    QuotaException quota(99);
    quota << "over";
    for (const Exception* original :
         std::initializer_list<const Exception*>{&plain, &result, &argument, &check, &quota}) {
        const auto caught = Caught([original] { original->Throw(); });
        ASSERT_NE(caught, nullptr);
        EXPECT_EQ(TypeOf(*caught), TypeOf(*original));
        EXPECT_EQ(caught->Code(), original->Code());
        EXPECT_EQ(caught->DisplayText(), original->DisplayText());
    }
    EXPECT_THROW(quota.Throw(), QuotaException);
    EXPECT_THROW(static_cast<const Exception&>(argument).Throw(), InvalidArgumentException);
}

}  // namespace
