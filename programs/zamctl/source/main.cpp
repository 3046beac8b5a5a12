#include <signal.h>

#include <iostream>
#include <string>
#include <vector>

#include "application.h"
#include "connection.h"
#include "descriptors/standard_descriptors.h"

namespace {

int Run(const std::vector<std::string>& arguments) {
    zamctl::RecordKeeper records(std::cerr, zor::logger::DefaultLoggerImpl::Instance().Threshold());
    zamctl::Connection connection;
    zamctl::SystemClock clock;
    const zamctl::HostSystemView system;
    zamctl::Application application(
        {std::cin, std::cout, std::cerr, connection, records, clock, system});
    return application.Run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
    zam_descriptors::OccupyStandardDescriptors();
    // Through the C library's streams an input that cannot be read would look like one that ends.
    std::ios::sync_with_stdio(false);
    const int status = Run(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
    // The streams try once more at the exit what nobody read.
    static_cast<void>(::signal(SIGPIPE, SIG_IGN));
    return status;
}
