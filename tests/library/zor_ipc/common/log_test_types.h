#pragma once

#include <fmt/format.h>

#include <atomic>
#include <stdexcept>

/// Arguments of log records that tell whether they were formatted.
namespace zam_connector::test {

/// Counts how often it is formatted.
struct CountedArgument {
    std::atomic<int>* formatted;
};

/// Throws when it is formatted.
struct ThrowingArgument {};

/// Counts how often it is asked for its text.
class CountedException : public std::exception {
public:
    explicit CountedException(std::atomic<int>* asked) : asked_(asked) {}
    const char* what() const noexcept override {
        ++*asked_;
        return "counted";
    }

private:
    std::atomic<int>* asked_;
};

}  // namespace zam_connector::test

template <>
struct fmt::formatter<zam_connector::test::CountedArgument> {
    constexpr auto parse(format_parse_context& context) { return context.begin(); }
    auto format(const zam_connector::test::CountedArgument& argument,
                format_context& context) const {
        ++*argument.formatted;
        return format_to(context.out(), "counted");
    }
};

template <>
struct fmt::formatter<zam_connector::test::ThrowingArgument> {
    constexpr auto parse(format_parse_context& context) { return context.begin(); }
    auto format(const zam_connector::test::ThrowingArgument& /*argument*/,
                format_context& context) const -> decltype(context.out()) {
        throw std::runtime_error("formatter of the test");
    }
};
