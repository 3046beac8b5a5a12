#pragma once

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "qel/exception.h"

namespace zam_connector::zam_locale {

/// The text of the exception that `act` throws, which must be the one of the locale tables.
template <typename Act>
std::string ThrownBy(Act&& act) {
    try {
        act();
    } catch (const qel::ResultCodeException& exception) {
        EXPECT_EQ(typeid(exception), typeid(qel::ResultCodeException));
        EXPECT_EQ(exception.Code(), static_cast<int>(0x80000046U));
        EXPECT_STREQ(exception.File(), "zam_locale_info");
        EXPECT_GT(exception.Line(), 0);
        return qel::ToUtf8(exception.Text());
    }
    return "nothing was thrown";
}

}  // namespace zam_connector::zam_locale
