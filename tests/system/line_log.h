#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace zam_connector::test {

/// A file to which a client that is to be killed writes down what it was told. Stays open to the
/// end of the process.
class LineLog {
public:
    explicit LineLog(const char* path) : file_(::open(path, O_WRONLY | O_APPEND | O_CREAT, 0600)) {}

    /// In one write, so that lines of two threads stay apart, and a kill tears none.
    void Write(const std::string& line) const {
        const std::string ended = line + '\n';
        if (::write(file_, ended.data(), ended.size()) != static_cast<ssize_t>(ended.size())) {
            std::_Exit(2);
        }
    }

private:
    const int file_;
};

}  // namespace zam_connector::test
