#pragma once

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "qel/exception.h"
#include "qel/result_code.h"

namespace zam_connector::test {

/// The check that fails in `make`, as FILE:LINE; empty when none does.
template <typename Make>
std::string RefusedAt(Make&& make) {
    try {
        make();
        return {};
    } catch (const qel::Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(qel::CheckFailedException));
        EXPECT_EQ(exception.Code(), qel::kUnspecifiedError);
        return std::string(exception.File()) + ":" + std::to_string(exception.Line());
    }
}

}  // namespace zam_connector::test
