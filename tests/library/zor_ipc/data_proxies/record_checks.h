#pragma once

#include <gtest/gtest.h>

#include <typeinfo>

#include "qel/exception.h"

/// What every proxy of requests checks in the record that it is made from.
namespace zam_connector::test {

/// Checks that `make` throws what a proxy throws that cannot be made.
template <typename Make>
void ExpectRefused(Make&& make, const char* file, int line) {
    try {
        make();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const qel::Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(qel::InvalidArgumentException));
        EXPECT_EQ(exception.Code(), 0);
        EXPECT_STREQ(exception.File(), file);
        EXPECT_EQ(exception.Line(), line);
    }
}

/// Every record that lacks something; of two things it is the one checked first that is told.
template <typename Proxy, typename Record>
void ExpectChecks(const Record& sound, const char* file) {
    EXPECT_NO_THROW(const Proxy made(sound));
    for (int missing = 1; missing < 8; ++missing) {
        SCOPED_TRACE(missing);
        Record record = sound;
        if ((missing & 1) != 0) {
            record.transport = nullptr;
        }
        if ((missing & 2) != 0) {
            record.riid = 0xFFFF;
        }
        if ((missing & 4) != 0) {
            record.ops = nullptr;
        }
        const int line = (missing & 1) != 0 ? 20 : (missing & 2) != 0 ? 21 : 22;
        ExpectRefused([&] { const Proxy refused(record); }, file, line);
    }
}

}  // namespace zam_connector::test
