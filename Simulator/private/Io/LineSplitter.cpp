#include "Simulator/private/Io/LineSplitter.h"

#include <utility>

namespace simulator {

std::vector<std::string> LineSplitter::feed(std::string_view bytes) {
    std::vector<std::string> lines;
    pending.append(bytes);
    std::size_t start = 0;
    for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n', start)) {
        lines.push_back(pending.substr(start, end - start));
        start = end + 1;
    }
    pending.erase(0, start);
    while (pending.size() > kLongestLine) {
        lines.push_back(pending.substr(0, kLongestLine));
        pending.erase(0, kLongestLine);
    }
    return lines;
}

std::string LineSplitter::takeRest() {
    return std::exchange(pending, std::string());
}

}  // namespace simulator
