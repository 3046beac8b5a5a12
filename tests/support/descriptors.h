#pragma once

#include <set>
#include <string>

namespace zam_platform::testing {

/// Descriptors that the process has open now.
std::set<int> OpenDescriptors();

/// Those that are open now and were not before, with what they are, for a message.
std::string Describe(const std::set<int>& descriptors);

/// `now` without `before`.
std::set<int> NewSince(const std::set<int>& before);

/// Of these, the ones that a new program would inherit.
std::set<int> Inheritable(const std::set<int>& descriptors);

}  // namespace zam_platform::testing
