#pragma once

namespace wpp_test {

/// Makes one creation of a pipe fail for want of descriptors: the first one after its making is number 1. One at
/// a time.
class FailingPipe {
public:
    explicit FailingPipe(int number);
    ~FailingPipe();
    FailingPipe(const FailingPipe&) = delete;
    FailingPipe& operator=(const FailingPipe&) = delete;
};

}  // namespace wpp_test
