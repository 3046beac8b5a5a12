#pragma once

#include <functional>
#include <thread>

#include "qel/export.h"

namespace qor::utils {

/// Starts a thread of the library's own. It carries `name` (at most 15 bytes, as debuggers and
/// `ps -L` show it) and takes no signal that is meant for the process: those are the application's.
/// Signals that a thread raises by its own fault (SIGSEGV and its like) stay open for the
/// application's crash handler. `work` must not throw. Throws `std::system_error` when there can be
/// no more threads, and `std::bad_alloc`; nothing has been started then. Thread-safe.
ZAM_API std::thread StartWorkerThread(const char* name, std::function<void()> work);

}  // namespace qor::utils
