#pragma once

#include <filesystem>
#include <functional>

namespace wpp_test {

/// Runs `body` in a child process that sees `root` as the root of its file system, and waits for it. Without root's
/// rights the child makes itself a user namespace first.
///
/// @return what `body` returned (0 to 255); -1 when the child could not get its root or was killed. Expectations
///         that fail in the child are not seen: `body` tells by its result.
int runInPrivateRoot(const std::filesystem::path& root, const std::function<int()>& body);

}  // namespace wpp_test
