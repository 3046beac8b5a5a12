#pragma once

#include <string>
#include <vector>

#include "command_set.h"

namespace zamctl {

/// The whole program but for the process around it.
class Application {
public:
    /// What `surroundings` refers to must outlive the object.
    explicit Application(const Surroundings& surroundings) : surroundings_(surroundings) {}

    /// Runs the command that the arguments (without the program's name) ask for and gives the exit
    /// status. Results go to `out`, messages to `err`; on a failure `out` gets nothing but what
    /// the command says. Throws nothing but for want of memory.
    int Run(const std::vector<std::string>& arguments);

private:
    void RunCommand(Command& command, const Globals& globals);

    Surroundings surroundings_;
};

}  // namespace zamctl
