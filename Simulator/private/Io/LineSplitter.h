#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace simulator {

/// Cuts a stream of bytes into lines. Pure: no descriptor, no thread.
class LineSplitter {
public:
    /// A line longer than this is cut there, so that a peer without line ends costs bounded memory.
    static constexpr std::size_t kLongestLine = 1u << 20;

    /// Takes the next bytes. @return the lines that are whole now, without their line ends.
    std::vector<std::string> feed(std::string_view bytes);

    /// What stands behind the last line end; for the end of the stream.
    std::string takeRest();

private:
    std::string pending;
};

}  // namespace simulator
