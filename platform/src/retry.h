// System calls that a signal may interrupt.
#ifndef TARNIX_PLATFORM_RETRY_H
#define TARNIX_PLATFORM_RETRY_H

#include <cerrno>
#include <type_traits>

namespace tarnix_platform
{

// Repeats the call as long as it fails with EINTR. `call` returns -1, or a null pointer, on
// failure. Not for close, which closes the descriptor even then, and not for a wait with a timeout,
// which would start again.
template <class Call>
auto retryInterrupted(Call call)
{
    using Result = decltype(call());
    const auto failed = [](Result result) {
        if constexpr (std::is_pointer_v<Result>) {
            return result == nullptr;
        } else {
            return result == -1;
        }
    };
    Result result = call();
    while (failed(result) && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace tarnix_platform

#endif
