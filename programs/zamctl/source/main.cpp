#include <iostream>
#include <string>
#include <vector>

#include "application.h"
#include "connection.h"

int main(int argc, char** argv) {
    zamctl::RecordKeeper records(std::cerr, zor::logger::DefaultLoggerImpl::Instance().Threshold());
    zamctl::Connection connection;
    zamctl::SystemClock clock;
    const zamctl::HostSystemView system;
    zamctl::Application application(
        {std::cin, std::cout, std::cerr, connection, records, clock, system});
    return application.Run(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
