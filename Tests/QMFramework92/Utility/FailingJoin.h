#pragma once

namespace wpp_test {

/// Makes this program's next joins of threads report a failure for the length of a scope. The threads are
/// joined all the same, so that nothing is left behind.
class FailingJoin {
public:
    explicit FailingJoin(int count);
    ~FailingJoin();
    FailingJoin(const FailingJoin&) = delete;
    FailingJoin& operator=(const FailingJoin&) = delete;
};

}  // namespace wpp_test
