#include "support/stack.h"

#include <pthread.h>

#include <stdexcept>

namespace zam_test {

void OnStackOf(std::size_t bytes, const std::function<void()>& body) {
    pthread_attr_t attributes;
    pthread_t thread{};
    const auto run = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    if (pthread_attr_init(&attributes) != 0 || pthread_attr_setstacksize(&attributes, bytes) != 0 ||
        pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&body)) != 0) {
        throw std::runtime_error("no thread with a stack of its own");
    }
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

}  // namespace zam_test
