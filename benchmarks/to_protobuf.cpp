#include "to_protobuf.h"

#include <string>
#include <type_traits>

namespace zam_bench {

void FillProtobuf(google::protobuf::Value& to, const zuv::TValue& tree) {
    tree.Visit([&to](const auto& value) {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, zuv::None>) {
            to.set_null_value(google::protobuf::NULL_VALUE);
        } else if constexpr (std::is_same_v<T, zuv::Vector>) {
            for (const zuv::TValue& element : value) {
                FillProtobuf(*to.mutable_list_value()->add_values(), element);
            }
        } else if constexpr (std::is_same_v<T, zuv::Map>) {
            auto& fields = *to.mutable_struct_value()->mutable_fields();
            for (const auto& [key, element] : value) {
                FillProtobuf(fields[key], element);
            }
        } else if constexpr (std::is_same_v<T, std::string>) {
            to.set_string_value(value);
        } else if constexpr (std::is_same_v<T, zuv::Blob>) {
            // It has no bytes, and its texts are UTF-8: the blob's length in plain characters, to
            // the peer's advantage.
            to.set_string_value(std::string(value.size(), 'x'));
        } else if constexpr (std::is_same_v<T, bool>) {
            to.set_bool_value(value);
        } else if constexpr (std::is_same_v<T, qor::types::Timestamp>) {
            to.set_number_value(static_cast<double>(value.Count()));
        } else {
            to.set_number_value(static_cast<double>(value));
        }
    });
}

}  // namespace zam_bench
