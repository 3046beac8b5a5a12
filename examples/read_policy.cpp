// Fetches the policy that the server set for the product, and prints it as a tree:
//
//     read_policy

#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <variant>

#include "zam_connector/zam_connector.h"
#include "zuv/zuv.h"

namespace {

int Fail(const std::string& action, int code) {
    std::cerr << "read_policy: cannot " << action << ": " << zam_connector::ResultCodeMessage(code)
              << '\n';
    return 1;
}

/// What a node is called in its parent: a key of a map, a position in a vector.
std::string Name(const zuv::Level& level) {
    if (const auto* const position = std::get_if<unsigned long>(&level)) {
        return '[' + std::to_string(*position) + ']';
    }
    return std::get<std::string>(level);
}

void PrintTree(const zuv::TValue& tree) {
    zuv::Path path;
    zuv::ForEach(
        tree,
        [](const zuv::Path& at, const zuv::TValue& node) {
            if (!at.empty()) {
                std::cout << std::string(2 * (at.size() - 1), ' ') << Name(at.back()) << ':';
            }
            if (node.HasChildren()) {
                std::cout << (at.empty() ? "" : "\n");  // they come next, one level deeper
            } else {
                std::cout << (at.empty() ? "" : " ") << node << '\n';
            }
            return zuv::for_each::Option::Continue;
        },
        path);
}

}  // namespace

int main() {
    std::shared_ptr<zam_connector::IZamConnector> connector;
    int code = zam_connector::CreateZamConnector(connector, {"read_policy"});
    if (connector == nullptr) {  // which can be so although the code is 0
        return Fail("make a connector", code);
    }
    std::shared_ptr<zam_connector::IZamDataProvider> provider;
    connector->GetDataProvider(provider);

    // A program that keeps a copy asks for the hash alone, and for the policy when it has changed.
    unsigned long hash = 0;
    code = provider->GetPolicyHash(hash);
    if (zam_connector::IsFailure(code)) {
        return Fail("get the policy's hash", code);
    }
    if (hash == 0) {
        std::cout << "no policy\n";
        return 0;
    }

    std::pair<unsigned long, zam_connector::ZamPolicy> policy;
    code = provider->GetPolicy(policy);
    if (zam_connector::IsFailure(code)) {
        return Fail("get the policy", code);
    }
    std::cout << "hash 0x" << std::hex << policy.first << std::dec << '\n';
    PrintTree(policy.second.tree);
}
